// The lab's figures on scenarios whose answer is known.
#include <gtest/gtest.h>

#include "lab/lab_fixture.h"

namespace zaltor::lab::testing {
namespace {

// Mode 1 (Main/Main) -61 dBm at 400 Mbps ... mode 4 (Div/Div) -52.5 dBm at 866.7 Mbps.
const char* const kStaticRadio = R"({
  "rssi": [{"Main": -60, "Div": -50}, {"Main": -62, "Div": -55}], "noise": 0, "seed": 1,
  "rateMbps": [400, 500, 600, 866.7], "throughputBps": 12000000})";

int64_t first_pass_end(const Trace& t) {
  for (const auto& p : t.passes) {
    if (p.end_ms >= 0) return p.end_ms;
  }
  return -1;
}

TEST(LabFigures, StaticScenarioStaysInTheBestModeAfterTheFirstPass) {
  const RunResult r = run_lab(scenario_text(900, kStaticRadio), config_text());
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_FALSE(r.trace.passes.empty());
  EXPECT_EQ(r.trace.passes.front().chosen, 4);
  const int64_t first_end = first_pass_end(r.trace);
  ASSERT_GT(first_end, 0);

  Truth truth;
  std::string error;
  ASSERT_TRUE(load_truth_for_run(scenario_text(900, kStaticRadio), "AB12XY", truth, error))
      << error;
  const Figures after = compute_figures(truth, r.trace, first_end);
  EXPECT_DOUBLE_EQ(after.rateShare, 1.0);
  EXPECT_DOUBLE_EQ(after.rssiLossDb, 0.0);
  EXPECT_EQ(after.modeChanges, 0);

  // Over the whole run: mode 1 in use until the first pass applied mode 4.
  const Figures& f = r.figures;
  EXPECT_DOUBLE_EQ(f.simulatedSeconds, 900.0);
  EXPECT_EQ(f.modeChanges, 1);
  EXPECT_EQ(f.fallbacks, 0);
  const double t1 = static_cast<double>(first_end) / 1000.0;
  EXPECT_NEAR(f.rateShare, (t1 * 400 + (900 - t1) * 866.7) / (900 * 866.7), 1e-6);
  EXPECT_NEAR(f.rssiLossDb, t1 * (-52.5 - -61.0) / 900, 1e-6);
  // Every complete pass measures the three other modes; 60 s between passes.
  int complete = 0;
  for (const auto& p : r.trace.passes) complete += p.end_ms >= 0 ? 1 : 0;
  EXPECT_GE(complete, 11);
  EXPECT_NEAR(f.measuringShare, complete * kMeasuringPerPassS / 900, 0.002);
  double sum = 0;
  for (double s : f.secondsPerMode) sum += s;
  EXPECT_NEAR(sum, 900, 0.01);
  EXPECT_GT(f.secondsPerMode[3], f.secondsPerMode[0]);
}

TEST(LabFigures, ReactionToAChangeOfTheBestModeIsWithinTheMonitorIntervalAndAPass) {
  // At 300 s both Div positions lose 30 dB: mode 1 (Main/Main) becomes the best.
  const std::string scenario =
      scenario_text(600, R"({"rssi": [{"Main": -60, "Div": -50}, {"Main": -62, "Div": -55}],
                        "noise": 0, "seed": 1, "rateMbps": [866.7, 866.7, 866.7, 866.7],
                        "throughputBps": 12000000})",
                    R"("timeline": [{"at": 300, "patch": {"radio": {"rssi":
                   [{"Main": -60, "Div": -80}, {"Main": -62, "Div": -85}]}}}])");
  const RunResult r = run_lab(scenario, config_text());
  ASSERT_TRUE(r.ok) << r.error;
  const Figures& f = r.figures;
  ASSERT_EQ(f.best_mode_changes, 1);
  // The monitor sees the drop within its interval; a pass measures the current mode (3 s)
  // and the three others; the choice is applied at its end.
  const double limit = 5.0 + 3.0 + kMeasuringPerPassS + 1.0;
  EXPECT_GT(f.reaction_max, 0.0);
  EXPECT_LE(f.reaction_max, limit);
  EXPECT_DOUBLE_EQ(f.reaction_mean, f.reaction_max);
  EXPECT_EQ(f.modeChanges, 2);  // 1 -> 4 at the first pass, 4 -> 1 after the drop
}

TEST(LabFigures, AWeightForModeTwoCostsExactlyItsRssiGap) {
  const std::string scenario = scenario_text(600, R"({"rssi": [{"Main": -60, "Div": -52},
      {"Main": -62, "Div": -55}], "noise": 0, "seed": 1,
      "rateMbps": [866.7, 866.7, 866.7, 866.7], "throughputBps": 12000000})");
  // Mode 2 (Div/Main) -57 dBm, mode 4 (Div/Div) -53.5 dBm: a weight of 5 dB for mode 2
  // makes the engine prefer it, 3.5 dB below the best.
  const RunResult plain = run_lab(scenario, config_text(0.0));
  const RunResult weighted = run_lab(scenario, config_text(5.0));
  ASSERT_TRUE(plain.ok) << plain.error;
  ASSERT_TRUE(weighted.ok) << weighted.error;
  EXPECT_EQ(plain.trace.passes.front().chosen, 4);
  EXPECT_EQ(weighted.trace.passes.front().chosen, 2);

  Truth truth;
  std::string error;
  ASSERT_TRUE(load_truth_for_run(scenario, "AB12XY", truth, error)) << error;
  const int64_t from = std::max(first_pass_end(plain.trace), first_pass_end(weighted.trace));
  const Figures a = compute_figures(truth, plain.trace, from);
  const Figures b = compute_figures(truth, weighted.trace, from);
  EXPECT_NEAR(b.rssiLossDb - a.rssiLossDb, 3.5, 1e-9);
  EXPECT_DOUBLE_EQ(a.rateShare, 1.0);
  EXPECT_DOUBLE_EQ(b.rateShare, 1.0);
}

TEST(LabFigures, MalformedScenarioIsRefusedByName) {
  RunResult r = run_lab("{\"stopAfter\": 60, ", config_text());
  EXPECT_FALSE(r.ok);
  EXPECT_NE(r.error.find("scenario test.json"), std::string::npos) << r.error;

  r = run_lab(scenario_text(60, R"({"fadding": {"depthDb": 3}})"), config_text());
  EXPECT_FALSE(r.ok);
  EXPECT_NE(r.error.find("scenario test.json"), std::string::npos) << r.error;
  EXPECT_NE(r.error.find("radio.fadding"), std::string::npos) << r.error;

  r = run_lab(scenario_text(60, R"({"blockage": [{"port": 0, "period": 10, "duration": 20,
                                           "lossDb": 5}]})"),
              config_text());
  EXPECT_FALSE(r.ok);
  EXPECT_NE(r.error.find("radio.blockage[0].duration"), std::string::npos) << r.error;

  // Without stopAfter a run would never end.
  r = run_lab(R"({"firmware": {"switchCount": 2}})", config_text());
  EXPECT_FALSE(r.ok);
  EXPECT_NE(r.error.find("stopAfter"), std::string::npos) << r.error;
}

TEST(LabFigures, MalformedConfigurationIsRefusedByName) {
  // No settings for the model.
  std::string config = config_text();
  const size_t at = config.find("[Settings.AB12]");
  config.replace(at, 15, "[Settings.ZZ99]");
  const RunResult r = run_lab(scenario_text(60, kStaticRadio), config);
  EXPECT_FALSE(r.ok);
  EXPECT_NE(r.error.find("configuration test.ini"), std::string::npos) << r.error;
}

}  // namespace
}  // namespace zaltor::lab::testing
