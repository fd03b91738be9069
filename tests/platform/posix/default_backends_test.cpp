// The backends a Linux start chooses when the environment names none.
#include <gtest/gtest.h>

#include <string>

#include "platform/clock.h"
#include "platform/control_device.h"
#include "platform/select/backends.h"
#include "support/this_platform.h"

namespace zaltor::platform {
namespace {

TEST(DefaultBackends, LinuxDefaultsToTheDefaultSimulatedNotebook) {
  test_support::unset_env("ZALTOR_PLATFORM");
  test_support::unset_env("ZALTOR_SIM_SCENARIO");
  std::string error;
  auto backends = make_backends(error);
  ASSERT_NE(backends, nullptr) << error;
  EXPECT_NE(backends->platform().control_device, nullptr);
  backends->platform().clock->detach_current_thread();
}

}  // namespace
}  // namespace zaltor::platform
