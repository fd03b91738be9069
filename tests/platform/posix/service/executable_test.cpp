// The service executable run as a process: console mode, a hand start, a run under a notify
// socket, and installation through a stand-in systemctl.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "notify_socket.h"
#include "platform/posix/run_process.h"
#include "service/host_fakes.h"

namespace zaltor::host_test {
namespace {

// ZALTOR_TEST_BIN_DIR names the build's bin directory; without it, the directory of this
// test executable, which the build puts in the same place.
std::string service_binary() {
  const char* dir = std::getenv("ZALTOR_TEST_BIN_DIR");
  if (dir != nullptr && *dir != '\0') return std::string(dir) + "/ZaltorMultiAntennaSvc";
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ZaltorMultiAntennaSvc")
      .string();
}

// Runs the service binary in `cwd` with extra environment entries ("-NAME" removes one).
platform::ProcessResult run_service(const std::string& cwd, std::vector<std::string> env,
                                    std::vector<std::string> args) {
  std::vector<std::string> argv = {"sh", "-c", "cd \"$1\" && shift && exec \"$@\"",
                                   "sh", cwd,  "env"};
  for (const auto& e : env) {
    if (e[0] == '-') {
      argv.push_back("-u");
      argv.push_back(e.substr(1));
    } else {
      argv.push_back(e);
    }
  }
  argv.push_back(service_binary());
  argv.insert(argv.end(), args.begin(), args.end());
  return platform::run_process(argv);
}

// A notebook whose control device cannot be opened: the worker does not start.
std::string unsupported_notebook(const TempDir& dir) {
  write_file(dir.file("no-device.json"), R"({"firmware": {"openFails": true}})");
  return "ZALTOR_SIM_SCENARIO=" + dir.file("no-device.json");
}

TEST(ServiceExecutable, ConsoleRunPrintsExactlyTheLogAndTheRunBodyResult) {
  TempDir dir;
  const auto r =
      run_service(dir.path(), {"-NOTIFY_SOCKET", unsupported_notebook(dir)}, {"-console"});
  ASSERT_TRUE(r.started);
  EXPECT_EQ(r.out,
            "4: Starting Rpc Server..\n"
            "1: InitializeZLTACPIDevice Failed!\n"
            "4: Worker obj init() Failed!\n"
            "RpcServerConnect returned: 0x6e\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.exit_code, 110);
  // The log file is set up late in the worker's start-up, which never got there.
  EXPECT_FALSE(std::filesystem::exists(dir.file("rflog.txt")));
}

TEST(ServiceExecutable, ABadScenarioIsRefusedAtStartNamingTheMember) {
  TempDir dir;
  write_file(dir.file("bad.json"), R"({"radio": {"rssi": [{"Main": "loud"}]}})");
  const auto r =
      run_service(dir.path(), {"ZALTOR_SIM_SCENARIO=" + dir.file("bad.json")}, {"-console"});
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("radio.rssi[0]"), std::string::npos) << r.err;
}

TEST(ServiceExecutable, AScenarioTheJsonReaderRejectsEndsWithExitOneAndTheFileNamed) {
  TempDir dir;
  write_file(dir.file("overflow.json"), R"({"stopAfter": 1e999})");
  const auto r =
      run_service(dir.path(), {"ZALTOR_SIM_SCENARIO=" + dir.file("overflow.json")}, {"-console"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err.rfind("scenario: not valid JSON: ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find("(in " + dir.file("overflow.json") + ")\n"), std::string::npos) << r.err;
}

TEST(ServiceExecutable, HandStartWithoutArgumentsFailsInTheDispatcher) {
  TempDir dir;
  const auto r = run_service(dir.path(), {"-NOTIFY_SOCKET"}, {});
  EXPECT_EQ(r.out, "Service failed to run w/err 0x00000427\nInvalid arguments.");
  EXPECT_EQ(r.exit_code, 1);
}

TEST(ServiceExecutable, UnknownWordIsInvalid) {
  TempDir dir;
  const auto r = run_service(dir.path(), {}, {"--install"});
  EXPECT_EQ(r.out, "Invalid arguments.");
  EXPECT_EQ(r.exit_code, 1);
}

TEST(ServiceExecutable, UnderANotifySocketTheFailedStartIsReportedWithRisingCheckpoints) {
  TempDir dir;
  NotifySocket notify(dir.file("notify"));
  const auto r =
      run_service(dir.path(), {"NOTIFY_SOCKET=" + notify.path(), unsupported_notebook(dir)}, {});
  EXPECT_EQ(r.out, "Invalid arguments.");
  EXPECT_EQ(r.exit_code, 1);
  std::vector<std::string> messages = notify.drain();
  // The worker fails on the pool thread while the service reports running: that report may
  // come on either side of the stop pending one, or after the stop, when the dispatcher no
  // longer takes it.
  std::vector<std::string> without_running;
  int running = 0;
  for (const auto& m : messages) {
    if (m == "READY=1\nSTATUS=Running, checkpoint 0, exit code 0") {
      ++running;
    } else {
      without_running.push_back(m);
    }
  }
  EXPECT_LE(running, 1);
  EXPECT_EQ(without_running,
            (std::vector<std::string>{"STATUS=Start pending, checkpoint 1, exit code 0",
                                      "STOPPING=1\nSTATUS=Stop pending, checkpoint 2, exit code 0",
                                      "STATUS=Stopped, checkpoint 0, exit code 0"}));
}

TEST(ServiceExecutable, InstallAndRemoveThroughSystemctl) {
  TempDir dir;
  std::filesystem::create_directory(dir.file("bin"));
  std::filesystem::create_directory(dir.file("units"));
  write_file(dir.file("bin/systemctl"),
             "#!/bin/sh\necho \"$*\" >> \"$(dirname \"$0\")/calls\"\n"
             "if [ \"$1\" = show ]; then echo inactive; fi\nexit 0\n",
             true);
  const char* path = std::getenv("PATH");
  const std::vector<std::string> env = {
      "PATH=" + dir.file("bin") + ":" + (path != nullptr ? path : ""),
      "ZALTOR_SYSTEMD_UNIT_DIR=" + dir.file("units")};
  auto r = run_service(dir.path(), env, {"/install"});
  EXPECT_EQ(r.out, "ZaltorMultiAntennaSvc is installed.\n");
  EXPECT_EQ(r.exit_code, 0);
  const std::string unit = read_file(dir.file("units/ZaltorMultiAntennaSvc.service"));
  const std::string binary = std::filesystem::canonical(service_binary()).string();
  EXPECT_NE(unit.find("ExecStart=\"" + binary + "\"\n"), std::string::npos) << unit;
  EXPECT_NE(unit.find("Type=notify\n"), std::string::npos);

  r = run_service(dir.path(), env, {"-remove"});
  EXPECT_EQ(r.out, "ZaltorMultiAntennaSvc is removed.\n");
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_FALSE(std::filesystem::exists(dir.file("units/ZaltorMultiAntennaSvc.service")));
}

}  // namespace
}  // namespace zaltor::host_test
