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
bool ReadSample(AntennaSwitchWorkerObj& worker, int32_t modeIndex, int32_t& sample,
                bool& anySilent) {
  if (!worker.initialised()) return false;
  SampleReader reader(worker);
  const std::optional<int32_t> antennas = reader.Antennas();
  if (!antennas) return false;
  const RssiSample read = reader.ReadRssi(*antennas);
  if (!read.read) return false;
  worker.health.Sample(modeIndex, read.antennas, read.readings.data());

  anySilent = read.mean.silent > 0;
  if (!read.mean.valid()) return false;
  sample = read.mean.value;

  // Only ports with a counter were read; a fourth port keeps its absent value (-200).
  for (int32_t p = 0; p < std::min(read.antennas, platform::kRssiPortSlots); ++p) {
    const int32_t row = (modeIndex >> p) & 1;
    worker.counters.StoreAutoSweep(row, p, read.readings[static_cast<size_t>(p)]);
  }
  return true;
}

// The wait between two attempts; false when a stop or a request cut it short.
bool WaitBetweenAttempts(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                         int32_t intervalMs) {
  const int64_t steps = WaitSteps(intervalMs);
  for (int64_t s = 0; s < steps; ++s) {
    worker.clock().sleep_ms(kLoopStepMs);
    if (StopOrRequestPending(worker, arg)) return false;
  }
  return !StopOrRequestPending(worker, arg);
}

}  // namespace

void MeasureMode(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                 SampleBuffers& buffers, int32_t modeIndex, uint32_t& successCount) {
  MeasureMode(worker, arg, PassParameters::Of(worker), buffers, modeIndex, successCount);
}

void MeasureMode(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                 const PassParameters& pass, SampleBuffers& buffers, int32_t modeIndex,
                 uint32_t& successCount) {
  Log& log = worker.log();
  const int32_t n = pass.collectCount;
  const auto rssiRow = buffers.RssiRow(modeIndex, n);
  const auto rateRow = buffers.RateRow(modeIndex, n);
  uint32_t successes = 0;
  double rateSum = 0.0;
  bool allRan = true;

  for (int32_t a = 0; a < n;) {
    if (StopOrRequestPending(worker, arg)) {
      allRan = false;
      break;
    }
    int32_t sample = 0;
    bool anySilent = false;
    if (!ReadSample(worker, modeIndex, sample, anySilent)) {
      log.write(kLogDetail, "*ERR, ");
    } else {
      log.write(kLogDetail, anySilent ? "*%d " : "%d ", sample);
      if (successes < rssiRow.size()) rssiRow[successes] = static_cast<double>(sample);

      const RateSample read = SampleReader(worker).ReadRate();
      const double rate = read.mbps;
      if (!read.read || !(rate > 0.0)) {
        // Neither counted nor waited for: the same attempt again.
        log.write(kLogDetail, "(--/Retry), ");
        continue;
      }
      ++successes;
      rateSum += rate;
      log.write(kLogDetail, "(%.1lfM), ", rate);
      if (successes - 1 < rateRow.size()) rateRow[successes - 1] = rate;
    }
    if (a < n - 1 && !WaitBetweenAttempts(worker, arg, pass.collectInterval)) {
      allRan = false;
      break;
    }
    ++a;
  }

  if (allRan) {
    if (successes > 0) {
      log.write(kLogDetail, "Avg: %.1lf Mbps\n\n", rateSum / successes);
    } else {
      log.write(kLogDetail, "Avg: N/A\n\n");
      log.write(kLogWarning, "All fail while getting rssi for mode %d\n", modeIndex + 1);
    }
  }
  successCount = successes;
}

}  // namespace zaltor::engine
