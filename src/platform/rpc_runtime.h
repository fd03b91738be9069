#pragma once
// The remote-procedure-call runtime and the security objects of the control endpoint, as the
// control interface needs them. Each operation has the success/failure results of the Windows
// call it stands for: the security calls answer true/false with the error in last_error() (or
// an error code where Windows returns one), the runtime calls answer an RPC status (0 = OK).
//
// On Windows the backend wraps the real runtime; on Linux it serves a local stream socket
// (see docs/control-wire-format.md). Handles are opaque to the core: only the backend that
// made one looks inside.

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

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

// Interface registration flags.
constexpr uint32_t kRpcIfAutolisten = 0x1;
constexpr uint32_t kRpcIfAllowLocalOnly = 0x20;

// Access-list entry values.
constexpr uint32_t kGenericAll = 0x10000000;
constexpr uint32_t kSetAccess = 2;
constexpr uint32_t kNoInheritance = 0;
constexpr uint32_t kTrusteeIsSid = 0;
constexpr uint32_t kTrusteeIsUnknown = 0;
constexpr uint32_t kTrusteeIsWellKnownGroup = 5;
constexpr uint32_t kSecurityDescriptorRevision = 1;

struct SidObject;  // a security identifier, owned by the backend that made it
using Sid = SidObject*;
struct AclObject;  // an access list
using Acl = AclObject*;
struct BindingVectorObject;  // the server's binding vector
using BindingVector = BindingVectorObject*;

using SidAuthority = std::array<uint8_t, 6>;
constexpr SidAuthority kSecurityWorldSidAuthority{0, 0, 0, 0, 0, 1};

struct ExplicitAccess {
  uint32_t permissions = 0;
  uint32_t mode = 0;
  uint32_t inheritance = 0;
  uint32_t trustee_form = kTrusteeIsSid;
  uint32_t trustee_type = kTrusteeIsUnknown;
  Sid trustee = nullptr;
};

// Room for an absolute security descriptor; its layout belongs to the backend.
struct SecurityDescriptor {
  alignas(8) std::array<unsigned char, 64> storage{};
};

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

class RpcRuntime {
 public:
  virtual ~RpcRuntime() = default;

  // Error of the last failed security call of this thread (GetLastError).
  virtual uint32_t last_error() = 0;

  // DeriveCapabilitySidsFromName: false on failure.
  virtual bool derive_capability_sids_from_name(const std::string& name,
                                                std::vector<Sid>& group_sids,
                                                std::vector<Sid>& capability_sids) = 0;
  // LocalFree of one SID that DeriveCapabilitySidsFromName gave; the entry is set to null.
  virtual void local_free_sid(Sid& sid) = 0;
  // LocalFree of the array that held such SIDs.
  virtual void local_free_sid_array(std::vector<Sid>& sids) = 0;
  // AllocateAndInitializeSid with up to eight sub-authorities: false on failure.
  virtual bool allocate_and_initialize_sid(const SidAuthority& authority,
                                           const std::vector<uint32_t>& sub_authorities,
                                           Sid& out) = 0;
  virtual void free_sid(Sid& sid) = 0;
  // SetEntriesInAclW(count, entries, no old list): an error code.
  virtual uint32_t set_entries_in_acl(const std::vector<ExplicitAccess>& entries, Acl& out) = 0;
  virtual void local_free_acl(Acl& acl) = 0;
  virtual bool initialize_security_descriptor(SecurityDescriptor& sd, uint32_t revision) = 0;
  virtual bool set_security_descriptor_dacl(SecurityDescriptor& sd, bool present, Acl acl,
                                            bool defaulted) = 0;

  // RpcServerUseProtseqEpW.
  virtual uint32_t use_protseq_ep(const std::string& protseq, uint32_t max_calls,
                                  const std::string& endpoint, const SecurityDescriptor* sd) = 0;
  // RpcServerRegisterIf3 without manager type, entry vector or security callback: the
  // procedures are given as `dispatch`, which must outlive the runtime's use of it.
  virtual uint32_t register_if(const RpcInterfaceId& id, RpcDispatch& dispatch, uint32_t flags,
                               uint32_t max_calls, uint32_t max_rpc_size,
                               const SecurityDescriptor* sd) = 0;
  // Registers the diagnostics interface beside the control interface, on the same endpoint
  // with the same flags and descriptor. unregister_if with its id withdraws it.
  virtual uint32_t register_diagnostics_if(const RpcInterfaceId& id, DiagnosticsDispatch& dispatch,
                                           uint32_t flags, uint32_t max_calls,
                                           const SecurityDescriptor* sd) = 0;
  // RpcServerInqBindings.
  virtual uint32_t inq_bindings(BindingVector& out) = 0;
  // RpcEpRegisterW without object UUIDs or annotation.
  virtual uint32_t ep_register(const RpcInterfaceId& id, BindingVector bindings) = 0;
  // RpcServerListen: with dont_wait false it blocks until listening is stopped.
  virtual uint32_t listen(uint32_t min_call_threads, uint32_t max_calls, bool dont_wait) = 0;
  // RpcMgmtStopServerListening (tests and tools only: the service never stops listening).
  virtual uint32_t stop_server_listening() = 0;
  // RpcServerUnregisterIf(interface, no manager type, wait_for_calls).
  virtual uint32_t unregister_if(const RpcInterfaceId& id, bool wait_for_calls) = 0;
  // RpcEpUnregister without object UUIDs.
  virtual uint32_t ep_unregister(const RpcInterfaceId& id, BindingVector bindings) = 0;
  // RpcBindingVectorFree: frees and nulls the vector.
  virtual uint32_t binding_vector_free(BindingVector& bindings) = 0;
};

}  // namespace zaltor::platform
