// The command line over fake seams: every word, message, exit code and order.
#include <gtest/gtest.h>

#include "host_fakes.h"
#include "service/command_line.h"

namespace zaltor::host_test {
namespace {

using service::run_command_line;

int run(FakePlatform& fp, std::vector<std::string> args) {
  args.insert(args.begin(), "ZaltorMultiAntennaSvc");
  return run_command_line(args, fp.platform);
}

bool installed(const FakePlatform& fp) {
  for (const auto& c : fp.services.calls()) {
    if (c.rfind("create_service", 0) == 0) return true;
  }
  return false;
}

TEST(CommandLine, InstallWordIsMatchedWithoutRegardToCaseAfterEitherSwitchCharacter) {
  for (const char* arg : {"/INSTALL", "-Install", "/install", "-iNsTaLl"}) {
    FakePlatform fp;
    EXPECT_EQ(run(fp, {arg}), 0) << arg;
    EXPECT_TRUE(installed(fp)) << arg;
    EXPECT_EQ(fp.console.text(), "ZaltorMultiAntennaSvc is installed.\n") << arg;
  }
}

TEST(CommandLine, InstallWithoutSwitchCharacterRunsTheServicePath) {
  FakePlatform fp;
  EXPECT_EQ(run(fp, {"install"}), 1);
  EXPECT_FALSE(installed(fp));
  EXPECT_EQ(fp.console.text(), "Service failed to run w/err 0x00000427\nInvalid arguments.");
}

TEST(CommandLine, DoubledSwitchCharacterIsAnUnknownWord) {
  FakePlatform fp;
  EXPECT_EQ(run(fp, {"--install"}), 1);
  EXPECT_FALSE(installed(fp));
  EXPECT_EQ(fp.console.text(), "Invalid arguments.");
  EXPECT_TRUE(fp.services.calls().empty());
}

TEST(CommandLine, UnknownWordsAndALoneSwitchCharacterAreInvalid) {
  for (const char* arg : {"-help", "/", "-", "-installx", "/consol"}) {
    FakePlatform fp;
    EXPECT_EQ(run(fp, {arg}), 1) << arg;
    EXPECT_EQ(fp.console.text(), "Invalid arguments.") << arg;
  }
}

TEST(CommandLine, OnlyAsciiLettersFoldForTheComparison) {
  FakePlatform fp;
  // U+0130 (capital I with dot) does not fold to "i".
  EXPECT_EQ(run(fp, {"-\xC4\xB0nstall"}), 1);
  EXPECT_EQ(fp.console.text(), "Invalid arguments.");
}

TEST(CommandLine, SwitchMustBeTheFirstArgument) {
  FakePlatform fp;
  EXPECT_EQ(run(fp, {"service", "-install"}), 1);
  EXPECT_FALSE(installed(fp));
}

TEST(CommandLine, HandStartWithoutArgumentsPrintsTheDispatcherFailureThenInvalidArguments) {
  FakePlatform fp;
  EXPECT_EQ(run(fp, {}), 1);
  EXPECT_EQ(fp.console.text(), "Service failed to run w/err 0x00000427\nInvalid arguments.");
  // The service object was built and torn down: its provider came and went.
  EXPECT_EQ(fp.trace.registered.size(), 1u);
  EXPECT_EQ(fp.trace.unregistered.size(), 1u);
}

TEST(CommandLine, ServiceRunUnderTheManagerStillEndsWithInvalidArgumentsAndExitCode1) {
  FakePlatform fp;
  fp.services.dispatch = true;
  fp.services.controls = {platform::kControlStop};
  EXPECT_EQ(run(fp, {}), 1);
  EXPECT_EQ(fp.console.text(), "Invalid arguments.");
  EXPECT_EQ(fp.services.reports().back().current_state, platform::kServiceStopped);
}

TEST(CommandLine, InstallRegistersTheServiceAndStartsIt) {
  FakePlatform fp;
  EXPECT_EQ(run(fp, {"-install"}), 0);
  EXPECT_EQ(fp.services.calls(),
            (std::vector<std::string>{"module_file_name", "open_manager 3", "create_service 100",
                                      "change_description 200", "start_service 200", "close 100",
                                      "close 200"}));
  const auto& c = fp.services.created;
  EXPECT_EQ(c.name, "ZaltorMultiAntennaSvc");
  EXPECT_EQ(c.display_name, "ZALTOR Multi Antenna Service");
  EXPECT_EQ(c.desired_access, 0x36u);
  EXPECT_EQ(c.service_type, 0x10u);
  EXPECT_EQ(c.start_type, 2u);
  EXPECT_EQ(c.error_control, 1u);
  EXPECT_EQ(c.binary_path, "/opt/zaltor/ZaltorMultiAntennaSvc");
  EXPECT_EQ(fp.services.description,
            "Service for management of multi antenna system. If this service is stopped, Zaltor "
            "MultiAntenna App will stop working.");
}

TEST(CommandLine, InstallFailuresArePrintedAndTheExitCodeStaysZero) {
  {
    FakePlatform fp;
    fp.services.errors["module_file_name"] = 0x7A;
    EXPECT_EQ(run(fp, {"-install"}), 0);
    EXPECT_EQ(fp.console.text(), "GetModuleFileName failed w/err 0x0000007a\n");
  }
  {
    FakePlatform fp;
    fp.services.errors["open_manager"] = 5;
    EXPECT_EQ(run(fp, {"-install"}), 0);
    EXPECT_EQ(fp.console.text(), "OpenSCManager failed w/err 0x00000005\n");
  }
  {
    FakePlatform fp;
    fp.services.errors["create_service"] = 1073;
    EXPECT_EQ(run(fp, {"-install"}), 0);
    EXPECT_EQ(fp.console.text(), "CreateService failed w/err 0x00000431\n");
    EXPECT_EQ(fp.services.calls().back(), "close 100");
  }
  {
    FakePlatform fp;
    fp.services.errors["change_description"] = 87;
    fp.services.errors["start_service"] = 1056;
    EXPECT_EQ(run(fp, {"-install"}), 0);
    EXPECT_EQ(fp.console.text(),
              "ChangeServiceConfig2 failed w/err 0x00000057\n"
              "StartService failed w/err 0x00000420\n"
              "ZaltorMultiAntennaSvc is installed.\n");
  }
}

TEST(CommandLine, RemoveStopsARunningServiceWaitingASecondPerRound) {
  FakePlatform fp;
  fp.services.query_states = {platform::kServiceStopPending, platform::kServiceStopPending,
                              platform::kServiceStopped};
  EXPECT_EQ(run(fp, {"-remove"}), 0);
  EXPECT_EQ(fp.console.text(),
            "Stopping ZaltorMultiAntennaSvc...\n"
            "ZaltorMultiAntennaSvc is stopped.\n"
            "ZaltorMultiAntennaSvc is removed.\n");
  EXPECT_EQ(fp.clock.sleeps(), (std::vector<int64_t>{1000, 1000, 1000}));
  EXPECT_EQ(fp.services.calls(),
            (std::vector<std::string>{
                "open_manager 1", "open_service 100 ZaltorMultiAntennaSvc 0x10024",
                "control_stop 300", "query_status 300", "query_status 300", "query_status 300",
                "delete_service 300", "close 100", "close 300"}));
}

TEST(CommandLine, RemoveOnAStoppedServicePrintsNoStoppingLine) {
  FakePlatform fp;
  fp.services.errors["control_stop"] = 1062;
  EXPECT_EQ(run(fp, {"/remove"}), 0);
  EXPECT_EQ(fp.console.text(), "ZaltorMultiAntennaSvc is removed.\n");
  EXPECT_TRUE(fp.clock.sleeps().empty());
}

TEST(CommandLine, RemoveReportsAServiceThatFailedToStop) {
  FakePlatform fp;
  fp.services.query_states = {platform::kServiceRunning};
  EXPECT_EQ(run(fp, {"-REMOVE"}), 0);
  EXPECT_EQ(fp.console.text(),
            "Stopping ZaltorMultiAntennaSvc.\n"
            "ZaltorMultiAntennaSvc failed to stop.\n"
            "ZaltorMultiAntennaSvc is removed.\n");
}

TEST(CommandLine, RemovePollingEndsWhenTheQueryFails) {
  FakePlatform fp;
  fp.services.errors["query_status"] = 6;
  EXPECT_EQ(run(fp, {"-remove"}), 0);
  // The last state read is the one the stop request answered.
  EXPECT_EQ(fp.console.text(),
            "Stopping ZaltorMultiAntennaSvc.\n"
            "ZaltorMultiAntennaSvc failed to stop.\n"
            "ZaltorMultiAntennaSvc is removed.\n");
}

TEST(CommandLine, RemoveFailuresArePrintedAndTheExitCodeStaysZero) {
  {
    FakePlatform fp;
    fp.services.errors["open_manager"] = 5;
    EXPECT_EQ(run(fp, {"-remove"}), 0);
    EXPECT_EQ(fp.console.text(), "OpenSCManager failed w/err 0x00000005\n");
  }
  {
    FakePlatform fp;
    fp.services.errors["open_service"] = 1060;
    EXPECT_EQ(run(fp, {"-remove"}), 0);
    EXPECT_EQ(fp.console.text(), "OpenService failed w/err 0x00000424\n");
    EXPECT_EQ(fp.services.calls().back(), "close 100");
  }
  {
    FakePlatform fp;
    fp.services.errors["control_stop"] = 1062;
    fp.services.errors["delete_service"] = 1072;
    EXPECT_EQ(run(fp, {"-remove"}), 0);
    EXPECT_EQ(fp.console.text(), "DeleteService failed w/err 0x00000430\n");
  }
}

TEST(CommandLine, ConsoleRunsTheRunBodyOnTheCallingThreadAndExitsWithItsError) {
  FakePlatform fp;
  EXPECT_EQ(run(fp, {"-console"}), 110);
  EXPECT_EQ(fp.console.text(),
            "4: Starting Rpc Server..\n"
            "4: Worker obj init() Failed!\n"
            "RpcServerConnect returned: 0x6e\n");
  EXPECT_TRUE(fp.services.calls().empty());
  EXPECT_TRUE(fp.services.reports().empty());
}

TEST(CommandLine, ConsoleKeepsTheConfigurationNameCutTo259Characters) {
  FakePlatform fp;
  std::string seen;
  bool console_flag = false;
  service::ServiceHooks hooks;
  hooks.run_body = [&](service::CMultiAntennaSvc& svc) -> uint32_t {
    seen = svc.console_name();
    console_flag = svc.console();
    return 0;
  };
  const std::string long_name(400, 'c');
  EXPECT_EQ(run_command_line({"svc", "/Console", long_name, "ignored"}, fp.platform, hooks), 0);
  EXPECT_EQ(seen, std::string(259, 'c'));
  EXPECT_TRUE(console_flag);
  EXPECT_EQ(fp.console.text(), "4: Starting Rpc Server..\n");
  EXPECT_EQ(run_command_line({"svc", "-console"}, fp.platform, hooks), 0);
  EXPECT_EQ(seen, "");
}

TEST(CommandLine, OnlyARunWithoutSwitchWordIsTheServiceManagersRun) {
  using service::runs_under_service_manager;
  EXPECT_TRUE(runs_under_service_manager({"svc"}));
  EXPECT_TRUE(runs_under_service_manager({"svc", "install"}));
  EXPECT_TRUE(runs_under_service_manager({"svc", ""}));
  for (const char* word : {"-install", "/remove", "-console", "-x", "/"}) {
    EXPECT_FALSE(runs_under_service_manager({"svc", word})) << word;
  }
}

}  // namespace
}  // namespace zaltor::host_test
