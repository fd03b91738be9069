// The socket runtime under abuse: too many connections, a process out of descriptors, a
// client that never reads, too many contexts, no thread to be had, a client that leaves in
// the middle of a call, and calls that overlap on one context.
// The local socket runtime is the Linux one.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/posix/abstract_address.h"
#include "platform/posix/control_wire.h"
#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/call_gate.h"
#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

using platform::ContextHandleWire;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

RuntimeFactory socket_runtime_with(platform::SocketRuntimeLimits limits) {
  return
      [limits](platform::Clock& clock) { return platform::make_socket_rpc_runtime(clock, limits); };
}

// A client that is served within `limit` (retried while the server still counts connections
// that just closed).
bool served_within(TestServer& server, milliseconds limit) {
  const auto until = SteadyClock::now() + limit;
  while (SteadyClock::now() < until) {
    if (auto c = server.connect(1000)) {
      ContextHandleWire ctx;
      if (c->open_context(ctx) == 0) return c->close_context(ctx) == 0;
    }
    std::this_thread::sleep_for(milliseconds(5));
  }
  return false;
}

double process_cpu_seconds() {
  timespec t{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

int open_descriptors() {
  int n = 0;
  if (DIR* d = ::opendir("/proc/self/fd")) {
    while (::readdir(d) != nullptr) ++n;
    ::closedir(d);
    n -= 3;  // ".", ".." and the directory's own descriptor
  }
  return n;
}

// Lowers the process's descriptor limit for one test and restores it.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t soft) {
    ::getrlimit(RLIMIT_NOFILE, &saved_);
    rlimit lowered = saved_;
    lowered.rlim_cur = soft;
    ok_ = ::setrlimit(RLIMIT_NOFILE, &lowered) == 0;
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &saved_); }
  bool ok() const { return ok_; }

 private:
  rlimit saved_{};
  bool ok_ = false;
};

TEST(RpcSocketLimits, ConnectionsPastTheBoundAreRefusedAtOnceAndServedOnceOthersClose) {
  platform::SocketRuntimeLimits limits;
  limits.max_connections = 4;
  TestServer server("limits-conns", {}, socket_runtime_with(limits));
  std::vector<std::unique_ptr<RawConnection>> held;
  for (int i = 0; i < 4; ++i) {
    // The set-up's own probe connection may not have been counted out yet: retry.
    std::vector<uint32_t> ctx;
    for (int tries = 0; tries < 400 && ctx.empty(); ++tries) {
      auto raw = std::make_unique<RawConnection>(server.endpoint);
      ctx = open_raw_context(*raw, 1);
      if (!ctx.empty()) held.push_back(std::move(raw));
      if (ctx.empty()) std::this_thread::sleep_for(milliseconds(5));
    }
    ASSERT_FALSE(ctx.empty()) << i;
  }
  // The fifth is refused without sending anything: the refusal waits for it, then the end.
  RawConnection excess(server.endpoint);
  ASSERT_TRUE(excess.connected());
  auto refusal = excess.read_reply(2000);
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->call_id, 0u);
  EXPECT_EQ(refusal->fault, platform::kRpcServerTooBusy);
  EXPECT_TRUE(excess.closed_by_server(2000));
  // The client reports the refusal as the call's fault.
  auto client = server.connect(2000);
  ASSERT_TRUE(client);
  ContextHandleWire ctx;
  EXPECT_EQ(client->open_context(ctx), platform::kRpcServerTooBusy);
  // One of the four goes: a new client is served again.
  held.pop_back();
  EXPECT_TRUE(served_within(server, milliseconds(3000)));
}

// A connection whose client left while its calls still run (or wait) keeps its descriptor:
// it counts against the bound until they are done.
TEST(RpcSocketLimits, ConnectionsThatEndedWithCallsInProgressStillCount) {
  platform::SocketRuntimeLimits limits;
  limits.max_connections = 2;
  Gate gate;
  TestServer server("limits-ended", {}, socket_runtime_with(limits));
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });
  {
    RawConnection leaving(server.endpoint);
    std::vector<uint32_t> set = open_raw_context(leaving, 1);
    ASSERT_FALSE(set.empty());
    set.push_back(kSetUserMode);
    set.push_back(1);
    for (uint32_t id = 2; id < 10; ++id) ASSERT_TRUE(leaving.send(raw_frame(id, 4, set)));
    ASSERT_TRUE(gate.wait_inside(8));
  }
  std::this_thread::sleep_for(milliseconds(50));  // the server sees it go
  RawConnection second(server.endpoint);
  EXPECT_FALSE(open_raw_context(second, 1).empty());
  RawConnection third(server.endpoint);
  auto refusal = third.read_reply(2000);
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->fault, platform::kRpcServerTooBusy);
  // Once its calls are done the connection is gone for good, and its room is free.
  gate.open();
  EXPECT_TRUE(served_within(server, milliseconds(3000)));
}

TEST(RpcSocketLimits, OutOfDescriptorsTheListenerNeitherSpinsNorStopsServing) {
  TestServer server("limits-fds");
  auto first = server.connect();
  ASSERT_TRUE(first);
  ContextHandleWire first_ctx;
  ASSERT_EQ(first->open_context(first_ctx), 0u);

  std::vector<int> filler;
  std::unique_ptr<RawConnection> last;
  {
    DescriptorLimit limit(static_cast<rlim_t>(open_descriptors() + 32));
    ASSERT_TRUE(limit.ok());
    // Take every descriptor left (also those the server frees a moment later, when it
    // has finished with the set-up's probe connection), then give one back for a client
    // whose connection the server then has no descriptor to accept.
    for (int round = 0; round < 3; ++round) {
      for (;;) {
        const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (fd < 0) break;
        filler.push_back(fd);
      }
      std::this_thread::sleep_for(milliseconds(50));
    }
    ASSERT_FALSE(filler.empty());
    ::close(filler.back());
    filler.pop_back();
    last = std::make_unique<RawConnection>(server.endpoint);
    ASSERT_TRUE(last->connected());

    // Flooded for a second: the server's threads stay (nearly) idle.
    const double cpu_before = process_cpu_seconds();
    std::this_thread::sleep_for(milliseconds(1000));
    const double cpu = process_cpu_seconds() - cpu_before;
    EXPECT_LT(cpu, 0.3) << "seconds of CPU time while out of descriptors";

    // The waiting connection was refused, not left hanging.
    auto refusal = last->read_reply(2000);
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->call_id, 0u);
    EXPECT_EQ(refusal->fault, platform::kRpcServerTooBusy);
    EXPECT_TRUE(last->closed_by_server(2000));
    // A connection that was already open is still served.
    int32_t status = -1, value = 0;
    EXPECT_EQ(first->query_value(first_ctx, kGetModeCount, status, value), 0u);
    EXPECT_EQ(value, 4);
  }
  last.reset();
  for (int fd : filler) ::close(fd);
  // Descriptors are back: new clients are served.
  EXPECT_TRUE(served_within(server, milliseconds(3000)));
}

// Not even a spare descriptor: the listener rests (re-tried on a short timer) instead of
// spinning, and takes the waiting connection once a descriptor is free again.
TEST(RpcSocketLimits, WithNoDescriptorEvenToRefuseTheListenerRestsAndLaterServes) {
  TestClock clock;
  FakeTarget target;
  ControlProcedures procedures(target);
  const std::string endpoint = unique_endpoint("limits-rest");
  auto runtime = platform::make_socket_rpc_runtime(clock);
  ASSERT_TRUE(runtime->open_endpoint(endpoint).ok());
  std::vector<int> filler;
  std::unique_ptr<RawConnection> waiting;
  {
    DescriptorLimit limit(static_cast<rlim_t>(open_descriptors() + 16));
    ASSERT_TRUE(limit.ok());
    for (;;) {
      const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
      if (fd < 0) break;
      filler.push_back(fd);
    }
    // Room for the poll set and its three events, none for the spare.
    for (int i = 0; i < 4; ++i) {
      ::close(filler.back());
      filler.pop_back();
    }
    ASSERT_TRUE(runtime->serve_control(procedures).ok());
    // Room for a client only.
    ::close(filler.back());
    filler.pop_back();
    waiting = std::make_unique<RawConnection>(endpoint);
    ASSERT_TRUE(waiting->connected());
    ASSERT_TRUE(waiting->send(raw_frame(1, 0, {})));

    const double cpu_before = process_cpu_seconds();
    std::this_thread::sleep_for(milliseconds(1000));
    EXPECT_LT(process_cpu_seconds() - cpu_before, 0.3)
        << "seconds of CPU time while out of descriptors";
    EXPECT_FALSE(waiting->read_reply(50));  // not taken: nothing to take it with

    // Two descriptors come free (one for the spare, one for the connection).
    for (int i = 0; i < 2; ++i) {
      ::close(filler.back());
      filler.pop_back();
    }
    auto opened = waiting->read_reply(3000);
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->fault, 0u);
    EXPECT_EQ(procedures.open_contexts(), 1);
  }
  for (int fd : filler) ::close(fd);
  waiting.reset();
  EXPECT_EQ(runtime->stop_listening(), 0u);
}

TEST(RpcSocketLimits, ClientsCannotTakeTheDescriptorsTheServiceNeeds) {
  TestServer server("limits-room");
  // Another process opens many connections and holds them.
  sockaddr_un addr{};
  const socklen_t len = platform::abstract_address(server.endpoint, addr);
  int ready[2], hold[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(hold), 0);
  constexpr int kLeft = 64;  // descriptors left to this process
  DescriptorLimit limit(static_cast<rlim_t>(open_descriptors() + kLeft));
  ASSERT_TRUE(limit.ok());
  const pid_t child = ::fork();
  if (child == 0) {
    // Only async-signal-safe calls here: the parent has threads.
    rlimit lim{};
    ::getrlimit(RLIMIT_NOFILE, &lim);
    lim.rlim_cur = lim.rlim_max < 4096 ? lim.rlim_max : 4096;
    ::setrlimit(RLIMIT_NOFILE, &lim);
    for (int i = 0; i < 3 * kLeft; ++i) {
      const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
      if (fd >= 0) ::connect(fd, reinterpret_cast<sockaddr*>(&addr), len);
    }
    char b = 'x';
    [[maybe_unused]] ssize_t w = ::write(ready[1], &b, 1);
    [[maybe_unused]] ssize_t r = ::read(hold[0], &b, 1);
    ::_exit(0);
  }
  ASSERT_GT(child, 0);
  char b = 0;
  ASSERT_EQ(::read(ready[0], &b, 1), 1);
  std::this_thread::sleep_for(milliseconds(300));  // the server takes what it will take
  // The server has left this process descriptors of its own.
  const int own = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_GE(own, 0) << "the connections took every descriptor";
  if (own >= 0) ::close(own);
  [[maybe_unused]] ssize_t w = ::write(hold[1], &b, 1);
  int status = 0;
  ::waitpid(child, &status, 0);
  for (int fd : {ready[0], ready[1], hold[0], hold[1]}) ::close(fd);
  EXPECT_TRUE(served_within(server, milliseconds(3000)));
}

TEST(RpcSocketLimits, AClientThatNeverReadsItsRefusalsHoldsUpNoOtherClient) {
  Gate gate;
  TestServer server("limits-noread");
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });
  auto other = server.connect(3000);
  ASSERT_TRUE(other);
  ContextHandleWire other_ctx;
  ASSERT_EQ(other->open_context(other_ctx), 0u);

  // The greedy client fills its allowance of calls with calls that wait at the gate...
  RawConnection greedy(server.endpoint);
  const std::vector<uint32_t> ctx = open_raw_context(greedy, 1);
  ASSERT_FALSE(ctx.empty());
  std::vector<uint32_t> set = ctx;
  set.push_back(kSetUserMode);
  set.push_back(1);
  const platform::SocketRuntimeLimits defaults;
  for (int i = 0; i < defaults.max_calls_per_connection; ++i) {
    ASSERT_TRUE(greedy.send(raw_frame(static_cast<uint32_t>(100 + i), 4, set)));
  }
  ASSERT_TRUE(gate.wait_inside(defaults.max_calls_per_connection));
  // ...then sends on without reading: every further call is refused, and the refusals fill
  // its socket.
  std::atomic<int> sent{0};
  std::thread flood([&] {
    std::vector<uint8_t> burst;
    for (int i = 0; i < 64; ++i) {
      const auto f = raw_frame(1000, 4, set);
      burst.insert(burst.end(), f.begin(), f.end());
    }
    for (int i = 0; i < 2000; ++i) {
      if (!greedy.send(burst)) return;  // the server dropped it
      sent.fetch_add(64);
    }
  });
  for (int i = 0; i < 400 && sent.load() < 20000; ++i) std::this_thread::sleep_for(milliseconds(5));
  std::this_thread::sleep_for(milliseconds(100));

  // Another client's calls are answered promptly all the while.
  const auto started = SteadyClock::now();
  for (int i = 0; i < 10; ++i) {
    int32_t status = -1, value = 0;
    EXPECT_EQ(other->query_value(other_ctx, kGetReserved, status, value), 0u) << i;
    EXPECT_EQ(status, 1);
  }
  EXPECT_LT(SteadyClock::now() - started, milliseconds(1000));
  // The greedy client itself is dropped once its unread replies pass the bound.
  flood.join();
  EXPECT_TRUE(greedy.closed_by_server(3000));

  gate.open();
  greedy.close_now();
  EXPECT_TRUE(served_within(server, milliseconds(3000)));
}

TEST(RpcSocketLimits, AConnectionHoldsAtMost64ContextsAndIsToldSo) {
  TestServer server("limits-contexts");
  auto client = server.connect();
  ASSERT_TRUE(client);
  const platform::SocketRuntimeLimits defaults;
  ASSERT_EQ(defaults.max_contexts_per_connection, 64u);
  std::vector<ContextHandleWire> contexts(64);
  for (auto& c : contexts) ASSERT_EQ(client->open_context(c), 0u);
  ContextHandleWire more;
  EXPECT_EQ(client->open_context(more), platform::kRpcOutOfResources);
  EXPECT_TRUE(more.is_null());
  EXPECT_EQ(server.procedures.open_contexts(), 64);  // the refused one never reached them
  // The open ones still work; closing one makes room for another.
  int32_t status = -1, value = 0;
  EXPECT_EQ(client->query_value(contexts[63], kGetModeCount, status, value), 0u);
  EXPECT_EQ(client->close_context(contexts[0]), 0u);
  EXPECT_EQ(client->open_context(more), 0u);
  // Another connection has its own allowance.
  auto other = server.connect();
  ContextHandleWire other_ctx;
  EXPECT_EQ(other->open_context(other_ctx), 0u);
}

TEST(RpcSocketLimits, WithoutAThreadToStartACallIsRefusedAndTheServerLivesOn) {
  TestClock clock;
  std::atomic<int> allowed{1};  // the first (polling) thread only
  std::atomic<int> refused{0};
  platform::SocketRuntimeLimits limits;
  limits.start_thread = [&](std::function<void()> body) {
    if (allowed.fetch_sub(1) <= 0) {
      refused.fetch_add(1);
      throw std::system_error(EAGAIN, std::generic_category(), "no thread");
    }
    return std::thread(std::move(body));
  };
  FakeTarget target;
  ControlProcedures procedures(target);
  const std::string endpoint = unique_endpoint("limits-threads");
  auto runtime = platform::make_socket_rpc_runtime(clock, limits);
  ASSERT_TRUE(runtime->open_endpoint(endpoint).ok());
  ASSERT_TRUE(runtime->serve_control(procedures).ok());
  uint32_t error = 0;
  auto client = platform::connect_control_client(endpoint, 5000, error);
  ASSERT_TRUE(client) << error;
  // The lone thread would have to leave polling to nobody: the call is refused instead.
  ContextHandleWire ctx;
  EXPECT_EQ(client->open_context(ctx), platform::kRpcServerTooBusy);
  EXPECT_GE(refused.load(), 1);
  EXPECT_EQ(procedures.open_contexts(), 0);
  // Threads are to be had again: the server answers.
  allowed = 1000;
  auto next = platform::connect_control_client(endpoint, 5000, error);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->open_context(ctx), 0u);
  EXPECT_EQ(runtime->stop_listening(), 0u);
}

TEST(RpcSocketLimits, WithoutAFirstThreadListeningFailsCleanly) {
  TestClock clock;
  platform::SocketRuntimeLimits limits;
  limits.start_thread = [](std::function<void()>) -> std::thread {
    throw std::system_error(EAGAIN, std::generic_category(), "no thread");
  };
  FakeTarget target;
  ControlProcedures procedures(target);
  auto runtime = platform::make_socket_rpc_runtime(clock, limits);
  ASSERT_TRUE(runtime->open_endpoint(unique_endpoint("limits-nothread")).ok());
  EXPECT_EQ(runtime->serve_control(procedures).status, platform::kRpcOutOfResources);
  EXPECT_EQ(runtime->listen().status, platform::kRpcOutOfResources);
}

TEST(RpcSocketLimits, AClientThatLeavesInTheMiddleOfACallHasItsContextsRunDown) {
  Gate gate;
  TestServer server("limits-leave");
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });
  {
    RawConnection leaving(server.endpoint);
    const std::vector<uint32_t> ctx = open_raw_context(leaving, 1);
    ASSERT_FALSE(ctx.empty());
    ASSERT_FALSE(open_raw_context(leaving, 2).empty());
    EXPECT_EQ(server.procedures.open_contexts(), 2);
    std::vector<uint32_t> set = ctx;
    set.push_back(kSetUserMode);
    set.push_back(2);
    ASSERT_TRUE(leaving.send(raw_frame(3, 4, set)));
    ASSERT_TRUE(gate.wait_inside(1));
  }  // gone while its call is held
  // The contexts stay while the call runs: the call still has its context.
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_EQ(server.procedures.open_contexts(), 2);
  gate.open();
  // The call completes (its reply has nowhere to go) and then both contexts are run down.
  for (int i = 0; i < 1500 && server.procedures.open_contexts() != 0; ++i) {
    std::this_thread::sleep_for(milliseconds(2));
  }
  EXPECT_EQ(server.procedures.open_contexts(), 0);
  EXPECT_EQ(server.target.calls(), (std::vector<std::string>{"SetUserMode(2)"}));
  EXPECT_TRUE(served_within(server, milliseconds(3000)));
}

TEST(RpcSocketLimits, CallsOnOneContextRunAtTheSameTime) {
  Gate gate;
  TestServer server("limits-overlap");
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });
  RawConnection raw(server.endpoint);
  const std::vector<uint32_t> ctx = open_raw_context(raw, 1);
  ASSERT_FALSE(ctx.empty());
  std::vector<uint32_t> set = ctx;
  set.push_back(kSetUserMode);
  set.push_back(1);
  std::vector<uint32_t> position = ctx;
  position.push_back(kSetSwitchPosition);
  position.push_back(0);
  position.push_back(1);
  ASSERT_TRUE(raw.send(raw_frame(2, 4, set)));
  ASSERT_TRUE(gate.wait_inside(1));
  ASSERT_TRUE(raw.send(raw_frame(3, 5, position)));
  // The second call on the same context reaches the target while the first is held there.
  EXPECT_TRUE(gate.wait_inside(2, milliseconds(3000)));
  gate.open();
  for (int i = 0; i < 2; ++i) {
    auto r = raw.read_reply();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->fault, 0u);
  }
  EXPECT_EQ(gate.most(), 2);
}

}  // namespace
}  // namespace zaltor::rpc::test
