#pragma once
// The control interface's runtime on Linux: a local stream socket in the abstract namespace
// named after the endpoint, serving the frames of docs/control-wire-format.md.

#include <memory>

#include "platform/clock.h"
#include "platform/rpc_runtime.h"

namespace zaltor::platform {

// Calls run on the runtime's own threads, each attached to `clock` for the call's duration.
// Destroying the runtime stops listening and runs down every open context.
std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock);

}  // namespace zaltor::platform
