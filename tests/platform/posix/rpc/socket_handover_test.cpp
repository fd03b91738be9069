// A connection handed to a new reader while its old reader is held in a call: the client
// leaves, the runtime stops, and the held calls still end before the stop returns; the
// replies written by two readers arrive whole.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/posix/control_wire.h"
#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/call_gate.h"
#include "rpc/plain_dispatch.h"
#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

using std::chrono::milliseconds;

// Procedures whose SetValue waits at the gate; every call counts itself out when it ends.
class HeldDispatch final : public PlainDispatch {
 public:
  explicit HeldDispatch(Gate& gate) : gate_(gate) {}
  void rundown(platform::ContextObject) override { ++rundowns; }
  void query_value(platform::ContextObject, int32_t command, int32_t& status,
                   int32_t& value) override {
    status = 0;
    value = command;
  }
  void set_value(platform::ContextObject, int32_t, int32_t& status, int32_t) override {
    gate_.pass();
    status = 0;
    ++ended;
  }
  std::atomic<int> ended{0};
  std::atomic<int> rundowns{0};

 private:
  Gate& gate_;
};

TEST(RpcSocketHandover, StopWaitsForCallsHeldOnReadersThatWereReplaced) {
  for (int round = 0; round < 5; ++round) {
    TestClock clock;
    Gate gate;
    HeldDispatch dispatch(gate);
    const std::string endpoint = unique_endpoint("handover-stop");
    auto runtime = platform::make_socket_rpc_runtime(clock);
    ASSERT_TRUE(runtime->open_endpoint(endpoint).ok());
    ASSERT_TRUE(runtime->serve_control(dispatch).ok());
    {
      RawConnection raw(endpoint);
      ASSERT_TRUE(raw.connected());
      std::vector<uint32_t> set = open_raw_context(raw, 1);
      ASSERT_EQ(set.size(), 5u);
      set.push_back(1);
      set.push_back(1);
      // Each held call is sent alone, so that its connection's reader runs it and the next
      // one needs a new reader.
      constexpr int kHeld = 3;
      for (int i = 0; i < kHeld; ++i) {
        ASSERT_TRUE(raw.send(raw_frame(static_cast<uint32_t>(10 + i), 4, set)));
        ASSERT_TRUE(gate.wait_inside(i + 1));
      }
      // The client leaves while every reader it had is held.
    }
    std::atomic<bool> stopped{false};
    std::atomic<int> ended_at_stop{-1};
    std::thread stopper([&] {
      runtime->stop_listening();
      ended_at_stop = dispatch.ended.load();
      stopped = true;
    });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_FALSE(stopped.load()) << "round " << round;
    gate.open();
    stopper.join();
    EXPECT_EQ(ended_at_stop.load(), 3) << "round " << round;
    EXPECT_EQ(dispatch.rundowns.load(), 1) << "round " << round;
  }
}

// Two readers of one connection write at once: every reply arrives whole, with its call id.
TEST(RpcSocketHandover, RepliesOfTwoReadersOfOneConnectionArriveWhole) {
  TestClock clock;
  Gate gate;
  HeldDispatch dispatch(gate);
  const std::string endpoint = unique_endpoint("handover-replies");
  auto runtime = platform::make_socket_rpc_runtime(clock);
  ASSERT_TRUE(runtime->open_endpoint(endpoint).ok());
  ASSERT_TRUE(runtime->serve_control(dispatch).ok());
  RawConnection raw(endpoint);
  ASSERT_TRUE(raw.connected());
  const std::vector<uint32_t> handle = open_raw_context(raw, 1);
  ASSERT_EQ(handle.size(), 5u);
  std::vector<uint32_t> set = handle;
  set.push_back(1);
  set.push_back(1);
  ASSERT_TRUE(raw.send(raw_frame(2, 4, set)));
  ASSERT_TRUE(gate.wait_inside(1));
  // The held call's reader is replaced; the new one answers windows of queries (fewer than
  // a connection may have pending) while the held call's reply is written beside them.
  constexpr uint32_t kWindows = 64;
  constexpr uint32_t kWindow = 32;
  std::vector<uint32_t> query = handle;
  query.push_back(0);
  bool held_answered = false;
  for (uint32_t w = 0; w < kWindows; ++w) {
    std::vector<uint8_t> bytes;
    for (uint32_t i = 0; i < kWindow; ++i) {
      const uint32_t id = 100 + w * kWindow + i;
      query.back() = id;
      const auto f = raw_frame(id, 2, query);
      bytes.insert(bytes.end(), f.begin(), f.end());
    }
    ASSERT_TRUE(raw.send(bytes));
    if (w == kWindows / 2) gate.open();
    for (uint32_t answered = 0; answered < kWindow;) {
      auto r = raw.read_reply();
      ASSERT_TRUE(r) << w << " " << answered;
      ASSERT_EQ(r->fault, 0u) << r->call_id;
      if (r->call_id == 2) {
        ASSERT_EQ(r->out.size(), 4u);
        held_answered = true;
        continue;
      }
      ASSERT_GE(r->call_id, 100 + w * kWindow);
      ASSERT_LT(r->call_id, 100 + (w + 1) * kWindow);
      ASSERT_EQ(r->out.size(), 8u);
      EXPECT_EQ(platform::wire::load_u32(&r->out[4]), r->call_id);  // its own value
      ++answered;
    }
  }
  if (!held_answered) {
    auto r = raw.read_reply();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->call_id, 2u);
    EXPECT_EQ(r->fault, 0u);
  }
  EXPECT_EQ(runtime->stop_listening(), 0u);
}

}  // namespace
}  // namespace zaltor::rpc::test
