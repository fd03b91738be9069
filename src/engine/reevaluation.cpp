#include "engine/reevaluation.h"

#include "engine/loop_hold.h"

namespace zaltor::engine {

namespace {
std::atomic<AntennaSwitchWorkerObj*> g_remembered{nullptr};
}  // namespace

void Reevaluation::raise(Trigger cause) {
  LoopHold hold(loop_mutex());
  if (!requested_.load(std::memory_order_relaxed)) cause_.store(cause, std::memory_order_relaxed);
  requested_.store(true, std::memory_order_relaxed);
}

void Reevaluation::raise_with_recompute(Trigger cause, const std::function<uint32_t()>& select) {
  LoopHold hold(loop_mutex());
  if (!requested_.load(std::memory_order_relaxed)) cause_.store(cause, std::memory_order_relaxed);
  requested_.store(true, std::memory_order_relaxed);
  const uint32_t set = select();
  const uint64_t active = active_set_.load(std::memory_order_relaxed);
  if (set != active) {
    log_.write(kLogInfo, "CONFIG changed! %u -> %u\n", static_cast<uint32_t>(active), set);
    change_pending_.store(true, std::memory_order_relaxed);
  } else {
    // The situation went back to the set in force before anyone took the earlier change
    // (the lid closed and opened again): that change no longer applies.
    change_pending_.store(false, std::memory_order_relaxed);
  }
  pending_.store(set, std::memory_order_relaxed);
}

bool Reevaluation::consume(Trigger* cause) {
  LoopHold hold(loop_mutex());
  if (!requested_.load(std::memory_order_relaxed)) return false;
  if (cause != nullptr) *cause = cause_.load(std::memory_order_relaxed);
  if (change_pending_.load(std::memory_order_relaxed)) {
    active_set_.store(pending_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    change_pending_.store(false, std::memory_order_relaxed);
  }
  requested_.store(false, std::memory_order_relaxed);
  return true;
}

bool Reevaluation::peek() {
  LoopHold hold(loop_mutex());
  return requested_.load(std::memory_order_relaxed);
}

void Reevaluation::new_period() {
  std::shared_ptr<platform::Mutex> fresh = clock_.make_mutex();
  {
    std::lock_guard<std::mutex> g(current_lock_);
    current_.swap(fresh);
  }
  // `fresh` now holds the earlier period's mutex: it goes here unless a thread of that
  // period still holds a share of it.
  change_pending_.store(false, std::memory_order_relaxed);
  requested_.store(false, std::memory_order_relaxed);
}

void Reevaluation::set_in_force(uint64_t set) {
  LoopHold hold(loop_mutex());
  active_set_.store(set, std::memory_order_relaxed);
  pending_.store(set, std::memory_order_relaxed);
}

void Reevaluation::make_pending(uint64_t set) {
  LoopHold hold(loop_mutex());
  pending_.store(set, std::memory_order_relaxed);
  change_pending_.store(true, std::memory_order_relaxed);
}

void Reevaluation::clear() {
  std::lock_guard<std::mutex> g(current_lock_);
  current_.reset();
}

AntennaSwitchWorkerObj* Reevaluation::remembered() {
  return g_remembered.load(std::memory_order_acquire);
}

void Reevaluation::remember(AntennaSwitchWorkerObj* worker) {
  if (worker == nullptr) return;
  AntennaSwitchWorkerObj* none = nullptr;
  g_remembered.compare_exchange_strong(none, worker, std::memory_order_acq_rel);
}

void Reevaluation::forget() {
  g_remembered.store(nullptr, std::memory_order_release);
}

}  // namespace zaltor::engine
