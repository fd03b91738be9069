// Replaying a field log: the scenario made from a run's log leads the engine to the same
// decisions as the run itself.
#include <gtest/gtest.h>

#include "lab/lab_fixture.h"
#include "lab/lab_replay.h"

#include <set>

namespace zaltor::lab::testing {
namespace {

std::vector<int> decisions(const Trace& t) {
  std::vector<int> d;
  for (const auto& p : t.passes) {
    if (p.end_ms >= 0) d.push_back(p.chosen);
  }
  return d;
}

TEST(LabReplay, ReplayingTheLogOfARunReproducesItsDecisions) {
  // The radio changes between passes (a pass every 71.09 s with this configuration: 11.09 s
  // of measuring, 60 s of sleep), to other whole-dBm values each time, so that the best
  // mode moves; no change reaches the 10 dB that the monitor waits for.
  nlohmann::json timeline = nlohmann::json::array();
  uint32_t seed = 12345;
  auto next = [&seed](int span) {
    seed = seed * 1103515245u + 12345u;
    return static_cast<int>((seed >> 16) % static_cast<uint32_t>(span));
  };
  for (int k = 0; k < 50; ++k) {
    // Four modes whose samples (the ports' mean, truncated to whole dBm) all differ: a tie
    // is resolved by the ports' own readings, which a field log does not hold.
    int v[2][2];
    for (;;) {
      for (auto& port : v) {
        for (int& position : port) position = -56 - next(9);
      }
      std::set<int> samples;
      for (int m = 0; m < 4; ++m) samples.insert((v[0][m & 1] + v[1][(m >> 1) & 1]) / 2);
      if (samples.size() == 4) break;
    }
    nlohmann::json rssi = nlohmann::json::array();
    for (auto& port : v) rssi.push_back({{"Main", port[0]}, {"Div", port[1]}});
    timeline.push_back({{"at", 71.093 * k + 40}, {"patch", {{"radio", {{"rssi", rssi}}}}}});
  }
  const std::string scenario =
      scenario_text(3600, R"({"rssi": [{"Main": -56, "Div": -60}, {"Main": -64, "Div": -58}],
      "noise": 0, "seed": 5, "rateMbps": [866.7, 866.7, 866.7, 866.7], "throughputBps": 1})",
                    "\"timeline\": " + timeline.dump());
  const std::string config = config_text();
  const RunResult original =
      run_one_text(scenario, "field.json", std::vector<uint8_t>(config.begin(), config.end()),
                   "c.ini", "AB12XY", true, true);
  ASSERT_TRUE(original.ok) << original.error;
  ASSERT_NE(original.log_text.find("Avg RSSI: "), std::string::npos);
  const std::vector<int> want = decisions(original.trace);
  // Every change fell into a sleep, none into a pass.
  for (const auto& p : original.trace.passes) {
    for (const auto& e : timeline) {
      const double at = e["at"].get<double>() * 1000;
      EXPECT_FALSE(at >= static_cast<double>(p.start_ms) && at <= static_cast<double>(p.end_ms))
          << "a change at " << at << " ms fell into the pass at " << p.start_ms;
    }
  }
  ASSERT_GE(want.size(), 50u);
  // The run changes its mind: a replay that kept one mode would not pass.
  EXPECT_GT(std::set<int>(want.begin(), want.end()).size(), 1u);

  nlohmann::json replay;
  std::string error;
  ASSERT_TRUE(scenario_from_log(original.log_text, replay, error)) << error;
  ASSERT_TRUE(replay.contains("stopAfter"));
  EXPECT_EQ(replay["timeline"].size(), want.size() - 1);

  const RunResult again = run_lab(replay.dump(), config);
  ASSERT_TRUE(again.ok) << again.error;
  const std::vector<int> got = decisions(again.trace);
  ASSERT_GE(got.size(), want.size());
  EXPECT_EQ(std::vector<int>(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(want.size())),
            want);
}

TEST(LabReplay, ALogWithoutMeasurementsIsRefused) {
  nlohmann::json s;
  std::string error;
  EXPECT_FALSE(scenario_from_log("Service start.\nUsing Config Set: 0\n", s, error));
  EXPECT_NE(error.find("Avg RSSI"), std::string::npos) << error;
}

}  // namespace
}  // namespace zaltor::lab::testing
