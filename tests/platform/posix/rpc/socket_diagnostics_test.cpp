// The diagnostics interface on the local socket runtime after its withdrawal.
#include <gtest/gtest.h>

#include <string>

#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

TEST(DiagnosticsInterface, AfterWithdrawalCallsAreRefusedAsUnknownInterface) {
  TestServer server("diag-withdrawn");
  auto client = server.connect();
  ASSERT_NE(client, nullptr);
  withdraw(*server.runtime);
  int32_t status = -1, length = -1;
  std::string text;
  EXPECT_EQ(client->read_diagnostics(platform::kReadHealth, 0, 100, status, length, text),
            platform::kRpcUnknownIf);
}

}  // namespace
}  // namespace zaltor::rpc::test
