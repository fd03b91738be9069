// Choosing the simulated notebook from the environment.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "platform/clock.h"
#include "platform/control_device.h"
#include "platform/select/backends.h"
#include "support/this_platform.h"

namespace zaltor::platform {
namespace {

using test_support::set_env;
using test_support::unset_env;

class SimBackends : public ::testing::Test {
 protected:
  void TearDown() override {
    unset_env("ZALTOR_PLATFORM");
    unset_env("ZALTOR_SIM_SCENARIO");
    std::remove(path_.c_str());
  }
  void write(const std::string& text) {
    std::ofstream f(path_);
    f << text;
  }
  // One file per test: ctest runs the tests of this suite side by side.
  std::string path_ = ::testing::TempDir() + "sim_backends_" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
};

TEST_F(SimBackends, ScenarioFileBuildsTheNotebookHardwareAndClock) {
  write(R"({"clock": {"mode": "virtual"}, "firmware": {"openFails": true}})");
  set_env("ZALTOR_PLATFORM", "sim");
  set_env("ZALTOR_SIM_SCENARIO", path_);
  std::string error;
  auto backends = make_backends(error);
  ASSERT_NE(backends, nullptr) << error;
  Platform& p = backends->platform();
  ASSERT_NE(p.clock, nullptr);
  EXPECT_NE(p.board, nullptr);
  EXPECT_NE(p.devices, nullptr);
  EXPECT_NE(p.wlan, nullptr);
  EXPECT_NE(p.counters, nullptr);
  EXPECT_NE(p.system_events, nullptr);
  ASSERT_NE(p.control_device, nullptr);
  uint32_t err = 0;
  EXPECT_EQ(p.control_device->open("\\\\.\\ZLTACPI", err), nullptr)
      << "the file's fault is in force";
  EXPECT_EQ(err, 2u);
  // Virtual time: the calling thread is attached, so a sleep is a jump.
  p.clock->sleep_ms(60000);
  EXPECT_EQ(p.clock->now_ms(), 60000);
  p.clock->detach_current_thread();
}

TEST_F(SimBackends, AWrongScenarioIsRefusedNamingTheMember) {
  write(R"({"counters": {"Q": 9}})");
  set_env("ZALTOR_PLATFORM", "sim");  // not the default on Windows
  set_env("ZALTOR_SIM_SCENARIO", path_);
  std::string error;
  EXPECT_EQ(make_backends(error), nullptr);
  EXPECT_EQ(error.rfind("scenario: counters.Q: ", 0), 0u) << error;
}

TEST_F(SimBackends, AnUnknownPlatformIsRefused) {
  set_env("ZALTOR_PLATFORM", "quantum");
  std::string error;
  EXPECT_EQ(make_backends(error), nullptr);
  EXPECT_NE(error.find("ZALTOR_PLATFORM=quantum"), std::string::npos) << error;
}

}  // namespace
}  // namespace zaltor::platform
