// Setting up and withdrawing the control endpoint, against a runtime that records the order.
#include <gtest/gtest.h>

#include "rpc/control_endpoint.h"
#include "rpc/control_interface.h"
#include "rpc/fake_rpc_runtime.h"
#include "rpc/rpc_fakes.h"
#include "support/this_platform.h"

namespace zaltor::rpc::test {
namespace {

class RpcEndpointSetup : public ::testing::Test {
 protected:
  uint32_t run_serve() {
    EndpointSetup setup{rt, clock, log, procedures, "TestEndpoint", [this] {
                          rt.calls.push_back("choose_auto");
                          ++auto_chosen;
                        }};
    return serve(setup);
  }
  void TearDown() override {
    withdraw(rt);  // leaves no binding vector behind for the next test
    EXPECT_EQ(rt.live_sids, 0);
    EXPECT_EQ(rt.live_sid_arrays, 0);
    EXPECT_EQ(rt.live_acls, 0);
    EXPECT_EQ(rt.leaked_entries, 0);
    EXPECT_EQ(rt.live_vectors, 0);
  }

  FakeRpcRuntime rt;
  TestClock clock;
  RecordingLog log;
  FakeTarget target;
  ControlProcedures procedures{target};
  int auto_chosen = 0;
};

TEST_F(RpcEndpointSetup, RunsEveryStepInOrderAndListens) {
  EXPECT_EQ(run_serve(), 0u);
  const std::vector<std::string> expected = {
      "derive(Zaltor.antennaSwitch_k3d9wq2v8xhna)",
      "allocate_sid",
      "set_entries_in_acl",
      "init_sd(1)",
      "set_dacl(present,acl,explicit)",
      "use_protseq_ep(ncalrpc,10,TestEndpoint)",
      "choose_auto",
      "register_if({AE229564-9584-4672-9B40-AD8FD80F75BA},1.0,0x21,1234,0)",
      "inq_bindings",
      "ep_register(vector)",
      "listen(1,1234,wait)",
      "local_free_sid",
      "local_free_sid_array",
      "local_free_sid",
      "local_free_sid_array",
      "free_sid",
      "local_free_acl",
  };
  EXPECT_EQ(rt.calls, expected);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"4:Initializing RPC endpoints.\n", "4:RPC Endpoints ok.\n"}));
  EXPECT_TRUE(rt.descriptor_passed_to_endpoint);
  EXPECT_TRUE(rt.descriptor_passed_to_interface);
  EXPECT_EQ(rt.dispatch, &procedures);
  EXPECT_TRUE(holds_binding_vector());
  EXPECT_EQ(auto_chosen, 1);
}

TEST_F(RpcEndpointSetup, AccessListAdmitsEveryoneAndThenTheCompanionPackage) {
  ASSERT_EQ(run_serve(), 0u);
  ASSERT_EQ(rt.acl_entries.size(), 2u);
  const platform::ExplicitAccess& world = rt.acl_entries[0];
  EXPECT_EQ(world.permissions, 0x10000000u);
  EXPECT_EQ(world.mode, 2u);
  EXPECT_EQ(world.inheritance, 0u);
  EXPECT_EQ(world.trustee_form, 0u);
  EXPECT_EQ(world.trustee_type, 5u);
  EXPECT_EQ(world.trustee, rt.world_sid);
  const platform::ExplicitAccess& package = rt.acl_entries[1];
  EXPECT_EQ(package.permissions, 0x10000000u);
  EXPECT_EQ(package.mode, 2u);
  EXPECT_EQ(package.inheritance, 0u);
  EXPECT_EQ(package.trustee_form, 0u);
  EXPECT_EQ(package.trustee_type, 0u);
  ASSERT_EQ(rt.capability_sids_given.size(), 1u);
  EXPECT_EQ(package.trustee, rt.capability_sids_given[0]);
}

TEST_F(RpcEndpointSetup, TwoCapabilitySidsFailWith87BeforeAnyEndpointIsOpened) {
  rt.capability_sid_count = 2;
  EXPECT_EQ(run_serve(), 87u);
  for (const std::string& c : rt.calls) {
    EXPECT_EQ(c.rfind("use_protseq_ep", 0), std::string::npos) << c;
    EXPECT_EQ(c.rfind("allocate_sid", 0), std::string::npos) << c;
  }
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(auto_chosen, 0);
}

TEST_F(RpcEndpointSetup, NoCapabilitySidFailsWith87) {
  rt.capability_sid_count = 0;
  EXPECT_EQ(run_serve(), 87u);
}

TEST_F(RpcEndpointSetup, DeriveFailureReturnsTheLastError) {
  rt.derive_ok = false;
  rt.error_code = 1332;
  EXPECT_EQ(run_serve(), 1332u);
  EXPECT_EQ(rt.calls.size(), 1u);
}

TEST_F(RpcEndpointSetup, WorldSidFailureReturnsTheLastErrorAndFreesTheCapabilitySids) {
  rt.world_sid_ok = false;
  rt.error_code = 8;
  EXPECT_EQ(run_serve(), 8u);
}

TEST_F(RpcEndpointSetup, AccessListFailureReturnsItsCode) {
  rt.acl_result = 1337;
  EXPECT_EQ(run_serve(), 1337u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(RpcEndpointSetup, DescriptorFailuresReturnTheLastError) {
  rt.init_sd_ok = false;
  rt.error_code = 1305;
  EXPECT_EQ(run_serve(), 1305u);
  FakeRpcRuntime second;
  second.set_dacl_ok = false;
  second.error_code = 1338;
  EndpointSetup setup{second, clock, log, procedures, "E", {}};
  EXPECT_EQ(serve(setup), 1338u);
  EXPECT_EQ(second.live_acls, 0);
  EXPECT_EQ(second.live_sids, 0);
}

TEST_F(RpcEndpointSetup, WhileTheEndpointIsHeldItRetriesEveryFiveSecondsSilently) {
  rt.protseq_failures = 250;  // no limit: it waits for as long as it takes
  EXPECT_EQ(run_serve(), 0u);
  const std::vector<int64_t> sleeps = clock.sleeps();
  EXPECT_EQ(sleeps.size(), 250u);
  for (int64_t ms : sleeps) EXPECT_EQ(ms, 5000);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"4:Initializing RPC endpoints.\n", "4:RPC Endpoints ok.\n"}));
  EXPECT_EQ(auto_chosen, 1);
}

TEST_F(RpcEndpointSetup, OnlyLocalCallersAreAdmittedByTheRegistrationFlags) {
  ASSERT_EQ(run_serve(), 0u);
  EXPECT_EQ(rt.registered_flags & platform::kRpcIfAllowLocalOnly, platform::kRpcIfAllowLocalOnly);
  EXPECT_EQ(rt.registered_flags, 0x21u);
  EXPECT_EQ(rt.registered_max_calls, 1234u);
}

TEST_F(RpcEndpointSetup, RegistrationFailureIsReturnedAfterAutoWasChosen) {
  rt.register_result = 1711;
  EXPECT_EQ(run_serve(), 1711u);
  EXPECT_EQ(auto_chosen, 1);
  EXPECT_FALSE(holds_binding_vector());
}

TEST_F(RpcEndpointSetup, BindingFailureIsReturned) {
  rt.inq_result = 1718;
  EXPECT_EQ(run_serve(), 1718u);
  EXPECT_FALSE(holds_binding_vector());
}

TEST_F(RpcEndpointSetup, EndpointMapFailureIsReturnedAndTheVectorStaysForTheStop) {
  rt.ep_register_result = 1753;
  EXPECT_EQ(run_serve(), 1753u);
  EXPECT_TRUE(holds_binding_vector());
  EXPECT_EQ(rt.live_vectors, 1);
}

TEST_F(RpcEndpointSetup, AlreadyListeningCountsAsSuccess) {
  rt.listen_result = platform::kRpcAlreadyListening;
  EXPECT_EQ(run_serve(), 0u);
}

TEST_F(RpcEndpointSetup, OtherListenFailuresAreReturned) {
  rt.listen_result = 1714;
  EXPECT_EQ(run_serve(), 1714u);
}

TEST_F(RpcEndpointSetup, WithdrawUnregistersWithoutWaitingAndFreesTheVector) {
  ASSERT_EQ(run_serve(), 0u);
  rt.calls.clear();
  withdraw(rt);
  EXPECT_EQ(rt.calls, (std::vector<std::string>{
                          "unregister_if({AE229564-9584-4672-9B40-AD8FD80F75BA},no_wait)",
                          "ep_unregister(vector)", "binding_vector_free"}));
  EXPECT_EQ(rt.live_vectors, 0);
  EXPECT_FALSE(holds_binding_vector());
}

TEST_F(RpcEndpointSetup, StopBeforeAnythingWasRegisteredIgnoresTheFailures) {
  rt.unregister_result = platform::kRpcUnknownIf;
  rt.ep_unregister_result = platform::kRpcNoBindings;
  withdraw(rt);
  EXPECT_EQ(rt.calls, (std::vector<std::string>{
                          "unregister_if({AE229564-9584-4672-9B40-AD8FD80F75BA},no_wait)",
                          "ep_unregister(null)"}));
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
