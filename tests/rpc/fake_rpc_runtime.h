#pragma once
// A runtime that records every operation in order ("use_protseq_ep(ncalrpc,10,Name)"),
// answers as scripted, and counts the security objects and binding vectors it handed out and
// got back, so that a test sees what was freed.

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/rpc_runtime.h"

namespace zaltor::rpc::test {

// The fake's own objects behind the runtime's opaque handles.
struct FakeSid {
  int id;
};
struct FakeAcl {
  std::vector<platform::ExplicitAccess> entries;
};
struct FakeBindingVector {
  int id;
};
template <typename To, typename From>
To* as(From* p) {
  return reinterpret_cast<To*>(p);
}

class FakeRpcRuntime final : public platform::RpcRuntime {
 public:
  // Scripted answers.
  int capability_sid_count = 1;
  int group_sid_count = 1;
  bool derive_ok = true;
  bool world_sid_ok = true;
  uint32_t acl_result = 0;
  bool init_sd_ok = true;
  bool set_dacl_ok = true;
  uint32_t error_code = 1234567;  // what last_error() answers
  int protseq_failures = 0;       // use_protseq_ep fails this many times first
  uint32_t register_result = 0;
  uint32_t inq_result = 0;
  uint32_t ep_register_result = 0;
  uint32_t listen_result = 0;
  uint32_t unregister_result = 0;
  uint32_t ep_unregister_result = 0;

  // What happened.
  std::vector<std::string> calls;
  int live_sids = 0;
  int live_sid_arrays = 0;
  int live_acls = 0;
  int live_vectors = 0;
  uint32_t registered_flags = 0;
  uint32_t registered_max_calls = 0;
  std::vector<platform::ExplicitAccess> acl_entries;
  platform::Sid world_sid = nullptr;
  std::vector<platform::Sid> capability_sids_given;
  bool descriptor_passed_to_endpoint = false;
  bool descriptor_passed_to_interface = false;
  platform::RpcDispatch* dispatch = nullptr;

  uint32_t last_error() override { return error_code; }

  bool derive_capability_sids_from_name(const std::string& name,
                                        std::vector<platform::Sid>& group_sids,
                                        std::vector<platform::Sid>& capability_sids) override {
    note("derive(" + name + ")");
    if (!derive_ok) return false;
    for (int i = 0; i < group_sid_count; ++i) group_sids.push_back(new_sid());
    for (int i = 0; i < capability_sid_count; ++i) capability_sids.push_back(new_sid());
    live_sid_arrays += 2;
    capability_sids_given = capability_sids;
    return true;
  }
  void local_free_sid(platform::Sid& sid) override {
    note("local_free_sid");
    delete as<FakeSid>(sid);
    --live_sids;
    sid = nullptr;
  }
  void local_free_sid_array(std::vector<platform::Sid>& sids) override {
    note("local_free_sid_array");
    for (platform::Sid s : sids) {
      if (s != nullptr) ++leaked_entries;
    }
    sids.clear();
    --live_sid_arrays;
  }
  bool allocate_and_initialize_sid(const platform::SidAuthority& authority,
                                   const std::vector<uint32_t>& subs, platform::Sid& out) override {
    note("allocate_sid");
    if (!world_sid_ok) return false;
    if (authority == platform::kSecurityWorldSidAuthority && subs == std::vector<uint32_t>{0}) {
      out = new_sid();
      world_sid = out;
      return true;
    }
    return false;
  }
  void free_sid(platform::Sid& sid) override {
    note("free_sid");
    delete as<FakeSid>(sid);
    --live_sids;
    sid = nullptr;
  }
  uint32_t set_entries_in_acl(const std::vector<platform::ExplicitAccess>& entries,
                              platform::Acl& out) override {
    note("set_entries_in_acl");
    acl_entries = entries;
    if (acl_result != 0) return acl_result;
    out = as<platform::AclObject>(new FakeAcl{entries});
    ++live_acls;
    return 0;
  }
  void local_free_acl(platform::Acl& acl) override {
    note("local_free_acl");
    delete as<FakeAcl>(acl);
    --live_acls;
    acl = nullptr;
  }
  bool initialize_security_descriptor(platform::SecurityDescriptor& sd,
                                      uint32_t revision) override {
    note("init_sd(" + std::to_string(revision) + ")");
    sd.storage[0] = 1;
    return init_sd_ok;
  }
  bool set_security_descriptor_dacl(platform::SecurityDescriptor& sd, bool present,
                                    platform::Acl acl, bool defaulted) override {
    note(std::string("set_dacl(") + (present ? "present" : "absent") + "," +
         (acl != nullptr ? "acl" : "null") + "," + (defaulted ? "defaulted" : "explicit") + ")");
    sd.storage[1] = 1;
    return set_dacl_ok;
  }
  uint32_t use_protseq_ep(const std::string& protseq, uint32_t max_calls,
                          const std::string& endpoint,
                          const platform::SecurityDescriptor* sd) override {
    note("use_protseq_ep(" + protseq + "," + std::to_string(max_calls) + "," + endpoint + ")");
    descriptor_passed_to_endpoint = sd != nullptr && sd->storage[0] == 1 && sd->storage[1] == 1;
    if (protseq_failures > 0) {
      --protseq_failures;
      return platform::kRpcDuplicateEndpoint;
    }
    return 0;
  }
  uint32_t register_if(const platform::RpcInterfaceId& id, platform::RpcDispatch& d, uint32_t flags,
                       uint32_t max_calls, uint32_t max_rpc_size,
                       const platform::SecurityDescriptor* sd) override {
    note("register_if(" + platform::to_string(id.uuid) + "," + std::to_string(id.major) + "." +
         std::to_string(id.minor) + ",0x" + hex(flags) + "," + std::to_string(max_calls) + "," +
         std::to_string(max_rpc_size) + ")");
    registered_flags = flags;
    registered_max_calls = max_calls;
    descriptor_passed_to_interface = sd != nullptr && sd->storage[0] == 1;
    dispatch = &d;
    return register_result;
  }
  uint32_t inq_bindings(platform::BindingVector& out) override {
    note("inq_bindings");
    if (inq_result != 0) return inq_result;
    out = as<platform::BindingVectorObject>(new FakeBindingVector{1});
    ++live_vectors;
    return 0;
  }
  uint32_t ep_register(const platform::RpcInterfaceId&, platform::BindingVector b) override {
    note(std::string("ep_register(") + (b != nullptr ? "vector" : "null") + ")");
    return ep_register_result;
  }
  uint32_t listen(uint32_t min_threads, uint32_t max_calls, bool dont_wait) override {
    note("listen(" + std::to_string(min_threads) + "," + std::to_string(max_calls) + "," +
         (dont_wait ? "dont_wait" : "wait") + ")");
    return listen_result;
  }
  uint32_t stop_server_listening() override {
    note("stop_server_listening");
    return 0;
  }
  uint32_t register_diagnostics_if(const platform::RpcInterfaceId& id,
                                   platform::DiagnosticsDispatch& d, uint32_t flags,
                                   uint32_t max_calls,
                                   const platform::SecurityDescriptor*) override {
    note("register_diagnostics_if(" + platform::to_string(id.uuid) + ",0x" + hex(flags) + "," +
         std::to_string(max_calls) + ")");
    diagnostics = &d;
    return 0;
  }
  platform::DiagnosticsDispatch* diagnostics = nullptr;
  uint32_t unregister_if(const platform::RpcInterfaceId& id, bool wait) override {
    note("unregister_if(" + platform::to_string(id.uuid) + "," + (wait ? "wait" : "no_wait") + ")");
    return unregister_result;
  }
  uint32_t ep_unregister(const platform::RpcInterfaceId&, platform::BindingVector b) override {
    note(std::string("ep_unregister(") + (b != nullptr ? "vector" : "null") + ")");
    return ep_unregister_result;
  }
  uint32_t binding_vector_free(platform::BindingVector& b) override {
    note("binding_vector_free");
    if (b == nullptr) return platform::kErrorInvalidParameter;
    delete as<FakeBindingVector>(b);
    b = nullptr;
    --live_vectors;
    return 0;
  }

  int leaked_entries = 0;  // array entries not freed (or nulled) before their array

 private:
  static std::string hex(uint32_t v) {
    char b[16];
    std::snprintf(b, sizeof b, "%x", static_cast<unsigned>(v));
    return b;
  }
  platform::Sid new_sid() {
    ++live_sids;
    return as<platform::SidObject>(new FakeSid{live_sids});
  }
  void note(std::string s) { calls.push_back(std::move(s)); }
};

}  // namespace zaltor::rpc::test
