#pragma once
// The figures of one lab run: how close the engine kept the notebook to the best mode.
//
// The run is walked in steps of kTruthStepMs; the truth is taken at the start of each step
// (the moving radio changes slowly against it), the switch events at the millisecond.
// rateShare and rssiLossDb compare the mode in use (the mode the engine settled on; during a
// pass's measuring excursions still the mode it stood in before) with the best mode; the
// cost of the excursions themselves is measuringShare.

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/lab_trace.h"
#include "lab/lab_truth.h"

namespace zaltor::lab {

constexpr int64_t kTruthStepMs = 100;

struct Figures {
  double simulatedSeconds = 0;
  int passes = 0;
  int modeChanges = 0;
  std::vector<double> secondsPerMode;  // the switches standing in each mode, mode 1 first
  double rateShare = 1.0;
  double rssiLossDb = 0;
  double measuringShare = 0;
  // Over the moments the best mode changed; 0 and 0 when it never did.
  double reaction_mean = 0;
  double reaction_max = 0;
  int best_mode_changes = 0;
  int fallbacks = 0;
};

// The figures of `trace` against `truth`, counting only what happens from `from_ms` on (0:
// the whole run).
Figures compute_figures(const Truth& truth, const Trace& trace, int64_t from_ms = 0);

// The figures as the lab's JSON members (without "scenario" and "config").
nlohmann::json figures_to_json(const Figures& f);
// Back from that JSON (a child of `lab run` sends its figures so); false when malformed.
bool figures_from_json(const nlohmann::json& j, Figures& f);

}  // namespace zaltor::lab
