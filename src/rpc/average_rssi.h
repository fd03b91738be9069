#pragma once
// The average RSSI of the antennas as the control interface reports it: -95 marks an antenna
// without a reading and is left out; the sum is divided by the number of the others,
// truncating toward zero. With no reading left there is nothing to divide by, and the result
// says so (no_divisor) instead of dividing.

#include <cstdint>

#include "rpc/control_target.h"

namespace zaltor::rpc {

AverageRssi average_rssi_of(const int32_t* readings, int32_t count);

}  // namespace zaltor::rpc
