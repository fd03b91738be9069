#pragma once
// The configuration report written to the log at start (level 5): every effective value
// with the section that supplied it.

#include <cstdint>

#include "config/configuration.h"

namespace zaltor::config {

// Writes the report for `mode_count` modes (at most 16 are listed) and `switch_count`
// ports (at most four). Weights and disabled flags of modes 10 and above show the section
// of their own two-digit key.
void write_config_report(Log& log, const Configuration& cfg, uint32_t mode_count,
                         int32_t switch_count);

}  // namespace zaltor::config
