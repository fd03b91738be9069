// The manager functions that the widl server stub of src/rpc/zaltor_diagnostics.idl calls,
// named after the procedures. Each forwards to the registered DiagnosticsDispatch on the
// runtime's thread, attached to the clock for the call's duration; a C++ exception becomes
// the call's fault as rpc_call_forward.h says.
#include <rpc.h>
#include <windows.h>

#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>

#include "platform/control_protocol.h"
#include "platform/win32/rpc_call_forward.h"
#include "platform/win32/rpc_server_target.h"
#include "zaltor_diagnostics.h"

namespace zaltor::platform::win32 {
namespace {

CallTarget<DiagnosticsDispatch> g_target;

// One call: the text sized to `capacity`, copied into the stub's buffer. 0, or the fault.
uint32_t read(uint32_t procedure, LONG count, LONG capacity, LONG* status, LONG* length, LONG* sent,
              byte text[]) {
  *status = 0;
  *length = 0;
  *sent = 0;
  if (capacity < 0 || capacity > kMaxDiagnosticsBytes) return kRpcInvalidBound;
  return g_target.forward([&](DiagnosticsDispatch& d) {
    int32_t s = 0, l = 0;
    std::string out;
    run_diagnostics(d, procedure, count, capacity, s, l, out);
    if (!out.empty()) std::memcpy(text, out.data(), out.size());
    *status = s;
    *length = l;
    *sent = static_cast<LONG>(out.size());
  });
}

void finish(uint32_t fault) {
  raise_call_fault(fault);
}

}  // namespace

void set_diagnostics_target(DiagnosticsDispatch* dispatch, Clock* clock) {
  g_target.set(dispatch, clock);
}

}  // namespace zaltor::platform::win32

namespace w = zaltor::platform::win32;

extern "C" {

void __cdecl ReadLastDecision(handle_t, LONG capacity, LONG* status, LONG* length, LONG* sent,
                              byte text[]) {
  w::finish(w::read(zaltor::platform::kReadLastDecision, 0, capacity, status, length, sent, text));
}

void __cdecl ReadHistory(handle_t, LONG count, LONG capacity, LONG* status, LONG* length,
                         LONG* sent, byte text[]) {
  w::finish(w::read(zaltor::platform::kReadHistory, count, capacity, status, length, sent, text));
}

void __cdecl ReadHealth(handle_t, LONG capacity, LONG* status, LONG* length, LONG* sent,
                        byte text[]) {
  w::finish(w::read(zaltor::platform::kReadHealth, 0, capacity, status, length, sent, text));
}

}  // extern "C"
