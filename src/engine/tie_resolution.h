#pragma once
// The logged tie resolution shared by the determinators: when a best-value scan ends with
// ties, the choice is composed switch by switch from the pairwise comparison, taking the
// position from the preferred (last tied) mode where the pairs do not decide. The composed
// mode is taken as it is, even when it is none of the tied modes, unless it is disabled
// (see compose_choice).

#include "engine/best_value_scan.h"
#include "engine/switch_compare.h"
#include "engine/switch_labels.h"
#include "platform/log.h"

namespace zaltor::engine {

struct TieContext {
  Log& log;
  const SwitchLabels& labels;
  int switchCount;
  ModeMask disabled;  // left out of the pairs, never chosen
};

// Logs "Use more precise methods with switch count %d...\n", "Preferred mode = %d\n",
// "Determined Switch States: " and per switch "{%d, %d} = " with the position label or
// "**(%d)", ", ", then "\n". Returns the composed mode index. scan must have ties.
int resolve_ties_logged(const TieContext& ctx, const ScanResult& scan, const ModeValues& values);

// The same with the two-array comparison (a position wins when it wins in either array).
int resolve_ties_logged(const TieContext& ctx, const ScanResult& scan, const ModeValues& valuesA,
                        const ModeValues& valuesB);

}  // namespace zaltor::engine
