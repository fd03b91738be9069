// antennactl lab run as a process: several runs in parallel children, JSON, exit codes.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "lab/lab_fixture.h"

namespace zaltor::lab::testing {
namespace {

std::string bin_dir() {
  const char* dir = std::getenv("ZALTOR_TEST_BIN_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  std::error_code ec;
  return std::filesystem::read_symlink("/proc/self/exe", ec).parent_path().string();
}

struct ToolRun {
  int exit_code = -1;
  std::string out;  // standard output
  std::string err;  // standard error
};

class LabCli : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("lab-cli-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  std::string write(const std::string& name, const std::string& text) {
    const auto p = dir_ / name;
    std::ofstream(p) << text;
    return p.string();
  }
  ToolRun lab(const std::string& args) {
    const std::string err = (dir_ / "stderr.txt").string();
    const std::string cmd = "'" + bin_dir() + "/antennactl' lab " + args + " 2>'" + err + "'";
    ToolRun r;
    std::FILE* p = ::popen(cmd.c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int status = ::pclose(p);
    r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::ifstream in(err);
    r.err.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return r;
  }
  std::filesystem::path dir_;
};

const char* const kRadio = R"({"rssi": [{"Main": -60, "Div": -52}, {"Main": -62, "Div": -55}],
  "noise": 0, "seed": 1, "rateMbps": [866.7, 866.7, 866.7, 866.7], "throughputBps": 1})";

TEST_F(LabCli, RunsEveryScenarioWithEveryConfigurationAndPrintsJson) {
  const std::string s1 = write("one.json", scenario_text(300, kRadio));
  const std::string s2 = write("two.json", scenario_text(200, kRadio));
  const std::string c1 = write("plain.ini", config_text(0.0));
  const std::string c2 = write("weighted.ini", config_text(5.0));
  const ToolRun r =
      lab("run --model AB12XY --config " + c1 + " --config " + c2 + " --json " + s1 + " " + s2);
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const auto j = nlohmann::json::parse(r.out);
  ASSERT_EQ(j["runs"].size(), 4u);
  EXPECT_EQ(j["runs"][0]["scenario"], "one.json");
  EXPECT_EQ(j["runs"][0]["config"], "plain.ini");
  EXPECT_EQ(j["runs"][1]["config"], "weighted.ini");
  EXPECT_EQ(j["runs"][2]["scenario"], "two.json");
  EXPECT_DOUBLE_EQ(j["runs"][2]["simulatedSeconds"].get<double>(), 200.0);
  for (const auto& run : j["runs"]) {
    for (const char* key : {"passes", "modeChanges", "secondsPerMode", "rateShare", "rssiLossDb",
                            "measuringShare", "reactionSeconds", "fallbacks"}) {
      EXPECT_TRUE(run.contains(key)) << key;
    }
    EXPECT_EQ(run["secondsPerMode"].size(), 4u);
  }
  // The weight costs RSSI: the weighted configuration loses more.
  EXPECT_GT(j["runs"][1]["rssiLossDb"].get<double>(), j["runs"][0]["rssiLossDb"].get<double>());

  const ToolRun table = lab("run --model AB12XY --config " + c1 + " " + s1);
  ASSERT_EQ(table.exit_code, 0) << table.err;
  EXPECT_NE(table.out.find("rateShare"), std::string::npos);
  EXPECT_NE(table.out.find("one.json"), std::string::npos);
}

TEST_F(LabCli, AnEncryptedConfigurationScoresAsItsPlainText) {
  const std::string s = write("s.json", scenario_text(600, kRadio));
  const std::string plain = write("w.ini", config_text(5.0));
  const std::string cipher = (dir_ / "w.bin").string();
  const std::string encrypt =
      "'" + bin_dir() + "/antennactl' config encrypt " + plain + " " + cipher;
  ASSERT_EQ(std::system(encrypt.c_str()), 0);
  const ToolRun a = lab("run --model AB12XY --config " + plain + " --json " + s);
  const ToolRun b = lab("run --model AB12XY --config " + cipher + " --json " + s);
  ASSERT_EQ(a.exit_code, 0) << a.err;
  ASSERT_EQ(b.exit_code, 0) << b.err;
  auto ja = nlohmann::json::parse(a.out)["runs"][0];
  auto jb = nlohmann::json::parse(b.out)["runs"][0];
  EXPECT_EQ(jb["config"], "w.bin");
  ja.erase("config");
  jb.erase("config");
  EXPECT_EQ(ja, jb);
  EXPECT_GT(ja["rssiLossDb"].get<double>(), 1.0);  // the weight is in force
}

TEST_F(LabCli, RefusesAMalformedScenarioOrConfigurationNamingIt) {
  const std::string good = write("good.json", scenario_text(60, kRadio));
  const std::string bad = write("bad.json", scenario_text(60, R"({"rssi": "loud"})"));
  const std::string conf = write("c.ini", config_text());
  ToolRun r = lab("run --model AB12XY --config " + conf + " " + good + " " + bad);
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.err.find("bad.json"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("radio.rssi"), std::string::npos) << r.err;

  const std::string bad_conf = write("bad.ini", "[Version]\nTargetVersionMajor=9\n");
  r = lab("run --model AB12XY --config " + bad_conf + " " + good);
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.err.find("configuration " + bad_conf), std::string::npos) << r.err;
}

TEST_F(LabCli, UsageErrorsExitWithTwo) {
  EXPECT_EQ(lab("").exit_code, 2);
  EXPECT_EQ(lab("run --config x.ini s.json").exit_code, 2);          // no model
  EXPECT_EQ(lab("run --model AB12XY s.json").exit_code, 2);          // no configuration
  EXPECT_EQ(lab("run --model AB12XY --config x.ini").exit_code, 2);  // no scenario
  EXPECT_EQ(lab("walk").exit_code, 2);
}

}  // namespace
}  // namespace zaltor::lab::testing
