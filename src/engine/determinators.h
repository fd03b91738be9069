#pragma once
// The four determinators. Each runs after the averages, the fallback rules and the
// weighting of DetermineMode, writes its "Using ... determinator.\n" line and its choice
// lines, and returns the chosen mode index; DetermineMode then writes the switch status
// block and the result.

#include <cstdint>

#include "engine/determine_mode.h"
#include "engine/mode_results.h"
#include "engine/tie_resolution.h"

namespace zaltor::engine {

struct DecisionContext {
  const DetermineInput& in;
  const ModeResults& results;
  ModeMask disabled;
  int32_t default_mode;      // DefaultMode of the active set, a mode number
  bool* mismatch = nullptr;  // set by DoubleCheck when its two choices differ

  TieContext tie() const { return {in.log, in.labels, in.switchCount, disabled}; }
};

// A scan's index, resolving ties with the logged tie resolution over values. A scan in
// which no mode qualified (every enabled value is the no-value RSSI) yields
// DefaultMode - 1: there is nothing to compare, so the configured default stands.
int choose_logged(const DecisionContext& ctx, const ScanResult& scan, const ModeValues& values);

// Best-value scan on primary with secondary deciding equal primaries; ties resolved with
// the logged tie resolution over both arrays. Used by Hybrid with avgRate and weighted.
int ChooseWithSecondary(const DecisionContext& ctx, const ModeValues& primary,
                        const ModeValues& secondary);

int rssi_determinator(const DecisionContext& ctx);
int bandwidth_determinator(const DecisionContext& ctx);
int hybrid_determinator(const DecisionContext& ctx);
int double_check_determinator(const DecisionContext& ctx);

}  // namespace zaltor::engine
