// The user's mode on the worker, with the auto loop on the simulated notebook in virtual
// time: the first request, repeated requests, Auto while the loop runs, a fixed mode while
// it runs, and a device without antenna switches.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include <nlohmann/json.hpp>

#include "engine/engine_harness.h"

namespace zaltor::engine::autotest {
namespace {

void patch_notebook(AutoHarness& h, const char* json) {
  std::string error;
  ASSERT_TRUE(h.notebook().apply_patch(nlohmann::json::parse(json), error)) << error;
}

TEST(EngineWorkerModes, DeviceWithoutSwitchesFailsInitWith3) {
  HarnessOptions o;
  o.scenario_patch = R"({"firmware":{"switchCount":0}})";
  AutoHarness h(o);
  EXPECT_EQ(h.Init(), 3);
  EXPECT_EQ(h.count(kLogError, "MultiAntenna is not Supported!\n"), 1);
  EXPECT_FALSE(h.worker().initialised());
  EXPECT_EQ(h.worker().SetUserMode(0), 2u);
}

TEST(EngineWorkerModes, FirstFixedModeAfterStartIsCarriedOut) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  EXPECT_EQ(h.worker().user_mode(), 99u);
  patch_notebook(h, R"({"firmware":{"lines":0}})");  // both switches "Div": mode 4
  ASSERT_EQ(h.notebook().mode(), 4);
  EXPECT_EQ(h.worker().SetUserMode(1), 0u);
  EXPECT_EQ(h.notebook().mode(), 1);
  EXPECT_EQ(h.worker().user_mode(), 1u);
}

TEST(EngineWorkerModes, FirstAutoRequestAfterStartIsCarriedOut) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  EXPECT_EQ(h.worker().SetUserMode(0), 0u);
  EXPECT_TRUE(h.worker().auto_thread_running());
  EXPECT_EQ(WorkerTestAccess::threads_started(h.worker()), 2u);  // auto loop and monitor
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, 120000));
  EXPECT_EQ(h.notebook().mode(), 3);
}

TEST(EngineWorkerModes, AskingForTheModeAlreadyChosenReturns0AndChangesNothing) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(2), 0u);
  ASSERT_EQ(h.notebook().mode(), 2);
  std::array<Status, platform::kMaxPorts> results{};
  h.worker().sw.SetMode(3, results);  // the device is switched meanwhile
  ASSERT_EQ(h.notebook().mode(), 3);
  EXPECT_EQ(h.worker().SetUserMode(2), 0u);
  EXPECT_EQ(h.notebook().mode(), 3);
}

TEST(EngineWorkerModes, AutoAgainWhileItRunsReturns0AndStartsNothing) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(1500);
  EXPECT_EQ(h.worker().SetUserMode(0), 0u);
  EXPECT_EQ(WorkerTestAccess::threads_started(h.worker()), 2u);
}

TEST(EngineWorkerModes, AutoWhileTheStoppedLoopStillEndsWaitsForItAndStartsANewPeriod) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(1500);
  // The fixed mode stops the loop, but its thread has not yet seen the flag when Auto is
  // asked for again: that loop no longer counts as running. Auto waits for it to end and
  // starts a period of its own, so that the user's Auto is carried out.
  ASSERT_EQ(h.worker().SetUserMode(2), 0u);
  ASSERT_TRUE(h.worker().auto_thread_running());
  const int64_t asked = h.clock().now_ms();
  EXPECT_EQ(h.worker().SetUserMode(0), 0u);
  EXPECT_LE(h.clock().now_ms() - asked, 2000) << "the stopped loop ends within a step or so";
  EXPECT_EQ(h.count(kLogInfo, "Auto mode thread ended.\n"), 1) << "the stopped loop ended first";
  EXPECT_TRUE(h.worker().auto_thread_running());
  EXPECT_EQ(h.worker().user_mode(), 0u);
  ASSERT_TRUE(h.run_until([&] { return h.sleeps().size() >= 1; }, 120000))
      << "the new period's loop evaluates";
  EXPECT_LE(WorkerTestAccess::threads_started(h.worker()), 2u) << "the ended threads are joined";
}

TEST(EngineWorkerModes, FixedModeWhileAutoRunsStopsBothThreadsAndSetsTheModeAtOnce) {
  AutoHarness h;
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);
  h.run_for(2500);
  const auto arg = WorkerTestAccess::auto_arg(h.worker());
  ASSERT_NE(arg, nullptr);
  const int64_t before = h.clock().now_ms();
  EXPECT_EQ(h.worker().SetUserMode(4), 0u);
  EXPECT_EQ(h.notebook().mode(), 4);
  EXPECT_EQ(h.clock().now_ms(), before) << "the mode is set before the loop runs again";
  EXPECT_FALSE(arg->keep_running.load()) << "the record that both threads watch says stop";
  EXPECT_EQ(WorkerTestAccess::auto_arg(h.worker()), nullptr);
  ASSERT_TRUE(h.run_until([&] { return !h.worker().auto_thread_running(); }, 2000));
  h.worker().stop_and_join_auto_threads();  // both threads have ended
  h.run_for(60000);
  EXPECT_EQ(h.notebook().mode(), 4);
  EXPECT_EQ(h.count(kLogInfo, "Auto mode thread ended.\n"), 1);
}

}  // namespace
}  // namespace zaltor::engine::autotest
