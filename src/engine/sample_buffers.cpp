#include "engine/sample_buffers.h"

#include <algorithm>
#include <new>

namespace zaltor::engine {

SampleBuffers::SampleBuffers(int32_t capacity)
    : capacity_(std::max<int32_t>(capacity, 1)),
      rssi_(static_cast<size_t>(kMaxModes) * (static_cast<size_t>(capacity_) + 1), kNoRssiValue),
      rate_(rssi_.size(), 0.0) {}

std::shared_ptr<SampleBuffers> SampleBuffers::Create(int32_t capacity) {
  try {
    return std::make_shared<SampleBuffers>(capacity);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void SampleBuffers::Reset() {
  std::fill(rssi_.begin(), rssi_.end(), kNoRssiValue);
  std::fill(rate_.begin(), rate_.end(), 0.0);
}

SampleBuffers::Extent SampleBuffers::RowExtent(size_t bufferSize, int modeIndex,
                                               int32_t collectCount) {
  if (modeIndex < 0 || collectCount < 0) return {};
  const size_t stride = static_cast<size_t>(collectCount) + 1;
  const size_t begin = static_cast<size_t>(modeIndex) * stride;
  if (begin >= bufferSize) return {};
  return {begin, std::min(stride, bufferSize - begin)};
}

std::span<const double> SampleBuffers::RssiRow(int modeIndex, int32_t collectCount) const {
  const Extent e = RowExtent(rssi_.size(), modeIndex, collectCount);
  return std::span<const double>(rssi_).subspan(e.begin, e.size);
}

std::span<const double> SampleBuffers::RateRow(int modeIndex, int32_t collectCount) const {
  const Extent e = RowExtent(rate_.size(), modeIndex, collectCount);
  return std::span<const double>(rate_).subspan(e.begin, e.size);
}

std::span<double> SampleBuffers::RssiRow(int modeIndex, int32_t collectCount) {
  const Extent e = RowExtent(rssi_.size(), modeIndex, collectCount);
  return std::span<double>(rssi_).subspan(e.begin, e.size);
}

std::span<double> SampleBuffers::RateRow(int modeIndex, int32_t collectCount) {
  const Extent e = RowExtent(rate_.size(), modeIndex, collectCount);
  return std::span<double>(rate_).subspan(e.begin, e.size);
}

}  // namespace zaltor::engine
