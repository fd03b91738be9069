// Requests for a new decision from the event handlers and the WLAN callback.
#include "engine/system_events.h"
#include "engine/worker_threads.h"

namespace zaltor::engine {

void RaiseReevaluationLocked(AntennaSwitchWorkerObj& worker, bool recompute, Trigger cause) {
  if (!recompute) {
    worker.reevaluation.Raise(cause);
    return;
  }
  worker.reevaluation.RaiseWithRecompute(cause,
                                         [&worker] { return worker.adapters.SelectConfigSet(); });
}

void RequestReevaluation(AntennaSwitchWorkerObj* worker, bool recompute, Trigger cause) {
  if (worker == nullptr) return;
  Reevaluation::Remember(worker);
  RaiseReevaluationLocked(*worker, recompute, cause);
}

}  // namespace zaltor::engine
