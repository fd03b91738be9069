// The cost of the auto loop on the simulated notebook in virtual time, where every wait
// takes no real time:
// - BM_DecisionPassFourSwitches: one full decision pass over four switches (sixteen modes,
//   three samples each); the process CPU time per pass is what the loop costs beyond its
//   waits (measuring, switching, deciding, logging and the clock's thread hand-overs).
// - BM_SimulatedDayOfAuto: the wall time of one simulated day of Auto mode while the radio
//   changes every three minutes.
#include <benchmark/benchmark.h>

#include <string>

#include <nlohmann/json.hpp>

#include "rig/notebook_rig.h"

namespace zaltor::rig {
namespace {

constexpr int64_t kDayMs = 24LL * 60 * 60 * 1000;
constexpr int kChangeEverySeconds = 180;

nlohmann::json Radio(int variant) {
  // A few radio situations the notebook moves between.
  static const int kMain[3][4] = {{-55, -70, -66, -60}, {-78, -62, -66, -60}, {-60, -58, -72, -65}};
  static const int kDiv[3][4] = {{-62, -58, -61, -64}, {-62, -71, -59, -63}, {-57, -66, -60, -61}};
  nlohmann::json rssi = nlohmann::json::array();
  for (int p = 0; p < 4; ++p)
    rssi.push_back({{"Main", kMain[variant][p]}, {"Div", kDiv[variant][p]}});
  return rssi;
}

// `evalIntervalMs`: the wait between two decision passes.
RigOptions FourSwitchNotebook(bool withTimeline, const std::string& evalIntervalMs = "30000") {
  RigOptions o;
  o.keepLog = false;
  Keys keys = {{"RSSICollectCount", "3"}, {"BaseSleepIntervalBetweenEval", evalIntervalMs}};
  for (int m = 5; m <= 16; ++m) {
    keys["RSSIWeightForMode_" + std::to_string(m)] = "0.0";
    keys["DisableMode_" + std::to_string(m)] = "0";
  }
  o.config = ConfIni(keys, "", FourSwitchGpio());
  nlohmann::json rates = nlohmann::json::array();
  for (int m = 0; m < 16; ++m) rates.push_back(300.0 + 37.5 * m);
  nlohmann::json patch = {
      {"firmware", {{"switchCount", 4}, {"lines", 255}}},
      {"counters", {{"A", 0}, {"B", 1}, {"C", 2}, {"D", 3}}},
      {"radio", {{"rssi", Radio(0)}, {"rateMbps", rates}}},
  };
  if (withTimeline) {
    nlohmann::json timeline = nlohmann::json::array();
    for (int at = kChangeEverySeconds, i = 1; at < kDayMs / 1000; at += kChangeEverySeconds, ++i) {
      timeline.push_back({{"at", at}, {"patch", {{"radio", {{"rssi", Radio(i % 3)}}}}}});
    }
    patch["timeline"] = timeline;
    o.startNotebook = true;
  }
  o.scenarioPatch = patch.dump();
  return o;
}

void BM_DecisionPassFourSwitches(benchmark::State& state) {
  // Idle between the measured passes.
  NotebookRig h(FourSwitchNotebook(false, "3600000"));
  const int32_t init = h.Init();
  h.TakeStartRequest();
  if (init != 0 || h.worker().modeCount() != 16) {
    state.SkipWithError("the four-switch notebook did not start");
    return;
  }
  h.worker().SetUserMode(0);
  h.RunUntil([&] { return h.SleepLines() >= 1; }, kDayMs);
  for (auto _ : state) {
    const int before = h.SleepLines();
    h.worker().RaiseReevaluation(engine::Trigger::kMonitor);
    h.RunUntil([&] { return h.SleepLines() > before; }, kDayMs);
  }
  state.counters["modes"] = h.worker().modeCount();
}
BENCHMARK(BM_DecisionPassFourSwitches)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

void BM_SimulatedDayOfAuto(benchmark::State& state) {
  for (auto _ : state) {
    NotebookRig h(FourSwitchNotebook(true));
    const int32_t init = h.Init();
    h.TakeStartRequest();
    if (init != 0) {
      state.SkipWithError("the four-switch notebook did not start");
      return;
    }
    h.worker().SetUserMode(0);
    h.RunFor(kDayMs);
    state.counters["passes"] = h.SleepLines();
  }
}
BENCHMARK(BM_SimulatedDayOfAuto)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zaltor::rig

BENCHMARK_MAIN();
