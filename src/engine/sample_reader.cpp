#include "engine/sample_reader.h"

#include <algorithm>

#include "engine/worker.h"

namespace zaltor::engine {

std::optional<int32_t> SampleReader::antennas() {
  int32_t count = 0;
  if (worker_.sw.GetSwitchNumber(count) != 0) return std::nullopt;
  return std::clamp(count, 0, platform::kMaxPorts);
}

RssiSample SampleReader::ReadRssi(int32_t antennas) {
  RssiSample sample;
  sample.antennas = std::clamp(antennas, 0, platform::kMaxPorts);
  sample.readings.fill(kRssiNoSignal);
  sample.read = worker_.counters.ReadRssi(sample.antennas, sample.readings.data()) == 0;
  if (sample.read) {
    sample.mean = platform::mean_of_signal_readings(sample.readings.data(), sample.antennas);
  }
  return sample;
}

RateSample SampleReader::read_rate() {
  RateSample sample;
  LinkReading link;
  sample.read = worker_.counters.ReadThroughput(link) == 0;
  if (sample.read) sample.mbps = link.link_speed_mbps;
  return sample;
}

}  // namespace zaltor::engine
