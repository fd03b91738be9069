// A reader thread is kept for the next connection once its own ends: nothing of the old
// connection may reach the new one, however the old one ended.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/plain_dispatch.h"
#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

// Procedures that count the contexts opened.
class CountingDispatch final : public PlainDispatch {
 public:
  platform::ContextObject open_context() override {
    ++opened;
    return this;
  }
  void query_value(platform::ContextObject, int32_t, int32_t& status, int32_t& value) override {
    status = 0;
    value = 7;
  }
  std::atomic<int> opened{0};
};

// A connection whose stream breaks after complete requests in the same read is hung up
// with those requests unrun; they must not be run later on the next connection its reader
// thread serves (where a stray reply with call id 0 would end that client's stream).
TEST(RpcSocketReaderReuse, RequestsBeforeABrokenFrameDoNotReachTheNextConnection) {
  TestClock clock;
  CountingDispatch dispatch;
  const std::string endpoint = unique_endpoint("reader-reuse");
  // No set-up probe: the first connection's reader is the runtime's only worker, and it
  // serves the next connection too.
  auto runtime = platform::make_socket_rpc_runtime(clock);
  ASSERT_TRUE(runtime->open_endpoint(endpoint).ok());
  ASSERT_TRUE(runtime->serve_control(dispatch).ok());
  for (int round = 0; round < 3; ++round) {
    {
      RawConnection broken(endpoint);
      ASSERT_TRUE(broken.connected());
      // One write: an open with call id 0 and an unknown procedure, then a length that
      // cannot be followed.
      std::vector<uint8_t> bytes = raw_frame(0, 0, {});
      const std::vector<uint8_t> unknown = raw_frame(0, 99, {});
      bytes.insert(bytes.end(), unknown.begin(), unknown.end());
      bytes.insert(bytes.end(), {2, 0, 0, 0});
      ASSERT_TRUE(broken.send(bytes));
      auto refusal = broken.read_reply();
      ASSERT_TRUE(refusal);
      EXPECT_EQ(refusal->call_id, 0u);
      EXPECT_EQ(refusal->fault, platform::kRpcProtocolError);
      EXPECT_TRUE(broken.closed_by_server());
    }
    // Let the reader go back to wait for the next connection.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const int opened_before = dispatch.opened.load();
    RawConnection next(endpoint);
    ASSERT_TRUE(next.connected());
    ASSERT_TRUE(next.send(raw_frame(5, 0, {})));
    auto reply = next.read_reply();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->call_id, 5u) << "round " << round;
    EXPECT_EQ(reply->fault, 0u) << "round " << round;
    // Nothing else arrives, and only this connection's open ran.
    EXPECT_FALSE(next.read_reply(200)) << "round " << round;
    EXPECT_EQ(dispatch.opened.load(), opened_before + 1) << "round " << round;
  }
  EXPECT_EQ(runtime->stop_listening(), 0u);
}

}  // namespace
}  // namespace zaltor::rpc::test
