// What virtual time costs the lab: one simulated day of Auto mode on the two-switch sample
// notebook (samples/Conf.ini, the desk and the noisy-office scenarios of
// samples/scenarios/ run for 24 hours), with the service's own worker on the simulated
// notebook's virtual clock. Reported: the wall time per simulated day, and "sim_s_per_s",
// simulated seconds per wall second. bm_figures_of_a_day is the lab's scoring of such a day
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

std::string read_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string day_of(const std::string& name) {
  nlohmann::json doc = nlohmann::json::parse(
      read_text(std::string(ZALTOR_SOURCE_DIR) + "/samples/scenarios/" + name));
  doc["stopAfter"] = kDayS;
  return doc.dump();
}

std::vector<uint8_t> sample_config() {
  const std::string text = read_text(std::string(ZALTOR_SOURCE_DIR) + "/samples/Conf.ini");
  return std::vector<uint8_t>(text.begin(), text.end());
}

void run_day(benchmark::State& state, const std::string& scenario_name) {
  const std::string scenario = day_of(scenario_name);
  const std::vector<uint8_t> config = sample_config();
  for (auto _ : state) {
    const RunResult r = run_one_text(scenario, scenario_name, config, "Conf.ini", "AB12XY", false);
    if (!r.ok) state.SkipWithError(r.error.c_str());
    benchmark::DoNotOptimize(r.trace.switches.size());
  }
  state.counters["sim_s_per_s"] = benchmark::Counter(
      kDayS * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void bm_simulated_day_desk(benchmark::State& state) {
  run_day(state, "desk-5ghz.json");
}
void bm_simulated_day_noisy_office(benchmark::State& state) {
  run_day(state, "noisy-office.json");
}

void bm_figures_of_a_day(benchmark::State& state) {
  const std::string scenario = day_of("noisy-office.json");
  const RunResult r =
      run_one_text(scenario, "noisy-office.json", sample_config(), "Conf.ini", "AB12XY", false);
  if (!r.ok) {
    state.SkipWithError(r.error.c_str());
    return;
  }
  Truth truth;
  std::string error;
  load_truth_for_run(scenario, "AB12XY", truth, error);
  for (auto _ : state) benchmark::DoNotOptimize(compute_figures(truth, r.trace).rateShare);
}

BENCHMARK(bm_simulated_day_desk)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(bm_simulated_day_noisy_office)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(2.0);
BENCHMARK(bm_figures_of_a_day)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zaltor::lab

BENCHMARK_MAIN();
