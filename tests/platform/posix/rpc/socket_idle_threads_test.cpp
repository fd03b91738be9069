// The socket runtime's threads after a burst of clients: those left with nothing to do end
// after a while, and the runtime serves on.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

using std::chrono::milliseconds;

TEST(RpcSocketIdleThreads, ThreadsLeftIdleByABurstOfClientsEnd) {
  TestClock clock;
  FakeTarget target;
  ControlProcedures procedures(target);
  std::atomic<int> started{0};
  std::atomic<int> ended{0};
  platform::SocketRuntimeLimits limits;
  limits.idle_thread_time = milliseconds(50);
  limits.start_thread = [&](std::function<void()> body) {
    started.fetch_add(1);
    return std::thread([&ended, body = std::move(body)] {
      body();
      ended.fetch_add(1);
    });
  };
  const std::string endpoint = unique_endpoint("idle-threads");
  auto runtime = platform::make_socket_rpc_runtime(clock, limits);
  ASSERT_TRUE(runtime->open_endpoint(endpoint).ok());
  ASSERT_TRUE(runtime->serve_control(procedures).ok());
  constexpr int kClients = 16;
  {
    // Connected together: each has a reader of its own.
    std::vector<std::unique_ptr<RawConnection>> burst;
    for (int i = 0; i < kClients; ++i) {
      burst.push_back(std::make_unique<RawConnection>(endpoint));
      ASSERT_TRUE(burst.back()->connected());
      ASSERT_TRUE(burst.back()->send(raw_frame(1, 0, {})));
    }
    for (auto& raw : burst) {
      auto opened = raw->read_reply();
      ASSERT_TRUE(opened);
      EXPECT_EQ(opened->fault, 0u);
    }
  }
  ASSERT_GE(started.load(), kClients + 1);
  // Every thread but the poll thread ends once it has waited long enough.
  for (int i = 0; i < 500 && ended.load() < started.load() - 1; ++i) {
    std::this_thread::sleep_for(milliseconds(10));
  }
  EXPECT_EQ(ended.load(), started.load() - 1);
  // A new client is served by a new reader.
  RawConnection next(endpoint);
  ASSERT_TRUE(next.send(raw_frame(2, 0, {})));
  auto opened = next.read_reply();
  ASSERT_TRUE(opened);
  EXPECT_EQ(opened->call_id, 2u);
  EXPECT_EQ(opened->fault, 0u);
  EXPECT_EQ(runtime->stop_listening(), 0u);
  EXPECT_EQ(ended.load(), started.load());
}

}  // namespace
}  // namespace zaltor::rpc::test
