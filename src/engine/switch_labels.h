#pragma once
// What the decision log prints for a switch: its name (the port name) and the labels of its
// positions 0 and 1.

#include <array>
#include <string>

#include "engine/mode_results.h"

namespace zaltor::engine {

struct SwitchLabel {
  std::string name;
  std::array<std::string, 2> positions;
};

using SwitchLabels = std::array<SwitchLabel, kMaxSwitches>;

// "Main", "Aux", "Aux2", "Aux3", each with the positions "Main" and "Div".
SwitchLabels default_switch_labels();

}  // namespace zaltor::engine
