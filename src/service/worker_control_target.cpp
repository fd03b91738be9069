#include "service/worker_control_target.h"

#include "engine/signal_counters.h"

namespace zaltor::service {

rpc::AverageRssi WorkerControlTarget::GetAverageRssi() {
  rpc::AverageRssi result;
  int32_t average = kRssiAbsent;
  const Status status = worker_.counters.GetAverageRssi(average);
  if (status == engine::kAverageRssiDivideByZero) {
    result.no_divisor = true;
    return result;
  }
  result.status = status;
  result.value = average;
  return result;
}

}  // namespace zaltor::service
