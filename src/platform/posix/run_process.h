#pragma once
// Runs a program found on PATH and collects its output.

#include <string>
#include <vector>

namespace zaltor::platform {

struct ProcessResult {
  bool started = false;  // false when the program could not be run at all
  int exit_code = -1;    // -1 when it ended by a signal
  std::string out;
  std::string err;
};

ProcessResult run_process(const std::vector<std::string>& argv);

}  // namespace zaltor::platform
