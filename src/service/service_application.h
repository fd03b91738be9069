#pragma once
// The service as this product runs it: the worker, the control interface over it, and the
// hooks through which the service object starts and stops them.

#include <memory>

#include "engine/worker.h"
#include "platform/platform.h"
#include "rpc/control_procedures.h"
#include "service/multi_antenna_svc.h"
#include "service/worker_control_target.h"
#include "service/worker_diagnostics.h"

namespace zaltor::service {

class ServiceApplication {
 public:
  explicit ServiceApplication(platform::Platform& platform);
  ~ServiceApplication();

  // The run body: the worker's start-up, Auto mode, and the control interface served
  // until listening ends; OnStop's withdrawal of the interface and the default mode.
  ServiceHooks hooks();
  engine::AntennaSwitchWorkerObj& worker() { return worker_; }

 private:
  uint32_t run_body(CMultiAntennaSvc& svc);
  uint32_t set_default_mode();

  platform::Platform& platform_;
  engine::AntennaSwitchWorkerObj worker_;
  WorkerControlTarget target_;
  rpc::ControlProcedures procedures_;
  WorkerDiagnostics diagnostics_;
};

}  // namespace zaltor::service
