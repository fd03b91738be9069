#include "engine/best_value_scan.h"

namespace zaltor::engine {

ScanResult best_value_scan(const ModeValues& values, int mode_count, ModeMask disabled) {
  ScanResult result;
  double best = kScanStart;
  for (int i = 0; i < clamp_mode_count(mode_count); ++i) {
    const double value = values[static_cast<size_t>(i)];
    if (in_mask(disabled, i) || value == kNoRssiValue) continue;
    // A value equal to the start value is still a first candidate, never a tie of nothing.
    if (value > best || !result.found()) {
      best = value;
      result.best_index = i;
      result.ties.clear();
    } else if (value == best) {
      result.ties.push_back(i);
    }
  }
  return result;
}

ScanResult secondary_scan(const ModeValues& primary, const ModeValues& secondary, int mode_count,
                          ModeMask disabled) {
  ScanResult result;
  double best = kScanStart;
  double best2 = kScanStart;
  for (int i = 0; i < clamp_mode_count(mode_count); ++i) {
    const double p = primary[static_cast<size_t>(i)];
    const double s = secondary[static_cast<size_t>(i)];
    if (in_mask(disabled, i) || p == kNoRssiValue) continue;
    if (p > best || (p == best && s > best2) || !result.found()) {
      best = p;
      best2 = s;
      result.best_index = i;
      result.ties.clear();
    } else if (p == best && s == best2) {
      result.ties.push_back(i);
    }
  }
  return result;
}

}  // namespace zaltor::engine
