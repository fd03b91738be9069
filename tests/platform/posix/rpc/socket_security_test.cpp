// Who may call the Linux runtime: the abstract local socket admits every local process, the
// companion app's among them, so admitting builds nothing and refuses no name. The steps'
// failures name the call they stand for, as on Windows.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>

#include <string>

#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

TEST(RpcSocketAccess, EveryLocalCallerIsAdmittedWhateverThePackageName) {
  TestClock clock;
  auto rt = platform::make_socket_rpc_runtime(clock);
  EXPECT_TRUE(rt->admit_everyone_and(kCompanionPackageFamily).ok());
  EXPECT_TRUE(rt->admit_everyone_and("").ok());
  FakeTarget target;
  ControlProcedures procedures(target);
  const std::string endpoint = unique_endpoint("admit");
  ASSERT_TRUE(rt->open_endpoint(endpoint).ok());
  ASSERT_TRUE(rt->serve_control(procedures).ok());
  uint32_t error = 0;
  auto c = platform::connect_control_client(endpoint, 5000, error);
  ASSERT_TRUE(c);
  platform::ContextHandleWire ctx;
  EXPECT_EQ(c->open_context(ctx), 0u);
  EXPECT_EQ(c->close_context(ctx), 0u);
  EXPECT_EQ(rt->stop_listening(), 0u);
}

TEST(RpcSocketAccess, FailedStepsNameTheCallTheyStandFor) {
  TestClock clock;
  auto rt = platform::make_socket_rpc_runtime(clock);
  platform::RpcStep st = rt->open_endpoint("");
  EXPECT_EQ(st.status, 1706u);  // RPC_S_INVALID_ENDPOINT_FORMAT
  EXPECT_STREQ(st.failed_call, "RpcServerUseProtseqEpW");
  st = rt->publish_control();
  EXPECT_EQ(st.status, platform::kRpcNoBindings);
  EXPECT_STREQ(st.failed_call, "RpcServerInqBindings");
  st = rt->listen();
  EXPECT_EQ(st.status, 1714u);  // RPC_S_NO_PROTSEQS_REGISTERED
  EXPECT_STREQ(st.failed_call, "RpcServerListen");
  const std::string endpoint = unique_endpoint("named");
  ASSERT_TRUE(rt->open_endpoint(endpoint).ok());
  auto other = platform::make_socket_rpc_runtime(clock);
  st = other->open_endpoint(endpoint);
  EXPECT_EQ(st.status, platform::kRpcDuplicateEndpoint);
  EXPECT_STREQ(st.failed_call, "RpcServerUseProtseqEpW");
}

}  // namespace
}  // namespace zaltor::rpc::test
