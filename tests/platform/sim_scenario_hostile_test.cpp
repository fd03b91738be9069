// Scenario files that no author would write on purpose: numbers beyond a double, nesting
// deeper than any scenario needs, a directory or a huge file where the file should be.
// Each is refused with a message, never with an exception or a crash.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/sim/scenario.h"
#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

std::string hostile_load_error(const std::string& text) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  EXPECT_FALSE(load_scenario(text, doc, s, error)) << text;
  return error;
}

TEST(SimScenarioHostile, ANumberBeyondADoubleIsRefused) {
  const std::string error = hostile_load_error(R"({"stopAfter": 1e999})");
  EXPECT_EQ(error.rfind("scenario: not valid JSON: ", 0), 0u) << error;
  EXPECT_NE(error.find("1e999"), std::string::npos) << error;
}

TEST(SimScenarioHostile, ANumberBeyondADoubleInsideTheTimelineIsRefused) {
  const std::string error =
      hostile_load_error(R"({"timeline": [{"at": -1e400, "patch": {"lid": {"open": false}}}]})");
  EXPECT_EQ(error.rfind("scenario: not valid JSON: ", 0), 0u) << error;
}

TEST(SimScenarioHostile, DeepNestingIsRefusedBeforeItIsWalked) {
  // Deep enough that a recursive merge or copy would run out of stack.
  const size_t depth = 200000;
  const std::string text = "{\"radio\": " + std::string(depth, '[') + std::string(depth, ']') + "}";
  const std::string error = hostile_load_error(text);
  EXPECT_EQ(error, "scenario: nested deeper than 64 levels");
}

TEST(SimScenarioHostile, NestingThatScenariosUseIsAccepted) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  // Brackets inside strings do not count.
  EXPECT_TRUE(load_scenario(R"({"board": {"products": ["[[[[[[[[{{{{{{{{\"[["]},
      "timeline": [{"at": 1, "patch": {"radio": {"rssi": [{"Main": -50, "Div": -60},
      {"Main": -50, "Div": -60}]}}}]})",
                            doc, s, error))
      << error;
  EXPECT_EQ(s.products[0], "[[[[[[[[{{{{{{{{\"[[");
}

TEST(SimScenarioHostile, InvalidUtf8IsRefused) {
  const std::string error = hostile_load_error("{\"board\": {\"products\": [\"\xff\xfe\"]}}");
  EXPECT_EQ(error.rfind("scenario: not valid JSON: ", 0), 0u) << error;
}

TEST(SimScenarioHostile, ADirectoryIsAnUnreadableFile) {
  std::string error;
  const std::string dir = ::testing::TempDir();
  EXPECT_EQ(make_sim_notebook(dir, error), nullptr);
  EXPECT_EQ(error.rfind("scenario: cannot read " + dir, 0), 0u) << error;
}

TEST(SimScenarioHostile, AHugeFileIsRefusedWithoutReadingIt) {
  const std::string path = ::testing::TempDir() + "sim_scenario_hostile_huge.json";
  { std::ofstream create(path); }
  // Sparse: no disk space, but a file of 4 GiB as far as its size goes.
  std::filesystem::resize_file(path, uintmax_t{4} << 30);
  std::string error;
  EXPECT_EQ(make_sim_notebook(path, error), nullptr);
  EXPECT_EQ(error, "scenario: cannot read " + path + ": larger than 67108864 bytes");
  std::remove(path.c_str());
}

TEST(SimScenarioHostile, AFileMistakeNamesTheFile) {
  const std::string path = ::testing::TempDir() + "sim_scenario_hostile_named.json";
  {
    std::ofstream f(path);
    f << R"({"stopAfter": 1e999})";
  }
  std::string error;
  EXPECT_EQ(make_sim_notebook(path, error), nullptr);
  EXPECT_EQ(error.rfind("scenario: not valid JSON: ", 0), 0u) << error;
  EXPECT_NE(error.find("(in " + path + ")"), std::string::npos) << error;
  std::remove(path.c_str());
}

}  // namespace
}  // namespace zaltor::platform::sim
