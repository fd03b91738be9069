// The service's own start and stop handlers and the work that runs the run body.
#include <gtest/gtest.h>

#include "host_fakes.h"
#include "platform/status.h"
#include "service/multi_antenna_svc.h"

namespace zaltor::host_test {
namespace {

using service::CMultiAntennaSvc;
using service::CServiceBase;
using service::ServiceHooks;

std::vector<std::string> event_lines(const FakePlatform& fp) {
  std::vector<std::string> lines;
  for (const auto& e : fp.trace.events()) lines.push_back(e.line);
  return lines;
}

TEST(ServiceStart, OnStartQueuesOneWorkItemAndTheServiceRunsAtOnce) {
  FakePlatform fp;
  int runs = 0;
  ServiceHooks hooks;
  hooks.run_body = [&](CMultiAntennaSvc&) -> uint32_t {
    ++runs;
    return 0;
  };
  CMultiAntennaSvc svc("", "", fp.platform, hooks);
  fp.services.dispatch = true;
  ASSERT_EQ(CServiceBase::Run(svc), 0u);
  EXPECT_EQ(runs, 0);  // the run body has not run yet, the service already reports running
  EXPECT_EQ(svc.status().current_state, platform::kServiceRunning);
  EXPECT_EQ(fp.pool.submissions(), 1);
  fp.pool.run_submitted();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(svc.status().current_state, platform::kServiceRunning);  // success: nothing more
  EXPECT_EQ(event_lines(fp),
            (std::vector<std::string>{"Service trying to start.", "MultiAntennaSvc in OnStart"}));
}

TEST(ServiceStart, FailedWorkItemIsLoggedAndSubmittedEmptyAndTheServiceStillRuns) {
  FakePlatform fp;
  fp.pool.fail_create = true;
  CMultiAntennaSvc svc("", "", fp.platform);
  fp.services.dispatch = true;
  ASSERT_EQ(CServiceBase::Run(svc), 0u);
  EXPECT_EQ(fp.pool.null_submissions(), 1);
  EXPECT_EQ(svc.status().current_state, platform::kServiceRunning);
  const auto events = fp.trace.events();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[2].line, "CreateThreadpoolWork failed");
  EXPECT_EQ(events[2].descriptor.level, 2);
}

TEST(ServiceStart, FailingRunBodyStopsTheServiceWithExitCodeZero) {
  FakePlatform fp;
  CMultiAntennaSvc svc("", "", fp.platform);  // the worker does not start
  fp.services.dispatch = true;
  ASSERT_EQ(CServiceBase::Run(svc), 0u);
  fp.pool.run_submitted();
  const auto r = fp.services.reports();
  ASSERT_EQ(r.size(), 4u);
  EXPECT_EQ(r[2].current_state, platform::kServiceStopPending);
  EXPECT_EQ(r[2].check_point, r[0].check_point + 1);
  EXPECT_EQ(r[3].current_state, platform::kServiceStopped);
  EXPECT_EQ(r[3].win32_exit_code, 0u);
  EXPECT_EQ(r[3].check_point, 0u);
  EXPECT_EQ(event_lines(fp),
            (std::vector<std::string>{"Service trying to start.", "MultiAntennaSvc in OnStart",
                                      "Worker obj init() Failed!\n", "MultiAntennaSvc in OnStop",
                                      "Trying to set antenna to default mode...\n"}));
  EXPECT_EQ(fp.trace.events()[2].descriptor.level, 4);
}

TEST(ServiceStart, DefaultRunBodyAnswersTheWorkerStartUpFailure) {
  FakePlatform fp;
  CMultiAntennaSvc svc("", "", fp.platform);
  EXPECT_EQ(svc.run_body(), kStatusWorkerStartFailed);
}

TEST(ServiceStop, StopWhileTheEndpointIsRetriedStillSetsTheDefaultModeAndStops) {
  FakePlatform fp;
  std::vector<std::string> order;
  ServiceHooks hooks;
  hooks.run_body = [&](CMultiAntennaSvc&) -> uint32_t {
    order.push_back("endpoint retried");
    return 0;
  };
  // The interface was never registered: withdrawing it fails, which is ignored.
  hooks.withdraw_control_interface = [&](CMultiAntennaSvc&) {
    order.push_back("unregister failed");
  };
  hooks.set_default_mode = [&](CMultiAntennaSvc&) -> uint32_t {
    order.push_back("default mode set");
    return 0;
  };
  CMultiAntennaSvc svc("", "", fp.platform, hooks);
  fp.services.dispatch = true;
  fp.services.controls = {platform::kControlStop};
  ASSERT_EQ(CServiceBase::Run(svc), 0u);
  EXPECT_EQ(order, (std::vector<std::string>{"unregister failed", "default mode set"}));
  EXPECT_EQ(svc.status().current_state, platform::kServiceStopped);
  const auto lines = event_lines(fp);
  EXPECT_EQ(lines[lines.size() - 2], "MultiAntennaSvc in OnStop");
  EXPECT_EQ(lines.back(), "Trying to set antenna to default mode...\n");
}

TEST(ServiceStop, StopWhileTheWorkerIsStillStartingAnswersNotReadyAndStops) {
  FakePlatform fp;
  uint32_t answer = 0;
  ServiceHooks hooks = service::default_service_hooks();
  auto not_ready = hooks.set_default_mode;
  hooks.set_default_mode = [&](CMultiAntennaSvc& s) -> uint32_t {
    answer = not_ready(s);
    return answer;
  };
  CMultiAntennaSvc svc("", "", fp.platform, hooks);
  fp.services.dispatch = true;
  fp.services.controls = {platform::kControlStop};
  ASSERT_EQ(CServiceBase::Run(svc), 0u);
  EXPECT_EQ(answer, SWITCH_ERR_NOT_READY);
  const auto r = fp.services.reports();
  EXPECT_EQ(r.back().current_state, platform::kServiceStopped);
  EXPECT_EQ(r.back().win32_exit_code, 0u);
}

TEST(ServiceObject, ConsoleNameIsCutTo259Characters) {
  FakePlatform fp;
  const std::string name(300, 'k');
  CMultiAntennaSvc svc("", name, fp.platform);
  EXPECT_EQ(svc.console_name(), std::string(259, 'k'));
  CMultiAntennaSvc short_name("", "Plain.ini", fp.platform);
  EXPECT_EQ(short_name.console_name(), "Plain.ini");
}

TEST(ServiceObject, ConsoleNameCutCountsWideCharacters) {
  FakePlatform fp;
  std::string name;
  for (int i = 0; i < 200; ++i) name += "\xC3\xA4";          // one UTF-16 unit each
  for (int i = 0; i < 100; ++i) name += "\xF0\x9F\x98\x80";  // two UTF-16 units each
  CMultiAntennaSvc svc("", name, fp.platform);
  std::string expected;
  for (int i = 0; i < 200; ++i) expected += "\xC3\xA4";
  for (int i = 0; i < 29; ++i) expected += "\xF0\x9F\x98\x80";  // 200 + 58 = 258 units
  EXPECT_EQ(svc.console_name(), expected);
}

}  // namespace
}  // namespace zaltor::host_test
