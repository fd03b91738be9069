// The auto loop on the simulated notebook in virtual time: the order of the measurements,
// the growing sleep, the run count, disconnected passes, config-set changes, requests and
// stops.
//
// The notebook's modes read -62, -66, -56 and -60 dBm (modes 1 to 4), so the RSSI
// determinator chooses mode 3; the device starts in mode 1. One pass measures the mode in
// use (two samples a second apart) and then each other mode after a one-second wait.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "engine/engine_harness.h"
#include "engine/worker_threads.h"

namespace zaltor::engine::autotest {
namespace {

constexpr int64_t kLimitMs = 600000;

HarnessOptions with_keys(Keys keys) {
  HarnessOptions o;
  o.keys = std::move(keys);
  return o;
}

// The index of the first entry at or after `from` at `level` that ends with `text`; -1 if
// none.
int index_of(const std::vector<LogEntry>& entries, uint8_t level, const std::string& text,
             int from = 0) {
  for (size_t i = static_cast<size_t>(from); i < entries.size(); ++i) {
    const std::string& l = entries[i].line;
    if (entries[i].level == level && l.size() >= text.size() &&
        l.compare(l.size() - text.size(), text.size(), text) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

void patch(AutoHarness& h, const char* json) {
  std::string error;
  ASSERT_TRUE(h.notebook().apply_patch(nlohmann::json::parse(json), error)) << error;
}

constexpr const char* kDisconnected = R"({"wlan":{"interfaces":[{
  "description":"Wireless AX (R2) 160MHz","guid":"{6A1B2C3D-1111-2222-3333-444455556666}",
  "connected":false,"channel":6}]}})";
constexpr const char* kConnected = R"({"wlan":{"interfaces":[{
  "description":"Wireless AX (R2) 160MHz","guid":"{6A1B2C3D-1111-2222-3333-444455556666}",
  "connected":true,"channel":6}]}})";

TEST(AutoModeLoop, SleepGrowsExponentiallyOnceTheChoiceStaysTheSameMoreThanStableTimes) {
  // DeterminatorStableTimesForExp 2, X 2.0, Y 0.0, Yi 1.0, baseSleep 10000 (base_keys). The
  // monitor is off: its rate base (mode 1) lies above the chosen mode's rate, so it would
  // cut every sleep short.
  AutoHarness h(with_keys({{"WifiStatMonitorInterval", "0"}}));
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 5; }, kLimitMs));
  const size_t set = h.worker().active_set();
  ASSERT_EQ(h.worker().settings().DeterminatorStableTimesForExp[set], 2);
  ASSERT_EQ(h.worker().settings().IntervalTimeExpX[set], 2.0);
  ASSERT_EQ(h.worker().settings().IntervalTimeExpY[set], 0.0);
  ASSERT_EQ(h.worker().settings().IntervalTimeExpYIncr[set], 1.0);
  const std::vector<int> sleeps = h.sleeps();
  EXPECT_EQ(std::vector<int>(sleeps.begin(), sleeps.begin() + 5),
            (std::vector<int>{10000, 10000, 10000, 20000, 40000}));
  // The loop really sleeps that long: the next pass measures its first mode (one second)
  // 20 s after the line.
  const int64_t slept = h.time_of("Sleep: 20000\n");
  ASSERT_GE(slept, 0);
  EXPECT_EQ(h.time_of("Avg:", slept + 1), slept + 20000 + 1000);
}

TEST(AutoModeLoop, StableTimesZeroDisablesTheGrowth) {
  AutoHarness h(with_keys({{"DeterminatorStableTimesForExp", "0"}}));
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 6; }, kLimitMs));
  for (int s : h.sleeps()) EXPECT_EQ(s, 10000);
}

TEST(AutoModeLoop, RunCountThreeRunsThreePassesThenSetsDefaultModeAndEnds) {
  AutoHarness h(with_keys({{"AutoModeRunCount", "3"}, {"DefaultMode", "2"}}));
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, kLimitMs));

  const auto e = h.entries();
  const int run1 = index_of(e, kLogInfo, "Run #1 / 3\n");
  const int run2 = index_of(e, kLogInfo, "Run #2 / 3\n", run1 + 1);
  const int run3 = index_of(e, kLogInfo, "Run #3 / 3\n", run2 + 1);
  const int exiting = index_of(e, kLogInfo, "Exiting auto mode...\n", run3 + 1);
  const int ended = index_of(e, kLogInfo, "Auto mode thread ended.\n", exiting + 1);
  ASSERT_GE(run1, 0);
  ASSERT_GT(run2, run1);
  ASSERT_GT(run3, run2);
  ASSERT_GT(exiting, run3);
  ASSERT_GT(ended, exiting);
  EXPECT_EQ(h.count(kLogInfo, "Run #4 / 3\n"), 0);
  EXPECT_EQ(h.sleeps().size(), 3u);  // the third pass sleeps before the count runs out

  // DefaultMode 2 on the switch lines: switch 0 "Div" (X 0, Y 0), switch 1 "Main" (1, 1).
  EXPECT_EQ(h.notebook().mode(), 2);
  EXPECT_EQ(h.notebook().lines(), 0x22u);
  EXPECT_EQ(h.worker().user_mode(), 2u);
  EXPECT_EQ(h.worker().shared.auto_state(), static_cast<uint32_t>(kAutoEnded));
}

TEST(AutoModeLoop, DisconnectedPassIsNotCountedAndSetsDefaultMode) {
  HarnessOptions o = with_keys({{"AutoModeRunCount", "2"}, {"DefaultMode", "4"}});
  o.scenario_patch = kDisconnected;
  AutoHarness h(o);
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(2000);
  EXPECT_EQ(h.count(kLogWarning, "WLAN IF not connected, do nothing.\n"), 1);
  EXPECT_EQ(h.notebook().mode(), 4) << "a disconnected pass sets DefaultMode";
  patch(h, kConnected);
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, kLimitMs));

  const auto e = h.entries();
  const int first = index_of(e, kLogInfo, "Run #1 / 2\n");
  const int again = index_of(e, kLogInfo, "Run #1 / 2\n", first + 1);
  const int second = index_of(e, kLogInfo, "Run #2 / 2\n", again + 1);
  ASSERT_GE(first, 0);
  ASSERT_GT(again, first) << "the disconnected pass is run again under the same number";
  ASSERT_GT(second, again);
  EXPECT_GT(index_of(e, kLogInfo, "Exiting auto mode...\n", second + 1), second);
  EXPECT_EQ(h.count(kLogWarning, "WLAN IF not connected, do nothing.\n"), 1);
  EXPECT_EQ(h.sleeps().size(), 3u);   // one uncounted and two counted passes
  EXPECT_EQ(h.notebook().mode(), 4);  // DefaultMode at the end
}

TEST(AutoModeLoop, ConfigSetChangeDoesNotAlterTheBaseSleepOfARunningThread) {
  HarnessOptions o = with_keys({{"DeterminatorStableTimesForExp", "0"}});
  o.extra_sections = "\n[Settings.AB12.3]\nBaseSleepIntervalBetweenEval=30000\n";
  AutoHarness h(o);
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().settings().BaseSleepIntervalBetweenEval[3], 30000);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_EQ(h.worker().active_config_set(), 0u);  // a 2.4 GHz link
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kLimitMs));

  // What the event handling does when the lid closes: a pending set and a request.
  const int64_t asked = h.clock().now_ms();
  h.worker().reevaluation.make_pending(3);
  h.worker().raise_reevaluation(Trigger::kMonitor);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 3; }, kLimitMs));

  EXPECT_EQ(h.worker().active_config_set(), 3u);
  const int64_t next = h.time_of("Using Config Set: 3\n", asked);
  ASSERT_GE(next, 0);
  EXPECT_LE(next, asked + 1000 + 1000) << "the request cuts the sleep within a second";
  for (int s : h.sleeps()) EXPECT_EQ(s, 10000);
}

TEST(AutoModeLoop, RequestDuringTheSleepBeginsTheNextPassWithinASecond) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kLimitMs));
  const int64_t slept = h.time_of("Sleep: ");
  h.run_for(2500);
  const int64_t asked = h.clock().now_ms();
  h.worker().raise_reevaluation(Trigger::kMonitor);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 2; }, kLimitMs));
  // The next pass begins at the sleep's next one-second step; its first measurement takes
  // one second more.
  const int64_t next_step = slept + ((asked - slept) / 1000 + 1) * 1000;
  EXPECT_EQ(h.time_of("Avg:", asked), next_step + 1000);
  EXPECT_FALSE(h.worker().reevaluation_requested()) << "the loop consumed the request";
}

TEST(AutoModeLoop, ModeInUseIsMeasuredFirstThenTheOthersInOrder) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 2; }, kLimitMs));
  const std::string text = h.text();
  std::vector<int> order;
  for (size_t at = text.find("Getting RSSI for mode "); at != std::string::npos;
       at = text.find("Getting RSSI for mode ", at + 1)) {
    order.push_back(text[at + 22] - '0');
  }
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4, 3, 1, 2, 4}));
  EXPECT_EQ(h.notebook().mode(), 3);
}

TEST(AutoModeLoop, DisabledModeIsNeitherSetNorMeasured) {
  AutoHarness h(with_keys({{"DisableMode_2", "1"}}));
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kLimitMs));
  const std::string text = h.text();
  EXPECT_NE(text.find("RSSI for mode 2: <DISABLED>\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("Getting RSSI for mode 2"), std::string::npos);
  EXPECT_NE(text.find("Avg RSSI: #1)-62.000 (866.7), #3)-56.000 (780.0), #4)-60.000 (400.0), "),
            std::string::npos)
      << text;
  EXPECT_EQ(h.notebook().mode(), 3);
}

TEST(AutoModeLoop, InvalidDeterminatorKeepsDefaultMode) {
  AutoHarness h(with_keys({{"DefaultMode", "2"}}));
  ASSERT_EQ(h.Init(), 0);
  h.worker().config.settings.DeterminatorMode = 9;  // only reachable by other means than the file
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kLimitMs));
  EXPECT_EQ(h.count(kLogCritical, "Invalid Determinator!\n"), 1);
  EXPECT_EQ(h.notebook().mode(), 2);
}

TEST(AutoModeLoop, UserStopEndsTheThreadWithoutLeavingAuto) {
  AutoHarness h(with_keys({{"AutoModeRunCount", "3"}}));
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(4500);  // in the middle of the first pass
  ASSERT_EQ(h.worker().SetUserMode(4), 0u);
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, 2000));
  EXPECT_EQ(h.count(kLogInfo, "Exiting auto mode...\n"), 0);
  EXPECT_EQ(h.count(kLogInfo, "Auto mode thread ended.\n"), 1);
  EXPECT_EQ(h.notebook().mode(), 4);
  EXPECT_EQ(h.worker().user_mode(), 4u);
  EXPECT_TRUE(h.sleeps().empty());
}

TEST(AutoModeLoop, AutoStateIsMeasuringIdleAndEnded) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(1500);
  EXPECT_EQ(h.worker().shared.auto_state(), static_cast<uint32_t>(kAutoMeasuring));
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kLimitMs));
  EXPECT_EQ(h.worker().shared.auto_state(), static_cast<uint32_t>(kAutoIdle));
  ASSERT_EQ(h.worker().SetUserMode(1), 0u);
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, 2000));
  EXPECT_EQ(h.worker().shared.auto_state(), static_cast<uint32_t>(kAutoEnded));
}

TEST(AutoModeLoop, SwitchesInNoModeAtTheEndOfAPassAreReportedAsIndeterminate) {
  HarnessOptions o;
  o.scripted_counters = true;
  AutoHarness h(o);
  ASSERT_EQ(h.Init(), 0);
  // The last sample of the first pass (mode 4, at 7 s) finds switch 0 "Off" (X 1, Y 0);
  // the end of the pass reads the mode right after it. The rate is held, since the
  // notebook has none for switches in no mode.
  h.scripted().fixed_rate_bps = 400000000;
  bool patched = false;
  h.scripted().on_collect = [&](int) {
    if (!patched && h.clock().now_ms() == 7000) {
      patched = true;
      patch(h, R"({"firmware":{"lines":1}})");
    }
  };
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kLimitMs));
  EXPECT_TRUE(patched);
  EXPECT_NE(h.text().find("Getting RSSI for mode 4: -60 (400.0M), *-58 (400.0M), "),
            std::string::npos)
      << h.text();
  EXPECT_EQ(h.count(kLogInfo, "Current mode is indeterminate!\n"), 1);
  EXPECT_EQ(h.notebook().mode(), 3) << "the decision still stands";
  h.worker().stop_and_join_auto_threads();
  h.scripted().on_collect = nullptr;
}

TEST(AutoModeLoop, FailedModeReadAtTheEndOfAPassIsReportedAndDefaultModeStandsForIt) {
  HarnessOptions o;
  o.scripted_counters = true;
  AutoHarness h(o);
  ASSERT_EQ(h.Init(), 0);
  // From the last sample of the first pass on (mode 4, at 7 s, once its switch number is
  // read), the firmware answers no status request: the read at the end of the pass fails.
  bool patched = false;
  h.scripted().on_collect = [&](int) {
    if (!patched && h.clock().now_ms() == 7000) {
      patched = true;
      patch(h, R"({"firmware":{"statusFails":true}})");
    }
  };
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kLimitMs));
  h.worker().stop_and_join_auto_threads();
  h.scripted().on_collect = nullptr;
  EXPECT_TRUE(patched);
  EXPECT_NE(h.text().find("Getting RSSI for mode 4: -60 (400.0M), -60 (400.0M), Avg: 400.0 Mbps\n"),
            std::string::npos)
      << h.text();
  // The failed read leaves no mode: both event lines, DefaultMode stands for the mode found.
  EXPECT_EQ(h.count(kLogWarning, "Error while getting current mode! \n"), 1);
  EXPECT_EQ(h.count(kLogInfo, "Current mode is indeterminate!\n"), 1);
  EXPECT_EQ(h.count(kLogInfo, "Determined mode: 3\n"), 1);
}

}  // namespace
}  // namespace zaltor::engine::autotest
