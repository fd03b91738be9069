#pragma once
// The remote-procedure-call runtime as the control endpoint needs it: admit who may call,
// open the local endpoint, serve the control and diagnostics interfaces with their
// procedures, make the control interface findable, listen, and stop serving. Each step
// answers an RpcStep: 0, or the code of the failure with the name of the system call that
// failed, so that a message can name it.
//
// On Windows the backend does the work of the security identifiers, access list, security
// descriptor, binding vector and endpoint map inside itself; on Linux it serves a local
// stream socket (see docs/control-wire-format.md), which every local process may reach.

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "platform/control_protocol.h"
#include "platform/guid.h"
#include "platform/system_errors.h"

namespace zaltor::platform {

// RPC and Win32 status values used across the seam.
enum : uint32_t {
  kErrorTimeout = 1460,
  kRpcProtseqNotSupported = 1703,
  kRpcOutOfResources = 1721,
  kRpcServerUnavailable = 1722,
  kRpcServerTooBusy = 1723,
  kRpcCallFailed = 1726,
  kRpcProtocolError = 1728,
  kRpcInvalidBound = 1734,
  kRpcDuplicateEndpoint = 1740,
  kRpcProcnumOutOfRange = 1745,
  kRpcAlreadyListening = 1713,
  kRpcNotListening = 1715,
  kRpcUnknownIf = 1717,
  kRpcNoBindings = 1718,
  kRpcAlreadyRegistered = 1711,
  kRpcNullContext = 1775,  // RPC_X_SS_IN_NULL_CONTEXT
  kRpcBadStubData = 1783,
  kStatusIntegerDivideByZero = 0xC0000094,
};

// How the control endpoint is served: the local protocol sequence, the calls its endpoint
// queues, the calls that run at once and the runtime's fewest call threads. Interfaces are
// registered for local callers only, listening as soon as they are registered.
inline constexpr const char* kProtocolSequence = "ncalrpc";
inline constexpr uint32_t kEndpointMaxCalls = 10;
inline constexpr uint32_t kMaxConcurrentCalls = 1234;
inline constexpr uint32_t kMinCallThreads = 1;
inline constexpr uint32_t kRpcIfAutolisten = 0x1;
inline constexpr uint32_t kRpcIfAllowLocalOnly = 0x20;
inline constexpr uint32_t kInterfaceFlags = kRpcIfAutolisten | kRpcIfAllowLocalOnly;  // 0x21

// The identity of an interface (and of its transfer syntax).
struct RpcInterfaceId {
  Guid uuid;
  uint16_t major = 0;
  uint16_t minor = 0;
};

// The 20 bytes by which the runtime names a context handle on the wire.
struct ContextHandleWire {
  uint32_t attributes = 0;
  std::array<uint8_t, 16> uuid{};
  bool is_null() const {
    for (uint8_t b : uuid) {
      if (b != 0) return false;
    }
    return attributes == 0;
  }
  bool operator==(const ContextHandleWire&) const = default;
};

// A call that fails as a whole (the caller sees the code as a fault, no out values).
class RpcFault : public std::exception {
 public:
  explicit RpcFault(uint32_t code) : code_(code) {}
  uint32_t code() const { return code_; }
  const char* what() const noexcept override { return "control call fault"; }

 private:
  uint32_t code_;
};

// A server object behind a context handle.
using ContextObject = void*;

// The server procedures of the control interface, as the runtime calls them. Out values
// arrive preset to 0 (as the runtime allocates them); a procedure may throw RpcFault.
class RpcDispatch {
 public:
  virtual ~RpcDispatch() = default;
  virtual ContextObject open_context() = 0;
  // Frees the object and sets it to null; a null object is ignored.
  virtual void close_context(ContextObject& context) = 0;
  // The client went away without closing the context.
  virtual void rundown(ContextObject context) = 0;
  virtual void query_value(ContextObject context, int32_t command, int32_t& status,
                           int32_t& value) = 0;
  virtual void query_indexed_value(ContextObject context, int32_t command, int32_t& status,
                                   int32_t argument, int32_t& value) = 0;
  virtual void set_value(ContextObject context, int32_t command, int32_t& status,
                         int32_t argument) = 0;
  virtual void set_paired_value(ContextObject context, int32_t command, int32_t& status,
                                int32_t first, int32_t second) = 0;
  // `values` holds `count` elements (count >= 0, already checked by the runtime).
  virtual void query_array(ContextObject context, int32_t command, int32_t& status, int32_t count,
                           int32_t* values) = 0;
};

// The diagnostics interface: three read-only procedures (DiagnosticsProcedure) that hand out
// UTF-8 JSON text. The caller names the room it has for the text; a text that does not fit is
// not sent, and the call answers kDiagnosticsMoreData with the length needed.
constexpr int32_t kMaxDiagnosticsBytes = 1024 * 1024;  // the room a caller may ask for
constexpr int32_t kDiagnosticsMoreData = 234;          // ERROR_MORE_DATA

class DiagnosticsDispatch {
 public:
  virtual ~DiagnosticsDispatch() = default;
  virtual std::string last_decision() = 0;
  // The newest `count` decisions (count < 1: every one kept), oldest first.
  virtual std::string history(int32_t count) = 0;
  virtual std::string health() = 0;
};

// What a diagnostics call answers with `capacity` bytes of room: status 0 with the text
// (its length in `length`), or kDiagnosticsMoreData with the length needed and no text.
// A procedure number outside the three answers status 87.
inline void run_diagnostics(DiagnosticsDispatch& dispatch, uint32_t procedure, int32_t count,
                            int32_t capacity, int32_t& status, int32_t& length, std::string& text) {
  switch (procedure) {
    case kReadLastDecision:
      text = dispatch.last_decision();
      break;
    case kReadHistory:
      text = dispatch.history(count);
      break;
    case kReadHealth:
      text = dispatch.health();
      break;
    default:
      text.clear();
      status = 87;  // ERROR_INVALID_PARAMETER
      length = 0;
      return;
  }
  length = static_cast<int32_t>(text.size());
  if (text.size() > static_cast<size_t>(capacity)) {
    status = kDiagnosticsMoreData;
    text.clear();
    return;
  }
  status = 0;
}

// The calls a step names when it fails: the Windows runtime's own, which the Linux runtime's
// steps stand for too, so that a message reads the same on both.
namespace rpc_call {
inline constexpr const char* kDeriveCapabilitySids = "DeriveCapabilitySidsFromName";
inline constexpr const char* kAllocateSid = "AllocateAndInitializeSid";
inline constexpr const char* kSetEntriesInAcl = "SetEntriesInAclW";
inline constexpr const char* kInitializeSecurityDescriptor = "InitializeSecurityDescriptor";
inline constexpr const char* kSetSecurityDescriptorDacl = "SetSecurityDescriptorDacl";
inline constexpr const char* kUseProtseqEp = "RpcServerUseProtseqEpW";
inline constexpr const char* kRegisterIf = "RpcServerRegisterIf3";
inline constexpr const char* kInqBindings = "RpcServerInqBindings";
inline constexpr const char* kEpRegister = "RpcEpRegisterW";
inline constexpr const char* kListen = "RpcServerListen";
}  // namespace rpc_call

// What a step answered: status 0, or the failure's code and the system call that failed
// ("RpcServerUseProtseqEp"), for a message that names it.
struct RpcStep {
  uint32_t status = 0;
  const char* failed_call = "";
  bool ok() const { return status == 0; }
  static RpcStep done() { return {}; }
  static RpcStep failed(uint32_t code, const char* call) { return {code, call}; }
};

class RpcRuntime {
 public:
  virtual ~RpcRuntime() = default;

  // Who may call the endpoint and the interfaces: everyone, and the app container of the
  // package whose capability name is given (an app container is not part of Everyone). Comes
  // first; what it builds is kept for as long as the runtime serves. Fails with the failing
  // call's error, or 87 when the name does not yield exactly one capability SID.
  virtual RpcStep admit_everyone_and(const std::string& capability_name) = 0;
  // One attempt to open the local endpoint `endpoint` for the admitted callers. The caller
  // decides whether to try again (a previous instance may still hold the name).
  virtual RpcStep open_endpoint(const std::string& endpoint) = 0;
  // Serves the control interface with `procedures` (which must outlive the serving); calls may
  // start before this returns.
  virtual RpcStep serve_control(RpcDispatch& procedures) = 0;
  // Serves the diagnostics interface beside it, on the same endpoint for the same callers.
  virtual RpcStep serve_diagnostics(DiagnosticsDispatch& procedures) = 0;
  // Enters the control interface in the endpoint map, where clients that look it up find it.
  virtual RpcStep publish_control() = 0;
  // Listens until stop_listening; answers kRpcAlreadyListening when listening had already
  // started (the interfaces are registered to listen by themselves).
  virtual RpcStep listen() = 0;
  // Ends listening (tests and tools only: the service never stops listening).
  virtual uint32_t stop_listening() = 0;
  // Stops serving both interfaces without waiting for calls in progress and withdraws the
  // endpoint-map entry. Failures are ignored: a stop may come before anything was served.
  virtual void withdraw() = 0;
  // Whether the runtime holds what publishing the control interface took (the binding
  // vector on Windows): from publish_control, even a failed entry, until withdraw.
  virtual bool published() const = 0;
};

}  // namespace zaltor::platform
