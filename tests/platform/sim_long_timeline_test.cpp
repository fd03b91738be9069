// A scenario with a long story (a replayed field log, a week in the lab) loads and takes its
// patches in time proportional to its length, not to its square.
#include <gtest/gtest.h>

#include <chrono>
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
  const auto start = std::chrono::steady_clock::now();
  std::string error;
  auto nb = make_sim_notebook_from_text(doc.dump(), error);
  ASSERT_NE(nb, nullptr) << error;
  EXPECT_EQ(nb->scenario().timeline.size(), static_cast<size_t>(kEntries));
  for (int i = 0; i < kEntries; ++i) {
    ASSERT_TRUE(nb->apply_patch({{"radio", {{"noise", (i % 5) * 0.5}}}}, error)) << error;
  }
  // The story stays whole after the patches.
  EXPECT_EQ(nb->scenario().timeline.size(), static_cast<size_t>(kEntries));
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  // Linear work is a fraction of a second; each load check or patch re-reading every entry
  // took minutes.
  EXPECT_LT(seconds, 10.0);
}

}  // namespace
}  // namespace zaltor::platform::sim
