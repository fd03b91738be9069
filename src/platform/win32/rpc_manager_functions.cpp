// The manager functions that the widl server stub of src/rpc/zaltor_antenna.idl calls, named
// after the procedures, and the context rundown. Each forwards to the registered RpcDispatch
// on the runtime's thread, attached to the clock for the call's duration.
// A C++ exception becomes the call's fault as rpc_call_forward.h says.
#include <rpc.h>
#include <windows.h>

#include <mutex>
#include <new>
#include <shared_mutex>
#include <vector>

#include "platform/control_protocol.h"
#include "platform/win32/rpc_call_forward.h"
#include "platform/win32/rpc_server_target.h"
#include "zaltor_antenna.h"

namespace zaltor::platform::win32 {
namespace {

CallTarget<RpcDispatch> g_target;

template <typename Body>
uint32_t forward(Body body) {
  return g_target.forward(body);
}
void finish(uint32_t fault) {
  raise_call_fault(fault);
}

}  // namespace

void set_rpc_server_target(RpcDispatch* dispatch, Clock* clock) {
  g_target.set(dispatch, clock);
}

RpcDispatch* rpc_server_dispatch() {
  std::shared_lock<std::shared_mutex> hold(g_target.lock);
  return g_target.dispatch;
}

}  // namespace zaltor::platform::win32

namespace w = zaltor::platform::win32;
using zaltor::platform::ContextObject;
using zaltor::platform::RpcDispatch;

extern "C" {

void __cdecl OpenControlContext(handle_t, ControlContext* context) {
  ContextObject object = nullptr;
  w::finish(w::forward([&](RpcDispatch& d) { object = d.open_context(); }));
  *context = object;
}

void __cdecl CloseControlContext(ControlContext* context) {
  ContextObject object = *context;
  w::finish(w::forward([&](RpcDispatch& d) { d.close_context(object); }));
  *context = object;
}

void __cdecl QueryValue(ControlContext context, LONG command, LONG* status, LONG* value) {
  int32_t s = *status;
  int32_t v = *value;
  w::finish(w::forward([&](RpcDispatch& d) { d.query_value(context, command, s, v); }));
  *status = s;
  *value = v;
}

void __cdecl QueryIndexedValue(ControlContext context, LONG command, LONG* status, LONG argument,
                               LONG* value) {
  int32_t s = *status;
  int32_t v = *value;
  w::finish(
      w::forward([&](RpcDispatch& d) { d.query_indexed_value(context, command, s, argument, v); }));
  *status = s;
  *value = v;
}

void __cdecl SetValue(ControlContext context, LONG command, LONG* status, LONG argument) {
  int32_t s = *status;
  w::finish(w::forward([&](RpcDispatch& d) { d.set_value(context, command, s, argument); }));
  *status = s;
}

void __cdecl SetPairedValue(ControlContext context, LONG command, LONG* status, LONG first,
                            LONG second) {
  int32_t s = *status;
  w::finish(
      w::forward([&](RpcDispatch& d) { d.set_paired_value(context, command, s, first, second); }));
  *status = s;
}

void __cdecl QueryArray(ControlContext context, LONG command, LONG* status, LONG count,
                        LONG values[]) {
  // The server stub refuses a count outside the interface's range before it allocates; this
  // is a second guard, with the bound the Linux runtime keeps too.
  if (count < 0 || count > zaltor::platform::kMaxArrayCount)
    w::finish(zaltor::platform::kRpcInvalidBound);
  int32_t s = *status;
  uint32_t fault = 0;
  {
    std::vector<int32_t> copy(values, values + count);
    fault =
        w::forward([&](RpcDispatch& d) { d.query_array(context, command, s, count, copy.data()); });
    if (fault == 0) {
      for (LONG i = 0; i < count; ++i) values[i] = copy[static_cast<size_t>(i)];
    }
  }
  w::finish(fault);
  *status = s;
}

void __RPC_USER ControlContext_rundown(ControlContext context) {
  // A rundown has no caller to report to: a fault in it is dropped.
  w::forward([&](RpcDispatch& d) { d.rundown(context); });
}

}  // extern "C"
