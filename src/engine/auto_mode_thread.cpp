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
// - Leaving Auto at the end (run count, or no buffers) goes through leave_auto: a user's
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
        run_limit_(worker.settings().AutoModeRunCount),
        base_sleep_(worker.settings().BaseSleepIntervalBetweenEval[worker.active_set()]),
        trigger_(arg.first_trigger) {}

  // Runs passes until the thread is to end; true when the run count ran out.
  bool Run() {
    for (;;) {
      if (pass() == LoopCheck::kEnd) return runs_exhausted_;
    }
  }

 private:
  int32_t DefaultMode() const { return w_.settings().DefaultMode[w_.active_set()]; }

  // A stopped loop writes nothing; the next checkpoint ends it.
  void set_device_mode(int32_t mode) {
    std::array<Status, platform::kMaxPorts> results{};
    if (w_.sw.set_mode_if([this] { return arg_.keep_running.load(std::memory_order_relaxed); },
                          mode, results)) {
      w_.health.write(w_.switchCount(), results);
    }
  }

  // The checkpoint of the loop; a request it consumes names the next pass's trigger.
  LoopCheck check() { return checkpoint(w_, arg_, &trigger_); }

  // A fresh record for the pass that begins now.
  void begin_record() {
    record_.time_ms = w_.clock().now_ms();
    record_.trigger = trigger_;
    record_.configSet = static_cast<uint32_t>(w_.active_set());
    record_.determinator = w_.settings().DeterminatorMode;
    record_.currentMode = kModeUnknown;
    record_.mode_count = 0;
    record_.chosen = 0;
    record_.outcome = Outcome::kChosen;
    record_.sleepMs = 0;
  }

  // One pass; kEnd ends the thread, anything else begins the next pass.
  LoopCheck pass() {
    if (run_limit_ > 0) {
      ++run_;
      if (run_ > run_limit_) {
        runs_exhausted_ = true;
        begin_record();
        record_.chosen = DefaultMode();
        record_.outcome = Outcome::kRunLimit;
        w_.journal.publish(record_);
        return LoopCheck::kEnd;
      }
    }
    if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
    if (run_limit_ > 0) log_.write(kLogInfo, "Run #%d / %d\n", run_, run_limit_);
    buffers_->reset();
    begin_record();

    int32_t chosen = 0;
    if (!connected()) {
      log_.write(kLogWarning, "WLAN IF not connected, do nothing.\n");
      chosen = DefaultMode();
      record_.outcome = Outcome::kNotConnected;
      if (run_limit_ >= 1) --run_;  // a pass without a connection does not count
    } else if (LoopCheck c = evaluate(chosen); c != LoopCheck::kGoOn) {
      return c;
    }
    return apply_and_sleep(chosen);
  }

  bool connected() {
    if (!w_.initialised()) return false;
    w_.shared.set_auto_state(kAutoMeasuring);
    uint32_t state = platform::kWlanNotReady;
    return w_.shared.query_connection_state(state) && state == platform::kWlanConnected;
  }

  // Measures every mode and lets the determinator choose: the mode to set in `chosen`.
  LoopCheck evaluate(int32_t& chosen) {
    const int32_t mode_count = w_.mode_count();
    const PassParameters pass = PassParameters::of(w_);
    log_.write(kLogDetail, "Using Config Set: %d\n", static_cast<int>(pass.set));
    int32_t mode = kModeUnknown;
    w_.sw.GetCurrentMode(mode);
    int32_t currentIndex = mode - 1;
    const bool current_known = currentIndex >= 0 && currentIndex < mode_count;
    record_.configSet = static_cast<uint32_t>(pass.set);
    record_.currentMode = current_known ? mode : kModeUnknown;
    w_.health.begin_pass();

    // The mode in use first, without switching.
    if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
    if (current_known) {
      counts_[static_cast<size_t>(currentIndex)] = 0;
      log_.write(kLogDetail, "Getting RSSI for mode %d: ", currentIndex + 1);
      MeasureMode(w_, arg_, pass, *buffers_, currentIndex,
                  counts_[static_cast<size_t>(currentIndex)]);
    }

    for (int32_t i = 0; i < mode_count; ++i) {
      if (i == currentIndex) continue;
      const auto at = static_cast<size_t>(i);
      counts_[at] = 0;
      if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
      if (w_.settings().disable_mode[pass.set][at] != 0) {
        log_.write(kLogDetail, "RSSI for mode %d: <DISABLED>\n", i + 1);
        const auto rssi = buffers_->rssi_row(i, pass.collect_count);
        const auto rate = buffers_->rate_row(i, pass.collect_count);
        if (!rssi.empty()) rssi[0] = kNoRssiValue;
        if (!rate.empty()) rate[0] = 0.0;
        counts_[at] = 1;
        continue;
      }
      set_device_mode(i + 1);
      if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
      const int64_t steps = wait_steps(pass.wait_for_stable);
      for (int64_t s = 0; s < steps; ++s) {
        w_.clock().sleep_ms(kLoopStepMs);
        if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
      }
      if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
      log_.write(kLogDetail, "Getting RSSI for mode %d: ", i + 1);
      MeasureMode(w_, arg_, pass, *buffers_, i, counts_[at]);
      if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
    }

    // The mode the device stands in now, for the determinator's record.
    if (LoopCheck c = check(); c != LoopCheck::kGoOn) return c;
    w_.health.end_pass();  // every mode was measured
    mode = kModeUnknown;
    const int32_t fallback_index = pass.default_mode - 1;
    if (w_.sw.GetCurrentMode(mode) != 0) {
      w_.write_event(kLogWarning, "Error while getting current mode! \n");
      currentIndex = fallback_index;
    }
    if (w_.initialised()) {
      if (mode >= 1 && mode <= w_.mode_count()) {
        currentIndex = mode - 1;
      } else {
        w_.write_event(kLogInfo, "Current mode is indeterminate!\n");
        currentIndex = fallback_index;
      }
    } else {
      w_.write_event(kLogWarning, "Error while getting mode count! \n");
      currentIndex = fallback_index;
    }

    DetermineInput in{w_.settings(),   pass.set, w_.mode_count(), w_.switchCount(), w_.labels,
                      w_.rssi_history, log_};
    bool fallback = false;
    determined_ = DetermineMode(in, *buffers_, counts_, currentIndex, rssi_, fallback, results_);
    fallback_ = fallback;
    chosen = mode_to_apply(determined_, w_.settings(), pass.set);
    record(pass, fallback);
    return check();
  }

  // The measurement and the determinator's verdict of this pass, into the record.
  void record(const PassParameters& pass, bool fallback) {
    const int32_t mode_count = std::clamp(w_.mode_count(), 0, kMaxModes);
    record_.mode_count = mode_count;
    for (int32_t i = 0; i < mode_count; ++i) {
      const auto at = static_cast<size_t>(i);
      ModeRecord& m = record_.modes[at];
      m.disabled = w_.settings().disable_mode[pass.set][at] != 0;
      m.samples = m.disabled ? 0 : counts_[at];
      m.rssi = results_.avg_rssi[at];
      m.rate = results_.avgRate[at];
      m.weight = w_.settings().rssi_weight_for_mode[pass.set][at];
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
  LoopCheck apply_and_sleep(int32_t chosen) {
    set_device_mode(chosen);
    stable_count_ = (has_previous_ && chosen == previous_mode_) ? stable_count_ + 1 : 0;
    previous_mode_ = chosen;
    has_previous_ = true;
    if (w_.initialised()) w_.shared.set_auto_state(kAutoIdle);
    record_.chosen = chosen;
    // A request here skips the sleep; stableCount stays.
    if (LoopCheck c = check(); c != LoopCheck::kGoOn) {
      if (c == LoopCheck::kNextPass) w_.journal.publish(record_);  // no sleep followed
      return c;
    }

    const int32_t sleep = auto_sleep_interval(base_sleep_, stable_count_,
                                              SleepGrowth::of(w_.settings(), w_.active_set()));
    log_.write(kLogDetail, "Sleep: %d\n\n", sleep);
    record_.sleepMs = sleep;
    w_.journal.publish(record_);
    const int64_t steps = wait_steps(sleep);
    for (int64_t s = 0; s < steps; ++s) {
      w_.clock().sleep_ms(kLoopStepMs);
      if (!arg_.keep_running.load(std::memory_order_relaxed)) return LoopCheck::kEnd;
      if (w_.consume_reevaluation(&trigger_)) return LoopCheck::kNextPass;
    }
    trigger_ = Trigger::kTimer;
    return check();
  }

  AntennaSwitchWorkerObj& w_;
  AutoSwitchingWorkerArg& arg_;
  Log& log_;
  std::shared_ptr<SampleBuffers> buffers_;
  SuccessCounts counts_{};
  const int32_t run_limit_;  // AutoModeRunCount; 0 or below: no limit
  int32_t run_ = 0;          // passes begun (and counted)
  bool runs_exhausted_ = false;
  const int32_t base_sleep_;  // of the config set in force when the thread started
  bool has_previous_ = false;
  int32_t previous_mode_ = 0;
  uint32_t stable_count_ = 0;
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

  auto buffers = SampleBuffers::create(w.settings().MaxRSSICollectCount);
  if (!buffers) {
    log.write(kLogCritical, "Out of Memory!\n");
    w.leave_auto(*arg, w.settings().DefaultMode[w.active_set()]);
    w.clear_auto_thread();
    return;
  }
  if (w.initialised()) w.shared.set_auto_state(kAutoIdle);
  buffers->reset();
  w.rssi_history.clear();

  bool runs_exhausted = false;
  if (arg->keep_running.load(std::memory_order_relaxed)) {
    AutoLoop loop(w, *arg, std::move(buffers));
    runs_exhausted = loop.Run();
  }

  if (w.initialised()) w.shared.set_auto_state(kAutoEnded);
  if (runs_exhausted) {
    log.write(kLogInfo, "Exiting auto mode...\n");
    w.leave_auto(*arg, w.settings().DefaultMode[w.active_set()]);
  }
  w.clear_auto_thread();
  log.write(kLogInfo, "Auto mode thread ended.\n");
}

}  // namespace zaltor::engine
