// The control interface end to end: the client, the local socket runtime, the procedures and
// a scripted target.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/posix/abstract_address.h"
#include "platform/posix/control_wire.h"
#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

using platform::ContextHandleWire;

class RpcSocket : public ::testing::Test {
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

  TestServer server_{"socket"};
  std::unique_ptr<platform::ControlClient> client_;
  ContextHandleWire ctx_;
};

TEST_F(RpcSocket, SetUpLogsAndChoosesNothingWithoutAHook) {
  EXPECT_EQ(server_.log.lines(),
            (std::vector<std::string>{"4:Initializing RPC endpoints.\n", "4:RPC Endpoints ok.\n"}));
}

TEST_F(RpcSocket, AllSixteenCommandsReachTheirOperation) {
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
  EXPECT_EQ(client_->set_value(ctx_, kSetUserMode, 2, status), 0u);
  EXPECT_EQ(status, 0);
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
}

TEST_F(RpcSocket, ReservedCommandAnswersOneEveryTime) {
  for (int i = 0; i < 5; ++i) {
    int32_t value = 0;
    EXPECT_EQ(query(kGetReserved, value), 1);
  }
}

TEST_F(RpcSocket, SetUserModeSentThroughQueryValueAnswers36WithoutSettingAMode) {
  int32_t value = 0;
  EXPECT_EQ(query(kSetUserMode, value), 36);
  EXPECT_EQ(server_.target.call_count(), 0u);
}

TEST_F(RpcSocket, AverageOfMinus61AndMinus62IsMinus61) {
  server_.target.set_readings({-61, -62});
  int32_t value = 0;
  EXPECT_EQ(query(kGetAverageRssi, value), 0);
  EXPECT_EQ(value, -61);
}

TEST_F(RpcSocket, AverageWithoutReadingsFaultsAndTheServerKeepsAnswering) {
  server_.target.set_readings({-95, -95, -95});
  int32_t status = 77, value = 77;
  EXPECT_EQ(client_->query_value(ctx_, kGetAverageRssi, status, value), 0xC0000094u);
  EXPECT_EQ(status, 77);  // no status or value comes back
  EXPECT_EQ(value, 77);
  // The same connection and context, and a new one, are still served.
  EXPECT_EQ(query(kGetReserved, value), 1);
  auto other = server_.connect();
  ContextHandleWire c2;
  ASSERT_EQ(other->open_context(c2), 0u);
  server_.target.set_readings({-50});
  EXPECT_EQ(other->query_value(c2, kGetAverageRssi, status, value), 0u);
  EXPECT_EQ(value, -50);
}

TEST_F(RpcSocket, NotInitialisedWorkerAnswersTwo) {
  server_.target.is_initialised = false;
  int32_t value = 0;
  EXPECT_EQ(query(kGetModeCount, value), 2);
  EXPECT_EQ(query(kGetAverageRssi, value), 2);
  EXPECT_EQ(value, -200);
}

TEST_F(RpcSocket, CallsRunAttachedToTheClock) {
  int32_t value = 0;
  query(kGetSwitchNumber, value);
  int32_t status = 0;
  client_->set_value(ctx_, kSetUserMode, 1, status);
  EXPECT_TRUE(server_.target.attached_in_every_call.load());
  EXPECT_GE(server_.clock.attaches(), 2);
}

TEST_F(RpcSocket, CloseNullsTheHandleAndTheHandleIsThenUnknown) {
  ContextHandleWire copy = ctx_;
  ASSERT_EQ(client_->close_context(ctx_), 0u);
  EXPECT_TRUE(ctx_.is_null());
  int32_t status = 0, value = 0;
  EXPECT_EQ(client_->query_value(copy, kGetReserved, status, value), platform::kErrorInvalidHandle);
  EXPECT_EQ(client_->close_context(copy), platform::kErrorInvalidHandle);
  EXPECT_EQ(server_.procedures.open_contexts(), 0);
}

TEST_F(RpcSocket, NullContextIsRefusedBeforeTheProcedureRuns) {
  ContextHandleWire null;
  int32_t status = 0, value = 0;
  EXPECT_EQ(client_->query_value(null, kGetSwitchNumber, status, value), platform::kRpcNullContext);
  EXPECT_EQ(client_->close_context(null), platform::kRpcNullContext);
  EXPECT_EQ(server_.target.call_count(), 0u);
}

TEST_F(RpcSocket, UnknownOrForeignContextIsRefused) {
  ContextHandleWire forged = ctx_;
  forged.uuid[3] ^= 0x5a;
  int32_t status = 0, value = 0;
  EXPECT_EQ(client_->query_value(forged, kGetSwitchNumber, status, value),
            platform::kErrorInvalidHandle);
  // A context belongs to the connection that opened it.
  auto other = server_.connect();
  EXPECT_EQ(other->query_value(ctx_, kGetSwitchNumber, status, value),
            platform::kErrorInvalidHandle);
  EXPECT_EQ(server_.target.call_count(), 0u);
}

TEST_F(RpcSocket, ArrayCountOutsideZeroTo4096IsRefused) {
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
  EXPECT_EQ(client_->query_array(ctx_, kGetRssiAllPorts, 0, status, values), 0u);
  EXPECT_TRUE(values.empty());
}

TEST_F(RpcSocket, ArrayCodeOfAnotherGroupLeavesTheArrayAsAllocated) {
  int32_t status = 0;
  std::vector<int32_t> values;
  EXPECT_EQ(client_->query_array(ctx_, kGetSwitchNumber, 3, status, values), 0u);
  EXPECT_EQ(status, 36);
  EXPECT_EQ(values, (std::vector<int32_t>{0, 0, 0}));
}

TEST_F(RpcSocket, ClientThatDisconnectsWithOpenContextsHasThemRunDown) {
  {
    auto leaving = server_.connect();
    for (int i = 0; i < 5; ++i) {
      ContextHandleWire c;
      ASSERT_EQ(leaving->open_context(c), 0u);
    }
    EXPECT_EQ(server_.procedures.open_contexts(), 6);
  }
  for (int i = 0; i < 500 && server_.procedures.open_contexts() != 1; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_EQ(server_.procedures.open_contexts(), 1);  // only this fixture's own
}

TEST_F(RpcSocket, StoppingRunsDownEveryOpenContext) {
  ContextHandleWire more;
  ASSERT_EQ(client_->open_context(more), 0u);
  EXPECT_EQ(server_.procedures.open_contexts(), 2);
  server_.stop();
  EXPECT_EQ(server_.procedures.open_contexts(), 0);
  EXPECT_EQ(server_.result.load(), 0u);
  int32_t status = 0, value = 0;
  EXPECT_NE(client_->query_value(ctx_, kGetReserved, status, value), 0u);
}

TEST_F(RpcSocket, CallsOnOneConnectionMayOverlapAndAreMatchedByCallId) {
  RawConnection raw(server_.endpoint);
  ASSERT_TRUE(raw.connected());
  ASSERT_TRUE(raw.send(raw_frame(1, 0, {})));
  auto opened = raw.read_reply();
  ASSERT_TRUE(opened);
  ASSERT_EQ(opened->fault, 0u);
  ASSERT_EQ(opened->out.size(), 20u);
  std::vector<uint32_t> handle;
  for (size_t i = 0; i < 20; i += 4) handle.push_back(platform::wire::load_u32(&opened->out[i]));
  std::vector<uint8_t> batch;
  for (uint32_t id = 100; id < 110; ++id) {
    std::vector<uint32_t> words = handle;
    words.push_back(kGetReserved);
    const auto f = raw_frame(id, 2, words);
    batch.insert(batch.end(), f.begin(), f.end());
  }
  ASSERT_TRUE(raw.send(batch));
  std::vector<bool> seen(10, false);
  for (int i = 0; i < 10; ++i) {
    auto r = raw.read_reply();
    ASSERT_TRUE(r);
    ASSERT_GE(r->call_id, 100u);
    ASSERT_LT(r->call_id, 110u);
    EXPECT_EQ(r->fault, 0u);
    ASSERT_EQ(r->out.size(), 8u);
    EXPECT_EQ(platform::wire::load_u32(r->out.data()), 1u);
    seen[r->call_id - 100] = true;
  }
  for (bool s : seen) EXPECT_TRUE(s);
}

TEST(RpcSocketWire, RequestBodiesHaveTheSizesOfTheWireFormat) {
  // Call id and procedure (8), the context (20) where one is named, then the longs.
  const size_t control[] = {8, 28, 32, 36, 36, 40, 36};
  for (uint32_t p = 0; p < 7; ++p) {
    EXPECT_EQ(platform::wire::request_body_size(p), control[p]) << p;
    platform::wire::Request r;
    r.procedure = p;
    EXPECT_EQ(platform::wire::encode_request(r).size(), 4 + control[p]) << p;
  }
  EXPECT_EQ(platform::wire::request_body_size(7), 0u);
  EXPECT_EQ(platform::wire::request_body_size(0x10000), 12u);  // ReadLastDecision
  EXPECT_EQ(platform::wire::request_body_size(0x10001), 16u);  // ReadHistory
  EXPECT_EQ(platform::wire::request_body_size(0x10002), 12u);  // ReadHealth
  EXPECT_EQ(platform::wire::request_body_size(0x10003), 0u);
  for (uint32_t p = 0x10000; p < 0x10003; ++p) {
    platform::wire::Request r;
    r.procedure = p;
    EXPECT_EQ(platform::wire::encode_request(r).size(), 4 + platform::wire::request_body_size(p));
  }
}

TEST(RpcSocketRuntime, OnlyTheLocalEndpointExists) {
  // The endpoint is always a local one: its name is the abstract socket's, whatever it reads.
  TestClock clock;
  auto rt = platform::make_socket_rpc_runtime(clock);
  EXPECT_TRUE(rt->open_endpoint(unique_endpoint("local")).ok());
}

TEST(RpcSocketRuntime, WhileAnotherProcessHoldsTheNameServeWaitsInFiveSecondSteps) {
  const std::string name = unique_endpoint("held");
  // Another holder of the name: a bound abstract socket.
  int holder = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  const socklen_t len = platform::abstract_address(name, addr);
  ASSERT_EQ(::bind(holder, reinterpret_cast<sockaddr*>(&addr), len), 0);

  TestClock clock;
  RecordingLog log;
  FakeTarget target;
  ControlProcedures procedures(target);
  auto rt = std::make_unique<ProbedRuntime>(platform::make_socket_rpc_runtime(clock));
  std::atomic<int> auto_chosen{0};
  clock.on_sleep([&](int64_t) {
    if (clock.sleeps().size() == 4) {  // the holder goes away after the fourth wait
      ::close(holder);
      holder = -1;
    }
  });
  std::atomic<uint32_t> result{99};
  EndpointSetup setup{*rt, clock, log, procedures, name, [&] { ++auto_chosen; }};
  std::thread t([&] { result = serve(setup); });
  std::unique_ptr<platform::ControlClient> c;
  for (int i = 0; i < 2000 && !c; ++i) {
    uint32_t err = 0;
    c = platform::connect_control_client(name, 1000, err);
    if (!c) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ASSERT_TRUE(c);
  ContextHandleWire ctx;
  EXPECT_EQ(c->open_context(ctx), 0u);
  ASSERT_TRUE(wait_for_listening(*rt));
  withdraw(*rt);
  rt->stop_listening();
  t.join();
  EXPECT_EQ(result.load(), 0u);
  EXPECT_EQ(clock.sleeps(), (std::vector<int64_t>{5000, 5000, 5000, 5000}));
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"4:Initializing RPC endpoints.\n", "4:RPC Endpoints ok.\n"}));
  EXPECT_EQ(auto_chosen.load(), 1);
  EXPECT_EQ(procedures.open_contexts(), 0);
}

TEST(RpcSocketRuntime, WithdrawnInterfaceIsRefusedAndAnEarlyWithdrawalIsHarmless) {
  TestClock clock;
  auto rt = platform::make_socket_rpc_runtime(clock);
  // A stop before anything was served.
  withdraw(*rt);
  EXPECT_FALSE(rt->published());

  TestServer server("unregistered");
  EXPECT_TRUE(server.runtime->published());
  auto c = server.connect();
  ContextHandleWire ctx;
  ASSERT_EQ(c->open_context(ctx), 0u);
  withdraw(*server.runtime);
  EXPECT_FALSE(server.runtime->published());
  int32_t status = 0, value = 0;
  EXPECT_EQ(c->query_value(ctx, kGetReserved, status, value), platform::kRpcUnknownIf);
}

TEST(RpcSocketRuntime, SecondListenAnswersAlreadyListening) {
  TestClock clock;
  FakeTarget target;
  ControlProcedures procedures(target);
  auto rt = std::make_unique<ProbedRuntime>(platform::make_socket_rpc_runtime(clock));
  EXPECT_EQ(rt->listen().status, 1714u);  // no endpoint yet
  rt->listening = false;
  ASSERT_TRUE(rt->open_endpoint(unique_endpoint("listen")).ok());
  ASSERT_TRUE(rt->serve_control(procedures).ok());
  EXPECT_EQ(rt->serve_control(procedures).status, platform::kRpcAlreadyRegistered);
  // Two listen at once: one blocks until the stop, the other answers at once that listening
  // is in progress.
  std::atomic<uint32_t> first{99}, second{99};
  std::thread a([&] { first = rt->listen().status; });
  std::thread b([&] { second = rt->listen().status; });
  for (int i = 0; i < 5000 && first.load() == 99 && second.load() == 99; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const uint32_t early = first.load() != 99 ? first.load() : second.load();
  EXPECT_EQ(early, platform::kRpcAlreadyListening);
  EXPECT_EQ(rt->stop_listening(), 0u);
  a.join();
  b.join();
  EXPECT_EQ(first.load() + second.load(), platform::kRpcAlreadyListening);  // and the other 0
  EXPECT_EQ(rt->stop_listening(), platform::kRpcNotListening);
}

TEST(RpcSocketRuntime, ClientReportsAnAbsentServerAsUnavailable) {
  uint32_t err = 0;
  auto c = platform::connect_control_client(unique_endpoint("nobody"), 1000, err);
  EXPECT_FALSE(c);
  EXPECT_EQ(err, platform::kRpcServerUnavailable);
}

TEST(RpcSocketRuntime, ClientTimesOutOnASilentServer) {
  const std::string name = unique_endpoint("silent");
  int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  const socklen_t len = platform::abstract_address(name, addr);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&addr), len), 0);
  ASSERT_EQ(::listen(listener, 4), 0);
  uint32_t err = 0;
  auto c = platform::connect_control_client(name, 100, err);
  ASSERT_TRUE(c);
  ContextHandleWire ctx;
  EXPECT_EQ(c->open_context(ctx), platform::kErrorTimeout);
  ::close(listener);
}

}  // namespace
}  // namespace zaltor::rpc::test
