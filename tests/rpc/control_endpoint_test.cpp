// Setting up and withdrawing the control endpoint, against a runtime that records the order
// of the steps.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "rpc/control_endpoint.h"
#include "rpc/control_interface.h"
#include "rpc/fake_rpc_runtime.h"
#include "rpc/rpc_fakes.h"
#include "rpc/test_server.h"
#include "support/this_platform.h"

namespace zaltor::rpc::test {
namespace {

class RpcEndpointSetup : public ::testing::Test {
 protected:
  uint32_t run_serve(platform::DiagnosticsDispatch* diagnostics = nullptr) {
    EndpointSetup setup{rt_,
                        clock_,
                        log_,
                        procedures_,
                        "TestEndpoint",
                        [this] {
                          rt_.calls.push_back("choose_auto");
                          ++auto_chosen_;
                        },
                        diagnostics};
    return serve(setup);
  }

  FakeRpcRuntime rt_;
  TestClock clock_;
  RecordingLog log_;
  FakeTarget target_;
  ControlProcedures procedures_{target_};
  int auto_chosen_ = 0;
};

const std::vector<std::string> kLogged = {"4:Initializing RPC endpoints.\n",
                                          "4:RPC Endpoints ok.\n"};

TEST_F(RpcEndpointSetup, RunsEveryStepInOrderAndListens) {
  EXPECT_EQ(run_serve(), 0u);
  const std::vector<std::string> expected = {
      "admit_everyone_and(Zaltor.antennaSwitch_k3d9wq2v8xhna)",
      "open_endpoint(TestEndpoint)",
      "choose_auto",
      "serve_control",
      "publish_control",
      "listen",
  };
  EXPECT_EQ(rt_.calls, expected);
  EXPECT_EQ(log_.lines(), kLogged);
  EXPECT_EQ(rt_.dispatch, &procedures_);
  EXPECT_TRUE(rt_.published());
  EXPECT_EQ(auto_chosen_, 1);
}

TEST_F(RpcEndpointSetup, DiagnosticsAreServedAfterTheControlInterfaceAndMayFail) {
  FakeDiagnostics diagnostics;
  rt_.diagnostics_result = platform::RpcStep::failed(1711, platform::rpc_call::kRegisterIf);
  EXPECT_EQ(run_serve(&diagnostics), 0u);
  const std::vector<std::string> expected = {
      "admit_everyone_and(Zaltor.antennaSwitch_k3d9wq2v8xhna)",
      "open_endpoint(TestEndpoint)",
      "choose_auto",
      "serve_control",
      "serve_diagnostics",
      "publish_control",
      "listen",
  };
  EXPECT_EQ(rt_.calls, expected);
  EXPECT_EQ(rt_.diagnostics, &diagnostics);
}

// Everyone and the companion package are admitted before anything else; a failure there
// (87 when the package does not yield exactly one capability SID, else the failing security
// call's error) is returned before any endpoint is opened or anything is logged.
TEST_F(RpcEndpointSetup, AdmissionFailureIsReturnedBeforeAnyEndpointIsOpened) {
  const std::pair<uint32_t, const char*> failures[] = {
      {87, platform::rpc_call::kDeriveCapabilitySids},
      {1332, platform::rpc_call::kDeriveCapabilitySids},
      {8, platform::rpc_call::kAllocateSid},
      {1337, platform::rpc_call::kSetEntriesInAcl},
      {1305, platform::rpc_call::kInitializeSecurityDescriptor},
      {1338, platform::rpc_call::kSetSecurityDescriptorDacl},
  };
  for (const auto& [code, call] : failures) {
    FakeRpcRuntime fresh;
    fresh.admit_result = platform::RpcStep::failed(code, call);
    RecordingLog fresh_log;
    int chosen = 0;
    EndpointSetup setup{fresh, clock_, fresh_log, procedures_, "E", [&] { ++chosen; }};
    EXPECT_EQ(serve(setup), code) << call;
    EXPECT_EQ(fresh.calls,
              (std::vector<std::string>{"admit_everyone_and(Zaltor.antennaSwitch_k3d9wq2v8xhna)"}))
        << call;
    EXPECT_TRUE(fresh_log.lines().empty()) << call;
    EXPECT_EQ(chosen, 0) << call;
  }
}

TEST_F(RpcEndpointSetup, WhileTheEndpointIsHeldItRetriesEveryFiveSecondsSilently) {
  rt_.endpoint_failures = 250;  // no limit: it waits for as long as it takes
  EXPECT_EQ(run_serve(), 0u);
  const std::vector<int64_t> sleeps = clock_.sleeps();
  EXPECT_EQ(sleeps.size(), 250u);
  for (int64_t ms : sleeps) EXPECT_EQ(ms, 5000);
  EXPECT_EQ(log_.lines(), kLogged);
  EXPECT_EQ(auto_chosen_, 1);
  EXPECT_EQ(std::count(rt_.calls.begin(), rt_.calls.end(), "open_endpoint(TestEndpoint)"), 251);
}

TEST_F(RpcEndpointSetup, OnlyLocalCallersAreAdmittedByTheRegistrationFlags) {
  // The runtimes register both interfaces with these.
  EXPECT_EQ(platform::kInterfaceFlags & platform::kRpcIfAllowLocalOnly,
            platform::kRpcIfAllowLocalOnly);
  EXPECT_EQ(platform::kInterfaceFlags, 0x21u);
  EXPECT_EQ(platform::kMaxConcurrentCalls, 1234u);
  EXPECT_EQ(platform::kEndpointMaxCalls, 10u);
  EXPECT_EQ(platform::kMinCallThreads, 1u);
  EXPECT_STREQ(platform::kProtocolSequence, "ncalrpc");
}

TEST_F(RpcEndpointSetup, RegistrationFailureIsReturnedAfterAutoWasChosen) {
  rt_.serve_result = platform::RpcStep::failed(1711, platform::rpc_call::kRegisterIf);
  EXPECT_EQ(run_serve(), 1711u);
  EXPECT_EQ(auto_chosen_, 1);
  EXPECT_FALSE(rt_.published());
  EXPECT_EQ(rt_.calls.back(), "serve_control");
}

TEST_F(RpcEndpointSetup, BindingFailureIsReturned) {
  rt_.publish_result = platform::RpcStep::failed(1718, platform::rpc_call::kInqBindings);
  EXPECT_EQ(run_serve(), 1718u);
  EXPECT_FALSE(rt_.published());
}

TEST_F(RpcEndpointSetup, EndpointMapFailureIsReturnedAndTheBindingsStayForTheStop) {
  rt_.publish_result = platform::RpcStep::failed(1753, platform::rpc_call::kEpRegister);
  EXPECT_EQ(run_serve(), 1753u);
  // Nothing is withdrawn here: that is the stop's part.
  EXPECT_TRUE(rt_.published());
  EXPECT_EQ(rt_.calls.back(), "publish_control");
}

TEST_F(RpcEndpointSetup, AlreadyListeningCountsAsSuccess) {
  rt_.listen_result =
      platform::RpcStep::failed(platform::kRpcAlreadyListening, platform::rpc_call::kListen);
  EXPECT_EQ(run_serve(), 0u);
}

TEST_F(RpcEndpointSetup, OtherListenFailuresAreReturned) {
  rt_.listen_result = platform::RpcStep::failed(1714, platform::rpc_call::kListen);
  EXPECT_EQ(run_serve(), 1714u);
}

TEST_F(RpcEndpointSetup, WithdrawStopsServingAndReleasesTheBindings) {
  ASSERT_EQ(run_serve(), 0u);
  rt_.calls.clear();
  withdraw(rt_);
  EXPECT_EQ(rt_.calls, (std::vector<std::string>{"withdraw"}));
  EXPECT_FALSE(rt_.published());
}

TEST_F(RpcEndpointSetup, StopBeforeAnythingWasServedStillWithdraws) {
  withdraw(rt_);
  EXPECT_EQ(rt_.calls, (std::vector<std::string>{"withdraw"}));
}

TEST(RpcInterfaceNames, EndpointComesFromTheEnvironmentWithTheProductDefault) {
  test_support::unset_env("ZALTOR_RPC_ENDPOINT");
  EXPECT_EQ(endpoint_name_from_environment(), "ZaltorMultiAntennaRpcEndpoint");
  test_support::set_env("ZALTOR_RPC_ENDPOINT", "Other");
  EXPECT_EQ(endpoint_name_from_environment(), "Other");
  test_support::set_env("ZALTOR_RPC_ENDPOINT", "");
  EXPECT_EQ(endpoint_name_from_environment(), "ZaltorMultiAntennaRpcEndpoint");
  test_support::unset_env("ZALTOR_RPC_ENDPOINT");
}

}  // namespace
}  // namespace zaltor::rpc::test
