#pragma once
// The diagnostics interface's procedures over the worker: its decision journal and its
// antenna health, as the JSON texts of engine/diagnostics_json.h.

#include <string>

#include "engine/worker.h"
#include "platform/rpc_runtime.h"

namespace zaltor::service {

class WorkerDiagnostics final : public platform::DiagnosticsDispatch {
 public:
  explicit WorkerDiagnostics(engine::AntennaSwitchWorkerObj& worker) : worker_(worker) {}

  std::string last_decision() override;
  std::string history(int32_t count) override;
  // Every port the switch count names; none before the worker knows it.
  std::string health() override;

 private:
  engine::AntennaSwitchWorkerObj& worker_;
};

}  // namespace zaltor::service
