// The socket runtime's threads: the thread that reads a request runs it, yet a call that
// blocks holds up neither the other connections nor the next calls of its own connection,
// and calls beyond the limit wait for a free thread.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "platform/posix/control_wire.h"
#include "rpc/call_gate.h"
#include "rpc/plain_dispatch.h"
#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

using platform::ContextHandleWire;
using std::chrono::seconds;

TEST(RpcSocketThreads, ABlockedCallDoesNotHoldUpOtherConnections) {
  Gate gate;
  TestServer server("threads-other");
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });  // SetUserMode passes the gate
  auto blocked = server.connect(30000);
  auto other = server.connect();
  ASSERT_TRUE(blocked && other);
  ContextHandleWire blocked_ctx, other_ctx;
  ASSERT_EQ(blocked->open_context(blocked_ctx), 0u);
  ASSERT_EQ(other->open_context(other_ctx), 0u);
  std::atomic<uint32_t> set_result{0xFFFFFFFF};
  std::thread caller([&] {
    int32_t status = -1;
    set_result = blocked->set_value(blocked_ctx, kSetUserMode, 1, status);
  });
  ASSERT_TRUE(gate.wait_inside(1));
  // The other connection is served while the first call is held.
  for (int i = 0; i < 20; ++i) {
    int32_t status = -1, value = 0;
    ASSERT_EQ(other->query_value(other_ctx, kGetModeCount, status, value), 0u);
    EXPECT_EQ(value, 4);
  }
  EXPECT_EQ(gate.inside(), 1);
  gate.open();
  caller.join();
  EXPECT_EQ(set_result.load(), 0u);
}

TEST(RpcSocketThreads, ABlockedCallDoesNotHoldUpTheNextCallOfItsConnection) {
  Gate gate;
  TestServer server("threads-same");
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });
  RawConnection raw(server.endpoint);
  ASSERT_TRUE(raw.connected());
  ASSERT_TRUE(raw.send(raw_frame(1, 0, {})));
  auto opened = raw.read_reply();
  ASSERT_TRUE(opened);
  ASSERT_EQ(opened->fault, 0u);
  std::vector<uint32_t> set = handle_words(*opened);
  set.push_back(kSetUserMode);
  set.push_back(1);
  ASSERT_TRUE(raw.send(raw_frame(2, 4, set)));
  ASSERT_TRUE(gate.wait_inside(1));
  std::vector<uint32_t> query = handle_words(*opened);
  query.push_back(kGetModeCount);
  ASSERT_TRUE(raw.send(raw_frame(3, 2, query)));
  auto first = raw.read_reply();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->call_id, 3u);  // the query overtakes the held call
  EXPECT_EQ(first->fault, 0u);
  gate.open();
  auto second = raw.read_reply();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->call_id, 2u);
  EXPECT_EQ(second->fault, 0u);
}

TEST(RpcSocketThreads, RequestsReadTogetherRunOnSeparateThreads) {
  Gate gate;
  TestServer server("threads-batch");
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });
  RawConnection raw(server.endpoint);
  ASSERT_TRUE(raw.connected());
  ASSERT_TRUE(raw.send(raw_frame(1, 0, {})));
  auto opened = raw.read_reply();
  ASSERT_TRUE(opened);
  constexpr uint32_t kBatch = 8;
  std::vector<uint8_t> batch;
  for (uint32_t id = 10; id < 10 + kBatch; ++id) {
    std::vector<uint32_t> words = handle_words(*opened);
    words.push_back(kSetUserMode);
    words.push_back(1);
    const auto f = raw_frame(id, 4, words);
    batch.insert(batch.end(), f.begin(), f.end());
  }
  ASSERT_TRUE(raw.send(batch));  // one write: the server reads them together
  // Every call of the batch is inside at the same moment.
  ASSERT_TRUE(gate.wait_inside(static_cast<int>(kBatch)));
  gate.open();
  for (uint32_t i = 0; i < kBatch; ++i) {
    auto r = raw.read_reply();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->fault, 0u);
  }
  EXPECT_EQ(gate.most(), static_cast<int>(kBatch));
}

// A connection's calls are read and run by its own reader thread, which waits in the socket
// itself: no call is handed to another thread, and two connections never share one.
TEST(RpcSocketThreads, EachConnectionsCallsRunOnItsOwnReaderThread) {
  // Declared before the server, so that they outlive its threads.
  std::mutex m;
  std::map<std::thread::id, int> calls_per_thread;
  TestServer server("threads-reader");
  server.target.set_on_call([&] {
    std::lock_guard<std::mutex> g(m);
    ++calls_per_thread[std::this_thread::get_id()];
  });
  auto first = server.connect();
  auto second = server.connect();
  ASSERT_TRUE(first && second);
  ContextHandleWire first_ctx, second_ctx;
  ASSERT_EQ(first->open_context(first_ctx), 0u);
  ASSERT_EQ(second->open_context(second_ctx), 0u);
  constexpr int kCalls = 50;
  for (int i = 0; i < kCalls; ++i) {
    for (auto* c : {&first, &second}) {
      int32_t status = -1, position = -1;
      const ContextHandleWire& ctx = c == &first ? first_ctx : second_ctx;
      ASSERT_EQ((*c)->query_indexed_value(ctx, kGetSwitchPosition, 0, status, position), 0u);
    }
  }
  std::lock_guard<std::mutex> g(m);
  ASSERT_EQ(calls_per_thread.size(), 2u);
  for (const auto& [id, calls] : calls_per_thread) EXPECT_EQ(calls, kCalls);
}

// Procedures that hold every query at the gate.
class GatedDispatch final : public PlainDispatch {
 public:
  explicit GatedDispatch(Gate& gate) : gate_(gate) {}
  void query_value(platform::ContextObject, int32_t, int32_t& status, int32_t& value) override {
    gate_.pass();
    status = 0;
    value = 7;
  }

 private:
  Gate& gate_;
};

TEST(RpcSocketThreads, CallsBeyondTheLimitWaitForAFreeThread) {
  TestClock clock;
  Gate gate;
  GatedDispatch dispatch(gate);
  const std::string endpoint = unique_endpoint("threads-limit");
  platform::SocketRuntimeLimits limits;
  limits.max_calls = 2;
  auto runtime = platform::make_socket_rpc_runtime(clock, limits);
  ASSERT_TRUE(runtime->open_endpoint(endpoint).ok());
  ASSERT_TRUE(runtime->serve_control(dispatch).ok());
  constexpr int kClientCount = 4;
  std::vector<std::unique_ptr<platform::ControlClient>> clients;
  std::vector<ContextHandleWire> contexts(kClientCount);
  for (int i = 0; i < kClientCount; ++i) {
    uint32_t error = 0;
    clients.push_back(platform::connect_control_client(endpoint, 30000, error));
    ASSERT_TRUE(clients.back()) << error;
    ASSERT_EQ(clients.back()->open_context(contexts[static_cast<size_t>(i)]), 0u);
  }
  std::atomic<int> answered{0};
  std::vector<std::thread> callers;
  for (int i = 0; i < kClientCount; ++i) {
    callers.emplace_back([&, i] {
      int32_t status = -1, value = 0;
      if (clients[static_cast<size_t>(i)]->query_value(contexts[static_cast<size_t>(i)], 1, status,
                                                       value) == 0 &&
          value == 7) {
        ++answered;
      }
    });
  }
  ASSERT_TRUE(gate.wait_inside(2));
  // The other two calls have arrived by now; give them a moment to (wrongly) start.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(gate.inside(), 2);
  gate.open();
  for (auto& t : callers) t.join();
  EXPECT_EQ(answered.load(), kClientCount);
  EXPECT_EQ(gate.most(), 2);
  EXPECT_EQ(runtime->stop_listening(), 0u);
}

}  // namespace
}  // namespace zaltor::rpc::test
