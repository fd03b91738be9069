// Requests for a new decision from the event handlers and the WLAN callback.
#include "engine/system_events.h"
#include "engine/worker_threads.h"

namespace zaltor::engine {

void raise_reevaluation_locked(AntennaSwitchWorkerObj& worker, bool recompute, Trigger cause) {
  if (!recompute) {
    worker.reevaluation.raise(cause);
    return;
  }
  worker.reevaluation.raise_with_recompute(cause,
                                           [&worker] { return worker.adapters.SelectConfigSet(); });
}

void RequestReevaluation(AntennaSwitchWorkerObj* worker, bool recompute, Trigger cause) {
  if (worker == nullptr) return;
  Reevaluation::remember(worker);
  raise_reevaluation_locked(*worker, recompute, cause);
}

}  // namespace zaltor::engine
