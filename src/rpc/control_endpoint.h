#pragma once
// Setting up the control endpoint (security descriptor, local endpoint, interface, endpoint
// map, listening) and withdrawing it when the service stops.

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
  // The procedures of the diagnostics interface, registered after the control interface
  // with the same flags and descriptor; null: not served.
  platform::DiagnosticsDispatch* diagnostics = nullptr;
};

// Builds the security objects, opens the endpoint (retrying every 5000 ms for as long as it
// takes), registers the interface and listens. Blocks while listening. Answers 0 when
// listening ended normally, else the first failure's code (87 when the companion package
// does not yield exactly one capability SID). Frees the security objects on every path.
// Call it on a thread that takes part in the clock (it sleeps through it between endpoint
// attempts); it steps out of the clock while it blocks in listening.
uint32_t serve(const EndpointSetup& setup);

// Unregisters the interface (without waiting for calls) and its endpoint-map entry, and frees
// the binding vector that serve obtained, if any. Failures are ignored: a stop may come before
// anything was registered.
void withdraw(platform::RpcRuntime& runtime);

// Whether serve currently holds a binding vector (for diagnostics and tests).
bool holds_binding_vector();

}  // namespace zaltor::rpc
