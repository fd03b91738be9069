// The Wi-Fi statistics monitor: between the auto loop's evaluations it compares the RSSI
// and the link rate with the best values seen and asks for a new decision when one drops
// by more than its trigger delta.
//
// Choices made here:
// - The RSSI reading is the truncating mean of the antennas' values other than -95; when
//   every antenna reads -95 (also when the collection failed and the preset -95 values
//   stand, or there is no antenna) the mean has no terms and the reading fails.
// - A config set whose WifiStatMonitorInterval is 0 (a set without its own section carries
//   0) still sleeps one 1000 ms step per round, so that the monitor never spins.
#include <cmath>
#include <limits>
#include <optional>

#include "engine/sample_reader.h"
#include "engine/system_events.h"
#include "engine/worker_threads.h"
#include "platform/wlan.h"

namespace zaltor::engine {

namespace {
constexpr int32_t kAbsent = -200;
constexpr int64_t kStepMs = 1000;

bool ReadMonitorRssi(AntennaSwitchWorkerObj& w, int32_t& value) {
  SampleReader reader(w);
  const std::optional<int32_t> antennas = reader.Antennas();
  if (!antennas || *antennas < 1) return false;
  const RssiSample sample = reader.ReadRssi(*antennas);
  if (!sample.read || !sample.mean.valid()) return false;
  value = sample.mean.value;
  return true;
}

bool ReadMonitorRate(AntennaSwitchWorkerObj& w, int32_t& value) {
  const RateSample sample = SampleReader(w).ReadRate();
  if (!sample.read) return false;
  const double rate = std::trunc(sample.mbps);
  // Keep the conversion defined for any counter value.
  if (!(rate >= std::numeric_limits<int32_t>::min())) {
    value = std::numeric_limits<int32_t>::min();
  } else if (rate > std::numeric_limits<int32_t>::max()) {
    value = std::numeric_limits<int32_t>::max();
  } else {
    value = static_cast<int32_t>(rate);
  }
  return true;
}

class Monitor {
 public:
  explicit Monitor(std::shared_ptr<AutoSwitchingWorkerArg> arg)
      : arg_(std::move(arg)), w_(*arg_->worker), log_(w_.log()) {}

  void Run() {
    const size_t startSet = w_.activeSet();
    if (w_.settings().WifiStatMonitorInterval[startSet] == 0) {
      log_.write(kLogInfo, "[Monitor] MONITOR IS DISABLED\n");
      return;
    }
    int32_t v = 0;
    if (w_.initialised() && ReadMonitorRssi(w_, v)) rssiBase_ = v;
    if (ReadMonitorRate(w_, v) && w_.initialised()) rateBase_ = v;
    if (!KeepRunning()) return;
    for (;;) {
      if (w_.ConsumeReevaluation()) {
        if (!KeepRunning()) return;
        continue;
      }
      if (w_.initialised()) {
        uint32_t st = 0;
        if (!w_.shared.QueryConnectionState(st)) st = 0;
        interfaceState_ = st;
        autoState_ = w_.shared.auto_state();
      }
      if (autoState_ == kAutoIdle && interfaceState_ == platform::kWlanConnected) Compare();
      if (!Sleep()) return;
      if (!KeepRunning()) return;
    }
  }

 private:
  bool KeepRunning() const { return arg_->keepRunning.load(std::memory_order_relaxed); }

  void Compare() {
    int32_t currentRssi = kAbsent;
    if (!w_.initialised() || !ReadMonitorRssi(w_, currentRssi)) {
      log_.write(kLogInfo, "[Monitor] Error while getting rssi! \n");
      currentRssi = kAbsent;
    }
    int32_t currentRate = kAbsent;
    if (!ReadMonitorRate(w_, currentRate)) {
      log_.write(kLogInfo, "[Monitor] Error while getting mcs! \n");
      currentRate = kAbsent;
    }
    const size_t set = w_.activeSet();
    // A rate drop that triggers already asks for a decision: the RSSI is not compared.
    if (Check("MCS", rateBase_, currentRate, w_.settings().MCSDeltaToTriggerScan[set])) return;
    Check("RSSI", rssiBase_, currentRssi, w_.settings().RSSIDeltaToTriggerScan[set]);
  }

  // True when the drop triggered a new decision. Bases only rise: a trigger keeps the base,
  // so a link that stays worse triggers again at the next idle round.
  bool Check(const char* name, int32_t& base, int32_t current, double delta) {
    if (current >= base) {
      base = current;
      return false;
    }
    const int64_t drop = static_cast<int64_t>(base) - current;
    if (delta >= static_cast<double>(drop)) {
      log_.write(kLogInfo, "[Monitor] %s become worse: %d -> %d but not critical, monitoring...\n",
                 name, base, current);
      return false;
    }
    log_.write(kLogInfo, "[Monitor] %s become worse: %d -> %d, going to determine next mode.\n",
               name, base, current);
    RememberWorker(&w_);
    w_.RaiseReevaluation(Trigger::kMonitor);
    return true;
  }

  // False when keepRunning was cleared during the sleep.
  bool Sleep() {
    int64_t slept = 0;
    for (;;) {
      const int64_t interval = w_.settings().WifiStatMonitorInterval[w_.activeSet()];
      if (slept >= interval && slept > 0) break;
      w_.clock().sleep_ms(kStepMs);
      slept += kStepMs;
      if (!KeepRunning()) return false;
      if (w_.ConsumeReevaluation()) return true;
    }
    w_.ConsumeReevaluation();
    return true;
  }

  std::shared_ptr<AutoSwitchingWorkerArg> arg_;
  AntennaSwitchWorkerObj& w_;
  Log& log_;
  int32_t rssiBase_ = kAbsent;
  int32_t rateBase_ = kAbsent;
  uint32_t autoState_ = kAutoMeasuring;                // last seen
  uint32_t interfaceState_ = platform::kWlanNotReady;  // last seen
};
}  // namespace

void MonitorThread(std::shared_ptr<AutoSwitchingWorkerArg> arg) {
  if (!arg || arg->worker == nullptr) return;
  Monitor(std::move(arg)).Run();
}

}  // namespace zaltor::engine
