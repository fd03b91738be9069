#pragma once
// One lab run: the service's own worker (its determinators, auto loop, monitor and event
// handling) on a simulated notebook in virtual time, from the scenario's start to its
// stopAfter, while the lab records what the engine does with the switches.
//
// A run uses process-wide state of the engine (the WLAN callback's remembered worker), so a
// process runs one at a time; `antennactl lab run` runs each in a child process to use
// every core.

#include <string>

#include "lab/lab_figures.h"
#include "lab/lab_trace.h"
#include "lab/lab_truth.h"

namespace zaltor::lab {

struct RunRequest {
  std::string scenario_path;
  std::string config_path;  // plain or encrypted
  std::string model;        // the board's product name (empty: the scenario's own)
  bool figures = true;      // false: only the trace (a child of `lab run` leaves them to it)
};

struct RunResult {
  bool ok = false;
  std::string error;  // names the scenario or the configuration that was refused
  Trace trace;
  Figures figures;
  // With `keep_log`: the text of every log call of the worker, as the service appends it to
  // its log file ("rflog.txt") in console mode, the configuration report first.
  std::string log_text;
};

RunResult run_one(const RunRequest& request);

// The same with the scenario and the configuration given as text (tests). `scenario_name`
// and `config_name` name them in messages.
RunResult run_one_text(const std::string& scenario_text, const std::string& scenario_name,
                       const std::vector<uint8_t>& config_bytes, const std::string& config_name,
                       const std::string& model, bool figures = true, bool keep_log = false);

// The scenario text as a lab run uses it: in virtual time and, when `model` is given, on a
// board with that product name. False with `error` when it is not JSON or has no stopAfter.
bool prepare_scenario(const std::string& text, const std::string& model, std::string& prepared,
                      std::string& error);
// The truth of the prepared scenario.
bool load_truth_for_run(const std::string& text, const std::string& model, Truth& truth,
                        std::string& error);

// Reads a whole file; false when it cannot be read.
bool read_whole_file(const std::string& path, std::vector<uint8_t>& data);

}  // namespace zaltor::lab
