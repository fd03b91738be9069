// A scenario with a long story (a replayed field log, a week in the lab) loads and takes its
// patches in time proportional to its length, not to its square. The test takes well under a
// second; work that re-read every entry at each check or patch took minutes, beyond the time
// limit of a test run (no test here measures a time itself).
#include <gtest/gtest.h>

#include <string>

#include <nlohmann/json.hpp>

#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

TEST(SimLongTimeline, FiveThousandEntriesLoadAndPatchQuickly) {
  constexpr int kEntries = 5000;
  nlohmann::json doc = {{"clock", {{"mode", "virtual"}}}, {"timeline", nlohmann::json::array()}};
  for (int i = 0; i < kEntries; ++i) {
    doc["timeline"].push_back({{"at", i + 1}, {"patch", {{"radio", {{"noise", (i % 7) * 0.5}}}}}});
  }
  std::string error;
  auto nb = make_sim_notebook_from_text(doc.dump(), error);
  ASSERT_NE(nb, nullptr) << error;
  EXPECT_EQ(nb->scenario().timeline.size(), static_cast<size_t>(kEntries));
  for (int i = 0; i < kEntries; ++i) {
    ASSERT_TRUE(nb->apply_patch({{"radio", {{"noise", (i % 5) * 0.5}}}}, error)) << error;
  }
  // The story stays whole after the patches.
  EXPECT_EQ(nb->scenario().timeline.size(), static_cast<size_t>(kEntries));
}

}  // namespace
}  // namespace zaltor::platform::sim
