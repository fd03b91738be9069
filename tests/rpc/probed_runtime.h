#pragma once
// A runtime wrapper for the control interface's tests: it forwards every step to a real
// runtime and tells when the set-up has reached listening (so that a test stops the server
// only once set-up is complete).

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "platform/rpc_runtime.h"

namespace zaltor::rpc::test {

class ProbedRuntime final : public platform::RpcRuntime {
 public:
  explicit ProbedRuntime(std::unique_ptr<platform::RpcRuntime> inner) : inner_(std::move(inner)) {}
  std::atomic<bool> listening{false};

  platform::RpcStep admit_everyone_and(const std::string& name) override {
    return inner_->admit_everyone_and(name);
  }
  platform::RpcStep open_endpoint(const std::string& endpoint) override {
    return inner_->open_endpoint(endpoint);
  }
  platform::RpcStep serve_control(platform::RpcDispatch& d) override {
    return inner_->serve_control(d);
  }
  platform::RpcStep serve_diagnostics(platform::DiagnosticsDispatch& d) override {
    return inner_->serve_diagnostics(d);
  }
  platform::RpcStep publish_control() override { return inner_->publish_control(); }
  platform::RpcStep listen() override {
    listening = true;
    return inner_->listen();
  }
  uint32_t stop_listening() override { return inner_->stop_listening(); }
  void withdraw() override { inner_->withdraw(); }
  bool published() const override { return inner_->published(); }

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
