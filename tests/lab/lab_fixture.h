#pragma once
// Scenarios and configurations of the lab's tests, and a shortcut to run one.

#include <string>
#include <vector>

#include "lab/lab_run.h"

namespace zaltor::lab::testing {

// A two-switch AB12XY notebook (lines 51: mode 1 at start) on a 2.4 GHz channel without
// Bluetooth devices (config set 0), both RSSI counters.
// `radio` replaces the radio member; `extra` adds members (both JSON object bodies).
std::string scenario_text(int stop_after_s, const std::string& radio,
                          const std::string& extra = "");

// A configuration for AB12 whose every set uses the RSSI determinator, a stabilisation wait
// of 1 s, 3 samples 1 s apart, 60 s between passes without growth and a 5 s monitor
// interval; `weight2` is RSSIWeightForMode_2.
std::string config_text(double weight2 = 0.0);

RunResult run_lab(const std::string& scenario, const std::string& config);

// What a pass costs in measuring time with Config(): three modes, each 1 s of stabilisation
// and 3 samples 1 s apart (the first at once).
constexpr double kMeasuringPerPassS = 3 * (1.0 + 2 * 1.0);

}  // namespace zaltor::lab::testing
