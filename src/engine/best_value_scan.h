#pragma once
// The best-value scans every determinator starts from.

#include <algorithm>
#include <array>

#include "engine/mode_results.h"

namespace zaltor::engine {

constexpr double kScanStart = -2147483648.0;

// Mode indices in a fixed array: a scan runs in every decision pass and allocates nothing.
// There are at most kMaxModes modes, so at most kMaxModes - 1 ties.
class ModeIndexList {
 public:
  void push_back(int index) {
    if (size_ < indices_.size()) indices_[size_++] = index;
  }
  void clear() { size_ = 0; }
  bool empty() const { return size_ == 0; }
  size_t size() const { return size_; }
  int back() const { return indices_[size_ - 1]; }
  const int* begin() const { return indices_.data(); }
  const int* end() const { return indices_.data() + size_; }

 private:
  std::array<int, kMaxModes> indices_{};
  size_t size_ = 0;
};

struct ScanResult {
  int best_index = -1;  // -1: no mode qualified
  ModeIndexList ties;   // later indices equal to the best, in index order

  bool found() const { return best_index >= 0; }
  // The last tied index: the preferred mode of the tie resolution.
  int preferred() const { return ties.empty() ? best_index : ties.back(); }
};

// Over mode indices 0..modeCount-1, skipping disabled modes and values equal to the
// no-value RSSI: a strictly greater value replaces the best and empties the ties; an equal
// value is appended to the ties. So the first of equal values is the best index.
ScanResult best_value_scan(const ModeValues& values, int mode_count, ModeMask disabled);

// The same over two arrays: primary decides, and on an equal primary a greater secondary
// replaces; equal in both is a tie; a smaller secondary is ignored. Modes whose primary is
// the no-value RSSI are skipped.
ScanResult secondary_scan(const ModeValues& primary, const ModeValues& secondary, int mode_count,
                          ModeMask disabled);

inline int clamp_mode_count(int mode_count) {
  return std::clamp(mode_count, 0, kMaxModes);
}

}  // namespace zaltor::engine
