// Mode changes that meet each other, in virtual time: a fixed mode while Auto is starting,
// Auto twice around it, the user's fixed mode while the loop is inside a write, Auto toggled
// many times, and a config set brought into force by the monitor in the middle of a pass.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

#include "engine/engine_harness.h"

namespace zaltor::engine::autotest {
namespace {

// Virtual time that every test below gives the loop to reach a state.
constexpr int64_t kRaceLimitMs = 120000;

// The Auto start's config set selection waits 2000 ms for Bluetooth to settle when a device
// change is pending: a window in which other requests arrive.
void make_the_next_auto_start_settle(AutoHarness& h) {
  h.worker().shared.set_device_change_pending(true);
}

TEST(ModeChangeRaces, FixedModeWhileAutoIsStartingLeavesNoLoopRunning) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  make_the_next_auto_start_settle(h);
  std::atomic<uint32_t> fixed{99};
  auto user = h.after(500, [&] { fixed = h.worker().SetUserMode(3); });
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  user->join();
  EXPECT_EQ(fixed.load(), 0u);
  EXPECT_EQ(h.worker().user_mode(), 3u);
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, 3000))
      << "the loop that the start began was stopped by the fixed mode";
  h.run_for(60000);
  EXPECT_TRUE(h.sleeps().empty()) << "no evaluation ran under the fixed mode";
  EXPECT_EQ(h.notebook().mode(), 3);
}

TEST(ModeChangeRaces, AutoAgainAfterAFixedModeDuringTheStartRunsOnePeriodAtATime) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  make_the_next_auto_start_settle(h);
  auto fixed_mode = h.after(500, [&] { h.worker().SetUserMode(3); });
  auto auto_again = h.after(1000, [&] { h.worker().SetUserMode(0); });
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  fixed_mode->join();
  auto_again->join();
  // The period that the fixed mode stopped has ended before the second Auto began its own:
  // one auto loop and one monitor at a time, and the user's last choice, Auto, runs.
  EXPECT_LE(WorkerTestAccess::threads_started(h.worker()), 2u)
      << "one auto loop and one monitor at most";
  EXPECT_EQ(h.worker().user_mode(), 0u);
  EXPECT_TRUE(h.worker().auto_thread_running());
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, 120000));
  h.worker().stop_and_join_auto_threads();
  EXPECT_EQ(h.count(kLogInfo, "Auto mode thread ended.\n"), 2);
}

TEST(ModeChangeRaces, UsersFixedModeIsTheLastOnTheLinesWhenTheLoopIsInsideAWrite) {
  HarnessOptions o;
  o.scripted_device = true;
  AutoHarness h(o);
  std::atomic<bool> armed{false};
  std::atomic<bool> user_started{false};
  std::atomic<uint32_t> result{99};
  std::unique_ptr<platform::Thread> user;
  h.device().before_write = [&] {
    if (!armed.exchange(false)) return;
    // The loop is inside a write sequence: the user's fixed mode arrives now, while the
    // write takes its time.
    user = h.after(0, [&] { result = h.worker().SetUserMode(4); });
    user_started = true;
    h.clock().sleep_ms(50);
  };
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kRaceLimitMs));
  ASSERT_NE(h.notebook().mode(), 1) << "the next pass switches to mode 1 first";
  armed = true;
  h.worker().raise_reevaluation(Trigger::kMonitor);
  ASSERT_TRUE(h.run_until([&] { return user_started.load(); }, 5000));
  user->join();
  EXPECT_EQ(result.load(), 0u);
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, 5000));
  h.run_for(30000);
  EXPECT_EQ(h.notebook().mode(), 4) << "nothing of the stopped loop lands after the user's mode";
  EXPECT_EQ(h.device().verify_mismatches.load(), 0);
}

TEST(ModeChangeRaces, TogglingBetweenFixedModesAndAutoHoldsFewThreads) {
  HarnessOptions o;
  o.keep_log = false;
  AutoHarness h(o);
  ASSERT_EQ(h.Init(), 0);
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(h.worker().SetUserMode(0), 0u);
    h.run_for(1500);
    ASSERT_EQ(h.worker().SetUserMode(1 + i % 4), 0u);
    h.run_for(1500);  // the stopped threads see their flag within a second
    ASSERT_LE(WorkerTestAccess::threads_started(h.worker()), 4u) << "after " << i + 1 << " periods";
  }
  h.worker().stop_and_join_auto_threads();
  EXPECT_EQ(WorkerTestAccess::threads_started(h.worker()), 0u);
}

TEST(ModeChangeRaces, TheLoopMutexOfAnEndedPeriodGoesWithIt) {
  HarnessOptions o;
  o.keep_log = false;
  AutoHarness h(o);
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(1500);
  const std::weak_ptr<platform::Mutex> first = h.worker().loop_mutex();
  ASSERT_FALSE(first.expired());
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(h.worker().SetUserMode(1 + i % 4), 0u);
    h.run_for(1500);  // the stopped threads end
    ASSERT_EQ(h.worker().SetUserMode(0), 0u);
    h.run_for(1500);
  }
  EXPECT_TRUE(first.expired()) << "no thread of the first period holds its loop mutex any more";
  h.worker().stop_and_join_auto_threads();
}

TEST(ModeChangeRaces, LeavingAutoAfterTheUsersChoiceLeavesTheUsersMode) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(1500);
  const auto period = WorkerTestAccess::auto_arg(h.worker());
  ASSERT_NE(period, nullptr);
  ASSERT_EQ(h.worker().SetUserMode(3), 0u);
  // The period's auto thread, its run count just run out, leaves Auto late.
  EXPECT_EQ(h.worker().leave_auto(*period, 1), 0u);
  EXPECT_EQ(h.worker().user_mode(), 3u);
  EXPECT_EQ(h.notebook().mode(), 3);
}

TEST(ModeChangeRaces, LeavingAutoOfTheRunningPeriodSetsTheMode) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(1500);
  const auto period = WorkerTestAccess::auto_arg(h.worker());
  ASSERT_NE(period, nullptr);
  EXPECT_EQ(h.worker().leave_auto(*period, 2), 0u);
  EXPECT_EQ(h.worker().user_mode(), 2u);
  EXPECT_EQ(h.notebook().mode(), 2);
  EXPECT_FALSE(period->keep_running.load()) << "the period is stopped";
}

// The text of the n-th (from 0) "Avg RSSI: " line, or empty.
std::string avg_line(const AutoHarness& h, size_t n) {
  for (const auto& e : h.entries()) {
    const auto at = e.line.find("Avg RSSI: ");
    if (at == std::string::npos) continue;
    if (n-- == 0) return e.line.substr(at, e.line.find('\n', at) - at);
  }
  return "";
}

TEST(ModeChangeRaces, ASetBroughtIntoForceMidPassLeavesThePassOnItsOwnSet) {
  HarnessOptions o;
  o.scripted_counters = true;
  o.keys = {{"RSSICollectCount", "2"}};
  // The lid-closed set takes twice as many samples: its rows lie further apart.
  o.extra_sections = "\n[Settings.AB12.3]\nRSSICollectCount=4\n";
  o.scenario_patch = R"({"radio":{"rssi":[{"Main":-55,"Div":-62},{"Main":-70,"Div":-58}]}})";
  AutoHarness h(o);
  std::atomic<bool> armed{false};
  h.scripted().on_collect = [&](int) {
    if (h.worker().shared.auto_state() != kAutoMeasuring || !armed.exchange(false)) return;
    // What the monitor does when it takes a request with the lid-closed set pending between
    // two of the loop's looks at the request: the set is in force, no request is left.
    h.worker().shared.device().set_active_config_set(3);
  };
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, kRaceLimitMs));
  const std::string first = avg_line(h, 0);
  ASSERT_FALSE(first.empty());
  armed = true;
  h.worker().raise_reevaluation(Trigger::kMonitor);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 2; }, kRaceLimitMs));
  EXPECT_FALSE(armed.load()) << "the set came into force during the second pass";
  EXPECT_EQ(avg_line(h, 1), first) << "the second pass measured and decided on its own set";
  EXPECT_EQ(h.worker().active_config_set(), 3u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 3; }, kRaceLimitMs));
  EXPECT_GE(h.time_of("Using Config Set: 3\n"), 0) << "the next pass takes the new set";
}

}  // namespace
}  // namespace zaltor::engine::autotest
