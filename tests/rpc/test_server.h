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
#include "rpc/probed_runtime.h"
#include "rpc/rpc_fakes.h"

namespace zaltor::rpc::test {

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
        runtime(std::make_unique<ProbedRuntime>(platform::make_socket_rpc_runtime(clock))) {
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
