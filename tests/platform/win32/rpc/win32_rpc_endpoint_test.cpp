// The endpoint set-up of src/rpc/control_endpoint.* on the Windows RPC runtime: admission,
// the endpoint, the registration, the endpoint map, listening and the withdrawal.

#include <gtest/gtest.h>

#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

TEST(Win32RpcEndpoint, SetUpServesCallsAndWithdrawalEndsListening) {
  TestServer server("setup");
  EXPECT_EQ(server.log.lines(),
            (std::vector<std::string>{"4:Initializing RPC endpoints.\n", "4:RPC Endpoints ok.\n"}));
  EXPECT_TRUE(server.clock.sleeps().empty());  // the endpoint opened at the first attempt
  EXPECT_TRUE(server.runtime->published());
  auto c = server.connect();
  platform::ContextHandleWire ctx;
  ASSERT_EQ(c->open_context(ctx), 0u);
  int32_t status = 0, value = 0;
  EXPECT_EQ(c->query_value(ctx, kGetModeCount, status, value), 0u);
  EXPECT_EQ(value, 4);
  EXPECT_EQ(c->close_context(ctx), 0u);
  server.stop();
  EXPECT_EQ(server.result.load(), 0u);  // listening ended normally
  EXPECT_FALSE(server.runtime->published());
  // Withdrawn: the interface is no longer there.
  ASSERT_NE(c->open_context(ctx), 0u);
}

TEST(Win32RpcEndpoint, SecondSetUpOnTheSameEndpointName) {
  TestServer server("twice");
  // The same endpoint opened again: Windows refuses a name that is already held
  // (RPC_S_DUPLICATE_ENDPOINT), and the set-up then retries every 5000 ms; Wine's runtime
  // never reports a duplicate and answers 0.
  TestClock clock;
  auto second = platform::win32::make_win32_rpc_runtime(
      clock, &platform::win32::derive_capability_sids_by_hash);
  const platform::RpcStep again = second->open_endpoint(server.endpoint);
  EXPECT_TRUE(again.status == 0u || again.status == platform::kRpcDuplicateEndpoint)
      << again.status;
  if (!again.ok()) {
    EXPECT_STREQ(again.failed_call, "RpcServerUseProtseqEpW");
  }
  // Either way the first server keeps serving on it.
  auto c = server.connect();
  platform::ContextHandleWire ctx;
  EXPECT_EQ(c->open_context(ctx), 0u);
}

}  // namespace
}  // namespace zaltor::rpc::test
