#pragma once
// The switch and port mapping: per port its RSSI counter letter and path, its switch's
// control line and the control values of each switch position, from the ".GPIO" sections.

#include <cstdint>
#include <string>

#include "config/settings_reader.h"

namespace zaltor::config {

// "\Intel-Wifi- Rssi Per Antenna\Rssi Antenna %c"
inline constexpr const char* kRssiCounterPathFormat =
    "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna %c";

// Reads the mapping of ports 0..port_count - 1 into `table` (a count above four reads four
// ports; every port, the fourth included, gets its counter path formatted). Messages go to
// `log` at level 2. 0, SWITCH_ERR_RSSI_PA (41) for a missing or duplicated PCW letter, or
// kSwitchErrInvalidPosition (38) when a switch position is unusable.
Status read_switch_mapping(IniSource& src, const SectionList& sections, int32_t port_count,
                           platform::SwitchTable& table, Log& log);

}  // namespace zaltor::config
