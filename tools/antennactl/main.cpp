// antennactl: the command-line companion of the service. It talks to the running service
// over the control interface and works on configuration files.
#include <cstring>

#include "antennactl/commands.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    antennactl::print_usage();
    return 2;
  }
  if (std::strcmp(argv[1], "config") == 0)
    return antennactl::run_config_command(argc - 1, argv + 1);
  if (std::strcmp(argv[1], "lab") == 0) return antennactl::run_lab_command(argc - 1, argv + 1);
  return antennactl::run_control_command(argc - 1, argv + 1);
}
