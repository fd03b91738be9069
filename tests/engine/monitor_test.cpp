// The Wi-Fi statistics monitor on the simulated notebook, run on its own (the auto loop is
// represented by the autoState the test sets).
#include <gtest/gtest.h>

#include <memory>

#include "engine/engine_harness.h"
#include "engine/system_events.h"
#include "engine/worker_threads.h"

namespace zaltor::engine {
namespace {

using testing::all_antennas;
using testing::all_rates;
using testing::antennas;
using testing::EngineOnNotebook;

// The monitor thread of one test, started on the worker with the loop shown as idle.
class MonitorRun {
 public:
  explicit MonitorRun(EngineOnNotebook& nb, uint32_t auto_state = kAutoIdle) {
    arg_ = std::make_shared<AutoSwitchingWorkerArg>();
    arg_->worker = &nb.worker();
    nb.worker().shared.set_auto_state(auto_state);
    thread_ = nb.clock().start_thread("monitor", [a = arg_] { MonitorThread(a); });
  }
  ~MonitorRun() { Stop(); }
  void Stop() {
    if (!thread_) return;
    arg_->keep_running.store(false);
    thread_->join();
    thread_.reset();
  }
  // Joins a thread that ends on its own.
  void join() {
    thread_->join();
    thread_.reset();
  }

 private:
  std::shared_ptr<AutoSwitchingWorkerArg> arg_;
  std::unique_ptr<platform::Thread> thread_;
};

// The monitor starts at 10 ms (after Init) and compares at 10, 5010, 10010, ... ms.
constexpr int64_t kRound1 = 5010;
constexpr int64_t kRound2 = 10010;
constexpr int64_t kRound3 = 15010;

TEST(MonitorRssi, DropOfExactlyTheDeltaIsNotCriticalOneMoreTriggers) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(all_antennas(-60));
  nb.sleep_until(kRound1 + 500);
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -50 -> -60 but not critical, monitoring...\n"));
  EXPECT_FALSE(nb.worker().reevaluation_requested());
  EXPECT_FALSE(nb.log_contains("going to determine next mode"));

  nb.patch(all_antennas(-61));
  nb.sleep_until(kRound2 + 500);
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -50 -> -61, going to determine next mode.\n"));
  EXPECT_TRUE(nb.worker().reevaluation_requested()) << "the trigger asks for a new decision";
  EXPECT_EQ(remembered_worker(), &nb.worker());
}

TEST(MonitorRssi, WorseLinkTriggersAgainSinceTheBaseStays) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(all_antennas(-70));
  nb.sleep_until(kRound1 + 1500);
  const std::string trigger =
      "[Monitor] RSSI become worse: -50 -> -70, going to determine next mode.\n";
  EXPECT_EQ(nb.time_of(trigger), kRound1);
  // Without an auto loop to take it, the monitor consumes its own request at its next
  // one-second step, ends the sleep and compares again against the unchanged base.
  EXPECT_EQ(nb.time_of(trigger, kRound1 + 1), kRound1 + 1000);
  EXPECT_EQ(nb.log_count(trigger), 2u);
}

TEST(MonitorRssi, BasesOnlyRise) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(all_antennas(-40));
  nb.sleep_until(kRound2 - 1000);
  nb.patch(all_antennas(-45));
  nb.sleep_until(kRound2 + 500);
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -40 -> -45 but not critical, monitoring...\n"));
}

TEST(MonitorRssi, ReadingIsTheTruncatedMeanWithoutAntennasThatHaveNoSignal) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(antennas(-52, -55));  // mean -53.5 reads -53
  nb.sleep_until(kRound2 - 1000);
  nb.patch(antennas(-58, -95));  // the antenna without signal is left out
  nb.sleep_until(kRound2 + 500);
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -50 -> -53 but not critical, monitoring...\n"));
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -50 -> -58 but not critical, monitoring...\n"));
}

TEST(MonitorRssi, EveryAntennaWithoutSignalIsAFailedReadingThatTriggers) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(all_antennas(-95));
  nb.sleep_until(kRound1 + 500);
  EXPECT_TRUE(nb.log_contains("[Monitor] Error while getting rssi! \n"));
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -50 -> -200, going to determine next mode.\n"));
}

TEST(MonitorState, NeitherReadsNorComparesWhileTheLoopMeasures) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb, kAutoMeasuring);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(all_antennas(-90));
  nb.sleep_until(kRound3 + 500);
  EXPECT_FALSE(nb.log_contains("[Monitor]"));
  EXPECT_FALSE(nb.worker().reevaluation_requested());

  // The same drop is seen as soon as the loop is idle again.
  nb.worker().shared.set_auto_state(kAutoIdle);
  nb.sleep_until(kRound3 + 5000 + 500);
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -50 -> -90, going to determine next mode.\n"));
}

TEST(MonitorState, DoesNotCompareWhileTheInterfaceIsDisconnected) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
      "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": false, "channel": 36}]}})");
  nb.patch(all_antennas(-90));
  nb.sleep_until(kRound3 + 500);
  EXPECT_FALSE(nb.log_contains("[Monitor]"));
}

TEST(MonitorRate, TriggeringRateDropSkipsTheRssiCheck) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(all_rates(400.0));
  nb.patch(all_antennas(-80));
  nb.sleep_until(kRound1 + 500);
  EXPECT_TRUE(
      nb.log_contains("[Monitor] MCS become worse: 866 -> 400, going to determine next mode.\n"));
  EXPECT_FALSE(nb.log_contains("[Monitor] RSSI")) << "the RSSI check is skipped in that round";
}

TEST(MonitorRate, DropWithinTheDeltaGoesOnToTheRssiCheck) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(kRound1 - 1000);
  nb.patch(all_rates(836.9));  // 866 -> 836: a drop of exactly 30
  nb.patch(all_antennas(-80));
  nb.sleep_until(kRound1 + 500);
  EXPECT_TRUE(
      nb.log_contains("[Monitor] MCS become worse: 866 -> 836 but not critical, monitoring...\n"));
  EXPECT_TRUE(
      nb.log_contains("[Monitor] RSSI become worse: -50 -> -80, going to determine next mode.\n"));
}

TEST(MonitorStart, DisabledByAZeroIntervalOfTheSetActiveAtStart) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  // The set in force at start has no interval; a later one would have.
  nb.worker().config.settings.WifiStatMonitorInterval[0] = 0;
  nb.worker().config.settings.WifiStatMonitorInterval[3] = 5000;
  MonitorRun monitor(nb);
  monitor.join();  // ends on its own
  EXPECT_TRUE(nb.log_contains("[Monitor] MONITOR IS DISABLED\n"));
  nb.worker().shared.device().set_active_config_set(3);
  nb.patch(all_antennas(-90));
  nb.sleep_until(kRound2);
  EXPECT_EQ(nb.log_count("[Monitor]"), 1u) << "nothing is monitored afterwards";
}

TEST(MonitorSleep, PendingRequestIsConsumedWhileSleepingWithItsConfigSet) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(2000);
  nb.worker().reevaluation.make_pending(3);
  nb.worker().raise_reevaluation(Trigger::kMonitor);
  nb.sleep_until(3500);  // the next one-second step (at 3010) consumes it
  EXPECT_FALSE(nb.worker().reevaluation_requested());
  EXPECT_EQ(nb.worker().active_config_set(), 3u);
  EXPECT_FALSE(nb.worker().reevaluation.config_change_pending());
}

TEST(MonitorSleep, StopIsSeenWithinOneStep) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.sleep_until(2500);
  const int64_t before = nb.now();
  monitor.Stop();
  EXPECT_LE(nb.now() - before, 1000);
}

}  // namespace
}  // namespace zaltor::engine
