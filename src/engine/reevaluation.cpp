// Requests for a new decision from other threads, and the remembered worker that the WLAN
// callback acts on.
#include <atomic>

#include "engine/loop_hold.h"
#include "engine/system_events.h"
#include "engine/worker_threads.h"

namespace zaltor::engine {

namespace {
std::atomic<AntennaSwitchWorkerObj*> g_remembered{nullptr};
}  // namespace

AntennaSwitchWorkerObj* RememberedWorker() {
  return g_remembered.load(std::memory_order_acquire);
}

void RememberWorker(AntennaSwitchWorkerObj* worker) {
  if (worker == nullptr) return;
  AntennaSwitchWorkerObj* none = nullptr;
  g_remembered.compare_exchange_strong(none, worker, std::memory_order_acq_rel);
}

void ForgetRememberedWorker() {
  g_remembered.store(nullptr, std::memory_order_release);
}

void RaiseReevaluationLocked(AntennaSwitchWorkerObj& worker, bool recompute) {
  LoopHold hold(worker.loopMutex());
  worker.reevaluateRequested.store(true, std::memory_order_relaxed);
  if (!recompute) return;
  const uint32_t set = worker.adapters.SelectConfigSet();
  const uint64_t active = worker.activeConfigSet();
  if (set != active) {
    worker.log().write(kLogInfo, "CONFIG changed! %u -> %u\n", static_cast<uint32_t>(active), set);
    worker.configChangePending.store(true, std::memory_order_relaxed);
    worker.pendingConfigSet.store(set, std::memory_order_relaxed);
  } else {
    // The situation went back to the set in force before anyone took the earlier change
    // (the lid closed and opened again): that change no longer applies.
    worker.configChangePending.store(false, std::memory_order_relaxed);
    worker.pendingConfigSet.store(set, std::memory_order_relaxed);
  }
}

void RequestReevaluation(AntennaSwitchWorkerObj* worker, bool recompute) {
  if (worker == nullptr) return;
  RememberWorker(worker);
  RaiseReevaluationLocked(*worker, recompute);
}

}  // namespace zaltor::engine
