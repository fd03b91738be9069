// The control interface's cost: one QueryValue round trip through the local socket runtime,
// next to a bare socket ping-pong of the same frame sizes (the floor), and the calls per
// second that 64 concurrent clients get.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "platform/clock.h"
#include "platform/control_client.h"
#include "platform/log.h"
#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/control_endpoint.h"
#include "rpc/control_interface.h"
#include "rpc/control_procedures.h"

namespace {

using namespace zaltor;

// A target with fixed answers: the benchmark measures the interface, not the device.
class FixedTarget final : public rpc::ControlTarget {
 public:
  bool initialised() override { return true; }
  uint32_t user_mode() override { return 0; }
  int32_t switchCount() override { return 2; }
  int32_t mode_count() override { return 4; }
  bool rssi_pa_requested() override { return false; }
  uint32_t auto_state() override { return 1; }
  Status GetSwitchNumber(int32_t& c) override {
    c = 2;
    return 0;
  }
  rpc::AverageRssi GetAverageRssi() override { return {0, -60, false}; }
  Status GetCurrentMode(int32_t& m) override {
    m = 1;
    return 0;
  }
  Status GetSwitchPosition(int32_t, int32_t& p) override {
    p = 0;
    return 0;
  }
  Status GetControlBit(int32_t, int32_t& l, int32_t) override {
    l = 0;
    return 0;
  }
  Status SetUserMode(int32_t) override { return 0; }
  Status SetSwitchPosition(int32_t, int32_t) override { return 0; }
  Status SetControlBit(int32_t, int32_t, int32_t) override { return 0; }
  Status GetRssiAllPorts(int32_t*, size_t) override { return 0; }
  Status GetRssiCurrentMode(int32_t*, size_t) override { return 0; }
};

// One server for the whole run, serving on its own thread.
struct Server {
  Server() : endpoint("ZaltorRpcBench-" + std::to_string(::getpid())) {
    runtime = platform::make_socket_rpc_runtime(*clock);
    rpc::EndpointSetup setup{*runtime, *clock, log, procedures, endpoint, {}};
    thread = std::thread([this, setup] { rpc::serve(setup); });
    for (int i = 0; i < 5000; ++i) {
      uint32_t err = 0;
      if (auto c = platform::connect_control_client(endpoint, 1000, err)) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  ~Server() {
    rpc::withdraw(*runtime);
    runtime->stop_listening();
    thread.join();
  }
  std::string endpoint;
  std::unique_ptr<platform::Clock> clock = platform::make_real_clock();
  NullLog log;
  FixedTarget target;
  rpc::ControlProcedures procedures{target};
  std::unique_ptr<platform::RpcRuntime> runtime;
  std::thread thread;
};

Server& server() {
  static Server s;
  return s;
}

void bm_query_value_round_trip(benchmark::State& state) {
  uint32_t err = 0;
  auto client = platform::connect_control_client(server().endpoint, 5000, err);
  platform::ContextHandleWire ctx;
  if (!client || client->open_context(ctx) != 0) {
    state.SkipWithError("no server");
    return;
  }
  for (auto _ : state) {
    int32_t status = 0, value = 0;
    if (client->query_value(ctx, rpc::kGetModeCount, status, value) != 0 || value != 4) {
      state.SkipWithError("call failed");
      break;
    }
    benchmark::DoNotOptimize(value);
  }
  client->close_context(ctx);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(bm_query_value_round_trip)->UseRealTime();

// The floor: a QueryValue-sized request (36 bytes with its length) and reply (20 bytes)
// over a bare abstract socket, echoed by a plain thread.
void bm_bare_socket_ping_pong(benchmark::State& state) {
  const std::string name = "ZaltorRpcBenchBare-" + std::to_string(::getpid());
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path + 1, name.data(), name.size());
  const auto len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (::bind(listener, reinterpret_cast<sockaddr*>(&addr), len) != 0 ||
      ::listen(listener, 1) != 0) {
    state.SkipWithError("bind failed");
    ::close(listener);
    return;
  }
  std::thread echo([listener] {
    const int fd = ::accept(listener, nullptr, nullptr);
    uint8_t in[36];
    uint8_t out[20] = {16};
    for (;;) {
      size_t got = 0;
      while (got < sizeof in) {
        const ssize_t n = ::recv(fd, in + got, sizeof in - got, 0);
        if (n <= 0) {
          ::close(fd);
          return;
        }
        got += static_cast<size_t>(n);
      }
      ::send(fd, out, sizeof out, MSG_NOSIGNAL);
    }
  });
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ::connect(fd, reinterpret_cast<sockaddr*>(&addr), len);
  uint8_t req[36] = {32};
  uint8_t rep[20];
  for (auto _ : state) {
    ::send(fd, req, sizeof req, MSG_NOSIGNAL);
    size_t got = 0;
    while (got < sizeof rep) {
      const ssize_t n = ::recv(fd, rep + got, sizeof rep - got, 0);
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    benchmark::DoNotOptimize(rep);
  }
  ::close(fd);
  echo.join();
  ::close(listener);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(bm_bare_socket_ping_pong)->UseRealTime();

// 64 clients at once, each on its own connection and context.
void bm_concurrent_clients(benchmark::State& state) {
  uint32_t err = 0;
  auto client = platform::connect_control_client(server().endpoint, 10000, err);
  platform::ContextHandleWire ctx;
  if (!client || client->open_context(ctx) != 0) {
    state.SkipWithError("no server");
    return;
  }
  for (auto _ : state) {
    int32_t status = 0, value = 0;
    if (client->query_value(ctx, rpc::kGetSwitchCount, status, value) != 0) {
      state.SkipWithError("call failed");
      break;
    }
  }
  client->close_context(ctx);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(bm_concurrent_clients)->Threads(64)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
