#include "engine/switch_compare.h"

#include <algorithm>

namespace zaltor::engine {

namespace {

int clamp_switch_count(int switchCount) {
  return std::clamp(switchCount, 0, kMaxSwitches);
}

void compare_pairs(const ModeValues& values, SwitchStates& states, int switchCount,
                   ModeMask disabled) {
  const int mode_count = 1 << switchCount;
  for (int k = 0; k < switchCount; ++k) {
    const int step = 1 << k;
    for (int m = 0; m < mode_count; ++m) {
      if ((m & step) != 0) continue;
      const int p = m + step;
      const auto uk = static_cast<size_t>(k);
      if (in_mask(disabled, m) || in_mask(disabled, p)) continue;
      const auto um = static_cast<size_t>(m);
      const auto up = static_cast<size_t>(p);
      if (values[um] > values[up]) states.zero_better[uk] = true;
      if (values[up] > values[um]) states.one_better[uk] = true;
    }
  }
}

}  // namespace

void CompareSwitchPositions(const ModeValues& values, SwitchStates& states, int switchCount,
                            ModeMask disabled) {
  states = SwitchStates{};
  compare_pairs(values, states, clamp_switch_count(switchCount), disabled);
}

void CompareSwitchPositions(const ModeValues& valuesA, const ModeValues& valuesB,
                            SwitchStates& states, int switchCount, ModeMask disabled) {
  states = SwitchStates{};
  compare_pairs(valuesA, states, clamp_switch_count(switchCount), disabled);
  compare_pairs(valuesB, states, clamp_switch_count(switchCount), disabled);
}

int switch_position(const SwitchStates& states, int k, int preferred) {
  const auto uk = static_cast<size_t>(k);
  if (states.zero_better[uk] && !states.one_better[uk]) return 0;
  if (states.one_better[uk] && !states.zero_better[uk]) return 1;
  return static_cast<int>((static_cast<unsigned>(preferred) >> static_cast<unsigned>(k)) & 1u);
}

int compose_choice(const SwitchStates& states, int switchCount, int preferred, ModeMask disabled) {
  int choice = 0;
  for (int k = 0; k < clamp_switch_count(switchCount); ++k) {
    choice |= switch_position(states, k, preferred) << k;
  }
  return avoid_disabled(choice, preferred, disabled);
}

int avoid_disabled(int composed, int preferred, ModeMask disabled) {
  return in_mask(disabled, composed) ? preferred : composed;
}

}  // namespace zaltor::engine
