#include "lab/lab_output.h"

#include <algorithm>
#include <cstdio>

namespace zaltor::lab {

std::string base_name(const std::string& path) {
  const size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

nlohmann::json runs_to_json(const std::vector<RunRow>& rows, bool traces) {
  auto runs = nlohmann::json::array();
  for (const auto& row : rows) {
    nlohmann::json j = figures_to_json(row.figures);
    j["scenario"] = base_name(row.scenario);
    j["config"] = base_name(row.config);
    if (traces) j["trace"] = trace_to_json(row.trace);
    runs.push_back(std::move(j));
  }
  return {{"runs", std::move(runs)}};
}

std::string runs_to_table(const std::vector<RunRow>& rows) {
  size_t sw = 8;
  size_t cw = 6;
  for (const auto& row : rows) {
    sw = std::max(sw, base_name(row.scenario).size());
    cw = std::max(cw, base_name(row.config).size());
  }
  std::string out;
  char line[512];
  std::snprintf(line, sizeof line, "%-*s  %-*s  %9s  %6s  %7s  %9s  %8s  %9s  %8s  %8s  %9s  %s\n",
                static_cast<int>(sw), "scenario", static_cast<int>(cw), "config", "simulated",
                "passes", "changes", "rateShare", "rssiLoss", "measuring", "reactAvg", "reactMax",
                "fallbacks", "secondsPerMode");
  out += line;
  for (const auto& row : rows) {
    const Figures& f = row.figures;
    std::string per_mode;
    for (double s : f.secondsPerMode) {
      char part[32];
      std::snprintf(part, sizeof part, "%s%.0f", per_mode.empty() ? "" : "/", s);
      per_mode += part;
    }
    std::snprintf(
        line, sizeof line,
        "%-*s  %-*s  %8.0fs  %6d  %7d  %9.4f  %6.2fdB  %8.2f%%  %7.1fs  %7.1fs  %9d  %s\n",
        static_cast<int>(sw), base_name(row.scenario).c_str(), static_cast<int>(cw),
        base_name(row.config).c_str(), f.simulatedSeconds, f.passes, f.modeChanges, f.rateShare,
        f.rssiLossDb, f.measuringShare * 100.0, f.reaction_mean, f.reaction_max, f.fallbacks,
        per_mode.c_str());
    out += line;
  }
  return out;
}

}  // namespace zaltor::lab
