#pragma once
// The lab's results as JSON and as a table.

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/lab_figures.h"
#include "lab/lab_trace.h"

namespace zaltor::lab {

struct RunRow {
  std::string scenario;  // file names as given
  std::string config;
  Figures figures;
  Trace trace;
};

// The file name part of a path.
std::string base_name(const std::string& path);

// {"runs": [{"scenario": ..., "config": ..., figures...}]} with file names without folders.
// With `traces`, each run also carries "trace": what the engine did with the switches.
nlohmann::json runs_to_json(const std::vector<RunRow>& rows, bool traces = false);

// One line per run under a heading, aligned.
std::string runs_to_table(const std::vector<RunRow>& rows);

}  // namespace zaltor::lab
