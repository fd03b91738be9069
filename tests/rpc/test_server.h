#pragma once
// A server for the control interface's tests: the platform's real runtime (the local socket
// on Linux, the RPC runtime over ncalrpc on Windows) on an endpoint of its own, serving the
// procedures over a scripted target. On Windows the runtime's interface registration is
// process-wide: one such server at a time there.

#if defined(_WIN32)
#include <process.h>
#else
#include <unistd.h>
#endif

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/control_client.h"
#if defined(_WIN32)
#include "platform/win32/win32_rpc_runtime.h"
#else
#include "platform/posix/socket_rpc_runtime.h"
#endif
#include "rpc/probed_runtime.h"
#include "rpc/rpc_fakes.h"

namespace zaltor::rpc::test {

// A unique endpoint name per test, so that tests never meet each other's servers.
inline std::string unique_endpoint(const char* tag) {
  static std::atomic<int> counter{0};
#if defined(_WIN32)
  const int pid = ::_getpid();
#else
  const int pid = ::getpid();
#endif
  return std::string("ZaltorRpcTest-") + tag + "-" + std::to_string(pid) + "-" +
         std::to_string(counter.fetch_add(1));
}

// Diagnostics procedures that hand out fixed texts and remember the last history count.
class FakeDiagnostics final : public platform::DiagnosticsDispatch {
 public:
  std::string last_decision() override { return decision; }
  std::string history(int32_t count) override {
    last_count.store(count);
    return "{\"decisions\": []}";
  }
  std::string health() override { return "{\"ports\": []}"; }
  std::string decision = "{\"decision\": null}";
  std::atomic<int32_t> last_count{-1};
};

using RuntimeFactory = std::function<std::unique_ptr<platform::RpcRuntime>(platform::Clock&)>;

// This platform's real runtime.
inline std::unique_ptr<platform::RpcRuntime> platform_runtime(platform::Clock& clock) {
#if defined(_WIN32)
  return platform::win32::make_win32_rpc_runtime(clock,
                                                 &platform::win32::derive_capability_sids_by_hash);
#else
  return platform::make_socket_rpc_runtime(clock);
#endif
}

// The real runtime serving the procedures over a fake target, set up through serve() on its
// own thread; stopped (and the thread joined) on destruction.
class TestServer {
 public:
  explicit TestServer(const char* tag, std::function<void()> choose_auto = {},
                      const RuntimeFactory& make_runtime = platform_runtime)
      : endpoint(unique_endpoint(tag)),
        procedures(target),
        runtime(std::make_unique<ProbedRuntime>(make_runtime(clock))) {
    EndpointSetup setup{*runtime,    clock, log, procedures, endpoint, std::move(choose_auto),
                        &diagnostics};
    thread_ = std::thread([this, setup] { result = serve(setup); });
    wait_for_listening(*runtime);
    wait_until_answering();
  }
  ~TestServer() { stop(); }
  void stop() {
    if (thread_.joinable()) {
      withdraw(*runtime);
      runtime->stop_listening();
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
  FakeDiagnostics diagnostics;
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
