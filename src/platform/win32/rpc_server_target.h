#pragma once
// What the server stub's manager functions forward to: the registered procedures and the
// clock that their calls run attached to. One interface registration per process, as the
// runtime has.

#include "platform/clock.h"
#include "platform/rpc_runtime.h"

namespace zaltor::platform::win32 {

// Sets (or, with nulls, clears) the target. Clearing waits until no manager function is
// inside the old target any more, so that the caller may then destroy it.
void set_rpc_server_target(RpcDispatch* dispatch, Clock* clock);

// The dispatch now set, or null.
RpcDispatch* rpc_server_dispatch();

}  // namespace zaltor::platform::win32
