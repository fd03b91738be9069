// Antenna health on the simulated notebook in virtual time and on fed readings: silent
// ports, ports whose switch changes nothing, and line writes that do not stick.
#include <gtest/gtest.h>

#include <string>

#include "engine/engine_harness.h"
#include "engine/port_health.h"

namespace zaltor::engine {
namespace {

using testing::EngineOnNotebook;

// Runs Auto until `passes` decisions were published (or `limit_ms` passed).
void run_passes(EngineOnNotebook& nb, uint64_t passes, int64_t limit_ms) {
  ASSERT_EQ(nb.Init(), 0);
  ASSERT_EQ(nb.worker().SetUserMode(0), 0u);
  const int64_t until = nb.now() + limit_ms;
  while (nb.worker().journal.published() < passes && nb.now() < until) nb.run_for(100);
  ASSERT_GE(nb.worker().journal.published(), passes) << nb.text();
}

TEST(PortHealthScenario, APortWithoutSignalInBothPositionsIsNoSignalAndTheOtherOk) {
  EngineOnNotebook nb(
      R"({"radio": {"rssi": [{"Main": -95, "Div": -95}, {"Main": -50, "Div": -58}]}})");
  run_passes(nb, PortHealth::kNoSignalPasses, 400000);
  const auto report = nb.worker().health.report(nb.worker().switchCount());
  ASSERT_EQ(report.size(), 2u);
  EXPECT_EQ(report[0].state, PortState::kNoSignal) << report[0].detail;
  EXPECT_STREQ(port_state_name(report[0].state), "no-signal");
  EXPECT_EQ(report[1].state, PortState::kOk) << report[1].detail;
  EXPECT_EQ(report[1].detail, "Main -50.0 dBm, Div -58.0 dBm over 3 sweeps");
}

TEST(PortHealthScenario, BeforeEnoughPassesASilentPortIsNotYetCondemned) {
  EngineOnNotebook nb(
      R"({"radio": {"rssi": [{"Main": -95, "Div": -95}, {"Main": -50, "Div": -58}]}})");
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_EQ(nb.worker().health.report(2)[0].state, PortState::kUnknown);
  run_passes(nb, 1, 100000);
  EXPECT_EQ(nb.worker().health.report(2)[0].state, PortState::kOk)
      << "one silent sweep is not yet a dead antenna";
}

TEST(PortHealthScenario, APortWhoseSwitchChangesNothingIsNotSwitching) {
  EngineOnNotebook nb(
      R"({"radio": {"rssi": [{"Main": -52, "Div": -52}, {"Main": -50, "Div": -60}]}})");
  run_passes(nb, PortHealth::kNotSwitchingSweeps, 600000);
  const auto report = nb.worker().health.report(2);
  EXPECT_EQ(report[0].state, PortState::kNotSwitching) << report[0].detail;
  EXPECT_EQ(report[1].state, PortState::kOk) << report[1].detail;
}

TEST(PortHealthScenario, WhenNoPortChangesNoneIsCondemnedForIt) {
  EngineOnNotebook nb;  // every antenna at -50 in every position
  run_passes(nb, PortHealth::kNotSwitchingSweeps + 1, 700000);
  const auto report = nb.worker().health.report(2);
  EXPECT_EQ(report[0].state, PortState::kOk) << report[0].detail;
  EXPECT_EQ(report[1].state, PortState::kOk) << report[1].detail;
}

TEST(PortHealthScenario, FailingControlWritesAreALineFault) {
  EngineOnNotebook nb(R"({"firmware": {"controlFails": true}})");
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_NE(nb.worker().SetUserMode(2), 0u);
  const auto report = nb.worker().health.report(2);
  EXPECT_EQ(report[0].state, PortState::kLineFault) << report[0].detail;
  EXPECT_EQ(report[1].state, PortState::kLineFault) << report[1].detail;
}

TEST(PortHealth, LinesThatDoNotReadBackAreALineFaultUntilCleanWritesFollow) {
  PortHealth h;
  std::array<Status, platform::kMaxPorts> results{};
  results[1] = SWITCH_ERR_VERIFY;
  h.write(2, results);
  auto r = h.report(2);
  EXPECT_EQ(r[0].state, PortState::kUnknown);
  EXPECT_EQ(r[1].state, PortState::kLineFault);
  EXPECT_EQ(r[1].detail, "1 of the last 1 line writes did not read back as written (status 7)");
  results[1] = SWITCH_ERR_NO_POSITION;
  h.write(2, results);
  EXPECT_EQ(h.report(2)[1].detail,
            "2 of the last 2 line writes left the lines in no position (status 39)");
  results[1] = 0;
  for (int i = 0; i < PortHealth::kLineWindow - 1; ++i) h.write(2, results);
  EXPECT_EQ(h.report(2)[1].state, PortState::kLineFault);
  h.write(2, results);
  EXPECT_EQ(h.report(2)[1].state, PortState::kUnknown);
}

TEST(PortHealth, AFourthPortHasNoCounterAndStaysUnknown) {
  PortHealth h;
  const int32_t values[4] = {-50, -50, -50, -95};
  for (int m = 0; m < 16; ++m) h.sample(m, 4, values);
  h.end_pass();
  const auto r = h.report(4);
  ASSERT_EQ(r.size(), 4u);
  EXPECT_EQ(r[0].state, PortState::kOk);
  EXPECT_EQ(r[3].state, PortState::kUnknown);
  EXPECT_EQ(r[3].detail, "no RSSI counter for this port");
}

}  // namespace
}  // namespace zaltor::engine
