#pragma once
// The RSSI and link-rate sample buffers that the auto loop fills and DetermineMode reads.
// Both hold 16 rows of (capacity + 1) entries, the capacity being the largest
// RSSICollectCount of any enabled config set. The row of mode index i begins at
// i * (N + 1), N being RSSICollectCount of the config set in force, so rows are laid out
// by the active set while the allocation fits every set.

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "engine/mode_results.h"

namespace zaltor::engine {

// Successful samples per mode index.
using SuccessCounts = std::array<uint32_t, kMaxModes>;

class SampleBuffers {
 public:
  // capacity below 1 is taken as 1. Throws std::bad_alloc like any container.
  explicit SampleBuffers(int32_t capacity);

  // The same, but nullptr when memory is short (the auto loop reports "Out of Memory!").
  static std::shared_ptr<SampleBuffers> create(int32_t capacity);

  int32_t capacity() const { return capacity_; }

  // Every RSSI entry to the no-value RSSI, every rate entry to 0: done before each cycle.
  void reset();

  // The row of modeIndex laid out for collect_count samples per mode. The span is cut at
  // the end of the buffer (empty when the row lies beyond it), so a count that does not fit
  // the allocation can never reach outside it.
  std::span<double> rssi_row(int modeIndex, int32_t collect_count);
  std::span<double> rate_row(int modeIndex, int32_t collect_count);
  std::span<const double> rssi_row(int modeIndex, int32_t collect_count) const;
  std::span<const double> rate_row(int modeIndex, int32_t collect_count) const;

  std::span<const double> rssi() const { return rssi_; }
  std::span<const double> rate() const { return rate_; }

 private:
  struct Extent {
    size_t begin = 0;
    size_t size = 0;
  };
  static Extent row_extent(size_t buffer_size, int modeIndex, int32_t collect_count);

  int32_t capacity_;
  std::vector<double> rssi_;
  std::vector<double> rate_;
};

}  // namespace zaltor::engine
