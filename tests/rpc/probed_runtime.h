#pragma once
// A runtime wrapper for the control interface's tests: it forwards every operation to a real
// runtime and tells when the set-up has reached listening (so that a test stops the server
// only once set-up is complete).

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/rpc_runtime.h"

namespace zaltor::rpc::test {

class ProbedRuntime final : public platform::RpcRuntime {
 public:
  explicit ProbedRuntime(std::unique_ptr<platform::RpcRuntime> inner) : inner_(std::move(inner)) {}
  std::atomic<bool> listening{false};

  uint32_t last_error() override { return inner_->last_error(); }
  bool derive_capability_sids_from_name(const std::string& n, std::vector<platform::Sid>& g,
                                        std::vector<platform::Sid>& c) override {
    return inner_->derive_capability_sids_from_name(n, g, c);
  }
  void local_free_sid(platform::Sid& s) override { inner_->local_free_sid(s); }
  void local_free_sid_array(std::vector<platform::Sid>& s) override {
    inner_->local_free_sid_array(s);
  }
  bool allocate_and_initialize_sid(const platform::SidAuthority& a,
                                   const std::vector<uint32_t>& subs, platform::Sid& out) override {
    return inner_->allocate_and_initialize_sid(a, subs, out);
  }
  void free_sid(platform::Sid& s) override { inner_->free_sid(s); }
  uint32_t set_entries_in_acl(const std::vector<platform::ExplicitAccess>& e,
                              platform::Acl& out) override {
    return inner_->set_entries_in_acl(e, out);
  }
  void local_free_acl(platform::Acl& a) override { inner_->local_free_acl(a); }
  bool initialize_security_descriptor(platform::SecurityDescriptor& sd, uint32_t r) override {
    return inner_->initialize_security_descriptor(sd, r);
  }
  bool set_security_descriptor_dacl(platform::SecurityDescriptor& sd, bool p, platform::Acl a,
                                    bool d) override {
    return inner_->set_security_descriptor_dacl(sd, p, a, d);
  }
  uint32_t use_protseq_ep(const std::string& p, uint32_t m, const std::string& e,
                          const platform::SecurityDescriptor* sd) override {
    return inner_->use_protseq_ep(p, m, e, sd);
  }
  uint32_t register_if(const platform::RpcInterfaceId& id, platform::RpcDispatch& d, uint32_t f,
                       uint32_t m, uint32_t s, const platform::SecurityDescriptor* sd) override {
    return inner_->register_if(id, d, f, m, s, sd);
  }
  uint32_t register_diagnostics_if(const platform::RpcInterfaceId& id,
                                   platform::DiagnosticsDispatch& d, uint32_t f, uint32_t m,
                                   const platform::SecurityDescriptor* sd) override {
    return inner_->register_diagnostics_if(id, d, f, m, sd);
  }
  uint32_t inq_bindings(platform::BindingVector& out) override { return inner_->inq_bindings(out); }
  uint32_t ep_register(const platform::RpcInterfaceId& id, platform::BindingVector b) override {
    return inner_->ep_register(id, b);
  }
  uint32_t listen(uint32_t a, uint32_t m, bool dont_wait) override {
    listening = true;
    return inner_->listen(a, m, dont_wait);
  }
  uint32_t stop_server_listening() override { return inner_->stop_server_listening(); }
  uint32_t unregister_if(const platform::RpcInterfaceId& id, bool w) override {
    return inner_->unregister_if(id, w);
  }
  uint32_t ep_unregister(const platform::RpcInterfaceId& id, platform::BindingVector b) override {
    return inner_->ep_unregister(id, b);
  }
  uint32_t binding_vector_free(platform::BindingVector& b) override {
    return inner_->binding_vector_free(b);
  }

 private:
  std::unique_ptr<platform::RpcRuntime> inner_;
};

// Waits (bounded) until the set-up has reached listening.
inline bool wait_for_listening(ProbedRuntime& rt) {
  for (int i = 0; i < 5000 && !rt.listening.load(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return rt.listening.load();
}

}  // namespace zaltor::rpc::test
