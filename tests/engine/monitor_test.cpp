// The Wi-Fi statistics monitor on the simulated notebook, run on its own (the auto loop is
// represented by the autoState the test sets).
#include <gtest/gtest.h>

#include <memory>

#include "engine/engine_harness.h"
#include "engine/system_events.h"
#include "engine/worker_threads.h"

namespace zaltor::engine {
namespace {

using testing::AllAntennas;
using testing::AllRates;
using testing::Antennas;
using testing::EngineOnNotebook;

// The monitor thread of one test, started on the worker with the loop shown as idle.
class MonitorRun {
 public:
  explicit MonitorRun(EngineOnNotebook& nb, uint32_t autoState = kAutoIdle) : nb_(nb) {
    arg_ = std::make_shared<AutoSwitchingWorkerArg>();
    arg_->worker = &nb.worker();
    nb.worker().shared.set_auto_state(autoState);
    thread_ = nb.clock().start_thread("monitor", [a = arg_] { MonitorThread(a); });
  }
  ~MonitorRun() { Stop(); }
  void Stop() {
    if (!thread_) return;
    arg_->keepRunning.store(false);
    thread_->join();
    thread_.reset();
  }
  // Joins a thread that ends on its own.
  void Join() {
    thread_->join();
    thread_.reset();
  }

 private:
  EngineOnNotebook& nb_;
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
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(AllAntennas(-60));
  nb.SleepUntil(kRound1 + 500);
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -50 -> -60 but not critical, monitoring...\n"));
  EXPECT_FALSE(nb.worker().ReevaluationRequested());
  EXPECT_FALSE(nb.LogContains("going to determine next mode"));

  nb.Patch(AllAntennas(-61));
  nb.SleepUntil(kRound2 + 500);
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -50 -> -61, going to determine next mode.\n"));
  EXPECT_TRUE(nb.worker().ReevaluationRequested()) << "the trigger asks for a new decision";
  EXPECT_EQ(RememberedWorker(), &nb.worker());
}

TEST(MonitorRssi, WorseLinkTriggersAgainSinceTheBaseStays) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(AllAntennas(-70));
  nb.SleepUntil(kRound1 + 1500);
  const std::string trigger =
      "[Monitor] RSSI become worse: -50 -> -70, going to determine next mode.\n";
  EXPECT_EQ(nb.TimeOf(trigger), kRound1);
  // Without an auto loop to take it, the monitor consumes its own request at its next
  // one-second step, ends the sleep and compares again against the unchanged base.
  EXPECT_EQ(nb.TimeOf(trigger, kRound1 + 1), kRound1 + 1000);
  EXPECT_EQ(nb.LogCount(trigger), 2u);
}

TEST(MonitorRssi, BasesOnlyRise) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(AllAntennas(-40));
  nb.SleepUntil(kRound2 - 1000);
  nb.Patch(AllAntennas(-45));
  nb.SleepUntil(kRound2 + 500);
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -40 -> -45 but not critical, monitoring...\n"));
}

TEST(MonitorRssi, ReadingIsTheTruncatedMeanWithoutAntennasThatHaveNoSignal) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(Antennas(-52, -55));  // mean -53.5 reads -53
  nb.SleepUntil(kRound2 - 1000);
  nb.Patch(Antennas(-58, -95));  // the antenna without signal is left out
  nb.SleepUntil(kRound2 + 500);
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -50 -> -53 but not critical, monitoring...\n"));
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -50 -> -58 but not critical, monitoring...\n"));
}

TEST(MonitorRssi, EveryAntennaWithoutSignalIsAFailedReadingThatTriggers) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(AllAntennas(-95));
  nb.SleepUntil(kRound1 + 500);
  EXPECT_TRUE(nb.LogContains("[Monitor] Error while getting rssi! \n"));
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -50 -> -200, going to determine next mode.\n"));
}

TEST(MonitorState, NeitherReadsNorComparesWhileTheLoopMeasures) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb, kAutoMeasuring);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(AllAntennas(-90));
  nb.SleepUntil(kRound3 + 500);
  EXPECT_FALSE(nb.LogContains("[Monitor]"));
  EXPECT_FALSE(nb.worker().ReevaluationRequested());

  // The same drop is seen as soon as the loop is idle again.
  nb.worker().shared.set_auto_state(kAutoIdle);
  nb.SleepUntil(kRound3 + 5000 + 500);
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -50 -> -90, going to determine next mode.\n"));
}

TEST(MonitorState, DoesNotCompareWhileTheInterfaceIsDisconnected) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
      "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": false, "channel": 36}]}})");
  nb.Patch(AllAntennas(-90));
  nb.SleepUntil(kRound3 + 500);
  EXPECT_FALSE(nb.LogContains("[Monitor]"));
}

TEST(MonitorRate, TriggeringRateDropSkipsTheRssiCheck) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(AllRates(400.0));
  nb.Patch(AllAntennas(-80));
  nb.SleepUntil(kRound1 + 500);
  EXPECT_TRUE(
      nb.LogContains("[Monitor] MCS become worse: 866 -> 400, going to determine next mode.\n"));
  EXPECT_FALSE(nb.LogContains("[Monitor] RSSI")) << "the RSSI check is skipped in that round";
}

TEST(MonitorRate, DropWithinTheDeltaGoesOnToTheRssiCheck) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(kRound1 - 1000);
  nb.Patch(AllRates(836.9));  // 866 -> 836: a drop of exactly 30
  nb.Patch(AllAntennas(-80));
  nb.SleepUntil(kRound1 + 500);
  EXPECT_TRUE(
      nb.LogContains("[Monitor] MCS become worse: 866 -> 836 but not critical, monitoring...\n"));
  EXPECT_TRUE(
      nb.LogContains("[Monitor] RSSI become worse: -50 -> -80, going to determine next mode.\n"));
}

TEST(MonitorStart, DisabledByAZeroIntervalOfTheSetActiveAtStart) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  // The set in force at start has no interval; a later one would have.
  nb.worker().config.settings.WifiStatMonitorInterval[0] = 0;
  nb.worker().config.settings.WifiStatMonitorInterval[3] = 5000;
  MonitorRun monitor(nb);
  monitor.Join();  // ends on its own
  EXPECT_TRUE(nb.LogContains("[Monitor] MONITOR IS DISABLED\n"));
  nb.worker().shared.device().active_config_set.store(3);
  nb.Patch(AllAntennas(-90));
  nb.SleepUntil(kRound2);
  EXPECT_EQ(nb.LogCount("[Monitor]"), 1u) << "nothing is monitored afterwards";
}

TEST(MonitorSleep, PendingRequestIsConsumedWhileSleepingWithItsConfigSet) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(2000);
  nb.worker().reevaluation.MakePending(3);
  nb.worker().RaiseReevaluation(Trigger::kMonitor);
  nb.SleepUntil(3500);  // the next one-second step (at 3010) consumes it
  EXPECT_FALSE(nb.worker().ReevaluationRequested());
  EXPECT_EQ(nb.worker().activeConfigSet(), 3u);
  EXPECT_FALSE(nb.worker().reevaluation.configChangePending());
}

TEST(MonitorSleep, StopIsSeenWithinOneStep) {
  EngineOnNotebook nb;
  ASSERT_EQ(nb.Init(), 0);
  MonitorRun monitor(nb);
  nb.SleepUntil(2500);
  const int64_t before = nb.Now();
  monitor.Stop();
  EXPECT_LE(nb.Now() - before, 1000);
}

}  // namespace
}  // namespace zaltor::engine
