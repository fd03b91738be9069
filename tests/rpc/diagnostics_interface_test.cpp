// The diagnostics interface on this platform's real runtime, beside the control interface
// on the same endpoint: texts sized to the caller's room, the room's bound.
#include <gtest/gtest.h>

#include <string>

#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

TEST(DiagnosticsInterface, AnswersBesideTheControlInterfaceOnTheSameEndpoint) {
  TestServer server("diag");
  server.diagnostics.decision = "{\"decision\": {\"chosen\": 3}}";
  auto client = server.connect();
  ASSERT_NE(client, nullptr);
  int32_t status = -1, length = -1;
  std::string text;
  ASSERT_EQ(client->read_diagnostics(platform::kReadLastDecision, 0, 4096, status, length, text),
            0u);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(text, "{\"decision\": {\"chosen\": 3}}");
  EXPECT_EQ(length, static_cast<int32_t>(text.size()));

  ASSERT_EQ(client->read_diagnostics(platform::kReadHistory, 7, 4096, status, length, text), 0u);
  EXPECT_EQ(text, "{\"decisions\": []}");
  EXPECT_EQ(server.diagnostics.last_count.load(), 7);
  ASSERT_EQ(client->read_diagnostics(platform::kReadHealth, 0, 4096, status, length, text), 0u);
  EXPECT_EQ(text, "{\"ports\": []}");

  // The control interface still answers on the same connection's endpoint.
  platform::ContextHandleWire ctx;
  ASSERT_EQ(client->open_context(ctx), 0u);
  EXPECT_EQ(client->close_context(ctx), 0u);
}

TEST(DiagnosticsInterface, ATextLongerThanTheRoomIsNotSentButItsLengthIs) {
  TestServer server("diag-room");
  server.diagnostics.decision = std::string(5000, 'x');
  auto client = server.connect();
  ASSERT_NE(client, nullptr);
  int32_t status = -1, length = -1;
  std::string text = "stale";
  ASSERT_EQ(client->read_diagnostics(platform::kReadLastDecision, 0, 100, status, length, text),
            0u);
  EXPECT_EQ(status, platform::kDiagnosticsMoreData);
  EXPECT_EQ(length, 5000);
  EXPECT_TRUE(text.empty());
  ASSERT_EQ(client->read_diagnostics(platform::kReadLastDecision, 0, length, status, length, text),
            0u);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(text.size(), 5000u);
}

TEST(DiagnosticsInterface, ARoomAboveTheBoundIsRefused) {
  TestServer server("diag-bound");
  auto client = server.connect();
  ASSERT_NE(client, nullptr);
  int32_t status = -1, length = -1;
  std::string text;
  EXPECT_EQ(client->read_diagnostics(platform::kReadHealth, 0, platform::kMaxDiagnosticsBytes + 1,
                                     status, length, text),
            platform::kRpcInvalidBound);
  EXPECT_EQ(client->read_diagnostics(platform::kReadHealth, 0, -1, status, length, text),
            platform::kRpcInvalidBound);
}

}  // namespace
}  // namespace zaltor::rpc::test
