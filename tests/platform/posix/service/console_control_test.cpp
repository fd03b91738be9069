// The service in console mode on the simulated notebook, driven by antennactl over the
// control interface: a fixed mode lands on the switch lines, Auto starts the loop again; and
// read by antennactl over the diagnostics interface: why, history, health.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>

#include "platform/posix/run_process.h"
#include "service/host_fakes.h"

namespace zaltor::host_test {
namespace {

using namespace std::chrono_literals;

std::string bin_dir() {
  const char* dir = std::getenv("ZALTOR_TEST_BIN_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

// The service binary in console mode as a child process, its output in a file.
class ConsoleService {
 public:
  ConsoleService(const TempDir& dir, const std::string& endpoint) : out_(dir.file("out.txt")) {
    std::filesystem::create_directories(dir.file("state/SOFTWARE/ZALTOR/ZALTOR MultiAntenna"));
    write_file(dir.file("scenario.json"),
               R"({"clock": {"mode": "scaled", "speed": 20.0}, "timeline": [],
                   "radio": {"rssi": [{"Main": -50, "Div": -70}, {"Main": -50, "Div": -70}]}})");
    const std::string binary =
        own_program_directory(dir, bin_dir(), {"ZaltorMultiAntennaSvc", "Conf.bin"}) +
        "/ZaltorMultiAntennaSvc";
    const std::string scenario = dir.file("scenario.json");
    const std::string state = dir.file("state");
    const std::string cwd = dir.path();
    pid_ = fork();
    if (pid_ == 0) {
      if (chdir(cwd.c_str()) != 0) _exit(126);
      if (freopen(out_.c_str(), "w", stdout) == nullptr) _exit(126);
      setenv("ZALTOR_SIM_SCENARIO", scenario.c_str(), 1);
      setenv("ZALTOR_STATE_DIR", state.c_str(), 1);
      setenv("ZALTOR_RPC_ENDPOINT", endpoint.c_str(), 1);
      unsetenv("NOTIFY_SOCKET");
      execl(binary.c_str(), binary.c_str(), "-console", static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~ConsoleService() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  std::string output() const {
    return std::filesystem::exists(out_) ? read_file(out_) : std::string();
  }
  // Waits (real time) until the output holds `text` at or after `from`.
  bool wait_for(const std::string& text, size_t from = 0, std::chrono::seconds limit = 60s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
      const std::string out = output();
      if (out.size() > from && out.find(text, from) != std::string::npos) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

 private:
  std::string out_;
  pid_t pid_ = -1;
};

platform::ProcessResult antennactl(const std::string& endpoint, std::vector<std::string> args) {
  std::vector<std::string> argv = {"env", "ZALTOR_RPC_ENDPOINT=" + endpoint,
                                   bin_dir() + "/antennactl"};
  argv.insert(argv.end(), args.begin(), args.end());
  return platform::run_process(argv);
}

TEST(ServiceConsoleControl, FixedModeLandsOnTheSwitchLinesAndAutoRestartsTheLoop) {
  TempDir dir;
  const std::string endpoint = "ZaltorConsoleControl-" + std::to_string(getpid());
  ConsoleService svc(dir, endpoint);
  ASSERT_TRUE(svc.wait_for("4: RPC Endpoints ok.\n")) << svc.output();
  // Both antennas are best in "Main": the loop chooses mode 1.
  ASSERT_TRUE(svc.wait_for("4: Determined mode: 1\n")) << svc.output();
  auto r = antennactl(endpoint, {"call", "QueryValue", "0x1008"});
  ASSERT_EQ(r.out, "status=0\nvalue=1\n");

  r = antennactl(endpoint, {"mode", "3"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  // The mode read back from the switch lines, and the user's mode.
  r = antennactl(endpoint, {"call", "QueryValue", "0x1008"});
  EXPECT_EQ(r.out, "status=0\nvalue=3\n");
  r = antennactl(endpoint, {"call", "QueryValue", "0x1004"});
  EXPECT_EQ(r.out, "status=0\nvalue=3\n");
  // The loop has ended: the monitor's and the loop's threads stop at their next step.
  ASSERT_TRUE(svc.wait_for("4: Auto mode thread ended.\n")) << svc.output();

  const size_t before_auto = svc.output().size();
  r = antennactl(endpoint, {"mode", "auto"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  r = antennactl(endpoint, {"call", "QueryValue", "0x1004"});
  EXPECT_EQ(r.out, "status=0\nvalue=0\n");
  EXPECT_TRUE(svc.wait_for("5: Using Config Set: 1\n", before_auto)) << svc.output();
  EXPECT_TRUE(svc.wait_for("4: Determined mode: ", before_auto)) << svc.output();
}

std::set<std::string> keys(const nlohmann::json& object) {
  std::set<std::string> out;
  for (auto it = object.begin(); it != object.end(); ++it) out.insert(it.key());
  return out;
}

TEST(ServiceConsoleDiagnostics, WhyHistoryAndHealthExplainTheLoopsDecisions) {
  TempDir dir;
  const std::string endpoint = "ZaltorConsoleDiagnostics-" + std::to_string(getpid());
  ConsoleService svc(dir, endpoint);
  ASSERT_TRUE(svc.wait_for("4: RPC Endpoints ok.\n")) << svc.output();
  ASSERT_TRUE(svc.wait_for("5: Sleep: ")) << svc.output();
  // The record is published as the sleep begins; give the call a moment past the log line.
  std::this_thread::sleep_for(100ms);

  auto r = antennactl(endpoint, {"why", "--json"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  const auto why = nlohmann::json::parse(r.out);
  ASSERT_TRUE(why["decision"].is_object()) << r.out;
  const auto& d = why["decision"];
  EXPECT_EQ(keys(d),
            (std::set<std::string>{"time", "trigger", "configSet", "determinator", "currentMode",
                                   "modes", "chosen", "outcome", "sleepMs"}))
      << r.out;
  // Registering for the lid notification delivers the lid's state at once, which asks for a
  // new decision: the first pass may be begun again on it before it decides.
  const std::string trigger = d["trigger"];
  EXPECT_TRUE(trigger == "start" || trigger == "lid") << r.out;
  EXPECT_EQ(d["outcome"], "chosen");
  EXPECT_EQ(d["chosen"], 1);  // both antennas are best in "Main"
  EXPECT_EQ(d["configSet"], 1);
  ASSERT_EQ(d["modes"].size(), 4u) << r.out;
  EXPECT_EQ(keys(d["modes"][0]), (std::set<std::string>{"mode", "disabled", "samples", "rssi",
                                                        "rate", "weight", "weighted"}));
  EXPECT_EQ(d["modes"][0]["rssi"], -50);
  EXPECT_EQ(d["modes"][3]["rssi"], -70);

  r = antennactl(endpoint, {"why"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_NE(r.out.find("(" + trigger + ").\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Result: mode 1, chosen by the"), std::string::npos) << r.out;

  r = antennactl(endpoint, {"history", "1", "--json"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  const auto history = nlohmann::json::parse(r.out);
  ASSERT_EQ(history["decisions"].size(), 1u) << r.out;
  EXPECT_EQ(history["decisions"][0], d);

  r = antennactl(endpoint, {"health", "--json"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  const auto health = nlohmann::json::parse(r.out);
  ASSERT_EQ(health["ports"].size(), 2u) << r.out;
  EXPECT_EQ(health["ports"][0]["port"], "Main");
  EXPECT_EQ(health["ports"][0]["state"], "ok") << r.out;
  EXPECT_EQ(health["ports"][1]["port"], "Aux");
  EXPECT_EQ(keys(health["ports"][1]), (std::set<std::string>{"port", "state", "detail"}));

  r = antennactl(endpoint, {"health"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_NE(r.out.find("Main   ok"), std::string::npos) << r.out;

  r = antennactl(endpoint, {"watch", "--frames", "1"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_NE(r.out.find("Last trigger: " + trigger), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("mode  1"), std::string::npos) << r.out;

  EXPECT_EQ(antennactl(endpoint, {"history", "none"}).exit_code, 2);
  EXPECT_EQ(antennactl(endpoint, {"why", "extra"}).exit_code, 2);
  EXPECT_EQ(antennactl(endpoint + "-nobody", {"why", "--json"}).exit_code, 3);
}

}  // namespace
}  // namespace zaltor::host_test
