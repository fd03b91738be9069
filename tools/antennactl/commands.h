#pragma once
// antennactl's command groups. Exit codes: 0 done, 1 a configuration was refused,
// 2 usage error, 3 the service could not be reached or the call faulted.

namespace antennactl {

// "config encrypt|decrypt|check ..." (argv[0] is "config").
int run_config_command(int argc, char** argv);
// Every command that talks to the running service (argv[0] is the command word).
int run_control_command(int argc, char** argv);
// "lab run|replay ..." (argv[0] is "lab"): configurations evaluated on scenarios.
int run_lab_command(int argc, char** argv);
// Prints the usage text of both groups.
void print_usage();

}  // namespace antennactl
