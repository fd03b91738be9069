// A scenario file's timeline and stop are its own: left out, the notebook has no timed
// changes and no end, whatever the built-in default scenario plays.
#include <gtest/gtest.h>

#include <string>

#include "platform/sim/scenario.h"
#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

// Three switches, three antenna ports with a counter each, and no timeline.
constexpr const char* kThreeSwitches = R"({
  "clock": {"mode": "virtual"},
  "firmware": {"switchCount": 3, "lines": 119},
  "counters": {"A": 0, "B": 1, "C": 2},
  "radio": {
    "rssi": [{"Main": -55, "Div": -62}, {"Main": -70, "Div": -58}, {"Main": -64, "Div": -61}],
    "rateMbps": [866.7, 650.0, 780.0, 400.0, 500.0, 600.0, 700.0, 800.0]
  }
})";

TEST(SimScenarioStory, AThreeSwitchScenarioWithoutTimelineLoads) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  ASSERT_TRUE(load_scenario(kThreeSwitches, doc, s, error)) << error;
  EXPECT_EQ(s.firmware.switch_count, 3u);
  EXPECT_EQ(s.rssi.size(), 3u);
  EXPECT_TRUE(s.timeline.empty());
  EXPECT_FALSE(s.stop_after_s.has_value());
  EXPECT_TRUE(doc["timeline"].empty());
}

TEST(SimScenarioStory, AScenarioWithoutTimelineRunsWithoutTimedChanges) {
  std::string error;
  auto nb = make_sim_notebook_from_text(kThreeSwitches, error);
  ASSERT_NE(nb, nullptr) << error;
  bool ended = false;
  nb->set_stop_hook([&] { ended = true; });
  nb->clock().attach_current_thread();
  nb->start();
  // Past every entry of the built-in timeline (150 s to 300 s).
  nb->clock().sleep_ms(600 * 1000);
  const Scenario now = nb->scenario();
  EXPECT_EQ(now.rssi.size(), 3u);
  EXPECT_EQ(now.rssi[0].main, -55);
  EXPECT_TRUE(now.lid_open);
  EXPECT_FALSE(ended);
  nb->clock().detach_current_thread();
}

TEST(SimScenarioStory, AScenarioWithATimelineButNoStopAfterHasNoStop) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  ASSERT_TRUE(load_scenario(R"({"timeline": [{"at": 5, "patch": {"lid": {"open": false}}}]})", doc,
                            s, error))
      << error;
  ASSERT_EQ(s.timeline.size(), 1u);
  EXPECT_DOUBLE_EQ(s.timeline[0].at_s, 5.0);
  EXPECT_FALSE(s.stop_after_s.has_value());
  EXPECT_FALSE(doc.contains("stopAfter"));
}

TEST(SimScenarioStory, AScenarioWithAStopAndNoTimelineStopsWithoutTimedChanges) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  ASSERT_TRUE(load_scenario(R"({"stopAfter": 30})", doc, s, error)) << error;
  EXPECT_TRUE(s.timeline.empty());
  ASSERT_TRUE(s.stop_after_s.has_value());
  EXPECT_DOUBLE_EQ(*s.stop_after_s, 30.0);
}

TEST(SimScenarioStory, ANullTimelineIsNoTimeline) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  ASSERT_TRUE(load_scenario(R"({"timeline": null, "stopAfter": null})", doc, s, error)) << error;
  EXPECT_TRUE(s.timeline.empty());
  EXPECT_FALSE(s.stop_after_s.has_value());
}

TEST(SimScenarioStory, WithoutAScenarioFileTheDefaultTimelinePlays) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  ASSERT_TRUE(load_scenario("", doc, s, error)) << error;
  EXPECT_EQ(s.timeline.size(), 3u);
}

TEST(SimScenarioStory, OtherMembersLeftOutStillTakeTheDefault) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  ASSERT_TRUE(load_scenario(R"({"power": {"source": 1}})", doc, s, error)) << error;
  EXPECT_EQ(s.power_source, 1u);
  EXPECT_EQ(s.products, std::vector<std::string>{"AB12XY"});
  EXPECT_EQ(s.rssi.size(), 2u);
  EXPECT_EQ(s.clock_mode, "scaled");
}

}  // namespace
}  // namespace zaltor::platform::sim
