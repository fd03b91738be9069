#pragma once
// Tie resolution by switch: for each switch, whether position 0 or position 1 wins any of
// the pairs of modes that differ only in that switch.

#include <array>

#include "engine/mode_results.h"

namespace zaltor::engine {

struct SwitchStates {
  std::array<bool, kMaxSwitches> zero_better{};
  std::array<bool, kMaxSwitches> one_better{};
};

// For switch k, over every mode index m below 2^switchCount whose bit k is 0, paired with
// p = m + 2^k: zeroBetter[k] when values[m] > values[p] for some pair, oneBetter[k] when
// values[p] > values[m] for some pair. switchCount is clamped to 0..4.
//
// Disabled modes have no measurement, so their entries are never compared: a pair with a
// disabled mode is left out and sets no flag. Their stale or reset values thus can neither
// make them preferable nor push a switch either way, and where every remaining pair is
// equal the switch follows the preferred mode (so equal values give the last enabled mode).
// That the composition cannot end on a disabled mode is compose_choice's part.
void CompareSwitchPositions(const ModeValues& values, SwitchStates& states, int switchCount,
                            ModeMask disabled = 0);

// Two-array form: a flag is set when the comparison holds in either array.
void CompareSwitchPositions(const ModeValues& valuesA, const ModeValues& valuesB,
                            SwitchStates& states, int switchCount, ModeMask disabled = 0);

// The position of switch k after a comparison: 0 when only position 0 won, 1 when only
// position 1 won, otherwise bit k of preferred.
int switch_position(const SwitchStates& states, int k, int preferred);

// A mode index composed switch by switch with SwitchPosition (no log lines). The composed
// mode is taken as it is, even when it is none of the tied modes, with one exception: a
// composed mode that is disabled is replaced by preferred (the last tied mode, enabled),
// because a disabled mode must never be set. With the disabled pairs left out this happens
// e.g. when index 3 of four is disabled and indices 1 and 2 tie above index 0.
int compose_choice(const SwitchStates& states, int switchCount, int preferred,
                   ModeMask disabled = 0);

// The exception above on its own, for a choice composed elsewhere.
int avoid_disabled(int composed, int preferred, ModeMask disabled);

}  // namespace zaltor::engine
