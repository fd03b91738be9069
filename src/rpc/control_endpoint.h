#pragma once
// Setting up the control endpoint (who may call, the local endpoint, the interfaces, the
// endpoint map, listening) and withdrawing it when the service stops: the order of the steps
// and the messages between them. The runtime does each step.

#include <cstdint>
#include <functional>
#include <string>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/rpc_runtime.h"

namespace zaltor::rpc {

struct EndpointSetup {
  platform::RpcRuntime& runtime;
  platform::Clock& clock;
  Log& log;
  // The server procedures; they must outlive the runtime's use of them (the process).
  platform::RpcDispatch& procedures;
  // The endpoint name (endpoint_name_from_environment() in the service).
  std::string endpoint;
  // Called once the endpoint is open and before the interface is registered: the run body
  // chooses Auto mode here. May be empty.
  std::function<void()> choose_auto;
  // The procedures of the diagnostics interface, served after the control interface for
  // the same callers; null: not served.
  platform::DiagnosticsDispatch* diagnostics = nullptr;
};

// Admits everyone and the companion package, opens the endpoint (retrying every 5000 ms for
// as long as it takes), serves the interfaces, publishes the control interface and listens.
// Blocks while listening. Answers 0 when listening ended normally, else the first failure's
// code (87 when the companion package does not yield exactly one capability SID).
// Call it on a thread that takes part in the clock (it sleeps through it between endpoint
// attempts); it steps out of the clock while it blocks in listening.
uint32_t serve(const EndpointSetup& setup);

// Stops serving the interfaces (without waiting for calls) and withdraws the endpoint-map
// entry. Failures are ignored: a stop may come before anything was served.
void withdraw(platform::RpcRuntime& runtime);

}  // namespace zaltor::rpc
