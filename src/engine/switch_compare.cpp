#include "engine/switch_compare.h"

#include <algorithm>

namespace zaltor::engine {

namespace {

int ClampSwitchCount(int switchCount) {
  return std::clamp(switchCount, 0, kMaxSwitches);
}

void ComparePairs(const ModeValues& values, SwitchStates& states, int switchCount,
                  ModeMask disabled) {
  const int modeCount = 1 << switchCount;
  for (int k = 0; k < switchCount; ++k) {
    const int step = 1 << k;
    for (int m = 0; m < modeCount; ++m) {
      if ((m & step) != 0) continue;
      const int p = m + step;
      const auto uk = static_cast<size_t>(k);
      if (InMask(disabled, m) || InMask(disabled, p)) continue;
      const auto um = static_cast<size_t>(m);
      const auto up = static_cast<size_t>(p);
      if (values[um] > values[up]) states.zeroBetter[uk] = true;
      if (values[up] > values[um]) states.oneBetter[uk] = true;
    }
  }
}

}  // namespace

void CompareSwitchPositions(const ModeValues& values, SwitchStates& states, int switchCount,
                            ModeMask disabled) {
  states = SwitchStates{};
  ComparePairs(values, states, ClampSwitchCount(switchCount), disabled);
}

void CompareSwitchPositions(const ModeValues& valuesA, const ModeValues& valuesB,
                            SwitchStates& states, int switchCount, ModeMask disabled) {
  states = SwitchStates{};
  ComparePairs(valuesA, states, ClampSwitchCount(switchCount), disabled);
  ComparePairs(valuesB, states, ClampSwitchCount(switchCount), disabled);
}

int SwitchPosition(const SwitchStates& states, int k, int preferred) {
  const auto uk = static_cast<size_t>(k);
  if (states.zeroBetter[uk] && !states.oneBetter[uk]) return 0;
  if (states.oneBetter[uk] && !states.zeroBetter[uk]) return 1;
  return static_cast<int>((static_cast<unsigned>(preferred) >> static_cast<unsigned>(k)) & 1u);
}

int ComposeChoice(const SwitchStates& states, int switchCount, int preferred, ModeMask disabled) {
  int choice = 0;
  for (int k = 0; k < ClampSwitchCount(switchCount); ++k) {
    choice |= SwitchPosition(states, k, preferred) << k;
  }
  return AvoidDisabled(choice, preferred, disabled);
}

int AvoidDisabled(int composed, int preferred, ModeMask disabled) {
  return InMask(disabled, composed) ? preferred : composed;
}

}  // namespace zaltor::engine
