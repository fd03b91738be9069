// The settings that an installation passes on to the service process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "host_fakes.h"
#include "service/command_line.h"
#include "service/service_environment.h"
#include "support/this_platform.h"

namespace zaltor::host_test {
namespace {

using service::service_environment;

TEST(ServiceEnvironment, TheSetVariablesArePassedOnInAFixedOrder) {
  const std::map<std::string, std::string> env = {{"ZALTOR_STATE_DIR", "/var/lib/z"},
                                                  {"ZALTOR_PLATFORM", "sim"},
                                                  {"ZALTOR_SIM_SCENARIO", "C:\\s\\a b.json"},
                                                  {"ZALTOR_OTHER", "x"},
                                                  {"PATH", "/bin"}};
  const auto lookup = [&](const char* name) -> const char* {
    auto it = env.find(name);
    return it != env.end() ? it->second.c_str() : nullptr;
  };
  EXPECT_EQ(service_environment(lookup),
            (std::vector<std::string>{"ZALTOR_PLATFORM=sim", "ZALTOR_SIM_SCENARIO=C:\\s\\a b.json",
                                      "ZALTOR_STATE_DIR=/var/lib/z"}));
}

TEST(ServiceEnvironment, EmptyVariablesMeanTheDefaultAndAreLeftOut) {
  const auto lookup = [](const char* name) -> const char* {
    return std::string(name) == "ZALTOR_RPC_ENDPOINT" ? "Ep" : "";
  };
  EXPECT_EQ(service_environment(lookup), (std::vector<std::string>{"ZALTOR_RPC_ENDPOINT=Ep"}));
  EXPECT_TRUE(service_environment([](const char*) -> const char* { return nullptr; }).empty());
}

TEST(ServiceEnvironment, InstallRegistersTheInstallersSettingsWithTheService) {
  std::map<std::string, std::string> saved;
  for (const char* name : service::kServiceEnvironmentNames) {
    if (const char* v = std::getenv(name)) saved[name] = v;
    test_support::unset_env(name);
  }
  test_support::set_env("ZALTOR_PLATFORM", "sim");
  test_support::set_env("ZALTOR_RPC_ENDPOINT", "TestEndpoint");
  FakePlatform fp;
  EXPECT_EQ(service::run_command_line({"ZaltorMultiAntennaSvc", "-install"}, fp.platform), 0);
  EXPECT_EQ(fp.services.created.environment,
            (std::vector<std::string>{"ZALTOR_PLATFORM=sim", "ZALTOR_RPC_ENDPOINT=TestEndpoint"}));
  for (const char* name : service::kServiceEnvironmentNames) {
    if (saved.count(name) != 0) {
      test_support::set_env(name, saved[name]);
    } else {
      test_support::unset_env(name);
    }
  }
}

}  // namespace
}  // namespace zaltor::host_test
