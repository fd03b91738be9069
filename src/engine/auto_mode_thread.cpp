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
// - Every pass that reaches a decision (a choice, a fallback, no connection, the run count
//   running out) leaves one record in the worker's decision journal, filled in place while
//   the pass runs and published once its sleep is known. A pass abandoned for a request
//   leaves none: it decided nothing. The record names what began the pass: the cause of
//   the request the loop consumed, "timer" after a sleep that ran out, and for the first
//   pass of a period the period's own start (see AutoSwitchingWorkerArg).
#include <algorithm>
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
        baseSleep_(worker.settings().BaseSleepIntervalBetweenEval[worker.activeSet()]),
        trigger_(arg.firstTrigger) {}

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
    if (w_.sw.SetModeIf([this] { return arg_.keepRunning.load(std::memory_order_relaxed); }, mode,
                        results)) {
      w_.health.Write(w_.switchCount(), results);
    }
  }

  // The checkpoint of the loop; a request it consumes names the next pass's trigger.
  LoopCheck Check() { return Checkpoint(w_, arg_, &trigger_); }

  // A fresh record for the pass that begins now.
  void BeginRecord() {
    record_.timeMs = w_.clock().now_ms();
    record_.trigger = trigger_;
    record_.configSet = static_cast<uint32_t>(w_.activeSet());
    record_.determinator = w_.settings().DeterminatorMode;
    record_.currentMode = kModeUnknown;
    record_.modeCount = 0;
    record_.chosen = 0;
    record_.outcome = Outcome::kChosen;
    record_.sleepMs = 0;
  }

  // One pass; kEnd ends the thread, anything else begins the next pass.
  LoopCheck Pass() {
    if (runLimit_ > 0) {
      ++run_;
      if (run_ > runLimit_) {
        runsExhausted_ = true;
        BeginRecord();
        record_.chosen = DefaultMode();
        record_.outcome = Outcome::kRunLimit;
        w_.journal.Publish(record_);
        return LoopCheck::kEnd;
      }
    }
    if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
    if (runLimit_ > 0) log_.write(kLogInfo, "Run #%d / %d\n", run_, runLimit_);
    buffers_->Reset();
    BeginRecord();

    int32_t chosen = 0;
    if (!Connected()) {
      log_.write(kLogWarning, "WLAN IF not connected, do nothing.\n");
      chosen = DefaultMode();
      record_.outcome = Outcome::kNotConnected;
      if (runLimit_ >= 1) --run_;  // a pass without a connection does not count
    } else if (LoopCheck c = Evaluate(chosen); c != LoopCheck::kGoOn) {
      return c;
    }
    return ApplyAndSleep(chosen);
  }

  bool Connected() {
    if (!w_.initialised()) return false;
    w_.shared.set_auto_state(kAutoMeasuring);
    uint32_t state = platform::kWlanNotReady;
    return w_.shared.QueryConnectionState(state) && state == platform::kWlanConnected;
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
    record_.configSet = static_cast<uint32_t>(pass.set);
    record_.currentMode = currentKnown ? mode : kModeUnknown;
    w_.health.BeginPass();

    // The mode in use first, without switching.
    if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
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
      if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
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
      if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
      const int64_t steps = WaitSteps(pass.waitForStable);
      for (int64_t s = 0; s < steps; ++s) {
        w_.clock().sleep_ms(kLoopStepMs);
        if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
      }
      if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
      log_.write(kLogDetail, "Getting RSSI for mode %d: ", i + 1);
      MeasureMode(w_, arg_, pass, *buffers_, i, counts_[at]);
      if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
    }

    // The mode the device stands in now, for the determinator's record.
    if (LoopCheck c = Check(); c != LoopCheck::kGoOn) return c;
    w_.health.EndPass();  // every mode was measured
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
    bool fallback = false;
    determined_ = DetermineMode(in, *buffers_, counts_, currentIndex, rssi_, fallback, results_);
    fallback_ = fallback;
    chosen = ModeToApply(determined_, w_.settings(), pass.set);
    Record(pass, fallback);
    return Check();
  }

  // The measurement and the determinator's verdict of this pass, into the record.
  void Record(const PassParameters& pass, bool fallback) {
    const int32_t modeCount = std::clamp(w_.modeCount(), 0, kMaxModes);
    record_.modeCount = modeCount;
    for (int32_t i = 0; i < modeCount; ++i) {
      const auto at = static_cast<size_t>(i);
      ModeRecord& m = record_.modes[at];
      m.disabled = w_.settings().DisableMode[pass.set][at] != 0;
      m.samples = m.disabled ? 0 : counts_[at];
      m.rssi = results_.avgRssi[at];
      m.rate = results_.avgRate[at];
      m.weight = w_.settings().RSSIWeightForMode[pass.set][at];
      m.weighted = results_.weighted[at];
    }
    if (determined_ == 0) {
      record_.outcome = Outcome::kInvalidDeterminator;
    } else if (fallback) {
      record_.outcome = results_.failures > 0 ? Outcome::kFallbackFailedMeasurement
                                              : Outcome::kFallbackBelowThreshold;
    } else if (results_.mismatch) {
      record_.outcome = Outcome::kFallbackMismatch;
    } else {
      record_.outcome = Outcome::kChosen;
    }
  }

  // Sets the choice (also when it is set already) and sleeps.
  LoopCheck ApplyAndSleep(int32_t chosen) {
    SetDeviceMode(chosen);
    stableCount_ = (hasPrevious_ && chosen == previousMode_) ? stableCount_ + 1 : 0;
    previousMode_ = chosen;
    hasPrevious_ = true;
    if (w_.initialised()) w_.shared.set_auto_state(kAutoIdle);
    record_.chosen = chosen;
    // A request here skips the sleep; stableCount stays.
    if (LoopCheck c = Check(); c != LoopCheck::kGoOn) {
      if (c == LoopCheck::kNextPass) w_.journal.Publish(record_);  // no sleep followed
      return c;
    }

    const int32_t sleep =
        AutoSleepInterval(baseSleep_, stableCount_, SleepGrowth::Of(w_.settings(), w_.activeSet()));
    log_.write(kLogDetail, "Sleep: %d\n\n", sleep);
    record_.sleepMs = sleep;
    w_.journal.Publish(record_);
    const int64_t steps = WaitSteps(sleep);
    for (int64_t s = 0; s < steps; ++s) {
      w_.clock().sleep_ms(kLoopStepMs);
      if (!arg_.keepRunning.load(std::memory_order_relaxed)) return LoopCheck::kEnd;
      if (w_.ConsumeReevaluation(&trigger_)) return LoopCheck::kNextPass;
    }
    trigger_ = Trigger::kTimer;
    return Check();
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
  Trigger trigger_;         // what begins the next pass
  DecisionRecord record_;   // of the pass under way
  ModeResults results_;     // the averages of the last DetermineMode
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
  if (w.initialised()) w.shared.set_auto_state(kAutoIdle);
  buffers->Reset();
  w.rssiHistory.Clear();

  bool runsExhausted = false;
  if (arg->keepRunning.load(std::memory_order_relaxed)) {
    AutoLoop loop(w, *arg, std::move(buffers));
    runsExhausted = loop.Run();
  }

  if (w.initialised()) w.shared.set_auto_state(kAutoEnded);
  if (runsExhausted) {
    log.write(kLogInfo, "Exiting auto mode...\n");
    w.LeaveAuto(*arg, w.settings().DefaultMode[w.activeSet()]);
  }
  w.clearAutoThread();
  log.write(kLogInfo, "Auto mode thread ended.\n");
}

}  // namespace zaltor::engine
