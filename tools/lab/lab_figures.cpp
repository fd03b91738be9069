#include "lab/lab_figures.h"

#include <algorithm>
#include <cmath>

namespace zaltor::lab {
namespace {

double rate_of(const std::vector<double>& rate, int mode) {
  return mode >= 1 && static_cast<size_t>(mode) <= rate.size() ? rate[static_cast<size_t>(mode - 1)]
                                                               : 0.0;
}
double rssi_of(const std::vector<double>& rssi, int mode) {
  return mode >= 1 && static_cast<size_t>(mode) <= rssi.size() ? rssi[static_cast<size_t>(mode - 1)]
                                                               : -95.0;
}

struct OpenReaction {
  int64_t since_ms;
  int target;
};

}  // namespace

Figures compute_figures(const Truth& truth, const Trace& trace, int64_t from_ms) {
  Figures f;
  const int64_t end = trace.end_ms;
  from_ms = std::clamp<int64_t>(from_ms, 0, end);
  f.secondsPerMode.assign(static_cast<size_t>(truth.modes()), 0.0);

  int actual = trace.initial_mode;  // what the switches form
  int in_use = trace.initial_mode;  // what the engine settled on
  bool measuring = false;
  size_t ev = 0;
  auto apply = [&](const SwitchEvent& e) {
    actual = e.mode;
    measuring = e.measuring;
    if (!e.measuring) {
      // A change at the window's very start is where the window begins, not a change in it.
      if (e.mode != in_use && (from_ms == 0 || e.at_ms > from_ms)) ++f.modeChanges;
      in_use = e.mode;
    }
  };

  double rate_in_use = 0, rate_best = 0, loss_sum = 0, measuring_ms = 0, total_ms = 0;
  std::vector<OpenReaction> open;
  std::vector<double> reactions;
  std::vector<double> rate, rssi;
  int prev_best = 0;

  for (int64_t t = 0; t < end; t += kTruthStepMs) {
    const int64_t step_end = std::min(t + kTruthStepMs, end);
    truth.at(t, rate, rssi);
    const int best = Truth::best(rate, rssi);
    if (prev_best != 0 && best != prev_best && t >= from_ms) {
      ++f.best_mode_changes;
      open.push_back({t, best});
    }
    prev_best = best;

    for (int64_t a = t; a < step_end;) {
      while (ev < trace.switches.size() && trace.switches[ev].at_ms <= a)
        apply(trace.switches[ev++]);
      // A reaction ends when the mode in use is its best mode.
      for (size_t i = 0; i < open.size();) {
        if (open[i].target == in_use) {
          reactions.push_back(static_cast<double>(a - open[i].since_ms) / 1000.0);
          open.erase(open.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
          ++i;
        }
      }
      int64_t b = step_end;
      if (ev < trace.switches.size() && trace.switches[ev].at_ms < b) b = trace.switches[ev].at_ms;
      const int64_t lo = std::max(a, from_ms);
      if (b > lo) {
        const auto dt = static_cast<double>(b - lo);
        total_ms += dt;
        rate_in_use += rate_of(rate, in_use) * dt;
        rate_best += rate_of(rate, best) * dt;
        loss_sum += (rssi_of(rssi, best) - rssi_of(rssi, in_use)) * dt;
        if (measuring) measuring_ms += dt;
        if (actual >= 1 && actual <= truth.modes()) {
          f.secondsPerMode[static_cast<size_t>(actual - 1)] += dt / 1000.0;
        }
      }
      a = b;
    }
  }
  // Writes at the very end still count as changes; reactions still open last to the end.
  while (ev < trace.switches.size()) apply(trace.switches[ev++]);
  for (const auto& o : open) reactions.push_back(static_cast<double>(end - o.since_ms) / 1000.0);

  f.simulatedSeconds = static_cast<double>(end - from_ms) / 1000.0;
  f.rateShare = rate_best > 0 ? rate_in_use / rate_best : 1.0;
  f.rssiLossDb = total_ms > 0 ? loss_sum / total_ms : 0.0;
  f.measuringShare = total_ms > 0 ? measuring_ms / total_ms : 0.0;
  if (!reactions.empty()) {
    double sum = 0;
    for (double r : reactions) sum += r;
    f.reaction_mean = sum / static_cast<double>(reactions.size());
    f.reaction_max = *std::max_element(reactions.begin(), reactions.end());
  }
  for (const auto& p : trace.passes) {
    if (p.start_ms < from_ms) continue;
    ++f.passes;
    if (p.fallback) ++f.fallbacks;
  }
  return f;
}

nlohmann::json figures_to_json(const Figures& f) {
  // Rounded so that the table and the JSON agree and diffs between runs stay readable.
  auto r = [](double v, double unit) { return std::round(v / unit) * unit; };
  nlohmann::json j;
  j["simulatedSeconds"] = r(f.simulatedSeconds, 0.001);
  j["passes"] = f.passes;
  j["modeChanges"] = f.modeChanges;
  auto per = nlohmann::json::array();
  for (double s : f.secondsPerMode) per.push_back(r(s, 0.001));
  j["secondsPerMode"] = std::move(per);
  j["rateShare"] = r(f.rateShare, 1e-6);
  j["rssiLossDb"] = r(f.rssiLossDb, 1e-4);
  j["measuringShare"] = r(f.measuringShare, 1e-6);
  j["reactionSeconds"] = {{"mean", r(f.reaction_mean, 0.001)}, {"max", r(f.reaction_max, 0.001)}};
  j["fallbacks"] = f.fallbacks;
  j["bestModeChanges"] = f.best_mode_changes;
  return j;
}

bool figures_from_json(const nlohmann::json& j, Figures& f) {
  try {
    f.simulatedSeconds = j.at("simulatedSeconds").get<double>();
    f.passes = j.at("passes").get<int>();
    f.modeChanges = j.at("modeChanges").get<int>();
    f.secondsPerMode = j.at("secondsPerMode").get<std::vector<double>>();
    f.rateShare = j.at("rateShare").get<double>();
    f.rssiLossDb = j.at("rssiLossDb").get<double>();
    f.measuringShare = j.at("measuringShare").get<double>();
    f.reaction_mean = j.at("reactionSeconds").at("mean").get<double>();
    f.reaction_max = j.at("reactionSeconds").at("max").get<double>();
    f.fallbacks = j.at("fallbacks").get<int>();
    f.best_mode_changes = j.at("bestModeChanges").get<int>();
  } catch (const nlohmann::json::exception&) {
    return false;
  }
  return true;
}

}  // namespace zaltor::lab
