#include "engine/reevaluation.h"

#include "engine/loop_hold.h"

namespace zaltor::engine {

namespace {
std::atomic<AntennaSwitchWorkerObj*> g_remembered{nullptr};
}  // namespace

void Reevaluation::Raise(Trigger cause) {
  LoopHold hold(loopMutex());
  if (!requested_.load(std::memory_order_relaxed)) cause_.store(cause, std::memory_order_relaxed);
  requested_.store(true, std::memory_order_relaxed);
}

void Reevaluation::RaiseWithRecompute(Trigger cause, const std::function<uint32_t()>& select) {
  LoopHold hold(loopMutex());
  if (!requested_.load(std::memory_order_relaxed)) cause_.store(cause, std::memory_order_relaxed);
  requested_.store(true, std::memory_order_relaxed);
  const uint32_t set = select();
  const uint64_t active = activeSet_.load(std::memory_order_relaxed);
  if (set != active) {
    log_.write(kLogInfo, "CONFIG changed! %u -> %u\n", static_cast<uint32_t>(active), set);
    changePending_.store(true, std::memory_order_relaxed);
  } else {
    // The situation went back to the set in force before anyone took the earlier change
    // (the lid closed and opened again): that change no longer applies.
    changePending_.store(false, std::memory_order_relaxed);
  }
  pending_.store(set, std::memory_order_relaxed);
}

bool Reevaluation::Consume(Trigger* cause) {
  LoopHold hold(loopMutex());
  if (!requested_.load(std::memory_order_relaxed)) return false;
  if (cause != nullptr) *cause = cause_.load(std::memory_order_relaxed);
  if (changePending_.load(std::memory_order_relaxed)) {
    activeSet_.store(pending_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    changePending_.store(false, std::memory_order_relaxed);
  }
  requested_.store(false, std::memory_order_relaxed);
  return true;
}

bool Reevaluation::Peek() {
  LoopHold hold(loopMutex());
  return requested_.load(std::memory_order_relaxed);
}

void Reevaluation::NewPeriod() {
  std::shared_ptr<platform::Mutex> fresh = clock_.make_mutex();
  {
    std::lock_guard<std::mutex> g(currentLock_);
    current_.swap(fresh);
  }
  // `fresh` now holds the earlier period's mutex: it goes here unless a thread of that
  // period still holds a share of it.
  changePending_.store(false, std::memory_order_relaxed);
  requested_.store(false, std::memory_order_relaxed);
}

void Reevaluation::SetInForce(uint64_t set) {
  LoopHold hold(loopMutex());
  activeSet_.store(set, std::memory_order_relaxed);
  pending_.store(set, std::memory_order_relaxed);
}

void Reevaluation::MakePending(uint64_t set) {
  LoopHold hold(loopMutex());
  pending_.store(set, std::memory_order_relaxed);
  changePending_.store(true, std::memory_order_relaxed);
}

void Reevaluation::Clear() {
  std::lock_guard<std::mutex> g(currentLock_);
  current_.reset();
}

AntennaSwitchWorkerObj* Reevaluation::Remembered() {
  return g_remembered.load(std::memory_order_acquire);
}

void Reevaluation::Remember(AntennaSwitchWorkerObj* worker) {
  if (worker == nullptr) return;
  AntennaSwitchWorkerObj* none = nullptr;
  g_remembered.compare_exchange_strong(none, worker, std::memory_order_acq_rel);
}

void Reevaluation::Forget() {
  g_remembered.store(nullptr, std::memory_order_release);
}

}  // namespace zaltor::engine
