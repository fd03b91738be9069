#pragma once
// Turns the exceptions that the RPC runtime raises in a client call into return codes.
//
// The client stubs report a failed call (server unavailable 1722, a fault the server sent
// such as 0xC0000094, a null context 1775, ...) by raising a structured exception, and GCC
// has no __try/__except. call_guarded runs the call below a small frame of its own whose
// exception handler catches such an exception and ends it with RtlUnwindEx to a landing
// point in that frame, returning the exception code. That is what __except does: the
// system unwind runs the termination handlers of every frame in between, so the runtime
// releases its buffers, locks and connections as it would under a compiler's __except.
//
// The callee must hold nothing that needs cleaning up when it is left this way: no C++
// objects with destructors, no locks of its own. Only the exceptions that the runtime's own
// filter (RpcExceptionFilter) lets a caller handle are caught; access violations, stack
// overflow, breakpoints and the like go on to crash the process as they should.

#include <cstdint>

namespace zaltor::platform::win32 {

// Calls fn(arg); 0 when it returned, else the code of the exception it raised.
uint32_t call_guarded(void (*fn)(void*), void* arg);

// Whether call_guarded handles an exception with this code (RpcExceptionFilter's rule).
bool is_handled_rpc_exception(uint32_t code);

}  // namespace zaltor::platform::win32
