#pragma once
// The re-evaluation protocol: how the monitor, the event handlers and the WLAN callback ask
// the auto loop to abandon its cycle and decide again, and how a config set computed by the
// event handling comes into force.
//
// It owns the request flag, the pending config set with its change flag, the loop mutex
// that guards them and the active config set index, and the worker that the WLAN callback
// acts on. The rules, each in one place:
// - raise: set the request, with its cause (what the pass that takes it records). While a
//   request waits, a later raise keeps the first cause: that is what began the new pass.
// - raise_with_recompute: set the request and compute the config set, with the loop mutex held
//   (the computation's Bluetooth settle included); a set other than the active one is logged
//   ("CONFIG changed! %u -> %u\n") and made pending, the active one again withdraws an
//   earlier pending change.
// - consume: whoever finds the request set takes it (and its cause); a pending set becomes
//   active.
// - peek: look at the request without taking it (the measurement leaves it for the loop).
// - new_period: every start of Auto mode makes a new loop mutex and clears both flags. An
//   earlier mutex lives on as long as a thread of its period still holds or waits for it
//   (each hold keeps a share of it), and goes with the last such hold, so that switching
//   between fixed modes and Auto does not pile up mutexes.
// - remember: the first worker remembered stays; the WLAN callback acts on it.
//
// The loop mutex is held only for a flag test or update (and the computation above), never
// across a measurement, a switch or a sleep. Before the first Auto period there is no loop
// mutex and the flags are updated without one. Lock order: a thread that holds the worker's
// mode lock may take the loop mutex, never the other way round.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "engine/decision_journal.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace zaltor::engine {

class AntennaSwitchWorkerObj;

class Reevaluation {
 public:
  // `active_set` is the worker's index of the config set in force (the device logic reads it
  // too); `log` takes the "CONFIG changed!" line.
  Reevaluation(platform::Clock& clock, std::atomic<uint64_t>& active_set, Log& log)
      : clock_(clock), active_set_(active_set), log_(log) {}
  Reevaluation(const Reevaluation&) = delete;
  Reevaluation& operator=(const Reevaluation&) = delete;

  void raise(Trigger cause);
  // `select` gives the config set for the present situation; it runs with the mutex held.
  void raise_with_recompute(Trigger cause, const std::function<uint32_t()>& select);
  // True when a request was taken (a pending set became active); `cause`, when given,
  // receives the cause of the request taken.
  bool consume(Trigger* cause = nullptr);
  bool peek();

  // A new Auto period: a fresh loop mutex, both flags cleared.
  void new_period();
  // The config set selected at the start of a period: in force and pending.
  void set_in_force(uint64_t set);
  // Makes `set` pending without a request and without a log line (what the event handling
  // leaves behind, for tests).
  void make_pending(uint64_t set);

  uint64_t pending_config_set() const { return pending_.load(std::memory_order_relaxed); }
  bool config_change_pending() const { return change_pending_.load(std::memory_order_relaxed); }
  // The loop mutex of the current period (null before the first one), shared with the
  // caller for as long as it holds it.
  std::shared_ptr<platform::Mutex> loop_mutex() const {
    std::lock_guard<std::mutex> g(current_lock_);
    return current_;
  }
  // Teardown: the current loop mutex goes (no thread of any period runs any more).
  void clear();

  // The worker that the WLAN callback acts on: the first one remembered (null: none yet;
  // a null worker is never remembered). Process-wide, as the callback has no context.
  static AntennaSwitchWorkerObj* remembered();
  static void remember(AntennaSwitchWorkerObj* worker);
  static void forget();

 private:
  platform::Clock& clock_;
  std::atomic<uint64_t>& active_set_;
  Log& log_;
  std::atomic<uint64_t> pending_{0};
  std::atomic<bool> change_pending_{false};
  std::atomic<bool> requested_{false};
  std::atomic<Trigger> cause_{Trigger::kTimer};
  mutable std::mutex current_lock_;  // guards current_: never held across a wait
  std::shared_ptr<platform::Mutex> current_;
};

}  // namespace zaltor::engine
