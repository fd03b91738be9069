// The auto loop. Each pass checks the WLAN connection, measures the mode in use and then
// every other enabled mode, lets the configured determinator choose, sets the choice and
// sleeps for an interval that grows while the choice stays the same.
//
// Other threads interrupt it only through the worker's re-evaluation request and the
// record's keepRunning flag, both looked at in checkpoints: keepRunning cleared ends the
// thread, a request is consumed (a pending config set becomes active) and the next pass
// begins at once. loopMutex is held only inside checkpoints, never while measuring,
// switching or sleeping, and every wait is taken in one-second steps.
//
// Choices made here:
// - When the mode found on the device at the start of a pass is not a mode (the switches
//   stand in no mode, or the read failed), no mode is in use to measure first; every mode
//   is then measured after switching to it.
// - "Exiting auto mode...\n" and the return to DefaultMode happen only when the run count
//   ran out. A user's stop ends the thread without them even with a run count, so that the
//   loop never overrides the fixed mode the user has just chosen.
// - A failed allocation of the sample buffers also clears the worker's autoThread, so that
//   Auto mode can be chosen again later.
// - A pass takes its config set and what it reads from it once, when it begins to measure
//   (see pass_parameters.h); the sleep after it reads the growth settings of the set in force
//   then.
// - The loop writes a mode only while keepRunning holds, tested under the device lock: once
//   the user's fixed mode has stopped the loop, nothing of the loop lands after it.
// - Leaving Auto at the end (run count, or no buffers) goes through LeaveAuto: a user's
//   choice made meanwhile stands.
#include <array>
#include <memory>

#include "engine/auto_sleep.h"
#include "engine/determine_mode.h"
#include "engine/loop_checks.h"
#include "engine/measure_mode.h"
#include "engine/pass_parameters.h"
#include "engine/sample_buffers.h"
#include "engine/worker.h"
#include "engine/worker_threads.h"
#include "platform/wlan.h"

namespace zaltor::engine {

namespace {

class AutoLoop {
 public:
  AutoLoop(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
           std::shared_ptr<SampleBuffers> buffers)
      : w_(worker),
        arg_(arg),
        log_(worker.log()),
        buffers_(std::move(buffers)),
        runLimit_(worker.settings().AutoModeRunCount),
        baseSleep_(worker.settings().BaseSleepIntervalBetweenEval[worker.activeSet()]) {}

  // Runs passes until the thread is to end; true when the run count ran out.
  bool Run() {
    for (;;) {
      if (Pass() == LoopCheck::kEnd) return runsExhausted_;
    }
  }

 private:
  int32_t DefaultMode() const { return w_.settings().DefaultMode[w_.activeSet()]; }

  // A stopped loop writes nothing; the next checkpoint ends it.
  void SetDeviceMode(int32_t mode) {
    std::array<Status, platform::kMaxPorts> results{};
    w_.sw.SetModeIf([this] { return arg_.keepRunning.load(std::memory_order_relaxed); }, mode,
                    results);
  }

  // One pass; kEnd ends the thread, anything else begins the next pass.
  LoopCheck Pass() {
    if (runLimit_ > 0) {
      ++run_;
      if (run_ > runLimit_) {
        runsExhausted_ = true;
        return LoopCheck::kEnd;
      }
    }
    if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
    if (runLimit_ > 0) log_.write(kLogInfo, "Run #%d / %d\n", run_, runLimit_);
    buffers_->Reset();

    int32_t chosen = 0;
    if (!Connected()) {
      log_.write(kLogWarning, "WLAN IF not connected, do nothing.\n");
      chosen = DefaultMode();
      if (runLimit_ >= 1) --run_;  // a pass without a connection does not count
    } else if (LoopCheck c = Evaluate(chosen); c != LoopCheck::kGoOn) {
      return c;
    }
    return ApplyAndSleep(chosen);
  }

  bool Connected() {
    if (!w_.initialised()) return false;
    w_.autoState.store(kAutoMeasuring, std::memory_order_relaxed);
    if (!w_.state.wlan) return false;
    uint32_t state = platform::kWlanNotReady;
    if (w_.state.wlan->query_connection_state(w_.state.wlan_interface, state) != 0) return false;
    return state == platform::kWlanConnected;
  }

  // Measures every mode and lets the determinator choose: the mode to set in `chosen`.
  LoopCheck Evaluate(int32_t& chosen) {
    const int32_t modeCount = w_.modeCount();
    const PassParameters pass = PassParameters::Of(w_);
    log_.write(kLogDetail, "Using Config Set: %d\n", static_cast<int>(pass.set));
    int32_t mode = kModeUnknown;
    w_.sw.GetCurrentMode(mode);
    int32_t currentIndex = mode - 1;
    const bool currentKnown = currentIndex >= 0 && currentIndex < modeCount;

    // The mode in use first, without switching.
    if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
    if (currentKnown) {
      counts_[static_cast<size_t>(currentIndex)] = 0;
      log_.write(kLogDetail, "Getting RSSI for mode %d: ", currentIndex + 1);
      MeasureMode(w_, arg_, pass, *buffers_, currentIndex,
                  counts_[static_cast<size_t>(currentIndex)]);
    }

    for (int32_t i = 0; i < modeCount; ++i) {
      if (i == currentIndex) continue;
      const auto at = static_cast<size_t>(i);
      counts_[at] = 0;
      if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
      if (w_.settings().DisableMode[pass.set][at] != 0) {
        log_.write(kLogDetail, "RSSI for mode %d: <DISABLED>\n", i + 1);
        const auto rssi = buffers_->RssiRow(i, pass.collectCount);
        const auto rate = buffers_->RateRow(i, pass.collectCount);
        if (!rssi.empty()) rssi[0] = kNoRssiValue;
        if (!rate.empty()) rate[0] = 0.0;
        counts_[at] = 1;
        continue;
      }
      SetDeviceMode(i + 1);
      if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
      const int64_t steps = WaitSteps(pass.waitForStable);
      for (int64_t s = 0; s < steps; ++s) {
        w_.clock().sleep_ms(kLoopStepMs);
        if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
      }
      if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
      log_.write(kLogDetail, "Getting RSSI for mode %d: ", i + 1);
      MeasureMode(w_, arg_, pass, *buffers_, i, counts_[at]);
      if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
    }

    // The mode the device stands in now, for the determinator's record.
    if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;
    mode = kModeUnknown;
    const int32_t fallbackIndex = pass.defaultMode - 1;
    if (w_.sw.GetCurrentMode(mode) != 0) {
      w_.WriteEvent(kLogWarning, "Error while getting current mode! \n");
      currentIndex = fallbackIndex;
    }
    if (w_.initialised()) {
      if (mode >= 1 && mode <= w_.modeCount()) {
        currentIndex = mode - 1;
      } else {
        w_.WriteEvent(kLogInfo, "Current mode is indeterminate!\n");
        currentIndex = fallbackIndex;
      }
    } else {
      w_.WriteEvent(kLogWarning, "Error while getting mode count! \n");
      currentIndex = fallbackIndex;
    }

    DetermineInput in{w_.settings(),  pass.set, w_.modeCount(), w_.switchCount(), w_.labels,
                      w_.rssiHistory, log_};
    determined_ = DetermineMode(in, *buffers_, counts_, currentIndex, rssi_, fallback_);
    chosen = ModeToApply(determined_, w_.settings(), pass.set);
    return Checkpoint(w_, arg_);
  }

  // Sets the choice (also when it is set already) and sleeps.
  LoopCheck ApplyAndSleep(int32_t chosen) {
    SetDeviceMode(chosen);
    stableCount_ = (hasPrevious_ && chosen == previousMode_) ? stableCount_ + 1 : 0;
    previousMode_ = chosen;
    hasPrevious_ = true;
    if (w_.initialised()) w_.autoState.store(kAutoIdle, std::memory_order_relaxed);
    // A request here skips the sleep; stableCount stays.
    if (LoopCheck c = Checkpoint(w_, arg_); c != LoopCheck::kGoOn) return c;

    const int32_t sleep =
        AutoSleepInterval(baseSleep_, stableCount_, SleepGrowth::Of(w_.settings(), w_.activeSet()));
    log_.write(kLogDetail, "Sleep: %d\n\n", sleep);
    const int64_t steps = WaitSteps(sleep);
    for (int64_t s = 0; s < steps; ++s) {
      w_.clock().sleep_ms(kLoopStepMs);
      if (!arg_.keepRunning.load(std::memory_order_relaxed)) return LoopCheck::kEnd;
      if (w_.ConsumeReevaluation()) return LoopCheck::kNextPass;
    }
    return Checkpoint(w_, arg_);
  }

  AntennaSwitchWorkerObj& w_;
  AutoSwitchingWorkerArg& arg_;
  Log& log_;
  std::shared_ptr<SampleBuffers> buffers_;
  SuccessCounts counts_{};
  const int32_t runLimit_;  // AutoModeRunCount; 0 or below: no limit
  int32_t run_ = 0;         // passes begun (and counted)
  bool runsExhausted_ = false;
  const int32_t baseSleep_;  // of the config set in force when the thread started
  bool hasPrevious_ = false;
  int32_t previousMode_ = 0;
  uint32_t stableCount_ = 0;
  int32_t determined_ = 0;  // the last DetermineMode result, its RSSI and fallback flag
  double rssi_ = kNoRssiValue;
  bool fallback_ = false;
};

}  // namespace

void AutoModeThread(std::shared_ptr<AutoSwitchingWorkerArg> arg) {
  AntennaSwitchWorkerObj& w = *arg->worker;
  Log& log = w.log();

  auto buffers = SampleBuffers::Create(w.settings().MaxRSSICollectCount);
  if (!buffers) {
    log.write(kLogCritical, "Out of Memory!\n");
    w.LeaveAuto(*arg, w.settings().DefaultMode[w.activeSet()]);
    w.clearAutoThread();
    return;
  }
  if (w.initialised()) w.autoState.store(kAutoIdle, std::memory_order_relaxed);
  buffers->Reset();
  w.rssiHistory.Clear();

  bool runsExhausted = false;
  if (arg->keepRunning.load(std::memory_order_relaxed)) {
    AutoLoop loop(w, *arg, std::move(buffers));
    runsExhausted = loop.Run();
  }

  if (w.initialised()) w.autoState.store(kAutoEnded, std::memory_order_relaxed);
  if (runsExhausted) {
    log.write(kLogInfo, "Exiting auto mode...\n");
    w.LeaveAuto(*arg, w.settings().DefaultMode[w.activeSet()]);
  }
  w.clearAutoThread();
  log.write(kLogInfo, "Auto mode thread ended.\n");
}

}  // namespace zaltor::engine
