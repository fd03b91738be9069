#pragma once
// antennactl's command groups. Exit codes: 0 done, 1 a configuration was refused,
// 2 usage error, 3 the service could not be reached or the call faulted.

#include <cstdint>
#include <string>
#include <vector>

namespace antennactl {

inline constexpr int kExitDone = 0;
inline constexpr int kExitRefused = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitFault = 3;

// "config encrypt|decrypt|check ..." (argv[0] is "config").
int run_config_command(int argc, char** argv);
// Every command that talks to the running service (argv[0] is the command word).
int run_control_command(int argc, char** argv);
// why, history, health, watch (the diagnostics interface); `args` without --json.
bool is_diagnostics_command(const std::string& command);
int run_diagnostics_command(const std::string& command, const std::vector<std::string>& args,
                            bool as_json);
// "lab run|replay ..." (argv[0] is "lab"): configurations evaluated on scenarios.
int run_lab_command(int argc, char** argv);
// The auto loop's state as a word: "measuring", "idle", "ended" ("?" for anything else).
const char* auto_state_name(int32_t v);
// Prints the usage text of both groups.
void print_usage();

}  // namespace antennactl
