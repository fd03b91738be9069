// Transitions, status reports and checkpoints of the service framework.
#include <gtest/gtest.h>

#include <stdexcept>

#include "host_fakes.h"
#include "service/service_base.h"

namespace zaltor::host_test {
namespace {

using platform::ServiceStatus;
using service::CServiceBase;

// A service whose handlers throw what a test asks for.
class ScriptedService final : public CServiceBase {
 public:
  enum class Throw { kNothing, kWin32, kOther };
  using CServiceBase::CServiceBase;

  Throw on_start = Throw::kNothing;
  Throw on_stop = Throw::kNothing;
  Throw on_pause = Throw::kNothing;
  Throw on_continue = Throw::kNothing;
  Throw on_shutdown = Throw::kNothing;
  uint32_t error = 0x4242;
  std::vector<std::string> handled;

  void set_status_for_test(uint32_t state, uint32_t exit_code) { SetStatus(state, exit_code); }
  void error_entry_for_test(const char* fn, uint32_t e) { WriteErrorEntry(fn, e); }

 protected:
  void OnStart(uint32_t, char**) override { act("start", on_start); }
  void OnStop() override { act("stop", on_stop); }
  void OnPause() override { act("pause", on_pause); }
  void OnContinue() override { act("continue", on_continue); }
  void OnShutdown() override { act("shutdown", on_shutdown); }

 private:
  void act(const char* what, Throw t) {
    handled.emplace_back(what);
    if (t == Throw::kWin32) throw error;
    if (t == Throw::kOther) throw std::runtime_error("unknown");
  }
};

struct FrameworkTest : ::testing::Test {
  FakePlatform fp;
  ScriptedService svc{"some other name", fp.platform};

  std::vector<ServiceStatus> reports() const { return fp.services.reports(); }
  std::vector<std::string> event_lines() const {
    std::vector<std::string> lines;
    for (const auto& e : fp.trace.events()) lines.push_back(e.line);
    return lines;
  }
  // Runs the service under the fake dispatcher with these controls after the start.
  void run_with_controls(std::vector<uint32_t> controls) {
    fp.services.dispatch = true;
    fp.services.controls = std::move(controls);
    ASSERT_EQ(CServiceBase::Run(svc), 0u);
  }
};

TEST_F(FrameworkTest, NameIsAlwaysTheServiceNameAndTheRecordStartsPending) {
  EXPECT_EQ(svc.service_name(), "ZaltorMultiAntennaSvc");
  const ServiceStatus s = svc.status();
  EXPECT_EQ(s.service_type, 0x10u);
  EXPECT_EQ(s.current_state, 2u);
  EXPECT_EQ(s.controls_accepted, 5u);
  EXPECT_EQ(s.win32_exit_code, 0u);
  EXPECT_EQ(s.check_point, 0u);
  EXPECT_EQ(s.wait_hint, 0u);
  EXPECT_TRUE(reports().empty());
}

TEST_F(FrameworkTest, StartReportsStartPendingWithTheNextCheckpointThenRunning) {
  run_with_controls({});
  const auto r = reports();
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[0].current_state, 2u);
  EXPECT_GE(r[0].check_point, 1u);
  EXPECT_EQ(r[1].current_state, 4u);
  EXPECT_EQ(r[1].check_point, 0u);
  EXPECT_EQ(r[1].win32_exit_code, 0u);
  EXPECT_EQ(event_lines(), std::vector<std::string>{"Service trying to start."});
  EXPECT_EQ(fp.trace.events()[0].descriptor.level, 2);
  const auto calls = fp.services.calls();
  EXPECT_EQ(calls[0], "run_dispatcher ZaltorMultiAntennaSvc");
  EXPECT_EQ(calls[1], "register_control_handler ZaltorMultiAntennaSvc");
  EXPECT_EQ(calls[2], "set_status 77");
}

TEST_F(FrameworkTest, StopWhileRunningReportsStopPendingWithTheNextCheckpointThenStopped) {
  run_with_controls({platform::kControlStop});
  const auto r = reports();
  ASSERT_EQ(r.size(), 4u);
  EXPECT_EQ(r[2].current_state, 3u);
  EXPECT_EQ(r[2].check_point, r[0].check_point + 1);
  EXPECT_EQ(r[3].current_state, 1u);
  EXPECT_EQ(r[3].check_point, 0u);
  EXPECT_EQ(r[3].win32_exit_code, 0u);
  EXPECT_EQ(svc.handled, (std::vector<std::string>{"start", "stop"}));
}

TEST_F(FrameworkTest, CheckpointsKeepRisingAcrossTransitions) {
  run_with_controls({platform::kControlStop, platform::kControlContinue, platform::kControlStop});
  const auto r = reports();
  ASSERT_EQ(r.size(), 8u);
  const uint32_t first = r[0].check_point;
  EXPECT_EQ(r[2].check_point, first + 1);  // stop pending
  EXPECT_EQ(r[4].current_state, 5u);       // continue pending
  EXPECT_EQ(r[4].check_point, first + 2);
  EXPECT_EQ(r[6].current_state, 3u);
  EXPECT_EQ(r[6].check_point, first + 3);
}

TEST_F(FrameworkTest, PauseIsNotAcceptedButWouldBeHandledWithAFreshCheckpointWhenPaused) {
  EXPECT_EQ(svc.status().controls_accepted & platform::kAcceptPauseContinue, 0u);
  run_with_controls({platform::kControlPause});
  const auto r = reports();
  ASSERT_EQ(r.size(), 4u);
  EXPECT_EQ(r[2].current_state, 6u);
  EXPECT_EQ(r[2].check_point, r[0].check_point + 1);
  EXPECT_EQ(r[3].current_state, 7u);
  EXPECT_EQ(r[3].check_point, r[0].check_point + 2);
  EXPECT_EQ(svc.handled, (std::vector<std::string>{"start", "pause"}));
}

TEST_F(FrameworkTest, InterrogateChangesNothingAndReportsNothing) {
  run_with_controls({platform::kControlInterrogate, 0x80, 6});
  EXPECT_EQ(reports().size(), 2u);
  EXPECT_EQ(svc.status().current_state, 4u);
  EXPECT_EQ(svc.handled, std::vector<std::string>{"start"});
}

TEST_F(FrameworkTest, ShutdownReportsOnlyStopped) {
  run_with_controls({platform::kControlShutdown});
  const auto r = reports();
  ASSERT_EQ(r.size(), 3u);
  EXPECT_EQ(r[2].current_state, 1u);
  EXPECT_EQ(r[2].check_point, 0u);
}

TEST_F(FrameworkTest, Win32ErrorInStartStopsWithThatExitCode) {
  svc.on_start = ScriptedService::Throw::kWin32;
  svc.error = 0x1F;
  run_with_controls({});
  const auto r = reports();
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[1].current_state, 1u);
  EXPECT_EQ(r[1].win32_exit_code, 0x1Fu);
  EXPECT_EQ(r[1].check_point, 0u);
  EXPECT_EQ(event_lines(), (std::vector<std::string>{"Service trying to start.",
                                                     "Service Start failed w/err 0x0000001f"}));
}

TEST_F(FrameworkTest, OtherFailureInStartStopsWithExitCodeZero) {
  svc.on_start = ScriptedService::Throw::kOther;
  run_with_controls({});
  const auto r = reports();
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[1].current_state, 1u);
  EXPECT_EQ(r[1].win32_exit_code, 0u);
  EXPECT_EQ(event_lines().back(), "Service failed to start.");
}

TEST_F(FrameworkTest, FailedStopReturnsToTheRememberedState) {
  svc.on_stop = ScriptedService::Throw::kWin32;
  svc.error = 5;
  run_with_controls({platform::kControlStop});
  auto r = reports();
  ASSERT_EQ(r.size(), 4u);
  EXPECT_EQ(r[3].current_state, 4u);
  EXPECT_EQ(r[3].check_point, 0u);
  EXPECT_EQ(event_lines().back(), "Service Stop failed w/err 0x00000005");

  svc.on_stop = ScriptedService::Throw::kOther;
  svc.Stop();
  r = reports();
  EXPECT_EQ(r.back().current_state, 4u);
  EXPECT_EQ(event_lines().back(), "Service failed to stop.");
}

TEST_F(FrameworkTest, FailedPauseReportsRunning) {
  svc.on_pause = ScriptedService::Throw::kWin32;
  svc.Pause();
  EXPECT_EQ(reports().back().current_state, 4u);
  EXPECT_EQ(reports().back().check_point, 0u);
  EXPECT_EQ(event_lines().back(), "Service Pause failed w/err 0x00004242");
  svc.on_pause = ScriptedService::Throw::kOther;
  svc.Pause();
  EXPECT_EQ(event_lines().back(), "Service failed to pause.");
}

TEST_F(FrameworkTest, FailedContinueReportsPausedWithTheNextCheckpoint) {
  svc.on_continue = ScriptedService::Throw::kWin32;
  svc.Continue();
  auto r = reports();
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[1].current_state, 7u);
  EXPECT_EQ(r[1].check_point, r[0].check_point + 1);
  EXPECT_EQ(event_lines().back(), "Service Continue failed w/err 0x00004242");
  svc.on_continue = ScriptedService::Throw::kOther;
  svc.Continue();
  EXPECT_EQ(event_lines().back(), "Service failed to resume.");
}

TEST_F(FrameworkTest, FailedShutdownReportsNothing) {
  svc.on_shutdown = ScriptedService::Throw::kWin32;
  svc.Shutdown();
  EXPECT_TRUE(reports().empty());
  EXPECT_EQ(event_lines().back(), "Service Shutdown failed w/err 0x00004242");
  svc.on_shutdown = ScriptedService::Throw::kOther;
  svc.Shutdown();
  EXPECT_TRUE(reports().empty());
  EXPECT_EQ(event_lines().back(), "Service failed to shut down.");
}

TEST_F(FrameworkTest, SetStatusTakesCheckpointZeroOnlyForRunningAndStopped) {
  svc.set_status_for_test(4, 0);
  svc.set_status_for_test(1, 9);
  svc.set_status_for_test(3, 0);
  svc.set_status_for_test(7, 0);
  const auto r = reports();
  ASSERT_EQ(r.size(), 4u);
  EXPECT_EQ(r[0].check_point, 0u);
  EXPECT_EQ(r[1].check_point, 0u);
  EXPECT_EQ(r[1].win32_exit_code, 9u);
  EXPECT_GT(r[2].check_point, 0u);
  EXPECT_EQ(r[3].check_point, r[2].check_point + 1);
}

TEST_F(FrameworkTest, FailedReportsAreIgnored) {
  fp.services.errors["set_status"] = 6;
  run_with_controls({platform::kControlStop});
  EXPECT_EQ(reports().size(), 4u);
  EXPECT_EQ(svc.status().current_state, 1u);
}

TEST_F(FrameworkTest, ErrorEntryIsCutTo259CharactersWithoutLineEnd) {
  const std::string name(300, 'n');
  svc.error_entry_for_test(name.c_str(), 1);
  svc.error_entry_for_test("DoThing", 0xDEADBEEF);
  const auto lines = event_lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], std::string(259, 'n'));
  EXPECT_EQ(lines[1], "DoThing failed w/err 0xdeadbeef");
  EXPECT_EQ(fp.trace.events()[1].descriptor.level, 2);
}

TEST_F(FrameworkTest, FailedHandlerRegistrationThrowsItsErrorOutOfTheServiceEntry) {
  fp.services.errors["register_control_handler"] = 1083;
  fp.services.dispatch = true;
  try {
    CServiceBase::Run(svc);
    FAIL() << "the service entry point should have thrown";
  } catch (uint32_t e) {
    EXPECT_EQ(e, 1083u);
  }
  EXPECT_TRUE(reports().empty());
}

TEST_F(FrameworkTest, DispatcherFailureIsReturned) {
  EXPECT_EQ(CServiceBase::Run(svc), 1063u);
}

}  // namespace
}  // namespace zaltor::host_test
