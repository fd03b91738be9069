#include "engine/loop_checks.h"

namespace zaltor::engine {

LoopCheck Checkpoint(AntennaSwitchWorkerObj& worker, const AutoSwitchingWorkerArg& arg,
                     Trigger* taken) {
  if (!arg.keepRunning.load(std::memory_order_relaxed)) return LoopCheck::kEnd;
  return worker.ConsumeReevaluation(taken) ? LoopCheck::kNextPass : LoopCheck::kGoOn;
}

bool StopOrRequestPending(AntennaSwitchWorkerObj& worker, const AutoSwitchingWorkerArg& arg) {
  if (!arg.keepRunning.load(std::memory_order_relaxed)) return true;
  return worker.ReevaluationRequested();
}

int64_t WaitSteps(int64_t ms) {
  if (ms <= 0) return 0;
  return (ms + kLoopStepMs - 1) / kLoopStepMs;
}

}  // namespace zaltor::engine
