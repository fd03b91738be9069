#include "service/worker_diagnostics.h"

#include "engine/diagnostics_json.h"

namespace zaltor::service {

std::string WorkerDiagnostics::last_decision() {
  return engine::why_json(worker_.journal);
}

std::string WorkerDiagnostics::history(int32_t count) {
  const size_t n = count < 1 ? engine::DecisionJournal::kCapacity : static_cast<size_t>(count);
  return engine::history_json(worker_.journal, n);
}

std::string WorkerDiagnostics::health() {
  return engine::health_json(worker_.health.report(worker_.switchCount()));
}

}  // namespace zaltor::service
