// The complete log of one console-like run in virtual time: start-up and two decision
// passes (AutoModeRunCount 2) on a small scenario with a weighted mode, a disabled mode and
// an antenna without signal in one switch position, then the return to DefaultMode. The text is the
// same on every run and equals the reviewed copy in golden/auto_two_passes.txt
// (ZALTOR_UPDATE_GOLDEN=1 writes it anew).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "engine/engine_harness.h"

namespace zaltor::engine::autotest {
namespace {

// From the source tree that the test program names (ZALTOR_TEST_SOURCE_DIR, set by its
// main), not from __FILE__, which a compiler cache may make relative.
std::string golden_path() {
  const char* source = std::getenv("ZALTOR_TEST_SOURCE_DIR");
  const std::filesystem::path root = source != nullptr && *source != '\0'
                                         ? std::filesystem::path(source) / "tests" / "engine"
                                         : std::filesystem::path(__FILE__).parent_path();
  return (root / "golden" / "auto_two_passes.txt").string();
}

// Init, Auto, two passes of the loop until the thread ends.
std::string run_two_passes() {
  HarnessOptions o;
  o.console_mode = true;
  o.keys = {{"AutoModeRunCount", "2"},
            {"DefaultMode", "2"},
            {"RSSIWeightForMode_1", "5.0"},
            {"DisableMode_2", "1"}};
  // Port 1 ("Aux") has no signal with its switch in "Div" (modes 3 and 4).
  o.scenario_patch = R"({"radio":{"rssi":[{"Main":-55,"Div":-62},{"Main":-70,"Div":-95}]}})";
  AutoHarness h(o);
  EXPECT_EQ(h.Init(), 0);
  EXPECT_EQ(h.worker().SetUserMode(0), 0u);
  EXPECT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, 120000));
  h.worker().stop_and_join_auto_threads();
  std::string text = h.levelled_text();
  // The temporary directory may appear in paths; it differs between runs.
  for (size_t at = text.find(h.dir()); at != std::string::npos; at = text.find(h.dir(), at)) {
    text.replace(at, h.dir().size(), "<dir>");
  }
  return text;
}

TEST(AutoGolden, ConsoleRunOfTwoPassesMatchesTheReviewedLog) {
  const std::string first = run_two_passes();
  const std::string second = run_two_passes();
  EXPECT_EQ(first, second) << "the run must give the same text every time";

  if (std::getenv("ZALTOR_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(golden_path(), std::ios::binary) << first;
  }
  std::ifstream in(golden_path(), std::ios::binary);
  ASSERT_TRUE(in.good()) << golden_path();
  std::stringstream golden;
  golden << in.rdbuf();
  EXPECT_EQ(first, golden.str());
}

}  // namespace
}  // namespace zaltor::engine::autotest
