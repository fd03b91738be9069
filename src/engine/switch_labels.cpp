#include "engine/switch_labels.h"

#include "platform/switch_table.h"

namespace zaltor::engine {

SwitchLabels default_switch_labels() {
  SwitchLabels labels;
  for (int k = 0; k < kMaxSwitches; ++k) {
    labels[static_cast<size_t>(k)].name = platform::kPortNames[static_cast<size_t>(k)];
    labels[static_cast<size_t>(k)].positions = {platform::kPositionNames[platform::kPositionMain],
                                                platform::kPositionNames[platform::kPositionDiv]};
  }
  return labels;
}

}  // namespace zaltor::engine
