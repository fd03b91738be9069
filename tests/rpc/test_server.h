#pragma once
// A server for the control interface's tests: the real socket runtime on an endpoint of its
// own, serving the procedures over a scripted target.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/control_client.h"
#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/rpc_fakes.h"

namespace zaltor::rpc::test {

// The socket runtime, with a flag that tells when the set-up has reached listening (so that a
// test stops the server only once set-up is complete).
class ProbedRuntime final : public platform::RpcRuntime {
 public:
  explicit ProbedRuntime(platform::Clock& clock)
      : inner_(platform::make_socket_rpc_runtime(clock)) {}
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

// A unique endpoint name per test, so that tests never meet each other's servers.
inline std::string unique_endpoint(const char* tag) {
  static std::atomic<int> counter{0};
  return std::string("ZaltorRpcTest-") + tag + "-" + std::to_string(::getpid()) + "-" +
         std::to_string(counter.fetch_add(1));
}

// The real socket runtime serving the procedures over a fake target, set up through serve()
// on its own thread; stopped (and the thread joined) on destruction.
class TestServer {
 public:
  explicit TestServer(const char* tag, std::function<void()> choose_auto = {})
      : endpoint(unique_endpoint(tag)),
        procedures(target),
        runtime(std::make_unique<ProbedRuntime>(clock)) {
    EndpointSetup setup{*runtime, clock, log, procedures, endpoint, std::move(choose_auto)};
    thread_ = std::thread([this, setup] { result = serve(setup); });
    wait_for_listening(*runtime);
    wait_until_answering();
  }
  ~TestServer() { stop(); }
  void stop() {
    if (thread_.joinable()) {
      withdraw(*runtime);
      runtime->stop_server_listening();
      thread_.join();
    }
  }
  std::unique_ptr<platform::ControlClient> connect(int timeout_ms = 5000) {
    uint32_t error = 0;
    return platform::connect_control_client(endpoint, timeout_ms, error);
  }

  std::string endpoint;
  TestClock clock;
  RecordingLog log;
  FakeTarget target;
  ControlProcedures procedures;
  std::unique_ptr<ProbedRuntime> runtime;
  std::atomic<uint32_t> result{0xFFFFFFFF};

 private:
  void wait_until_answering() {
    for (int i = 0; i < 2000; ++i) {
      if (auto c = connect(1000)) {
        platform::ContextHandleWire ctx;
        if (c->open_context(ctx) == 0) {
          c->close_context(ctx);
          return;
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  std::thread thread_;
};

}  // namespace zaltor::rpc::test
