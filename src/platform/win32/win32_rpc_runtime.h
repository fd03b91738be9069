#pragma once
// The control interface on the Windows RPC runtime, with the way the capability SIDs are
// derived made choosable (for tests of both paths).

#include <memory>

#include "platform/clock.h"
#include "platform/rpc_runtime.h"
#include "platform/win32/capability_sids.h"

namespace zaltor::platform::win32 {

// `derive` stands for DeriveCapabilitySidsFromName (find_derive_capability_sids() or
// derive_capability_sids_by_hash). Calls of the procedures run on the runtime's threads,
// attached to `clock` for their duration. Destroying the runtime unregisters the interface
// (waiting for calls in progress) if it registered it.
std::unique_ptr<RpcRuntime> make_win32_rpc_runtime(Clock& clock, DeriveCapabilitySidsFn derive);

}  // namespace zaltor::platform::win32
