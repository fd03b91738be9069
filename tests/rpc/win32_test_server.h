#pragma once
// A server for the Windows control interface's tests: the real RPC runtime on an ncalrpc
// endpoint of its own, serving the procedures over a scripted target. The runtime's
// interface registration is process-wide: one such server at a time.
#if defined(_WIN32)

#include <process.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "platform/control_client.h"
#include "platform/win32/win32_rpc_runtime.h"
#include "rpc/probed_runtime.h"
#include "rpc/rpc_fakes.h"

namespace zaltor::rpc::test {

// A unique endpoint name per test process and server.
inline std::string unique_win32_endpoint(const char* tag) {
  static std::atomic<int> counter{0};
  return std::string("ZaltorRpcTest-") + tag + "-" + std::to_string(::_getpid()) + "-" +
         std::to_string(counter.fetch_add(1));
}

class Win32TestServer {
 public:
  explicit Win32TestServer(const char* tag, platform::win32::DeriveCapabilitySidsFn derive =
                                                &platform::win32::derive_capability_sids_by_hash)
      : endpoint(unique_win32_endpoint(tag)),
        procedures(target),
        runtime(std::make_unique<ProbedRuntime>(
            platform::win32::make_win32_rpc_runtime(clock, derive))) {
    EndpointSetup setup{*runtime, clock, log, procedures, endpoint, {}};
    thread_ = std::thread([this, setup] { result = serve(setup); });
    wait_for_listening(*runtime);
    wait_until_answering();
  }
  ~Win32TestServer() { stop(); }
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

#endif  // defined(_WIN32)
