#pragma once
// Reactions to the notebook's situation: lid, power source, device arrival and WLAN
// connection events recompute the config set and ask the auto loop to decide again.
//
// The remembered worker: the WLAN callback acts on the worker that the first
// RequestReevaluation, the first power-source change or a monitor trigger remembered, not
// on its registration context. Reevaluation keeps it (process-wide and atomic, since the
// WLAN service's thread reads it while the event window and monitor threads may set it).

#include <cstdint>

#include "engine/worker.h"
#include "platform/system_events.h"

namespace zaltor::engine {

// The remembered worker (null: none yet).
inline AntennaSwitchWorkerObj* remembered_worker() {
  return Reevaluation::remembered();
}
// Remembers `worker` unless one is remembered already (a null worker is never remembered).
inline void remember_worker(AntennaSwitchWorkerObj* worker) {
  Reevaluation::remember(worker);
}
// Forgets the remembered worker (tests, and before the worker goes away).
inline void forget_remembered_worker() {
  Reevaluation::forget();
}

// Under the worker's loop mutex: raises the request and, with `recompute`, selects the
// config set and makes it pending when it differs from the active one (Reevaluation's
// raise_with_recompute). The selection, with its Bluetooth settle, runs with the mutex held.
void raise_reevaluation_locked(AntennaSwitchWorkerObj& worker, bool recompute, Trigger cause);

// How many event window threads run now (tests wait for theirs to end before the worker
// goes away: the thread is detached).
int event_window_threads_running();

// The event window's procedure. Its worker comes from the window's creation message
// (the creation parameter given here); messages before it are left alone.
class EventWindowProc final : public platform::WindowHandler {
 public:
  explicit EventWindowProc(AntennaSwitchWorkerObj* creation_parameter)
      : creation_parameter_(creation_parameter) {}
  bool on_message(const platform::WindowMessage& message) override;

 private:
  void on_power_setting_change(const platform::WindowMessage& message);
  void print(const char* text);

  AntennaSwitchWorkerObj* creation_parameter_;
  AntennaSwitchWorkerObj* worker_ = nullptr;
};

}  // namespace zaltor::engine
