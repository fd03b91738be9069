// What virtual time costs the lab: one simulated day of Auto mode on the two-switch sample
// notebook (samples/Conf.ini, the desk and the noisy-office scenarios of
// samples/scenarios/ run for 24 hours), with the service's own worker on the simulated
// notebook's virtual clock. Reported: the wall time per simulated day, and "sim_s_per_s",
// simulated seconds per wall second. BM_FiguresOfADay is the lab's scoring of such a day
// against the scenario's truth, which runs in the parent process after the runs.
#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/lab_run.h"

namespace zaltor::lab {
namespace {

constexpr double kDayS = 24.0 * 60 * 60;

std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string DayOf(const std::string& name) {
  nlohmann::json doc = nlohmann::json::parse(
      ReadText(std::string(ZALTOR_SOURCE_DIR) + "/samples/scenarios/" + name));
  doc["stopAfter"] = kDayS;
  return doc.dump();
}

std::vector<uint8_t> SampleConfig() {
  const std::string text = ReadText(std::string(ZALTOR_SOURCE_DIR) + "/samples/Conf.ini");
  return std::vector<uint8_t>(text.begin(), text.end());
}

void RunDay(benchmark::State& state, const std::string& scenarioName) {
  const std::string scenario = DayOf(scenarioName);
  const std::vector<uint8_t> config = SampleConfig();
  for (auto _ : state) {
    const RunResult r = RunOneText(scenario, scenarioName, config, "Conf.ini", "AB12XY", false);
    if (!r.ok) state.SkipWithError(r.error.c_str());
    benchmark::DoNotOptimize(r.trace.switches.size());
  }
  state.counters["sim_s_per_s"] = benchmark::Counter(
      kDayS * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_SimulatedDayDesk(benchmark::State& state) {
  RunDay(state, "desk-5ghz.json");
}
void BM_SimulatedDayNoisyOffice(benchmark::State& state) {
  RunDay(state, "noisy-office.json");
}

void BM_FiguresOfADay(benchmark::State& state) {
  const std::string scenario = DayOf("noisy-office.json");
  const RunResult r =
      RunOneText(scenario, "noisy-office.json", SampleConfig(), "Conf.ini", "AB12XY", false);
  if (!r.ok) {
    state.SkipWithError(r.error.c_str());
    return;
  }
  Truth truth;
  std::string error;
  LoadTruthForRun(scenario, "AB12XY", truth, error);
  for (auto _ : state) benchmark::DoNotOptimize(ComputeFigures(truth, r.trace).rateShare);
}

BENCHMARK(BM_SimulatedDayDesk)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_SimulatedDayNoisyOffice)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_FiguresOfADay)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zaltor::lab

BENCHMARK_MAIN();
