// The diagnostics interface on the local socket runtime: after its withdrawal, and with the
// largest text a caller may ask for.
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

// A text as large as the room a caller may ask for is more than the socket takes at once:
// the rest waits for the client, which reads it, and the connection is kept.
TEST(DiagnosticsInterface, TheLargestTextReachesAClientThatReads) {
  TestServer server("diag-largest");
  server.diagnostics.decision.assign(platform::kMaxDiagnosticsBytes, 'x');
  auto client = server.connect();
  ASSERT_NE(client, nullptr);
  int32_t status = -1, length = -1;
  std::string text;
  ASSERT_EQ(client->read_diagnostics(platform::kReadLastDecision, 0, platform::kMaxDiagnosticsBytes,
                                     status, length, text),
            0u);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(length, platform::kMaxDiagnosticsBytes);
  EXPECT_EQ(text.size(), static_cast<size_t>(platform::kMaxDiagnosticsBytes));
  // And again, on the same connection.
  ASSERT_EQ(client->read_diagnostics(platform::kReadLastDecision, 0, platform::kMaxDiagnosticsBytes,
                                     status, length, text),
            0u);
  EXPECT_EQ(text.size(), static_cast<size_t>(platform::kMaxDiagnosticsBytes));
}

}  // namespace
}  // namespace zaltor::rpc::test
