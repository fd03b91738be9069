// Configuration commands of antennactl: not built yet.
#include <cstdio>

#include "antennactl/commands.h"

namespace antennactl {

int run_config_command(int, char**) {
  std::fprintf(stderr, "antennactl: the config commands are not available in this build\n");
  return 2;
}

}  // namespace antennactl
