// Scaled time: the machine's clock run `speed` times faster.
#include "platform/sim/sim_clocks.h"

namespace zaltor::platform::sim {

std::unique_ptr<Clock> make_scaled_clock(double speed) {
  return make_machine_clock(speed);
}

}  // namespace zaltor::platform::sim
