#pragma once
// Per-mode arrays of one evaluation. Modes are indexed from 0 here; every log line prints
// index + 1. Bit k of a mode index is the position (0 or 1) of switch k.

#include <array>
#include <cstdint>

namespace zaltor::engine {

constexpr int kMaxSwitches = 4;
constexpr int kMaxModes = 1 << kMaxSwitches;

// The no-value RSSI of the engine (a failed or missing measurement).
constexpr double kNoRssiValue = -200.0;

using ModeValues = std::array<double, kMaxModes>;

// Bit i set: mode index i is left out (disabled by the configuration).
using ModeMask = uint32_t;

inline bool in_mask(ModeMask mask, int modeIndex) {
  return ((mask >> static_cast<unsigned>(modeIndex)) & 1u) != 0;
}

// Averages of one evaluation. Entries of disabled modes keep their reset values
// (avgRssi and weighted at the no-value RSSI, avgRate at 0) so that every entry is defined.
struct ModeResults {
  ModeValues avg_rssi{};
  ModeValues avgRate{};
  ModeValues weighted{};
  // How the evaluation went besides the choice, for the decision journal: modes without a
  // successful sample, every enabled mode below the threshold, and whether DoubleCheck's
  // two measures disagreed (its fallback does not set the fallback flag).
  int failures = 0;
  bool all_below = false;
  bool mismatch = false;

  void reset() {
    avg_rssi.fill(kNoRssiValue);
    avgRate.fill(0.0);
    weighted.fill(kNoRssiValue);
    failures = 0;
    all_below = false;
    mismatch = false;
  }
};

}  // namespace zaltor::engine
