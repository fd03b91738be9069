// The test executables' main: it makes the source and binary directories known to the
// tests (as ZALTOR_TEST_SOURCE_DIR and ZALTOR_TEST_BIN_DIR) unless the caller set them,
// so that tests run the same from ctest, by hand or under an emulator.
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/this_platform.h"

namespace {
void set_default_env(const char* name, const char* value) {
  if (std::getenv(name) != nullptr) return;
  zaltor::test_support::set_env(name, value);
}
}  // namespace

int main(int argc, char** argv) {
  set_default_env("ZALTOR_TEST_SOURCE_DIR", ZALTOR_TEST_SOURCE_DIR_DEFAULT);
  set_default_env("ZALTOR_TEST_BIN_DIR", ZALTOR_TEST_BIN_DIR_DEFAULT);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
