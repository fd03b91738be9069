#include "engine/loop_checks.h"

namespace zaltor::engine {

LoopCheck checkpoint(AntennaSwitchWorkerObj& worker, const AutoSwitchingWorkerArg& arg,
                     Trigger* taken) {
  if (!arg.keep_running.load(std::memory_order_relaxed)) return LoopCheck::kEnd;
  return worker.consume_reevaluation(taken) ? LoopCheck::kNextPass : LoopCheck::kGoOn;
}

bool stop_or_request_pending(AntennaSwitchWorkerObj& worker, const AutoSwitchingWorkerArg& arg) {
  if (!arg.keep_running.load(std::memory_order_relaxed)) return true;
  return worker.reevaluation_requested();
}

int64_t wait_steps(int64_t ms) {
  if (ms <= 0) return 0;
  return (ms + kLoopStepMs - 1) / kLoopStepMs;
}

}  // namespace zaltor::engine
