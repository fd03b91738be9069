#include "rpc/average_rssi.h"

#include "platform/rssi_mean.h"

namespace zaltor::rpc {

AverageRssi average_rssi_of(const int32_t* readings, int32_t count) {
  AverageRssi r;
  const platform::RssiMean mean = platform::mean_of_signal_readings(readings, count);
  if (!mean.valid()) {
    r.no_divisor = true;
    return r;
  }
  r.value = mean.value;
  r.status = SWITCH_OK;
  return r;
}

}  // namespace zaltor::rpc
