// The simulated firmware publishes its control lines to the scenario's linesFile, so that
// an observer outside the process sees the switches (also after the process has ended).
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

constexpr uint32_t kLinesCode = 0x0022240C;

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void put_word(std::vector<uint8_t>& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

bool set_lines(ControlDeviceHandle& h, uint32_t lines) {
  std::vector<uint8_t> req{'D', 'E', 'V', 'S'};
  put_word(req, 8);
  put_word(req, 0x00010031);
  put_word(req, lines);
  uint8_t out[4] = {};
  uint32_t returned = 0;
  return h.io_control(kLinesCode, req.data(), static_cast<uint32_t>(req.size()), out, sizeof out,
                      returned);
}

class SimLinesFile : public ::testing::Test {
 protected:
  void SetUp() override { std::remove(path_.c_str()); }
  void TearDown() override { std::remove(path_.c_str()); }

  // A virtual-clock notebook with two switches whose lines start at `lines`.
  std::unique_ptr<SimNotebook> make(uint32_t lines, std::string& error) {
    nlohmann::json doc = {{"clock", {{"mode", "virtual"}}},
                          {"linesFile", path_},
                          {"firmware", {{"switchCount", 2}, {"lines", lines}}}};
    return make_sim_notebook_from_text(doc.dump(), error);
  }

  // One file per test: the tests may run at once in separate processes.
  std::string path_ = ::testing::TempDir() + "sim_lines_file_test-" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
};

TEST_F(SimLinesFile, TheStartingLinesAreWrittenWhenTheNotebookIsMade) {
  std::string error;
  auto nb = make(0x33, error);
  ASSERT_NE(nb, nullptr) << error;
  EXPECT_EQ(read_file(path_), "lines=0x33 mode=1\n");
}

TEST_F(SimLinesFile, EveryControlRequestThatChangesTheLinesRewritesTheFile) {
  std::string error;
  auto nb = make(0x33, error);
  ASSERT_NE(nb, nullptr) << error;
  uint32_t err = 0;
  auto h = nb->control_device().open("\\\\.\\ZLTACPI", err);
  ASSERT_NE(h, nullptr);
  // Switch 0 to "Div" (both of its lines low): mode 2.
  ASSERT_TRUE(set_lines(*h, 0x22));
  EXPECT_EQ(read_file(path_), "lines=0x22 mode=2\n");
  // Lines that form no mode are published as mode 0.
  ASSERT_TRUE(set_lines(*h, 0x01));
  EXPECT_EQ(read_file(path_), "lines=0x01 mode=0\n");
  ASSERT_TRUE(set_lines(*h, 0x00));
  EXPECT_EQ(read_file(path_), "lines=0x00 mode=4\n");
}

TEST_F(SimLinesFile, APatchOfTheLinesRewritesTheFile) {
  std::string error;
  auto nb = make(0x33, error);
  ASSERT_NE(nb, nullptr) << error;
  ASSERT_TRUE(nb->apply_patch({{"firmware", {{"lines", 0x11}}}}, error)) << error;
  EXPECT_EQ(read_file(path_), "lines=0x11 mode=3\n");
}

TEST_F(SimLinesFile, AnUnchangedStateIsNotWrittenAgain) {
  std::string error;
  auto nb = make(0x33, error);
  ASSERT_NE(nb, nullptr) << error;
  // Someone else's text stays until the lines change.
  { std::ofstream(path_, std::ios::binary) << "observer's mark\n"; }
  ASSERT_TRUE(nb->apply_patch({{"lid", {{"open", false}}}}, error)) << error;
  EXPECT_EQ(read_file(path_), "observer's mark\n");
}

TEST_F(SimLinesFile, WithoutTheMemberNoFileIsWritten) {
  std::string error;
  auto nb = make_sim_notebook_from_text(R"({"clock": {"mode": "virtual"}})", error);
  ASSERT_NE(nb, nullptr) << error;
  EXPECT_FALSE(std::ifstream(path_).good());
}

TEST_F(SimLinesFile, TheFileCannotChangeWhileTheNotebookRuns) {
  std::string error;
  auto nb = make(0x33, error);
  ASSERT_NE(nb, nullptr) << error;
  EXPECT_FALSE(nb->apply_patch({{"linesFile", "elsewhere.txt"}}, error));
  EXPECT_EQ(error, "scenario: patch.linesFile: cannot change while the notebook runs");
  EXPECT_EQ(make_sim_notebook_from_text(
                R"({"timeline": [{"at": 1, "patch": {"linesFile": "elsewhere.txt"}}]})", error),
            nullptr);
  EXPECT_EQ(error, "scenario: timeline[0].patch.linesFile: cannot change while the notebook runs");
}

TEST_F(SimLinesFile, AnEmptyNameOrANonStringIsRefused) {
  std::string error;
  EXPECT_EQ(make_sim_notebook_from_text(R"({"linesFile": ""})", error), nullptr);
  EXPECT_EQ(error, "scenario: linesFile: expected a file name or null");
  EXPECT_EQ(make_sim_notebook_from_text(R"({"linesFile": 3})", error), nullptr);
  EXPECT_EQ(error, "scenario: linesFile: expected a string");
}

}  // namespace
}  // namespace zaltor::platform::sim
