// Temporary bodies of the monitor thread and the system-event entry points, so that the
// engine links while their real implementation is finished on its own branch. Remove this
// file when that branch is merged.
#include "engine/worker_threads.h"

namespace zaltor::engine {

void MonitorThread(std::shared_ptr<AutoSwitchingWorkerArg> arg) {
  (void)arg;
}

void EventWindowThread(AntennaSwitchWorkerObj* worker) {
  (void)worker;
}

void WlanNotificationCallback(uint32_t source, uint32_t code) {
  (void)source;
  (void)code;
}

void RequestReevaluation(AntennaSwitchWorkerObj* worker, bool recompute) {
  (void)recompute;
  if (worker != nullptr) worker->RaiseReevaluation();
}

}  // namespace zaltor::engine
