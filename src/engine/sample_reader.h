#pragma once
// One reader of the link for the auto loop's measurement and the monitor: it returns what
// it read (the antennas' RSSI and their mean, the link rate) instead of leaving it in
// shared state, so that a reading of one thread can never be taken for another's. What a
// caller then shares (the port health, the stored auto sweep) it publishes itself.
//
// Path of one sample: the counter backend's query (platform::CounterQuery) -> the device
// logic's collection and formatting (SignalCounters::ReadRssi / ReadThroughput)
// -> this reader (RssiSample, RateSample) -> MeasureMode's sample buffers or the monitor's
// comparison -> the determinator's decision.

#include <array>
#include <cstdint>
#include <optional>

#include "platform/rssi_mean.h"
#include "platform/switch_table.h"

namespace zaltor::engine {

class AntennaSwitchWorkerObj;

struct RssiSample {
  bool read = false;  // the readings could be had (a failed collection reads as -95 each)
  int32_t antennas = 0;
  std::array<int32_t, platform::kMaxPorts> readings{};  // per antenna; -95 where none
  platform::RssiMean mean;                              // of the antennas' readings
};

struct RateSample {
  bool read = false;
  double mbps = -1.0;  // the link speed; -1 when its counters are not available
};

class SampleReader {
 public:
  explicit SampleReader(AntennaSwitchWorkerObj& worker) : worker_(worker) {}

  // The firmware's antenna count, held to 0..kMaxPorts; empty when it cannot be read.
  std::optional<int32_t> antennas();
  // One collection of the first `antennas` RSSI counters. Antennas without a counter (a
  // fourth port) keep -95 and are left out of the mean like silent ones.
  RssiSample ReadRssi(int32_t antennas);
  // One collection of the rate counters.
  RateSample read_rate();

 private:
  AntennaSwitchWorkerObj& worker_;
};

}  // namespace zaltor::engine
