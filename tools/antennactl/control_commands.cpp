// Control commands of antennactl: not built yet.
#include <cstdio>

#include "antennactl/commands.h"

namespace antennactl {

int run_control_command(int, char**) {
  std::fprintf(stderr, "antennactl: the control commands are not available in this build\n");
  return 2;
}

void print_usage() { std::fprintf(stderr, "usage: antennactl COMMAND [ARG ...]\n"); }

}  // namespace antennactl
