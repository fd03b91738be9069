// The procedures called directly: dispatch by group, worker fields, device operations.
#include <gtest/gtest.h>

#include "rpc/average_rssi.h"
#include "rpc/control_interface.h"
#include "rpc/control_procedures.h"
#include "rpc/rpc_fakes.h"

namespace zaltor::rpc::test {
namespace {

class RpcProcedures : public ::testing::Test {
 protected:
  FakeTarget target_;
  ControlProcedures procs_{target_};
  platform::ContextObject ctx_ = procs_.open_context();
  void TearDown() override { procs_.close_context(ctx_); }
};

TEST_F(RpcProcedures, ReservedCommandAnswersStatusOneEveryTime) {
  for (int i = 0; i < 3; ++i) {
    int32_t status = 0, value = 7;
    procs_.query_value(ctx_, kGetReserved, status, value);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(value, 7);  // left as it was
  }
  EXPECT_EQ(target_.call_count(), 0u);
}

TEST_F(RpcProcedures, SetUserModeThroughQueryValueAnswers36WithoutSettingAMode) {
  int32_t status = 0, value = 0;
  procs_.query_value(ctx_, kSetUserMode, status, value);
  EXPECT_EQ(status, 36);
  EXPECT_EQ(target_.call_count(), 0u);
}

TEST_F(RpcProcedures, EveryProcedureRefusesCodesOutsideItsGroup) {
  const int32_t foreign[] = {0,      0x1000, 0x100A, 0x2003, 0x3000,          0x3002,
                             0x4003, 0x5003, 0x6001, -1,     0x1001 + 0x10000};
  for (int32_t code : foreign) {
    int32_t status = 0, value = 5;
    procs_.query_indexed_value(ctx_, code, status, 1, value);
    EXPECT_EQ(status, 36) << code;
    procs_.set_value(ctx_, code, status, 1);
    EXPECT_EQ(status, 36) << code;
    procs_.set_paired_value(ctx_, code, status, 1, 1);
    EXPECT_EQ(status, 36) << code;
    int32_t values[2] = {9, 9};
    procs_.query_array(ctx_, code, status, 2, values);
    EXPECT_EQ(status, 36) << code;
    EXPECT_EQ(values[0], 9);
    if (code < 0x1001 || code > 0x1009) {
      procs_.query_value(ctx_, code, status, value);
      EXPECT_EQ(status, 36) << code;
    }
  }
  // Each group's codes are refused by the other procedures too.
  int32_t status = 0, value = 0;
  procs_.set_value(ctx_, kGetSwitchNumber, status, 0);
  EXPECT_EQ(status, 36);
  procs_.query_value(ctx_, kGetRssiAllPorts, status, value);
  EXPECT_EQ(status, 36);
  procs_.set_paired_value(ctx_, kGetSwitchPosition, status, 0, 0);
  EXPECT_EQ(status, 36);
  EXPECT_EQ(target_.call_count(), 0u);
}

TEST_F(RpcProcedures, WorkerFieldsAnswerTwoWhileNotInitialisedAndLeaveValueUnset) {
  target_.is_initialised = false;
  for (int32_t code :
       {kGetUserMode, kGetSwitchCount, kGetModeCount, kGetRssiPaRequested, kGetAutoState}) {
    int32_t status = 0, value = 1234;
    procs_.query_value(ctx_, code, status, value);
    EXPECT_EQ(status, 2) << code;
    EXPECT_EQ(value, 1234) << code;
  }
}

TEST_F(RpcProcedures, WorkerFieldsAreCopiedWithStatusZero) {
  target_.scripted_user_mode = 3;
  target_.switch_count = 3;
  target_.scripted_mode_count = 8;
  target_.rssi_pa = true;
  target_.scripted_auto_state = 2;
  const std::pair<int32_t, int32_t> cases[] = {{kGetUserMode, 3},
                                               {kGetSwitchCount, 3},
                                               {kGetModeCount, 8},
                                               {kGetRssiPaRequested, 1},
                                               {kGetAutoState, 2}};
  for (auto [code, expected] : cases) {
    int32_t status = 9, value = 0;
    procs_.query_value(ctx_, code, status, value);
    EXPECT_EQ(status, 0) << code;
    EXPECT_EQ(value, expected) << code;
  }
}

TEST_F(RpcProcedures, LineCommandsPassFourAsTheOffset) {
  int32_t status = 0, value = 0;
  target_.out_value = 1;
  procs_.query_indexed_value(ctx_, kGetControlBit, status, 3, value);
  EXPECT_EQ(value, 1);
  procs_.set_paired_value(ctx_, kSetControlBit, status, 2, 0);
  EXPECT_EQ(target_.calls(),
            (std::vector<std::string>{"GetControlBit(3,4)", "SetControlBit(2,0,4)"}));
}

TEST_F(RpcProcedures, OperationStatusesPassThroughUnchanged) {
  target_.status = 28;
  int32_t status = 0;
  procs_.set_value(ctx_, kSetUserMode, status, 17);
  EXPECT_EQ(status, 28);
  target_.status = 4;
  int32_t value = 0;
  procs_.query_value(ctx_, kGetSwitchNumber, status, value);
  EXPECT_EQ(status, 4);
}

TEST_F(RpcProcedures, AverageOfMinus60Minus95Minus70IsMinus65) {
  target_.set_readings({-60, -95, -70});
  int32_t status = 9, value = 0;
  procs_.query_value(ctx_, kGetAverageRssi, status, value);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(value, -65);
}

TEST_F(RpcProcedures, AverageOfMinus61Minus62TruncatesTowardZero) {
  target_.set_readings({-61, -62});
  int32_t status = 9, value = 0;
  procs_.query_value(ctx_, kGetAverageRssi, status, value);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(value, -61);
}

TEST_F(RpcProcedures, AverageWithoutAnyReadingFaultsWithIntegerDivideByZero) {
  target_.set_readings({-95, -95});
  int32_t status = 0, value = 0;
  try {
    procs_.query_value(ctx_, kGetAverageRssi, status, value);
    FAIL() << "no fault";
  } catch (const platform::RpcFault& f) {
    EXPECT_EQ(f.code(), 0xC0000094u);
  }
  target_.set_readings({});
  EXPECT_THROW(procs_.query_value(ctx_, kGetAverageRssi, status, value), platform::RpcFault);
}

TEST_F(RpcProcedures, AverageWhileNotInitialisedAnswersTwoAndMinus200) {
  target_.is_initialised = false;
  int32_t status = 0, value = 0;
  procs_.query_value(ctx_, kGetAverageRssi, status, value);
  EXPECT_EQ(status, 2);
  EXPECT_EQ(value, -200);
}

TEST_F(RpcProcedures, ArrayCommandsGetRoomForTheWholeSweepAndReturnOnlyCount) {
  int32_t status = 9;
  int32_t one[1] = {0};
  procs_.query_array(ctx_, kGetRssiAllPorts, status, 1, one);  // the sweep writes six
  EXPECT_EQ(status, 0);
  EXPECT_EQ(one[0], -51);
  std::vector<int32_t> many(10, 7);
  procs_.query_array(ctx_, kGetRssiCurrentMode, status, 10, many.data());
  EXPECT_EQ((std::vector<int32_t>(many.begin(), many.begin() + 6)),
            (std::vector<int32_t>{-51, -52, -53, -54, -55, -56}));
  EXPECT_EQ(many[6], 7);
  procs_.query_array(ctx_, kGetRssiCurrentMode, status, 0, nullptr);
  EXPECT_EQ(target_.calls(),
            (std::vector<std::string>{"GetRssiAllPorts(1)", "GetRssiCurrentMode(10)",
                                      "GetRssiCurrentMode(0)"}));
}

TEST(RpcContexts, OpenCloseAndRundownFreeTheObject) {
  FakeTarget target;
  ControlProcedures procs{target};
  platform::ContextObject a = procs.open_context();
  platform::ContextObject b = procs.open_context();
  EXPECT_NE(a, nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(procs.open_contexts(), 2);
  procs.close_context(a);
  EXPECT_EQ(a, nullptr);
  procs.close_context(a);  // a null object is ignored
  EXPECT_EQ(procs.open_contexts(), 1);
  procs.rundown(b);
  EXPECT_EQ(procs.open_contexts(), 0);
}

TEST(RpcAverage, DividesBySignalledAntennasOnly) {
  const int32_t r1[] = {-60, -95, -70};
  EXPECT_EQ(average_rssi_of(r1, 3).value, -65);
  const int32_t r2[] = {-61, -62};
  EXPECT_EQ(average_rssi_of(r2, 2).value, -61);
  const int32_t r3[] = {-95};
  EXPECT_TRUE(average_rssi_of(r3, 1).no_divisor);
  EXPECT_TRUE(average_rssi_of(nullptr, 0).no_divisor);
  const int32_t r4[] = {-200, -40};
  EXPECT_EQ(average_rssi_of(r4, 2).value, -120);
}

}  // namespace
}  // namespace zaltor::rpc::test
