// The Windows RPC runtime behind the RpcRuntime seam: the security calls, the endpoint, the
// interface registration with the widl server stub, the endpoint map and listening.
#include "platform/win32/win32_rpc_runtime.h"

#include <aclapi.h>
#include <rpc.h>
#include <windows.h>

#include <cstring>
#include <map>
#include <mutex>

#include "platform/win32/rpc_server_target.h"
#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"
#include "zaltor_antenna.h"
#include "zaltor_diagnostics.h"

// MinGW-w64's headers lack RpcServerRegisterIf3 (Windows 8 and later; rpcrt4 exports it).
extern "C" RPC_STATUS RPC_ENTRY RpcServerRegisterIf3(RPC_IF_HANDLE IfSpec, UUID* MgrTypeUuid,
                                                     RPC_MGR_EPV* MgrEpv, unsigned int Flags,
                                                     unsigned int MaxCalls, unsigned int MaxRpcSize,
                                                     RPC_IF_CALLBACK_FN* IfCallback,
                                                     void* SecurityDescriptor);

namespace zaltor::platform::win32 {
namespace {

// The seam's room for an absolute security descriptor must hold the system's.
static_assert(sizeof(SECURITY_DESCRIPTOR) <= sizeof(SecurityDescriptor::storage),
              "SecurityDescriptor storage too small for SECURITY_DESCRIPTOR");
static_assert(alignof(SECURITY_DESCRIPTOR) <= alignof(SecurityDescriptor),
              "SecurityDescriptor storage not aligned for SECURITY_DESCRIPTOR");

PSECURITY_DESCRIPTOR descriptor_of(SecurityDescriptor& sd) {
  return static_cast<PSECURITY_DESCRIPTOR>(sd.storage.data());
}
PSECURITY_DESCRIPTOR descriptor_of(const SecurityDescriptor* sd) {
  return sd == nullptr
             ? nullptr
             : const_cast<PSECURITY_DESCRIPTOR>(static_cast<const void*>(sd->storage.data()));
}

RPC_IF_HANDLE server_interface() {
  return ZaltorAntenna_v1_0_s_ifspec;
}

RPC_IF_HANDLE diagnostics_interface() {
  return ZaltorDiagnostics_v1_0_s_ifspec;
}

// Whether `id` names the interface of the server stub `ifspec`.
bool names_interface(const RpcInterfaceId& id, RPC_IF_HANDLE ifspec) {
  const auto* info = static_cast<const RPC_SERVER_INTERFACE*>(ifspec);
  const RPC_SYNTAX_IDENTIFIER& syntax = info->InterfaceId;
  const Guid& g = id.uuid;
  return syntax.SyntaxGUID.Data1 == g.data1 && syntax.SyntaxGUID.Data2 == g.data2 &&
         syntax.SyntaxGUID.Data3 == g.data3 &&
         std::memcmp(syntax.SyntaxGUID.Data4, g.data4.data(), 8) == 0 &&
         syntax.SyntaxVersion.MajorVersion == id.major &&
         syntax.SyntaxVersion.MinorVersion == id.minor;
}

// Whether `id` names the control interface's generated server stub.
bool is_stub_interface(const RpcInterfaceId& id) {
  return names_interface(id, server_interface());
}

bool is_diagnostics_interface(const RpcInterfaceId& id) {
  return names_interface(id, diagnostics_interface());
}

class Win32RpcRuntime final : public RpcRuntime {
 public:
  Win32RpcRuntime(Clock& clock, DeriveCapabilitySidsFn derive) : clock_(clock), derive_(derive) {}
  ~Win32RpcRuntime() override {
    if (registered_) {
      RpcServerUnregisterIf(server_interface(), nullptr, TRUE);
      if (rpc_server_dispatch() == registered_) set_rpc_server_target(nullptr, nullptr);
    }
    if (diagnostics_registered_) {
      RpcServerUnregisterIf(diagnostics_interface(), nullptr, TRUE);
      set_diagnostics_target(nullptr, nullptr);
    }
  }

  uint32_t last_error() override { return GetLastError(); }

  bool derive_capability_sids_from_name(const std::string& name, std::vector<Sid>& group_sids,
                                        std::vector<Sid>& capability_sids) override {
    if (derive_ == nullptr) {
      SetLastError(ERROR_PROC_NOT_FOUND);
      return false;
    }
    const std::wstring wname = wide(name);
    PSID* groups = nullptr;
    PSID* capabilities = nullptr;
    DWORD group_count = 0;
    DWORD capability_count = 0;
    if (!derive_(wname.c_str(), &groups, &group_count, &capabilities, &capability_count)) {
      return false;
    }
    group_sids.clear();
    capability_sids.clear();
    for (DWORD i = 0; i < group_count; ++i) group_sids.push_back(static_cast<Sid>(groups[i]));
    for (DWORD i = 0; i < capability_count; ++i) {
      capability_sids.push_back(static_cast<Sid>(capabilities[i]));
    }
    std::lock_guard<std::mutex> hold(arrays_lock_);
    arrays_[&group_sids] = groups;
    arrays_[&capability_sids] = capabilities;
    return true;
  }

  void local_free_sid(Sid& sid) override {
    LocalFree(sid);
    sid = nullptr;
  }

  // The arrays are known by the vector that received their SIDs.
  void local_free_sid_array(std::vector<Sid>& sids) override {
    PSID* array = nullptr;
    {
      std::lock_guard<std::mutex> hold(arrays_lock_);
      auto it = arrays_.find(&sids);
      if (it != arrays_.end()) {
        array = it->second;
        arrays_.erase(it);
      }
    }
    if (array != nullptr) LocalFree(array);
    sids.clear();
  }

  bool allocate_and_initialize_sid(const SidAuthority& authority,
                                   const std::vector<uint32_t>& sub_authorities,
                                   Sid& out) override {
    if (sub_authorities.empty() || sub_authorities.size() > 8) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return false;
    }
    SID_IDENTIFIER_AUTHORITY a;
    std::memcpy(a.Value, authority.data(), 6);
    DWORD s[8] = {};
    for (size_t i = 0; i < sub_authorities.size(); ++i) s[i] = sub_authorities[i];
    PSID sid = nullptr;
    if (!AllocateAndInitializeSid(&a, static_cast<BYTE>(sub_authorities.size()), s[0], s[1], s[2],
                                  s[3], s[4], s[5], s[6], s[7], &sid)) {
      return false;
    }
    out = static_cast<Sid>(sid);
    return true;
  }

  void free_sid(Sid& sid) override {
    FreeSid(sid);
    sid = nullptr;
  }

  uint32_t set_entries_in_acl(const std::vector<ExplicitAccess>& entries, Acl& out) override {
    std::vector<EXPLICIT_ACCESS_W> list(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
      const ExplicitAccess& e = entries[i];
      EXPLICIT_ACCESS_W& w = list[i];
      std::memset(&w, 0, sizeof w);
      w.grfAccessPermissions = e.permissions;
      w.grfAccessMode = static_cast<ACCESS_MODE>(e.mode);
      w.grfInheritance = e.inheritance;
      w.Trustee.TrusteeForm = static_cast<TRUSTEE_FORM>(e.trustee_form);
      w.Trustee.TrusteeType = static_cast<TRUSTEE_TYPE>(e.trustee_type);
      w.Trustee.ptstrName = reinterpret_cast<LPWSTR>(e.trustee);
    }
    PACL acl = nullptr;
    const DWORD err = SetEntriesInAclW(static_cast<ULONG>(list.size()), list.data(), nullptr, &acl);
    if (err == ERROR_SUCCESS) out = reinterpret_cast<Acl>(acl);
    return err;
  }

  void local_free_acl(Acl& acl) override {
    LocalFree(acl);
    acl = nullptr;
  }

  bool initialize_security_descriptor(SecurityDescriptor& sd, uint32_t revision) override {
    return InitializeSecurityDescriptor(descriptor_of(sd), revision) != FALSE;
  }

  bool set_security_descriptor_dacl(SecurityDescriptor& sd, bool present, Acl acl,
                                    bool defaulted) override {
    return SetSecurityDescriptorDacl(descriptor_of(sd), present ? TRUE : FALSE,
                                     reinterpret_cast<PACL>(acl),
                                     defaulted ? TRUE : FALSE) != FALSE;
  }

  uint32_t use_protseq_ep(const std::string& protseq, uint32_t max_calls,
                          const std::string& endpoint, const SecurityDescriptor* sd) override {
    std::wstring p = wide(protseq);
    std::wstring e = wide(endpoint);
    return RpcServerUseProtseqEpW(reinterpret_cast<RPC_WSTR>(p.data()), max_calls,
                                  reinterpret_cast<RPC_WSTR>(e.data()), descriptor_of(sd));
  }

  uint32_t register_if(const RpcInterfaceId& id, RpcDispatch& dispatch, uint32_t flags,
                       uint32_t max_calls, uint32_t max_rpc_size,
                       const SecurityDescriptor* sd) override {
    if (!is_stub_interface(id)) return kRpcUnknownIf;
    // Calls on one context run at the same time, as on Linux. The server stub's context
    // descriptions carry the no-serialise flag; this is the runtime's own switch for the
    // same (process-wide, and this process serves only this interface). Wine ignores both
    // and serialises the calls of one context.
    RpcSsDontSerializeContext();
    // The auto-listen flag may start calls before the registration returns.
    RpcDispatch* previous = rpc_server_dispatch();
    set_rpc_server_target(&dispatch, &clock_);
    const RPC_STATUS st = RpcServerRegisterIf3(server_interface(), nullptr, nullptr, flags,
                                               max_calls, max_rpc_size, nullptr, descriptor_of(sd));
    if (st != RPC_S_OK) {
      if (previous == nullptr) set_rpc_server_target(nullptr, nullptr);
      return st;
    }
    registered_ = &dispatch;
    return 0;
  }

  uint32_t register_diagnostics_if(const RpcInterfaceId& id, DiagnosticsDispatch& dispatch,
                                   uint32_t flags, uint32_t max_calls,
                                   const SecurityDescriptor* sd) override {
    if (!is_diagnostics_interface(id)) return kRpcUnknownIf;
    set_diagnostics_target(&dispatch, &clock_);
    const RPC_STATUS st = RpcServerRegisterIf3(diagnostics_interface(), nullptr, nullptr, flags,
                                               max_calls, 0, nullptr, descriptor_of(sd));
    if (st != RPC_S_OK) {
      set_diagnostics_target(nullptr, nullptr);
      return st;
    }
    diagnostics_registered_ = true;
    return 0;
  }

  uint32_t inq_bindings(BindingVector& out) override {
    RPC_BINDING_VECTOR* v = nullptr;
    const RPC_STATUS st = RpcServerInqBindings(&v);
    out = reinterpret_cast<BindingVector>(v);
    return st;
  }

  uint32_t ep_register(const RpcInterfaceId& id, BindingVector bindings) override {
    if (!is_stub_interface(id)) return kRpcUnknownIf;
    return RpcEpRegisterW(server_interface(), reinterpret_cast<RPC_BINDING_VECTOR*>(bindings),
                          nullptr, nullptr);
  }

  uint32_t listen(uint32_t min_call_threads, uint32_t max_calls, bool dont_wait) override {
    return RpcServerListen(min_call_threads, max_calls, dont_wait ? TRUE : FALSE);
  }

  uint32_t stop_server_listening() override { return RpcMgmtStopServerListening(nullptr); }

  uint32_t unregister_if(const RpcInterfaceId& id, bool wait_for_calls) override {
    if (is_diagnostics_interface(id)) {
      return RpcServerUnregisterIf(diagnostics_interface(), nullptr, wait_for_calls ? TRUE : FALSE);
    }
    if (!is_stub_interface(id)) return kRpcUnknownIf;
    return RpcServerUnregisterIf(server_interface(), nullptr, wait_for_calls ? TRUE : FALSE);
  }

  uint32_t ep_unregister(const RpcInterfaceId& id, BindingVector bindings) override {
    if (!is_stub_interface(id)) return kRpcUnknownIf;
    // A stop before the endpoint was set up has no bindings: Wine's runtime would read
    // through the null vector (and Windows has nothing to unregister either).
    if (bindings == nullptr) return kRpcNoBindings;
    return RpcEpUnregister(server_interface(), reinterpret_cast<RPC_BINDING_VECTOR*>(bindings),
                           nullptr);
  }

  uint32_t binding_vector_free(BindingVector& bindings) override {
    auto* v = reinterpret_cast<RPC_BINDING_VECTOR*>(bindings);
    const RPC_STATUS st = RpcBindingVectorFree(&v);
    bindings = nullptr;
    return st;
  }

 private:
  Clock& clock_;
  DeriveCapabilitySidsFn derive_;
  RpcDispatch* registered_ = nullptr;
  bool diagnostics_registered_ = false;
  std::mutex arrays_lock_;
  std::map<const std::vector<Sid>*, PSID*> arrays_;
};

}  // namespace

std::unique_ptr<RpcRuntime> make_win32_rpc_runtime(Clock& clock, DeriveCapabilitySidsFn derive) {
  return std::make_unique<Win32RpcRuntime>(clock, derive);
}

}  // namespace zaltor::platform::win32

namespace zaltor::platform {

std::unique_ptr<RpcRuntime> make_win32_rpc_runtime(Clock& clock) {
  win32::DeriveCapabilitySidsFn derive = win32::find_derive_capability_sids();
  if (derive == nullptr) derive = &win32::derive_capability_sids_by_hash;
  return win32::make_win32_rpc_runtime(clock, derive);
}

}  // namespace zaltor::platform
