#pragma once
// The mean of the antennas' RSSI readings that are not -95 (no signal on that antenna), in
// whole dBm truncated toward zero. It is the one computation behind the control
// interface's average RSSI, the monitor's reading and the auto loop's samples; each caller
// keeps its own rule for a reading without terms (a fault, a failed reading, a retry) and
// for what it reports of silent antennas.

#include <cstdint>

namespace zaltor::platform {

struct RssiMean {
  int32_t terms = 0;   // readings that were not -95
  int32_t silent = 0;  // readings that were -95
  int32_t value = 0;   // the mean of the terms; 0 when there are none
  bool valid() const { return terms > 0; }
};

// The first `count` entries of `readings` (none when `count` is 0 or less).
RssiMean mean_of_signal_readings(const int32_t* readings, int32_t count);

}  // namespace zaltor::platform
