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

bool read_monitor_rssi(AntennaSwitchWorkerObj& w, int32_t& value) {
  SampleReader reader(w);
  const std::optional<int32_t> antennas = reader.antennas();
  if (!antennas || *antennas < 1) return false;
  const RssiSample sample = reader.ReadRssi(*antennas);
  if (!sample.read || !sample.mean.valid()) return false;
  value = sample.mean.value;
  return true;
}

bool read_monitor_rate(AntennaSwitchWorkerObj& w, int32_t& value) {
  const RateSample sample = SampleReader(w).read_rate();
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
    const size_t start_set = w_.active_set();
    if (w_.settings().WifiStatMonitorInterval[start_set] == 0) {
      log_.write(kLogInfo, "[Monitor] MONITOR IS DISABLED\n");
      return;
    }
    int32_t v = 0;
    if (w_.initialised() && read_monitor_rssi(w_, v)) rssi_base_ = v;
    if (read_monitor_rate(w_, v) && w_.initialised()) rate_base_ = v;
    if (!keep_running()) return;
    for (;;) {
      if (w_.consume_reevaluation()) {
        if (!keep_running()) return;
        continue;
      }
      if (w_.initialised()) {
        uint32_t st = 0;
        if (!w_.shared.query_connection_state(st)) st = 0;
        interface_state_ = st;
        auto_state_ = w_.shared.auto_state();
      }
      if (auto_state_ == kAutoIdle && interface_state_ == platform::kWlanConnected) compare();
      if (!Sleep()) return;
      if (!keep_running()) return;
    }
  }

 private:
  bool keep_running() const { return arg_->keep_running.load(std::memory_order_relaxed); }

  void compare() {
    int32_t current_rssi = kAbsent;
    if (!w_.initialised() || !read_monitor_rssi(w_, current_rssi)) {
      log_.write(kLogInfo, "[Monitor] Error while getting rssi! \n");
      current_rssi = kAbsent;
    }
    int32_t current_rate = kAbsent;
    if (!read_monitor_rate(w_, current_rate)) {
      log_.write(kLogInfo, "[Monitor] Error while getting mcs! \n");
      current_rate = kAbsent;
    }
    const size_t set = w_.active_set();
    // A rate drop that triggers already asks for a decision: the RSSI is not compared.
    if (check("MCS", rate_base_, current_rate, w_.settings().MCSDeltaToTriggerScan[set])) return;
    check("RSSI", rssi_base_, current_rssi, w_.settings().RSSIDeltaToTriggerScan[set]);
  }

  // True when the drop triggered a new decision. Bases only rise: a trigger keeps the base,
  // so a link that stays worse triggers again at the next idle round.
  bool check(const char* name, int32_t& base, int32_t current, double delta) {
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
    remember_worker(&w_);
    w_.raise_reevaluation(Trigger::kMonitor);
    return true;
  }

  // False when keepRunning was cleared during the sleep.
  bool Sleep() {
    int64_t slept = 0;
    for (;;) {
      const int64_t interval = w_.settings().WifiStatMonitorInterval[w_.active_set()];
      if (slept >= interval && slept > 0) break;
      w_.clock().sleep_ms(kStepMs);
      slept += kStepMs;
      if (!keep_running()) return false;
      if (w_.consume_reevaluation()) return true;
    }
    w_.consume_reevaluation();
    return true;
  }

  std::shared_ptr<AutoSwitchingWorkerArg> arg_;
  AntennaSwitchWorkerObj& w_;
  Log& log_;
  int32_t rssi_base_ = kAbsent;
  int32_t rate_base_ = kAbsent;
  uint32_t auto_state_ = kAutoMeasuring;                // last seen
  uint32_t interface_state_ = platform::kWlanNotReady;  // last seen
};
}  // namespace

void MonitorThread(std::shared_ptr<AutoSwitchingWorkerArg> arg) {
  if (!arg || arg->worker == nullptr) return;
  Monitor(std::move(arg)).Run();
}

}  // namespace zaltor::engine
