#include "rpc/control_endpoint.h"

#include <atomic>
#include <vector>

#include "rpc/control_interface.h"

namespace zaltor::rpc {
namespace {

// Written by serve on the run body's thread, freed by withdraw on the stop thread.
std::atomic<platform::BindingVector> g_binding_vector{nullptr};
// Whether serve registered the diagnostics interface (withdraw then unregisters it).
std::atomic<bool> g_diagnostics_registered{false};

// The security objects of the endpoint; released on every path out of serve.
struct SecurityObjects {
  explicit SecurityObjects(platform::RpcRuntime& r) : runtime(r) {}
  ~SecurityObjects() {
    if (derived) {
      for (platform::Sid& s : capability_sids) {
        if (s != nullptr) runtime.local_free_sid(s);
      }
      runtime.local_free_sid_array(capability_sids);
      for (platform::Sid& s : group_sids) {
        if (s != nullptr) runtime.local_free_sid(s);
      }
      runtime.local_free_sid_array(group_sids);
    }
    if (world_sid != nullptr) runtime.free_sid(world_sid);
    if (acl != nullptr) runtime.local_free_acl(acl);
  }
  SecurityObjects(const SecurityObjects&) = delete;
  SecurityObjects& operator=(const SecurityObjects&) = delete;

  platform::RpcRuntime& runtime;
  bool derived = false;  // the two SID arrays exist (possibly empty)
  std::vector<platform::Sid> group_sids;
  std::vector<platform::Sid> capability_sids;
  platform::Sid world_sid = nullptr;
  platform::Acl acl = nullptr;
  platform::SecurityDescriptor descriptor;
};

}  // namespace

uint32_t serve(const EndpointSetup& setup) {
  platform::RpcRuntime& rt = setup.runtime;
  SecurityObjects sec(rt);

  if (!rt.derive_capability_sids_from_name(kCompanionPackageFamily, sec.group_sids,
                                           sec.capability_sids)) {
    return rt.last_error();
  }
  sec.derived = true;
  if (sec.capability_sids.size() != 1) return platform::kErrorInvalidParameter;

  if (!rt.allocate_and_initialize_sid(platform::kSecurityWorldSidAuthority, {0}, sec.world_sid)) {
    return rt.last_error();
  }

  // Everyone, and the companion app's package (an app container is not part of Everyone).
  std::vector<platform::ExplicitAccess> entries(2);
  entries[0].permissions = platform::kGenericAll;
  entries[0].mode = platform::kSetAccess;
  entries[0].inheritance = platform::kNoInheritance;
  entries[0].trustee_form = platform::kTrusteeIsSid;
  entries[0].trustee_type = platform::kTrusteeIsWellKnownGroup;
  entries[0].trustee = sec.world_sid;
  entries[1].permissions = platform::kGenericAll;
  entries[1].mode = platform::kSetAccess;
  entries[1].inheritance = platform::kNoInheritance;
  entries[1].trustee_form = platform::kTrusteeIsSid;
  entries[1].trustee_type = platform::kTrusteeIsUnknown;
  entries[1].trustee = sec.capability_sids[0];
  if (const uint32_t err = rt.set_entries_in_acl(entries, sec.acl); err != 0) return err;

  if (!rt.initialize_security_descriptor(sec.descriptor, platform::kSecurityDescriptorRevision) ||
      !rt.set_security_descriptor_dacl(sec.descriptor, true, sec.acl, false)) {
    return rt.last_error();
  }

  setup.log.write(kLogInfo, "Initializing RPC endpoints.\n");
  // A previous instance may still hold the name: wait for it, silently and for ever.
  while (rt.use_protseq_ep(kProtocolSequence, kProtseqMaxCalls, setup.endpoint, &sec.descriptor) !=
         0) {
    setup.clock.sleep_ms(kEndpointRetryMs);
  }
  setup.log.write(kLogInfo, "RPC Endpoints ok.\n");

  if (setup.choose_auto) setup.choose_auto();

  if (const uint32_t st = rt.register_if(kControlInterface, setup.procedures, kInterfaceFlags,
                                         kMaxConcurrentCalls, 0, &sec.descriptor);
      st != 0) {
    return st;
  }
  // The diagnostics are a help beside the companion app's interface: without them the
  // control interface is still served.
  if (setup.diagnostics != nullptr &&
      rt.register_diagnostics_if(kDiagnosticsInterface, *setup.diagnostics, kInterfaceFlags,
                                 kMaxConcurrentCalls, &sec.descriptor) == 0) {
    g_diagnostics_registered.store(true, std::memory_order_relaxed);
  }

  platform::BindingVector bindings = nullptr;
  const uint32_t inq = rt.inq_bindings(bindings);
  g_binding_vector.store(bindings, std::memory_order_relaxed);
  if (inq != 0) return inq;

  if (const uint32_t st = rt.ep_register(kControlInterface, bindings); st != 0) return st;

  uint32_t st = 0;
  {
    // Listening blocks outside the clock for the life of the process.
    platform::ClockAbsence absent(setup.clock);
    st = rt.listen(kMinCallThreads, kMaxConcurrentCalls, false);
  }
  // The auto-listen registration may already have started listening.
  if (st == platform::kRpcAlreadyListening) st = 0;
  return st;
}

void withdraw(platform::RpcRuntime& runtime) {
  runtime.unregister_if(kControlInterface, false);
  if (g_diagnostics_registered.exchange(false, std::memory_order_relaxed)) {
    runtime.unregister_if(kDiagnosticsInterface, false);
  }
  platform::BindingVector bindings = g_binding_vector.exchange(nullptr, std::memory_order_relaxed);
  runtime.ep_unregister(kControlInterface, bindings);
  if (bindings != nullptr) runtime.binding_vector_free(bindings);
}

bool holds_binding_vector() {
  return g_binding_vector.load(std::memory_order_relaxed) != nullptr;
}

}  // namespace zaltor::rpc
