#pragma once
// Tie resolution by switch: for each switch, whether position 0 or position 1 wins any of
// the pairs of modes that differ only in that switch.

#include <array>

#include "engine/mode_results.h"

namespace zaltor::engine {

struct SwitchStates {
  std::array<bool, kMaxSwitches> zeroBetter{};
  std::array<bool, kMaxSwitches> oneBetter{};
};

// For switch k, over every mode index m below 2^switchCount whose bit k is 0, paired with
// p = m + 2^k: zeroBetter[k] when values[m] > values[p] for some pair, oneBetter[k] when
// values[p] > values[m] for some pair. switchCount is clamped to 0..4.
//
// A pair with a mode in leftOut (the disabled modes) is not compared at all: a disabled
// mode has no measurement, so whatever its entry holds must neither win nor lose a pair.
void CompareSwitchPositions(const ModeValues& values, SwitchStates& states, int switchCount,
                            ModeMask leftOut = 0);

// Two-array form: a flag is set when the comparison holds in either array.
void CompareSwitchPositions(const ModeValues& valuesA, const ModeValues& valuesB,
                            SwitchStates& states, int switchCount, ModeMask leftOut = 0);

// The position of switch k after a comparison: 0 when only position 0 won, 1 when only
// position 1 won, otherwise bit k of preferred.
int SwitchPosition(const SwitchStates& states, int k, int preferred);

// A mode index composed switch by switch with SwitchPosition (no log lines).
int ComposeChoice(const SwitchStates& states, int switchCount, int preferred);

}  // namespace zaltor::engine
