#include "engine/measure_mode.h"

#include <algorithm>
#include <array>

#include "engine/loop_checks.h"
#include "engine/sample_reader.h"

namespace zaltor::engine {

namespace {

// One RSSI sample of the mode set now: false when the antenna count or the readings cannot
// be had, or when every antenna reads -95 (the mean would have no terms). An antenna
// without a reading (a failed collection, or a fourth port, which has no counter) keeps the
// preset -95 and is left out like a silent one, as the average RSSI of the control
// interface does. A sample that was read feeds the port health; one with a mean is also
// stored as the auto sweep's result for the control interface.
bool read_sample(AntennaSwitchWorkerObj& worker, int32_t modeIndex, int32_t& sample,
                 bool& any_silent) {
  if (!worker.initialised()) return false;
  SampleReader reader(worker);
  const std::optional<int32_t> antennas = reader.antennas();
  if (!antennas) return false;
  const RssiSample read = reader.ReadRssi(*antennas);
  if (!read.read) return false;
  worker.health.sample(modeIndex, read.antennas, read.readings.data());

  any_silent = read.mean.silent > 0;
  if (!read.mean.valid()) return false;
  sample = read.mean.value;

  // Only ports with a counter were read; a fourth port keeps its absent value (-200).
  for (int32_t p = 0; p < std::min(read.antennas, platform::kRssiPortSlots); ++p) {
    const int32_t row = (modeIndex >> p) & 1;
    worker.counters.store_auto_sweep(row, p, read.readings[static_cast<size_t>(p)]);
  }
  return true;
}

// The wait between two attempts; false when a stop or a request cut it short.
bool wait_between_attempts(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                           int32_t interval_ms) {
  const int64_t steps = wait_steps(interval_ms);
  for (int64_t s = 0; s < steps; ++s) {
    worker.clock().sleep_ms(kLoopStepMs);
    if (stop_or_request_pending(worker, arg)) return false;
  }
  return !stop_or_request_pending(worker, arg);
}

}  // namespace

void MeasureMode(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                 SampleBuffers& buffers, int32_t modeIndex, uint32_t& successCount) {
  MeasureMode(worker, arg, PassParameters::of(worker), buffers, modeIndex, successCount);
}

void MeasureMode(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                 const PassParameters& pass, SampleBuffers& buffers, int32_t modeIndex,
                 uint32_t& successCount) {
  Log& log = worker.log();
  const int32_t n = pass.collect_count;
  const auto rssi_row = buffers.rssi_row(modeIndex, n);
  const auto rate_row = buffers.rate_row(modeIndex, n);
  uint32_t successes = 0;
  double rate_sum = 0.0;
  bool all_ran = true;

  for (int32_t a = 0; a < n;) {
    if (stop_or_request_pending(worker, arg)) {
      all_ran = false;
      break;
    }
    int32_t sample = 0;
    bool any_silent = false;
    if (!read_sample(worker, modeIndex, sample, any_silent)) {
      log.write(kLogDetail, "*ERR, ");
    } else {
      log.write(kLogDetail, any_silent ? "*%d " : "%d ", sample);
      if (successes < rssi_row.size()) rssi_row[successes] = static_cast<double>(sample);

      const RateSample read = SampleReader(worker).read_rate();
      const double rate = read.mbps;
      if (!read.read || !(rate > 0.0)) {
        // Neither counted nor waited for: the same attempt again.
        log.write(kLogDetail, "(--/Retry), ");
        continue;
      }
      ++successes;
      rate_sum += rate;
      log.write(kLogDetail, "(%.1lfM), ", rate);
      if (successes - 1 < rate_row.size()) rate_row[successes - 1] = rate;
    }
    if (a < n - 1 && !wait_between_attempts(worker, arg, pass.collect_interval)) {
      all_ran = false;
      break;
    }
    ++a;
  }

  if (all_ran) {
    if (successes > 0) {
      log.write(kLogDetail, "Avg: %.1lf Mbps\n\n", rate_sum / successes);
    } else {
      log.write(kLogDetail, "Avg: N/A\n\n");
      log.write(kLogWarning, "All fail while getting rssi for mode %d\n", modeIndex + 1);
    }
  }
  successCount = successes;
}

}  // namespace zaltor::engine
