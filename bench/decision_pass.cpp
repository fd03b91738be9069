// The cost of the auto loop on the simulated notebook in virtual time, where every wait
// takes no real time:
// - bm_decision_pass_four_switches: one full decision pass over four switches (sixteen modes,
//   three samples each); the process CPU time per pass is what the loop costs beyond its
//   waits (measuring, switching, deciding, logging, the monitor's rounds and the clock's
//   thread hand-overs). The passes follow each other on the loop's own timer, one second
//   apart, and the benchmark's thread sleeps until each pass's last line, so that it adds
//   no turns of its own; "allocs/pass" counts the operator new calls of the process.
//   one_cpu:1 (the figure of the pass) runs the rig's threads on one CPU: in virtual time
//   exactly one of them runs at a time, and on two cores a thread waiting for its turn
//   spins on the other core through every turn of the others, which doubles the CPU time
//   of a pass on an idle machine. That spinning belongs to the simulation: the service's
//   threads sleep with the system. one_cpu:0 lets them run on any CPU, for comparison.
// - bm_simulated_day_of_auto: the wall time of one simulated day of Auto mode while the radio
//   changes every three minutes.
#include <benchmark/benchmark.h>
#if defined(__linux__)
#include <sched.h>
#endif

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "allocation_count/allocation_count.h"
#include "rig/notebook_rig.h"

namespace zaltor::rig {
namespace {

constexpr int64_t kDayMs = 24LL * 60 * 60 * 1000;
constexpr int kChangeEverySeconds = 180;

nlohmann::json radio(int variant) {
  // A few radio situations the notebook moves between.
  static const int kMain[3][4] = {{-55, -70, -66, -60}, {-78, -62, -66, -60}, {-60, -58, -72, -65}};
  static const int kDiv[3][4] = {{-62, -58, -61, -64}, {-62, -71, -59, -63}, {-57, -66, -60, -61}};
  nlohmann::json rssi = nlohmann::json::array();
  for (int p = 0; p < 4; ++p)
    rssi.push_back({{"Main", kMain[variant][p]}, {"Div", kDiv[variant][p]}});
  return rssi;
}

// The rig's four-switch notebook; `with_timeline`: the radio changes every three minutes.
RigOptions four_switch_day(bool with_timeline) {
  RigOptions o = four_switch_notebook("30000", true);
  if (!with_timeline) return o;
  nlohmann::json patch = nlohmann::json::parse(o.scenario_patch);
  nlohmann::json timeline = nlohmann::json::array();
  for (int at = kChangeEverySeconds, i = 1; at < kDayMs / 1000; at += kChangeEverySeconds, ++i) {
    timeline.push_back({{"at", at}, {"patch", {{"radio", {{"rssi", radio(i % 3)}}}}}});
  }
  patch["timeline"] = timeline;
  o.scenario_patch = patch.dump();
  o.start_notebook = true;
  return o;
}

#if defined(__linux__)
// The CPUs the process may use when it starts.
const cpu_set_t& start_cpus() {
  static const cpu_set_t kStart = [] {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) != 0) CPU_SET(0, &set);
    return set;
  }();
  return kStart;
}
#endif

// Puts the calling thread, and the threads it starts from now on, on one CPU (the first the
// process may use) or back on all of them. False where that cannot be done.
bool use_one_cpu(bool one) {
#if defined(__linux__)
  cpu_set_t set = start_cpus();
  if (one) {
    int first = 0;
    while (first < CPU_SETSIZE && !CPU_ISSET(first, &set)) ++first;
    CPU_ZERO(&set);
    CPU_SET(first, &set);
  }
  return sched_setaffinity(0, sizeof set, &set) == 0;
#else
  return !one;
#endif
}

// Arg 1: the rig's threads share one CPU; 0: they may run on any.
void bm_decision_pass_four_switches(benchmark::State& state) {
  const bool one_cpu = state.range(0) == 1;
  if (!use_one_cpu(one_cpu)) {
    state.SkipWithError("the threads could not be put on one CPU");
    return;
  }
  NotebookRig h(four_switch_notebook("1000", false));
  const int32_t init = h.Init();
  h.take_start_request();
  if (init != 0 || h.worker().mode_count() != 16) {
    state.SkipWithError("the four-switch notebook did not start");
    return;
  }
  h.worker().SetUserMode(0);
  h.run_until_sleep_lines(1, kDayMs);
  const uint64_t allocations_before = allocation_count();
  int64_t passes = 0;
  for (auto _ : state) {
    h.run_until_sleep_lines(h.sleep_lines() + 1, kDayMs);
    ++passes;
  }
  state.counters["modes"] = h.worker().mode_count();
  if (passes > 0) {
    state.counters["allocs/pass"] =
        static_cast<double>(allocation_count() - allocations_before) / static_cast<double>(passes);
  }
}
BENCHMARK(bm_decision_pass_four_switches)
    ->ArgName("one_cpu")
    ->Arg(1)
    ->Arg(0)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

void bm_simulated_day_of_auto(benchmark::State& state) {
  use_one_cpu(false);
  for (auto _ : state) {
    NotebookRig h(four_switch_day(true));
    const int32_t init = h.Init();
    h.take_start_request();
    if (init != 0) {
      state.SkipWithError("the four-switch notebook did not start");
      return;
    }
    h.worker().SetUserMode(0);
    h.run_for(kDayMs);
    state.counters["passes"] = h.sleep_lines();
  }
}
BENCHMARK(bm_simulated_day_of_auto)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zaltor::rig

BENCHMARK_MAIN();
