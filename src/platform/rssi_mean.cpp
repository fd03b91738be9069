#include "platform/rssi_mean.h"

#include "platform/status.h"

namespace zaltor::platform {

RssiMean mean_of_signal_readings(const int32_t* readings, int32_t count) {
  RssiMean mean;
  int64_t sum = 0;  // wide enough for any number of 32-bit readings the callers hold
  for (int32_t i = 0; i < count; ++i) {
    if (readings[i] == kRssiNoSignal) {
      ++mean.silent;
      continue;
    }
    sum += readings[i];
    ++mean.terms;
  }
  if (mean.terms > 0) mean.value = static_cast<int32_t>(sum / mean.terms);  // truncates
  return mean;
}

}  // namespace zaltor::platform
