// Stand-in for the auto loop until it arrives on this branch, so that the engine links:
// it ends at once and clears the worker's running slot, as the loop does when it ends.
// Tests that need the real loop skip themselves while this file exists.
#include "engine/auto_placeholders.h"
#include "engine/worker_threads.h"

namespace zaltor::engine {

void AutoModeThread(std::shared_ptr<AutoSwitchingWorkerArg> arg) {
  if (!arg || arg->worker == nullptr) return;
  arg->worker->autoState.store(kAutoEnded, std::memory_order_relaxed);
  arg->worker->clearAutoThread();
}

}  // namespace zaltor::engine
