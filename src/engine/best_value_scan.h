#pragma once
// The best-value scans every determinator starts from.

#include <algorithm>
#include <vector>

#include "engine/mode_results.h"

namespace zaltor::engine {

constexpr double kScanStart = -2147483648.0;

struct ScanResult {
  int bestIndex = -1;     // -1: no mode qualified
  std::vector<int> ties;  // later indices equal to the best, in index order

  bool found() const { return bestIndex >= 0; }
  // The last tied index: the preferred mode of the tie resolution.
  int preferred() const { return ties.empty() ? bestIndex : ties.back(); }
};

// Over mode indices 0..modeCount-1, skipping disabled modes and values equal to the
// no-value RSSI: a strictly greater value replaces the best and empties the ties; an equal
// value is appended to the ties. So the first of equal values is the best index.
ScanResult BestValueScan(const ModeValues& values, int modeCount, ModeMask disabled);

// The same over two arrays: primary decides, and on an equal primary a greater secondary
// replaces; equal in both is a tie; a smaller secondary is ignored. Modes whose primary is
// the no-value RSSI are skipped.
ScanResult SecondaryScan(const ModeValues& primary, const ModeValues& secondary, int modeCount,
                         ModeMask disabled);

inline int ClampModeCount(int modeCount) {
  return std::clamp(modeCount, 0, kMaxModes);
}

}  // namespace zaltor::engine
