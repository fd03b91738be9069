// Chooses the notebook's clock by the scenario's clock mode.
#include "platform/sim/sim_clocks.h"

namespace zaltor::platform::sim {

std::unique_ptr<Clock> make_sim_clock(const std::string& mode, double speed) {
  if (mode == "scaled") return make_scaled_clock(speed);
  if (mode == "virtual") return make_virtual_clock();
  return nullptr;
}

}  // namespace zaltor::platform::sim
