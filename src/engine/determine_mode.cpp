#include "engine/determine_mode.h"

#include <algorithm>

#include "engine/best_value_scan.h"
#include "engine/determinators.h"

namespace zaltor::engine {

namespace {

std::size_t SetIndex(const DetermineInput& in) {
  return in.activeSet < static_cast<std::size_t>(config::kConfigSets) ? in.activeSet : 0;
}

// The average RSSI of a mode index; an index outside the modes reads as no value.
double AvgAt(const ModeResults& results, int modeCount, int32_t index) {
  if (index < 0 || index >= modeCount) return kNoRssiValue;
  return results.avgRssi[static_cast<size_t>(index)];
}

double Mean(std::span<const double> samples) {
  double sum = 0.0;
  for (double v : samples) sum += v;
  return sum / static_cast<double>(samples.size());
}

void LogSwitchStatus(const DetermineInput& in, int choice) {
  in.log.write(kLogDetail, "Switch status: \n");
  const int switches = std::clamp(in.switchCount, 0, kMaxSwitches);
  for (int k = 0; k < switches; ++k) {
    const auto uk = static_cast<size_t>(k);
    const auto bit = (static_cast<unsigned>(choice) >> static_cast<unsigned>(k)) & 1u;
    in.log.write(kLogDetail, "%s => %d (%s)\n", in.labels[uk].name.c_str(), static_cast<int>(bit),
                 in.labels[uk].positions[bit].c_str());
  }
  in.log.write(kLogDetail, "\n\n");
}

}  // namespace

int32_t DetermineMode(const DetermineInput& in, const SampleBuffers& buffers,
                      const SuccessCounts& successCounts, int32_t currentIndex, double& rssiOut,
                      bool& fallbackOut) {
  ModeResults results;
  return DetermineMode(in, buffers, successCounts, currentIndex, rssiOut, fallbackOut, results);
}

int32_t DetermineMode(const DetermineInput& in, const SampleBuffers& buffers,
                      const SuccessCounts& successCounts, int32_t currentIndex, double& rssiOut,
                      bool& fallbackOut, ModeResults& results) {
  const config::ConfigSettings& settings = in.settings;
  const std::size_t set = SetIndex(in);
  const int modeCount = ClampModeCount(in.modeCount);
  const int32_t collectCount = settings.RSSICollectCount[set];
  const double threshold = settings.RSSIThresholdForSwitchToDefaultMode[set];
  const int32_t defaultMode = settings.DefaultMode[set];
  Log& log = in.log;

  results.Reset();
  ModeMask disabled = 0;
  int disabledCount = 0;
  int failures = 0;
  int belowCount = 0;
  ModeValues& historyRow = in.history.rows[in.history.index % kRssiHistoryRows];

  // Averages of dBm values (not of linear power), as the thresholds and weights are in dB.
  log.write(kLogDetail, "Avg RSSI: ");
  for (int i = 0; i < modeCount; ++i) {
    const auto ui = static_cast<size_t>(i);
    if (settings.DisableMode[set][ui] != 0) {
      disabled |= ModeMask{1} << static_cast<unsigned>(i);
      ++disabledCount;
      continue;
    }
    const auto rssiRow = buffers.RssiRow(i, collectCount);
    const auto rateRow = buffers.RateRow(i, collectCount);
    const std::size_t n = std::min<std::size_t>(successCounts[ui], rssiRow.size());
    results.avgRate[ui] = 0.0;
    if (n < 1) {
      results.avgRssi[ui] = kNoRssiValue;
      log.write(kLogDetail, "#%d)*ERR, ", i + 1);
      ++failures;
    } else {
      results.avgRssi[ui] = Mean(rssiRow.first(n));
      results.avgRate[ui] = Mean(rateRow.first(n));
      log.write(kLogDetail, "#%d)%.3lf (%.1lf), ", i + 1, results.avgRssi[ui], results.avgRate[ui]);
    }
    historyRow[ui] = results.avgRssi[ui];
    if (threshold > results.avgRssi[ui]) ++belowCount;
  }
  in.history.index = (in.history.index + 1) % kRssiHistoryRows;
  log.write(kLogDetail, "\n");
  rssiOut = AvgAt(results, modeCount, currentIndex);

  // A failed measurement, or no enabled mode above the threshold: the configured default.
  const bool allBelow = belowCount == modeCount - disabledCount;
  results.failures = failures;
  results.allBelow = allBelow;
  if (allBelow || failures > 0) {
    if (allBelow && failures < 1) {
      log.write(kLogDetail,
                "All Measurements of signal strength are below threshold (%.2lf dBm).\n",
                threshold);
    } else {
      log.write(kLogDetail, "Some Measurement(s) (%d times) are failed.\n", failures);
    }
    rssiOut = AvgAt(results, modeCount, defaultMode - 1);
    log.write(kLogDetail, "Determined mode: %d (Fallback)\n", defaultMode);
    fallbackOut = true;
    return defaultMode;
  }

  // The weights are additive offsets in dB.
  log.write(kLogDetail, "Weighted: ");
  for (int i = 0; i < modeCount; ++i) {
    const auto ui = static_cast<size_t>(i);
    if (InMask(disabled, i)) continue;
    results.weighted[ui] = results.avgRssi[ui] + settings.RSSIWeightForMode[set][ui];
    log.write(kLogDetail, "#%d)%.3lf, ", i + 1, results.weighted[ui]);
  }
  log.write(kLogDetail, "\n\n");
  log.write(kLogDetail, "BW: ");
  for (int i = 0; i < modeCount; ++i) {
    log.write(kLogDetail, "#%d)%.1lf, ", i + 1, results.avgRate[static_cast<size_t>(i)]);
  }
  log.write(kLogDetail, "\n\n");

  const DecisionContext ctx{in, results, disabled, defaultMode, &results.mismatch};
  int choice = 0;
  switch (settings.DeterminatorMode) {
    case kDeterminatorHybrid:
      choice = HybridDeterminator(ctx);
      break;
    case kDeterminatorRssi:
      choice = RssiDeterminator(ctx);
      break;
    case kDeterminatorBandwidth:
      choice = BandwidthDeterminator(ctx);
      break;
    case kDeterminatorDoubleCheck:
      choice = DoubleCheckDeterminator(ctx);
      break;
    default:
      // Nothing is chosen; rssiOut keeps the current mode's average for the caller.
      log.write(kLogCritical, "Invalid Determinator!\n");
      return 0;
  }

  LogSwitchStatus(in, choice);
  rssiOut = AvgAt(results, modeCount, choice);
  return choice + 1;
}

int32_t ModeToApply(int32_t determined, const config::ConfigSettings& settings,
                    std::size_t activeSet) {
  if (determined != 0) return determined;
  const std::size_t set = activeSet < static_cast<std::size_t>(config::kConfigSets) ? activeSet : 0;
  return settings.DefaultMode[set];
}

}  // namespace zaltor::engine
