#include "engine/determine_mode.h"

#include <algorithm>

#include "engine/best_value_scan.h"
#include "engine/determinators.h"

namespace zaltor::engine {

namespace {

std::size_t set_index(const DetermineInput& in) {
  return in.active_set < static_cast<std::size_t>(config::kConfigSets) ? in.active_set : 0;
}

// The average RSSI of a mode index; an index outside the modes reads as no value.
double avg_at(const ModeResults& results, int mode_count, int32_t index) {
  if (index < 0 || index >= mode_count) return kNoRssiValue;
  return results.avg_rssi[static_cast<size_t>(index)];
}

double mean(std::span<const double> samples) {
  double sum = 0.0;
  for (double v : samples) sum += v;
  return sum / static_cast<double>(samples.size());
}

void log_switch_status(const DetermineInput& in, int choice) {
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
  const std::size_t set = set_index(in);
  const int mode_count = clamp_mode_count(in.mode_count);
  const int32_t collect_count = settings.RSSICollectCount[set];
  const double threshold = settings.RSSIThresholdForSwitchToDefaultMode[set];
  const int32_t default_mode = settings.DefaultMode[set];
  Log& log = in.log;

  results.reset();
  ModeMask disabled = 0;
  int disabled_count = 0;
  int failures = 0;
  int below_count = 0;
  ModeValues& history_row = in.history.rows[in.history.index % kRssiHistoryRows];

  // Averages of dBm values (not of linear power), as the thresholds and weights are in dB.
  log.write(kLogDetail, "Avg RSSI: ");
  for (int i = 0; i < mode_count; ++i) {
    const auto ui = static_cast<size_t>(i);
    if (settings.disable_mode[set][ui] != 0) {
      disabled |= ModeMask{1} << static_cast<unsigned>(i);
      ++disabled_count;
      continue;
    }
    const auto rssi_row = buffers.rssi_row(i, collect_count);
    const auto rate_row = buffers.rate_row(i, collect_count);
    const std::size_t n = std::min<std::size_t>(successCounts[ui], rssi_row.size());
    results.avgRate[ui] = 0.0;
    if (n < 1) {
      results.avg_rssi[ui] = kNoRssiValue;
      log.write(kLogDetail, "#%d)*ERR, ", i + 1);
      ++failures;
    } else {
      results.avg_rssi[ui] = mean(rssi_row.first(n));
      results.avgRate[ui] = mean(rate_row.first(n));
      log.write(kLogDetail, "#%d)%.3lf (%.1lf), ", i + 1, results.avg_rssi[ui],
                results.avgRate[ui]);
    }
    history_row[ui] = results.avg_rssi[ui];
    if (threshold > results.avg_rssi[ui]) ++below_count;
  }
  in.history.index = (in.history.index + 1) % kRssiHistoryRows;
  log.write(kLogDetail, "\n");
  rssiOut = avg_at(results, mode_count, currentIndex);

  // A failed measurement, or no enabled mode above the threshold: the configured default.
  const bool all_below = below_count == mode_count - disabled_count;
  results.failures = failures;
  results.all_below = all_below;
  if (all_below || failures > 0) {
    if (all_below && failures < 1) {
      log.write(kLogDetail,
                "All Measurements of signal strength are below threshold (%.2lf dBm).\n",
                threshold);
    } else {
      log.write(kLogDetail, "Some Measurement(s) (%d times) are failed.\n", failures);
    }
    rssiOut = avg_at(results, mode_count, default_mode - 1);
    log.write(kLogDetail, "Determined mode: %d (Fallback)\n", default_mode);
    fallbackOut = true;
    return default_mode;
  }

  // The weights are additive offsets in dB.
  log.write(kLogDetail, "Weighted: ");
  for (int i = 0; i < mode_count; ++i) {
    const auto ui = static_cast<size_t>(i);
    if (in_mask(disabled, i)) continue;
    results.weighted[ui] = results.avg_rssi[ui] + settings.rssi_weight_for_mode[set][ui];
    log.write(kLogDetail, "#%d)%.3lf, ", i + 1, results.weighted[ui]);
  }
  log.write(kLogDetail, "\n\n");
  log.write(kLogDetail, "BW: ");
  for (int i = 0; i < mode_count; ++i) {
    log.write(kLogDetail, "#%d)%.1lf, ", i + 1, results.avgRate[static_cast<size_t>(i)]);
  }
  log.write(kLogDetail, "\n\n");

  const DecisionContext ctx{in, results, disabled, default_mode, &results.mismatch};
  int choice = 0;
  switch (settings.DeterminatorMode) {
    case kDeterminatorHybrid:
      choice = hybrid_determinator(ctx);
      break;
    case kDeterminatorRssi:
      choice = rssi_determinator(ctx);
      break;
    case kDeterminatorBandwidth:
      choice = bandwidth_determinator(ctx);
      break;
    case kDeterminatorDoubleCheck:
      choice = double_check_determinator(ctx);
      break;
    default:
      // Nothing is chosen; rssiOut keeps the current mode's average for the caller.
      log.write(kLogCritical, "Invalid Determinator!\n");
      return 0;
  }

  log_switch_status(in, choice);
  rssiOut = avg_at(results, mode_count, choice);
  return choice + 1;
}

int32_t mode_to_apply(int32_t determined, const config::ConfigSettings& settings,
                      std::size_t active_set) {
  if (determined != 0) return determined;
  const std::size_t set =
      active_set < static_cast<std::size_t>(config::kConfigSets) ? active_set : 0;
  return settings.DefaultMode[set];
}

}  // namespace zaltor::engine
