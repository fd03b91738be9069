#pragma once
// What the server stub's manager functions forward to: the registered procedures and the
// clock that their calls run attached to. One interface registration per process, as the
// runtime has.

#include <cstddef>

#include "platform/clock.h"
#include "platform/rpc_runtime.h"

namespace zaltor::platform::win32 {

// Sets (or, with nulls, clears) the target. Clearing waits until no manager function is
// inside the old target any more, so that the caller may then destroy it.
void set_rpc_server_target(RpcDispatch* dispatch, Clock* clock);

// The same for the diagnostics interface's manager functions (rpc_diagnostics_functions.cpp).
void set_diagnostics_target(DiagnosticsDispatch* dispatch, Clock* clock);

// The dispatch now set, or null.
RpcDispatch* rpc_server_dispatch();

// The largest block the stubs have asked MIDL_user_allocate for since the last reset: what
// a refused call cost the server (the control interface's tests read it).
size_t largest_stub_allocation();
void reset_largest_stub_allocation();

}  // namespace zaltor::platform::win32
