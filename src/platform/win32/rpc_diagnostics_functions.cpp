// The manager functions that the widl server stub of src/rpc/zaltor_diagnostics.idl calls,
// named after the procedures. Each forwards to the registered DiagnosticsDispatch on the
// runtime's thread, attached to the clock for the call's duration; a C++ exception becomes
// the call's fault once every C++ object of the call is gone (as in the control interface's
// manager functions).
#include <rpc.h>
#include <windows.h>

#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>

#include "platform/win32/rpc_server_target.h"
#include "zaltor_diagnostics.h"

namespace zaltor::platform::win32 {
namespace {

constexpr uint32_t kErrorOutOfMemory = 14;

std::shared_mutex g_lock;  // calls hold it shared; changing the target takes it exclusively
DiagnosticsDispatch* g_dispatch = nullptr;
Clock* g_clock = nullptr;

// One call: the text sized to `capacity`, copied into the stub's buffer. 0, or the fault.
uint32_t read(uint32_t procedure, LONG count, LONG capacity, LONG* status, LONG* length, LONG* sent,
              byte text[]) {
  *status = 0;
  *length = 0;
  *sent = 0;
  if (capacity < 0 || capacity > kMaxDiagnosticsBytes) return kRpcInvalidBound;
  try {
    std::shared_lock<std::shared_mutex> hold(g_lock);
    if (g_dispatch == nullptr) return kRpcUnknownIf;
    ClockAttachment attach(*g_clock);
    int32_t s = 0, l = 0;
    std::string out;
    run_diagnostics(*g_dispatch, procedure, count, capacity, s, l, out);
    if (!out.empty()) std::memcpy(text, out.data(), out.size());
    *status = s;
    *length = l;
    *sent = static_cast<LONG>(out.size());
    return 0;
  } catch (const RpcFault& fault) {
    return fault.code();
  } catch (const std::bad_alloc&) {
    return kErrorOutOfMemory;
  } catch (...) {
    return kRpcCallFailed;
  }
}

void finish(uint32_t fault) {
  if (fault != 0) RpcRaiseException(static_cast<RPC_STATUS>(fault));
}

}  // namespace

void set_diagnostics_target(DiagnosticsDispatch* dispatch, Clock* clock) {
  std::unique_lock<std::shared_mutex> hold(g_lock);
  g_dispatch = dispatch;
  g_clock = clock;
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
