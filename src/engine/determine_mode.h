#pragma once
// DetermineMode: turns the samples of one evaluation cycle into a mode number.
//
// Averages per mode ("Avg RSSI: "), the history ring, the fallback to DefaultMode when a
// measurement failed or every enabled mode lies below RSSIThresholdForSwitchToDefaultMode,
// the additive per-mode weights ("Weighted: ", "BW: "), and then the determinator that
// DeterminatorMode names: 0 Hybrid, 1 RSSI, 2 Bandwidth, 3 DoubleCheck.
//
// Disabled modes get no average and no weighted value, are skipped by every scan, are left
// out of the switch pairs of the tie resolution and are never the composed choice (see
// switch_compare.h). An invalid DeterminatorMode chooses nothing (result 0, see below).
//
// The engine keeps no state of its own here: the worker owns the settings, the labels and
// the history ring and passes them in; the auto-mode thread owns the sample buffers.

#include <cstddef>
#include <cstdint>

#include "config/settings.h"
#include "engine/mode_results.h"
#include "engine/rssi_history.h"
#include "engine/sample_buffers.h"
#include "engine/switch_labels.h"
#include "platform/log.h"

namespace zaltor::engine {

enum DeterminatorKind : int32_t {
  kDeterminatorHybrid = 0,
  kDeterminatorRssi = 1,
  kDeterminatorBandwidth = 2,
  kDeterminatorDoubleCheck = 3,
};

// What DetermineMode reads from the worker. modeCount is 1 << switchCount (at most 16);
// active_set is the config set in force (an index beyond the record reads set 0).
struct DetermineInput {
  const config::ConfigSettings& settings;
  std::size_t active_set;
  int32_t mode_count;
  int32_t switchCount;
  const SwitchLabels& labels;
  RssiHistory& history;
  Log& log;
};

// Returns the mode number 1..modeCount that the determinator chose, DefaultMode of the
// active set when the fallback rule chose (fallbackOut is then set), or 0 when
// DeterminatorMode names no determinator ("Invalid Determinator!\n"). In that case nothing
// is chosen: rssiOut keeps the average of currentIndex and fallbackOut is left as it was;
// the caller decides what to set (see mode_to_apply).
//
// currentIndex is the mode index found on the device when the cycle began; rssiOut gets
// the average RSSI of the chosen mode (of currentIndex before a choice exists). Indices
// outside 0..modeCount-1 (a DefaultMode the configuration got wrong) read as the no-value
// RSSI instead of reaching outside the arrays. fallbackOut is only ever set, never cleared.
int32_t DetermineMode(const DetermineInput& in, const SampleBuffers& buffers,
                      const SuccessCounts& successCounts, int32_t currentIndex, double& rssiOut,
                      bool& fallbackOut);

// The same, also handing back the per-mode averages and weighted values of the evaluation.
int32_t DetermineMode(const DetermineInput& in, const SampleBuffers& buffers,
                      const SuccessCounts& successCounts, int32_t currentIndex, double& rssiOut,
                      bool& fallbackOut, ModeResults& results);

// The mode the auto loop sets for a DetermineMode result: the result itself, except that
// the 0 of an invalid determinator keeps DefaultMode of the active set, so that a
// misconfigured determinator never leaves the antenna in whatever mode was measured last.
int32_t mode_to_apply(int32_t determined, const config::ConfigSettings& settings,
                      std::size_t active_set);

}  // namespace zaltor::engine
