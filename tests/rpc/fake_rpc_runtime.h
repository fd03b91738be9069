#pragma once
// A runtime that records every step in order ("open_endpoint(Name)"), answers as scripted,
// and keeps what it was given, so that a test sees what the set-up asked for and in which
// order.

#include <string>
#include <vector>

#include "platform/rpc_runtime.h"

namespace zaltor::rpc::test {

class FakeRpcRuntime final : public platform::RpcRuntime {
 public:
  // Scripted answers.
  platform::RpcStep admit_result;
  int endpoint_failures = 0;  // open_endpoint fails this many times first
  platform::RpcStep serve_result;
  platform::RpcStep diagnostics_result;
  platform::RpcStep publish_result;
  platform::RpcStep listen_result;

  // What happened.
  std::vector<std::string> calls;
  platform::RpcDispatch* dispatch = nullptr;
  platform::DiagnosticsDispatch* diagnostics = nullptr;
  bool holds_bindings = false;

  platform::RpcStep admit_everyone_and(const std::string& name) override {
    note("admit_everyone_and(" + name + ")");
    return admit_result;
  }
  platform::RpcStep open_endpoint(const std::string& endpoint) override {
    note("open_endpoint(" + endpoint + ")");
    if (endpoint_failures > 0) {
      --endpoint_failures;
      return platform::RpcStep::failed(platform::kRpcDuplicateEndpoint,
                                       platform::rpc_call::kUseProtseqEp);
    }
    return {};
  }
  platform::RpcStep serve_control(platform::RpcDispatch& d) override {
    note("serve_control");
    dispatch = &d;
    return serve_result;
  }
  platform::RpcStep serve_diagnostics(platform::DiagnosticsDispatch& d) override {
    note("serve_diagnostics");
    diagnostics = &d;
    return diagnostics_result;
  }
  platform::RpcStep publish_control() override {
    note("publish_control");
    // As on Windows: the bindings are held even when the endpoint map refuses the entry.
    holds_bindings = publish_result.ok() ||
                     publish_result.failed_call != std::string(platform::rpc_call::kInqBindings);
    return publish_result;
  }
  platform::RpcStep listen() override {
    note("listen");
    return listen_result;
  }
  uint32_t stop_listening() override {
    note("stop_listening");
    return 0;
  }
  void withdraw() override {
    note("withdraw");
    holds_bindings = false;
  }
  bool published() const override { return holds_bindings; }

 private:
  void note(std::string s) { calls.push_back(std::move(s)); }
};

}  // namespace zaltor::rpc::test
