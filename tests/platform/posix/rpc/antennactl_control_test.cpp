// antennactl's control commands run as a process against a test server.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

std::string antennactl_path() {
  const char* dir = std::getenv("ZALTOR_TEST_BIN_DIR");
  std::filesystem::path bin = dir != nullptr
                                  ? std::filesystem::path(dir)
                                  : std::filesystem::read_symlink("/proc/self/exe").parent_path();
  return (bin / "antennactl").string();
}

struct ToolRun {
  std::string out;
  int exit_code = -1;
};

ToolRun antennactl(const std::string& endpoint, const std::string& args) {
  const std::string cmd =
      "ZALTOR_RPC_ENDPOINT='" + endpoint + "' '" + antennactl_path() + "' " + args + " 2>/dev/null";
  ToolRun r;
  FILE* p = ::popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  std::array<char, 512> buf;
  size_t n = 0;
  while ((n = std::fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  const int st = ::pclose(p);
  r.exit_code = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

class RpcAntennactl : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::exists(antennactl_path())) << antennactl_path();
  }
  ToolRun run(const std::string& args) { return antennactl(server_.endpoint, args); }
  TestServer server_{"antennactl"};
};

TEST_F(RpcAntennactl, CallQueryValuePrintsStatusAndValue) {
  server_.target.switch_count = 2;
  ToolRun r = run("call QueryValue 0x1005");
  EXPECT_EQ(r.out, "status=0\nvalue=2\n");
  EXPECT_EQ(r.exit_code, 0);
  r = run("call QueryValue 4098");
  EXPECT_EQ(r.out, "status=1\nvalue=0\n");
  EXPECT_EQ(r.exit_code, 0);
}

TEST_F(RpcAntennactl, CallOfACodeOutsideTheGroupCompletesWithStatus36) {
  ToolRun r = run("call QueryValue 0x3001");
  EXPECT_EQ(r.out, "status=36\nvalue=0\n");
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(server_.target.call_count(), 0u);
}

TEST_F(RpcAntennactl, CallEveryProcedureShape) {
  server_.target.out_value = 1;
  ToolRun r = run("call QueryIndexedValue 0x2002 3");
  EXPECT_EQ(r.out, "status=0\nvalue=1\n");
  r = run("call SetValue 0x3001 2");
  EXPECT_EQ(r.out, "status=0\n");
  r = run("call SetPairedValue 0x4001 1 -1");
  EXPECT_EQ(r.out, "status=0\n");
  r = run("call QueryArray 0x5001 4");
  EXPECT_EQ(r.out, "status=0\nvalues=-51,-52,-53,-54\n");
  r = run("call 6 20482 0");
  EXPECT_EQ(r.out, "status=0\nvalues=\n");
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(
      server_.target.calls(),
      (std::vector<std::string>{"GetControlBit(3,4)", "SetUserMode(2)", "SetSwitchPosition(1,-1)",
                                "GetRssiAllPorts(4)", "GetRssiCurrentMode(0)"}));
}

TEST_F(RpcAntennactl, StatusOfTheOperationIsPrintedAndExitIsStillZero) {
  server_.target.status = 28;
  ToolRun r = run("call SetValue 0x3001 9");
  EXPECT_EQ(r.out, "status=28\n");
  EXPECT_EQ(r.exit_code, 0);
}

TEST_F(RpcAntennactl, FaultIsPrintedWithExitThree) {
  server_.target.set_readings({-95, -95});
  ToolRun r = run("call QueryValue 0x1003");
  EXPECT_EQ(r.out, "fault=0xC0000094\n");
  EXPECT_EQ(r.exit_code, 3);
  r = run("call QueryArray 0x5001 4097");
  EXPECT_EQ(r.out, "fault=0x000006C6\n");
  EXPECT_EQ(r.exit_code, 3);
  // The service still answers.
  r = run("call QueryValue 0x1002");
  EXPECT_EQ(r.exit_code, 0);
}

TEST_F(RpcAntennactl, UnreachableServiceIsAFaultWithExitThree) {
  ToolRun r = antennactl(unique_endpoint("absent"), "call QueryValue 0x1001");
  EXPECT_EQ(r.out, "fault=0x000006BA\n");
  EXPECT_EQ(r.exit_code, 3);
  r = antennactl(unique_endpoint("absent"), "status");
  EXPECT_EQ(r.exit_code, 3);
}

TEST_F(RpcAntennactl, UsageErrorsExitTwoWithoutCalling) {
  for (const char* args :
       {"call", "call QueryValue", "call QueryValue 0x1001 5", "call SetPairedValue 0x4001 1",
        "call Frobnicate 1", "call QueryValue 0xZZ", "call 1 0x1001", "call 7 1",
        "call QueryArray 0x5001", "mode", "mode fast", "switch get", "switch set 1 sideways",
        "line", "rssi --some", "nonsense"}) {
    ToolRun r = run(args);
    EXPECT_EQ(r.exit_code, 2) << args;
    EXPECT_EQ(r.out, "") << args;
  }
  EXPECT_EQ(server_.target.call_count(), 0u);
}

TEST_F(RpcAntennactl, JsonOutput) {
  ToolRun r = run("call QueryValue 0x1006 --json");
  EXPECT_EQ(r.out, "{\"status\":0,\"value\":4}\n");
  r = run("--json call QueryArray 0x5002 2");
  EXPECT_EQ(r.exit_code, 2);  // options follow the command word
  r = run("call QueryArray 0x5002 2 --json");
  EXPECT_EQ(r.out, "{\"status\":0,\"values\":[-51,-52]}\n");
  server_.target.set_readings({-95});
  r = run("call QueryValue 0x1003 --json");
  EXPECT_EQ(r.out, "{\"fault\":\"0xC0000094\"}\n");
  EXPECT_EQ(r.exit_code, 3);
  r = run("switch get 1 --json");
  EXPECT_EQ(r.out, "{\"status\":0,\"value\":0}\n");
  r = run("mode 2 --json");
  EXPECT_EQ(r.out, "{\"status\":0}\n");
}

TEST_F(RpcAntennactl, StatusScreen) {
  server_.target.scripted_user_mode = 0;
  server_.target.switch_count = 2;
  server_.target.scripted_mode_count = 4;
  server_.target.scripted_auto_state = 1;
  server_.target.out_value = 3;
  server_.target.set_readings({-60, -95, -70});
  ToolRun r = run("status");
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(r.out,
            "switches:      2\n"
            "modes:         4\n"
            "user mode:     auto (0)\n"
            "current mode:  3\n"
            "auto state:    idle (1)\n"
            "average RSSI:  -65 dBm\n"
            "current-mode RSSI: Main -51 dBm, Aux -52 dBm\n");
  r = run("status --json");
  EXPECT_EQ(r.out,
            "{\"switchCount\":{\"status\":0,\"value\":2},\"modeCount\":{\"status\":0,\"value\":4},"
            "\"userMode\":{\"status\":0,\"value\":0},\"currentMode\":{\"status\":0,\"value\":3},"
            "\"autoState\":{\"status\":0,\"value\":1},\"averageRssi\":{\"status\":0,\"value\":-65},"
            "\"currentModeRssi\":{\"status\":0,\"values\":[-51,-52]}}\n");
}

TEST_F(RpcAntennactl, ModeSwitchLineAndRssiCommands) {
  EXPECT_EQ(run("mode auto").out, "status=0\n");
  EXPECT_EQ(run("mode 3").exit_code, 0);
  EXPECT_EQ(run("switch set 1 Div").out, "status=0\n");
  EXPECT_EQ(run("switch set 0 main").exit_code, 0);
  server_.target.out_value = 1;
  EXPECT_EQ(run("switch get 1").out, "status=0\nvalue=1\n");
  EXPECT_EQ(run("line get 5").out, "status=0\nvalue=1\n");
  EXPECT_EQ(run("line set 5 0").out, "status=0\n");
  server_.target.switch_count = 2;
  EXPECT_EQ(run("rssi").out, "Main -51 dBm, Aux -52 dBm\n");
  EXPECT_EQ(run("rssi --all-ports").out,
            "Main: Main -51 dBm, Aux -52 dBm\nDiv: Main -53 dBm, Aux -54 dBm\n");
  EXPECT_EQ(server_.target.calls(),
            (std::vector<std::string>{"SetUserMode(0)", "SetUserMode(3)", "SetSwitchPosition(1,1)",
                                      "SetSwitchPosition(0,0)", "GetSwitchPosition(1)",
                                      "GetControlBit(5,4)", "SetControlBit(5,0,4)",
                                      "GetRssiCurrentMode(2)", "GetRssiAllPorts(4)"}));
  // Every command closed its context.
  EXPECT_EQ(server_.procedures.open_contexts(), 0);
}

}  // namespace
}  // namespace zaltor::rpc::test
