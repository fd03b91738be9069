// The control interface's cost: one QueryValue round trip through the local socket runtime,
// next to a bare socket ping-pong of the same frame sizes (the floor), and the calls per
// second that 64 concurrent clients get, next to 64 clients of a bare server that gives each
// connection a thread of its own (the floor for many clients). After the run a summary
// prints each figure with its ratio to its floor (medians when repeated).
//
//   build/bin/rpc_roundtrip --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
//       --benchmark_filter='round_trip|ping'
//   taskset -c 0 build/bin/rpc_roundtrip --benchmark_repetitions=5
//       --benchmark_report_aggregates_only=true --benchmark_filter='round_trip|ping'
//   build/bin/rpc_roundtrip --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
//       --benchmark_filter=concurrent --benchmark_enable_random_interleaving=true
//   (each one command line)
//
// The second command is the round trip with every thread on one CPU: no cross-CPU wake-ups,
// so it shows the runtime's own cost most plainly. The 64-client figures move with where the
// scheduler puts the threads, differently from one process to the next: repeat the third
// command a few times (docs/performance.md).
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/control_client.h"
#include "platform/log.h"
#include "platform/posix/abstract_address.h"
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

// A QueryValue's frames: the request (36 bytes with its length) and the reply (20 bytes).
constexpr size_t kRequestBytes = 36;
constexpr size_t kReplyBytes = 20;

// Reads exactly n bytes; false at the end of the stream.
bool recv_all(int fd, uint8_t* p, size_t n) {
  size_t got = 0;
  while (got < n) {
    const ssize_t k = ::recv(fd, p + got, n - got, 0);
    if (k <= 0) return false;
    got += static_cast<size_t>(k);
  }
  return true;
}

// Answers every request-sized frame on `fd` with a reply-sized one until the client goes.
void echo_connection(int fd) {
  uint8_t in[kRequestBytes];
  uint8_t out[kReplyBytes] = {kReplyBytes - 4};
  while (recv_all(fd, in, sizeof in)) {
    if (::send(fd, out, sizeof out, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof out)) break;
  }
  ::close(fd);
}

// The floor for many clients: a bare server that gives each connection a thread of its own,
// for the whole run.
struct BareServer {
  BareServer() : name("ZaltorRpcBenchBareMany-" + std::to_string(::getpid())) {
    sockaddr_un addr{};
    const socklen_t len = platform::abstract_address(name, addr);
    listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, reinterpret_cast<sockaddr*>(&addr), len) != 0 ||
        ::listen(listener, SOMAXCONN) != 0) {
      ::close(listener);
      listener = -1;
      return;
    }
    acceptor = std::thread([this] {
      for (;;) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return;  // the listener was shut at the end of the run
        std::thread(echo_connection, fd).detach();
      }
    });
  }
  ~BareServer() {
    if (listener < 0) return;
    ::shutdown(listener, SHUT_RDWR);
    acceptor.join();
    ::close(listener);
  }
  // A new connection to the server, or -1.
  int connect() const {
    sockaddr_un addr{};
    const socklen_t len = platform::abstract_address(name, addr);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&addr), len) == 0) return fd;
    if (fd >= 0) ::close(fd);
    return -1;
  }
  std::string name;
  int listener = -1;
  std::thread acceptor;
};

BareServer& bare_server() {
  static BareServer s;
  return s;
}

// The floor: a QueryValue-sized request and reply over a bare abstract socket, echoed by a
// plain thread.
void bm_bare_socket_ping_pong(benchmark::State& state) {
  const std::string name = "ZaltorRpcBenchBare-" + std::to_string(::getpid());
  sockaddr_un addr{};
  const socklen_t len = platform::abstract_address(name, addr);
  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (::bind(listener, reinterpret_cast<sockaddr*>(&addr), len) != 0 ||
      ::listen(listener, 1) != 0) {
    state.SkipWithError("bind failed");
    ::close(listener);
    return;
  }
  std::thread echo([listener] { echo_connection(::accept(listener, nullptr, nullptr)); });
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ::connect(fd, reinterpret_cast<sockaddr*>(&addr), len);
  uint8_t req[kRequestBytes] = {kRequestBytes - 4};
  uint8_t rep[kReplyBytes];
  for (auto _ : state) {
    ::send(fd, req, sizeof req, MSG_NOSIGNAL);
    if (!recv_all(fd, rep, sizeof rep)) {
      state.SkipWithError("echo failed");
      break;
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

// The floor for 64 clients: the same frames against the bare thread-per-connection server.
void bm_bare_concurrent_clients(benchmark::State& state) {
  const int fd = bare_server().connect();
  if (fd < 0) {
    state.SkipWithError("no bare server");
    return;
  }
  uint8_t req[kRequestBytes] = {kRequestBytes - 4};
  uint8_t rep[kReplyBytes];
  for (auto _ : state) {
    if (::send(fd, req, sizeof req, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof req) ||
        !recv_all(fd, rep, sizeof rep)) {
      state.SkipWithError("echo failed");
      break;
    }
    benchmark::DoNotOptimize(rep);
  }
  ::close(fd);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(bm_bare_concurrent_clients)->Threads(64)->UseRealTime();

// Prints the runs as the console does and keeps, per benchmark, the time per iteration and
// the items per second (the median when repeated), for the summary.
class SummaryReporter final : public benchmark::ConsoleReporter {
 public:
  struct Figure {
    double ns = 0;
    double per_second = 0;
  };

  // Colours only on a terminal, so that a saved run reads plainly.
  SummaryReporter()
      : ConsoleReporter(::isatty(STDOUT_FILENO) != 0 ? OO_ColorTabular : OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.run_type == Run::RT_Aggregate && !median) continue;
      const std::string name = run.run_name.function_name;
      // A median replaces the single runs; without repetitions the single run stands.
      if (!median && medians_.count(name) != 0) continue;
      if (median) medians_[name] = true;
      Figure f;
      f.ns = run.GetAdjustedRealTime() * to_ns(run.time_unit);
      if (auto it = run.counters.find("items_per_second"); it != run.counters.end()) {
        f.per_second = it->second.value;
      }
      figures_[name] = f;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void print_summary() const {
    const Figure* rpc = find("bm_query_value_round_trip");
    const Figure* bare = find("bm_bare_socket_ping_pong");
    if (rpc != nullptr && bare != nullptr && bare->ns > 0) {
      std::printf("control round trip / bare ping-pong: %.2f / %.2f us = %.2f\n", rpc->ns / 1000,
                  bare->ns / 1000, rpc->ns / bare->ns);
    }
    const Figure* many = find("bm_concurrent_clients");
    const Figure* bare_many = find("bm_bare_concurrent_clients");
    if (many != nullptr) std::printf("64 clients: %.1f k calls/s\n", many->per_second / 1000);
    if (many != nullptr && bare_many != nullptr && bare_many->per_second > 0) {
      std::printf("64 clients / bare thread-per-connection server: %.1f / %.1f k calls/s = %.2f\n",
                  many->per_second / 1000, bare_many->per_second / 1000,
                  many->per_second / bare_many->per_second);
    }
  }

 private:
  static double to_ns(benchmark::TimeUnit unit) {
    switch (unit) {
      case benchmark::kSecond:
        return 1e9;
      case benchmark::kMillisecond:
        return 1e6;
      case benchmark::kMicrosecond:
        return 1e3;
      default:
        return 1;
    }
  }
  const Figure* find(const std::string& name) const {
    auto it = figures_.find(name);
    return it == figures_.end() ? nullptr : &it->second;
  }
  std::map<std::string, Figure> figures_;
  std::map<std::string, bool> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_summary();
  benchmark::Shutdown();
  return 0;
}
