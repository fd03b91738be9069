// The control interface end to end over the Windows RPC runtime: the client stubs, ncalrpc,
// the server stub, the manager functions, the procedures and a scripted target.

#include <gtest/gtest.h>

#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

using platform::ContextHandleWire;

class Win32Rpc : public ::testing::Test {
 protected:
  void SetUp() override {
    client_ = server_.connect();
    ASSERT_TRUE(client_);
    ASSERT_EQ(client_->open_context(ctx_), 0u);
  }
  int32_t query(int32_t code, int32_t& value) {
    int32_t status = -1;
    EXPECT_EQ(client_->query_value(ctx_, code, status, value), 0u);
    return status;
  }

  TestServer server_{"win32"};
  std::unique_ptr<platform::ControlClient> client_;
  ContextHandleWire ctx_;
};

TEST_F(Win32Rpc, EveryProcedureAndAllSixteenCommandsReachTheirOperation) {
  server_.target.scripted_user_mode = 0;
  server_.target.switch_count = 2;
  server_.target.scripted_mode_count = 4;
  server_.target.scripted_auto_state = 1;
  server_.target.out_value = 3;
  int32_t value = 0;
  EXPECT_EQ(query(kGetSwitchNumber, value), 0);
  EXPECT_EQ(value, 3);
  value = 0;
  EXPECT_EQ(query(kGetReserved, value), 1);
  EXPECT_EQ(value, 0);  // unset: as the runtime allocated it
  server_.target.set_readings({-60, -95, -70});
  EXPECT_EQ(query(kGetAverageRssi, value), 0);
  EXPECT_EQ(value, -65);
  EXPECT_EQ(query(kGetUserMode, value), 0);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(query(kGetSwitchCount, value), 0);
  EXPECT_EQ(value, 2);
  EXPECT_EQ(query(kGetModeCount, value), 0);
  EXPECT_EQ(value, 4);
  EXPECT_EQ(query(kGetRssiPaRequested, value), 0);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(query(kGetCurrentMode, value), 0);
  EXPECT_EQ(value, 3);
  EXPECT_EQ(query(kGetAutoState, value), 0);
  EXPECT_EQ(value, 1);

  int32_t status = -1;
  server_.target.out_value = 1;
  EXPECT_EQ(client_->query_indexed_value(ctx_, kGetSwitchPosition, 1, status, value), 0u);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(client_->query_indexed_value(ctx_, kGetControlBit, 5, status, value), 0u);
  EXPECT_EQ(status, 0);
  server_.target.status = 5;
  EXPECT_EQ(client_->set_value(ctx_, kSetUserMode, 2, status), 0u);
  EXPECT_EQ(status, 5);
  server_.target.status = 0;
  EXPECT_EQ(client_->set_paired_value(ctx_, kSetSwitchPosition, 1, 0, status), 0u);
  EXPECT_EQ(client_->set_paired_value(ctx_, kSetControlBit, 6, 1, status), 0u);
  std::vector<int32_t> values;
  EXPECT_EQ(client_->query_array(ctx_, kGetRssiAllPorts, 4, status, values), 0u);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(values, (std::vector<int32_t>{-51, -52, -53, -54}));
  EXPECT_EQ(client_->query_array(ctx_, kGetRssiCurrentMode, 2, status, values), 0u);
  EXPECT_EQ(values, (std::vector<int32_t>{-51, -52}));

  EXPECT_EQ(server_.target.calls(),
            (std::vector<std::string>{
                "GetSwitchNumber", "GetAverageRssi", "GetCurrentMode", "GetSwitchPosition(1)",
                "GetControlBit(5,4)", "SetUserMode(2)", "SetSwitchPosition(1,0)",
                "SetControlBit(6,1,4)", "GetRssiAllPorts(4)", "GetRssiCurrentMode(2)"}));
  EXPECT_TRUE(server_.target.attached_in_every_call.load());
}

TEST_F(Win32Rpc, CodesOutsideTheProcedureGroupAnswer36) {
  int32_t value = 0;
  EXPECT_EQ(query(kSetUserMode, value), 36);
  int32_t status = 0;
  EXPECT_EQ(client_->set_value(ctx_, kGetSwitchNumber, 1, status), 0u);
  EXPECT_EQ(status, 36);
  std::vector<int32_t> values;
  EXPECT_EQ(client_->query_array(ctx_, kGetSwitchNumber, 3, status, values), 0u);
  EXPECT_EQ(status, 36);
  EXPECT_EQ(values, (std::vector<int32_t>{0, 0, 0}));
  EXPECT_EQ(server_.target.call_count(), 0u);
}

TEST_F(Win32Rpc, DivisionByZeroFaultsAndTheServerAnswersTheNextCall) {
  server_.target.set_readings({-95, -95, -95});
  int32_t status = 77, value = 77;
  EXPECT_EQ(client_->query_value(ctx_, kGetAverageRssi, status, value), 0xC0000094u);
  EXPECT_EQ(status, 77);  // no status or value comes back
  EXPECT_EQ(value, 77);
  EXPECT_EQ(query(kGetReserved, value), 1);
  auto other = server_.connect();
  ContextHandleWire c2;
  ASSERT_EQ(other->open_context(c2), 0u);
  server_.target.set_readings({-50});
  EXPECT_EQ(other->query_value(c2, kGetAverageRssi, status, value), 0u);
  EXPECT_EQ(value, -50);
}

TEST_F(Win32Rpc, NullContextIsRefusedBeforeTheProcedureRuns) {
  ContextHandleWire null;
  int32_t status = 0, value = 0;
  EXPECT_EQ(client_->query_value(null, kGetSwitchNumber, status, value), platform::kRpcNullContext);
  EXPECT_EQ(client_->close_context(null), platform::kRpcNullContext);
  EXPECT_EQ(server_.target.call_count(), 0u);
}

TEST_F(Win32Rpc, ContextClosedTwiceIsAFaultAndTheServerGoesOn) {
  ContextHandleWire copy = ctx_;
  ASSERT_EQ(client_->close_context(ctx_), 0u);
  EXPECT_TRUE(ctx_.is_null());
  EXPECT_EQ(server_.procedures.open_contexts(), 0);
  EXPECT_EQ(client_->close_context(copy), platform::kErrorInvalidHandle);
  int32_t status = 0, value = 0;
  EXPECT_EQ(client_->query_value(copy, kGetReserved, status, value), platform::kErrorInvalidHandle);
  ASSERT_EQ(client_->open_context(ctx_), 0u);
  EXPECT_EQ(query(kGetReserved, value), 1);
}

TEST_F(Win32Rpc, UnknownContextIsAFault) {
  ContextHandleWire forged = ctx_;
  forged.uuid[3] ^= 0x5a;
  int32_t status = 0, value = 0;
  EXPECT_EQ(client_->query_value(forged, kGetSwitchNumber, status, value),
            platform::kErrorInvalidHandle);
  EXPECT_EQ(server_.target.call_count(), 0u);
  EXPECT_EQ(query(kGetReserved, value), 1);
}

TEST_F(Win32Rpc, ArrayCountOutsideZeroTo4096IsRefused) {
  int32_t status = 0;
  std::vector<int32_t> values;
  EXPECT_EQ(client_->query_array(ctx_, kGetRssiAllPorts, -1, status, values),
            platform::kRpcInvalidBound);
  EXPECT_EQ(client_->query_array(ctx_, kGetRssiAllPorts, 4097, status, values),
            platform::kRpcInvalidBound);
  EXPECT_EQ(server_.target.call_count(), 0u);
  EXPECT_EQ(client_->query_array(ctx_, kGetRssiAllPorts, 4096, status, values), 0u);
  EXPECT_EQ(values.size(), 4096u);
  EXPECT_EQ(values[5], -56);
  EXPECT_EQ(values[6], 0);
}

// Context handles belong to the client's association with the server, which all bindings of
// one process to the endpoint share: the contexts run down once the process's last binding
// and context are gone.
TEST(Win32RpcRundown, ClientThatGoesAwayWithOpenContextsHasThemRunDown) {
  TestServer server("rundown");
  {
    auto leaving = server.connect();
    for (int i = 0; i < 3; ++i) {
      ContextHandleWire c;
      ASSERT_EQ(leaving->open_context(c), 0u);
    }
    EXPECT_EQ(server.procedures.open_contexts(), 3);
  }
  for (int i = 0; i < 2500 && server.procedures.open_contexts() != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_EQ(server.procedures.open_contexts(), 0);
  // The server goes on: a new client is served.
  auto next = server.connect();
  ContextHandleWire c;
  EXPECT_EQ(next->open_context(c), 0u);
}

TEST(Win32RpcClient, AbsentServerIsUnavailable) {
  uint32_t err = 0;
  auto c = platform::connect_control_client(unique_endpoint("nobody"), 1000, err);
  ASSERT_TRUE(c);  // the binding connects on the first call
  ContextHandleWire ctx;
  EXPECT_EQ(c->open_context(ctx), platform::kRpcServerUnavailable);
  EXPECT_TRUE(ctx.is_null());
}

}  // namespace
}  // namespace zaltor::rpc::test
