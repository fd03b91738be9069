#include "engine/sample_buffers.h"

#include <algorithm>
#include <new>

namespace zaltor::engine {

SampleBuffers::SampleBuffers(int32_t capacity)
    : capacity_(std::max<int32_t>(capacity, 1)),
      rssi_(static_cast<size_t>(kMaxModes) * (static_cast<size_t>(capacity_) + 1), kNoRssiValue),
      rate_(rssi_.size(), 0.0) {}

std::shared_ptr<SampleBuffers> SampleBuffers::create(int32_t capacity) {
  try {
    return std::make_shared<SampleBuffers>(capacity);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void SampleBuffers::reset() {
  std::fill(rssi_.begin(), rssi_.end(), kNoRssiValue);
  std::fill(rate_.begin(), rate_.end(), 0.0);
}

SampleBuffers::Extent SampleBuffers::row_extent(size_t buffer_size, int modeIndex,
                                                int32_t collect_count) {
  if (modeIndex < 0 || collect_count < 0) return {};
  const size_t stride = static_cast<size_t>(collect_count) + 1;
  const size_t begin = static_cast<size_t>(modeIndex) * stride;
  if (begin >= buffer_size) return {};
  return {begin, std::min(stride, buffer_size - begin)};
}

std::span<const double> SampleBuffers::rssi_row(int modeIndex, int32_t collect_count) const {
  const Extent e = row_extent(rssi_.size(), modeIndex, collect_count);
  return std::span<const double>(rssi_).subspan(e.begin, e.size);
}

std::span<const double> SampleBuffers::rate_row(int modeIndex, int32_t collect_count) const {
  const Extent e = row_extent(rate_.size(), modeIndex, collect_count);
  return std::span<const double>(rate_).subspan(e.begin, e.size);
}

std::span<double> SampleBuffers::rssi_row(int modeIndex, int32_t collect_count) {
  const Extent e = row_extent(rssi_.size(), modeIndex, collect_count);
  return std::span<double>(rssi_).subspan(e.begin, e.size);
}

std::span<double> SampleBuffers::rate_row(int modeIndex, int32_t collect_count) {
  const Extent e = row_extent(rate_.size(), modeIndex, collect_count);
  return std::span<double>(rate_).subspan(e.begin, e.size);
}

}  // namespace zaltor::engine
