#pragma once
// What one call into the simulated hardware costs on the notebook's clock: a control device
// request, a counter collection, a WLAN query (enumeration, connection, channel). Real
// calls take time too, and a loop that calls the hardware without ever waiting (a
// measurement retrying a link rate of 0) must still let the notebook's time run, or a
// virtual clock would never advance again and nothing else would run.

#include <cstdint>

namespace zaltor::platform::sim {

constexpr int64_t kHardwareCallMs = 1;

}  // namespace zaltor::platform::sim
