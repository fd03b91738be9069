#include "platform/win32/rpc_call_guard.h"

#include <windows.h>

namespace zaltor::platform::win32 {
namespace {

// Exceptions that RpcExceptionFilter leaves to crash the process.
constexpr uint32_t kNotHandled[] = {
    0xC0000005,  // STATUS_ACCESS_VIOLATION
    0xC0000194,  // STATUS_POSSIBLE_DEADLOCK
    0xC00000AA,  // STATUS_INSTRUCTION_MISALIGNMENT
    0x80000002,  // STATUS_DATATYPE_MISALIGNMENT
    0xC0000096,  // STATUS_PRIVILEGED_INSTRUCTION
    0xC000001D,  // STATUS_ILLEGAL_INSTRUCTION
    0x80000003,  // STATUS_BREAKPOINT
    0xC00000FD,  // STATUS_STACK_OVERFLOW
    0xC0000235,  // STATUS_HANDLE_NOT_CLOSABLE
    0xC0000006,  // STATUS_IN_PAGE_ERROR
    0xC0000420,  // STATUS_ASSERTION_FAILURE
    0xC0000409,  // STATUS_STACK_BUFFER_OVERRUN
    0x80000001,  // STATUS_GUARD_PAGE_VIOLATION
};

}  // namespace

bool is_handled_rpc_exception(uint32_t code) {
  for (uint32_t c : kNotHandled) {
    if (c == code) return false;
  }
  return true;
}

}  // namespace zaltor::platform::win32

extern "C" {
uint32_t zaltor_rpc_guarded_call(void (*fn)(void*), void* arg);
extern char zaltor_rpc_guard_landing[];

// The language handler of zaltor_rpc_guarded_call's frame. In the search phase it claims a
// handled exception and unwinds to the landing point with the code as the return value; in
// the unwind phase (its own or another handler's) it has nothing to clean up.
EXCEPTION_DISPOSITION zaltor_rpc_guard_handler(PEXCEPTION_RECORD record, PVOID establisher_frame,
                                               PCONTEXT context, PDISPATCHER_CONTEXT dispatch) {
  if ((record->ExceptionFlags & EXCEPTION_UNWIND) != 0) return ExceptionContinueSearch;
  const auto code = static_cast<uint32_t>(record->ExceptionCode);
  if (!zaltor::platform::win32::is_handled_rpc_exception(code)) return ExceptionContinueSearch;
  RtlUnwindEx(establisher_frame, zaltor_rpc_guard_landing, record,
              reinterpret_cast<PVOID>(static_cast<uintptr_t>(code)), context,
              dispatch->HistoryTable);
  return ExceptionContinueSearch;  // not reached: RtlUnwindEx continues at the landing point
}
}

// zaltor_rpc_guarded_call(fn, arg): a frame with a fixed 40-byte stack allocation
// (shadow space and alignment) and zaltor_rpc_guard_handler as its exception handler. It calls
// fn(arg) and returns 0. RtlUnwindEx resumes at zaltor_rpc_guard_landing with the frame's
// stack pointer and non-volatile registers restored and the exception code in RAX; from
// there the canonical epilogue returns it. Nothing in the frame lives in a volatile register
// across the call, so the landing point needs no other state.
asm(R"(
    .text
    .p2align 4
    .globl zaltor_rpc_guarded_call
    .def zaltor_rpc_guarded_call; .scl 2; .type 32; .endef
    .seh_proc zaltor_rpc_guarded_call
zaltor_rpc_guarded_call:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    .seh_handler zaltor_rpc_guard_handler, @except
    movq %rcx, %rax
    movq %rdx, %rcx
    callq *%rax
    xorl %eax, %eax
    .globl zaltor_rpc_guard_landing
zaltor_rpc_guard_landing:
    addq $40, %rsp
    ret
    .seh_endproc
)");

namespace zaltor::platform::win32 {

uint32_t call_guarded(void (*fn)(void*), void* arg) {
  return zaltor_rpc_guarded_call(fn, arg);
}

}  // namespace zaltor::platform::win32
