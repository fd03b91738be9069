// The Windows RPC runtime behind the RpcRuntime seam: the endpoint's security descriptor
// (endpoint_security.h), the endpoint, the interface registrations with the widl server
// stubs, the endpoint map and listening.
#include "platform/win32/win32_rpc_runtime.h"

#include <rpc.h>
#include <windows.h>

#include <atomic>
#include <string>

#include "platform/win32/endpoint_security.h"
#include "platform/win32/rpc_server_target.h"
#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"
#include "zaltor_antenna.h"
#include "zaltor_diagnostics.h"

// MinGW-w64's headers lack RpcServerRegisterIf3 (Windows 8 and later; rpcrt4 exports it).
extern "C" RPC_STATUS RPC_ENTRY RpcServerRegisterIf3(RPC_IF_HANDLE if_spec, UUID* mgr_type_uuid,
                                                     RPC_MGR_EPV* mgr_epv, unsigned int flags,
                                                     unsigned int max_calls,
                                                     unsigned int max_rpc_size,
                                                     RPC_IF_CALLBACK_FN* if_callback,
                                                     void* security_descriptor);

namespace zaltor::platform::win32 {
namespace {

RPC_IF_HANDLE server_interface() {
  return ZaltorAntenna_v1_0_s_ifspec;
}

RPC_IF_HANDLE diagnostics_interface() {
  return ZaltorDiagnostics_v1_0_s_ifspec;
}

class Win32RpcRuntime final : public RpcRuntime {
 public:
  Win32RpcRuntime(Clock& clock, DeriveCapabilitySidsFn derive) : clock_(clock), derive_(derive) {}
  ~Win32RpcRuntime() override {
    if (registered_ != nullptr) {
      RpcServerUnregisterIf(server_interface(), nullptr, TRUE);
      if (rpc_server_dispatch() == registered_) set_rpc_server_target(nullptr, nullptr);
    }
    if (diagnostics_registered_) {
      RpcServerUnregisterIf(diagnostics_interface(), nullptr, TRUE);
      set_diagnostics_target(nullptr, nullptr);
    }
    free_bindings();
  }

  RpcStep admit_everyone_and(const std::string& capability_name) override {
    return security_.build(capability_name, derive_);
  }

  RpcStep open_endpoint(const std::string& endpoint) override {
    std::wstring p = wide(kProtocolSequence);
    std::wstring e = wide(endpoint);
    const RPC_STATUS st =
        RpcServerUseProtseqEpW(reinterpret_cast<RPC_WSTR>(p.data()), kEndpointMaxCalls,
                               reinterpret_cast<RPC_WSTR>(e.data()), security_.descriptor());
    return step(st, rpc_call::kUseProtseqEp);
  }

  RpcStep serve_control(RpcDispatch& dispatch) override {
    // Calls on one context run at the same time, as on Linux. The server stub's context
    // descriptions carry the no-serialise flag; this is the runtime's own switch for the
    // same (process-wide, and this process serves only this interface). Wine ignores both
    // and serialises the calls of one context.
    RpcSsDontSerializeContext();
    // The auto-listen flag may start calls before the registration returns.
    RpcDispatch* previous = rpc_server_dispatch();
    set_rpc_server_target(&dispatch, &clock_);
    const RPC_STATUS st =
        RpcServerRegisterIf3(server_interface(), nullptr, nullptr, kInterfaceFlags,
                             kMaxConcurrentCalls, 0, nullptr, security_.descriptor());
    if (st != RPC_S_OK) {
      if (previous == nullptr) set_rpc_server_target(nullptr, nullptr);
      return step(st, rpc_call::kRegisterIf);
    }
    registered_ = &dispatch;
    return RpcStep::done();
  }

  RpcStep serve_diagnostics(DiagnosticsDispatch& dispatch) override {
    set_diagnostics_target(&dispatch, &clock_);
    const RPC_STATUS st =
        RpcServerRegisterIf3(diagnostics_interface(), nullptr, nullptr, kInterfaceFlags,
                             kMaxConcurrentCalls, 0, nullptr, security_.descriptor());
    if (st != RPC_S_OK) {
      set_diagnostics_target(nullptr, nullptr);
      return step(st, rpc_call::kRegisterIf);
    }
    diagnostics_registered_ = true;
    return RpcStep::done();
  }

  // The binding vector stays until withdraw, which the stop thread runs while listening
  // blocks on the serving one.
  RpcStep publish_control() override {
    RPC_BINDING_VECTOR* v = nullptr;
    const RPC_STATUS inq = RpcServerInqBindings(&v);
    if (v != nullptr) {
      RPC_BINDING_VECTOR* old = bindings_.exchange(v, std::memory_order_relaxed);
      if (old != nullptr) RpcBindingVectorFree(&old);
    }
    if (inq != RPC_S_OK) return step(inq, rpc_call::kInqBindings);
    return step(RpcEpRegisterW(server_interface(), v, nullptr, nullptr), rpc_call::kEpRegister);
  }

  RpcStep listen() override {
    return step(RpcServerListen(kMinCallThreads, kMaxConcurrentCalls, FALSE), rpc_call::kListen);
  }

  uint32_t stop_listening() override { return RpcMgmtStopServerListening(nullptr); }

  void withdraw() override {
    RpcServerUnregisterIf(server_interface(), nullptr, FALSE);
    if (diagnostics_registered_.exchange(false, std::memory_order_relaxed)) {
      RpcServerUnregisterIf(diagnostics_interface(), nullptr, FALSE);
    }
    // A stop before the endpoint was set up has no bindings: Wine's runtime would read
    // through a null vector (and Windows has nothing to unregister either).
    if (RPC_BINDING_VECTOR* v = bindings_.load(std::memory_order_relaxed); v != nullptr) {
      RpcEpUnregister(server_interface(), v, nullptr);
    }
    free_bindings();
  }

  bool published() const override { return bindings_.load(std::memory_order_relaxed) != nullptr; }

 private:
  static RpcStep step(RPC_STATUS st, const char* call) {
    return st == RPC_S_OK ? RpcStep::done() : RpcStep::failed(static_cast<uint32_t>(st), call);
  }
  void free_bindings() {
    RPC_BINDING_VECTOR* v = bindings_.exchange(nullptr, std::memory_order_relaxed);
    if (v != nullptr) RpcBindingVectorFree(&v);
  }

  Clock& clock_;
  DeriveCapabilitySidsFn derive_;
  EndpointSecurity security_;
  RpcDispatch* registered_ = nullptr;
  std::atomic<bool> diagnostics_registered_{false};
  std::atomic<RPC_BINDING_VECTOR*> bindings_{nullptr};
};

}  // namespace

std::unique_ptr<RpcRuntime> make_win32_rpc_runtime(Clock& clock, DeriveCapabilitySidsFn derive) {
  return std::make_unique<Win32RpcRuntime>(clock, derive);
}

}  // namespace zaltor::platform::win32

namespace zaltor::platform {

std::unique_ptr<RpcRuntime> make_win32_rpc_runtime(Clock& clock) {
  return win32::make_win32_rpc_runtime(clock, win32::choose_derive_capability_sids());
}

}  // namespace zaltor::platform
