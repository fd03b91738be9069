#include "rpc/average_rssi.h"

namespace zaltor::rpc {

AverageRssi average_rssi_of(const int32_t* readings, int32_t count) {
  AverageRssi r;
  int64_t sum = 0;
  int32_t silent = 0;
  for (int32_t i = 0; i < count; ++i) {
    if (readings[i] == kRssiNoSignal) {
      ++silent;
    } else {
      sum += readings[i];
    }
  }
  const int64_t divisor = static_cast<int64_t>(count) - silent;
  if (divisor <= 0) {
    r.no_divisor = true;
    return r;
  }
  r.value = static_cast<int32_t>(sum / divisor);  // truncates toward zero
  r.status = SWITCH_OK;
  return r;
}

}  // namespace zaltor::rpc
