#include "engine/switch_compare.h"

#include <algorithm>

namespace zaltor::engine {

namespace {

int ClampSwitchCount(int switchCount) {
  return std::clamp(switchCount, 0, kMaxSwitches);
}

void ComparePairs(const ModeValues& values, SwitchStates& states, int switchCount,
                  ModeMask leftOut) {
  const int modeCount = 1 << switchCount;
  for (int k = 0; k < switchCount; ++k) {
    const int step = 1 << k;
    for (int m = 0; m < modeCount; ++m) {
      if ((m & step) != 0) continue;
      const int p = m + step;
      if (InMask(leftOut, m) || InMask(leftOut, p)) continue;
      const auto um = static_cast<size_t>(m);
      const auto up = static_cast<size_t>(p);
      const auto uk = static_cast<size_t>(k);
      if (values[um] > values[up]) states.zeroBetter[uk] = true;
      if (values[up] > values[um]) states.oneBetter[uk] = true;
    }
  }
}

}  // namespace

void CompareSwitchPositions(const ModeValues& values, SwitchStates& states, int switchCount,
                            ModeMask leftOut) {
  states = SwitchStates{};
  ComparePairs(values, states, ClampSwitchCount(switchCount), leftOut);
}

void CompareSwitchPositions(const ModeValues& valuesA, const ModeValues& valuesB,
                            SwitchStates& states, int switchCount, ModeMask leftOut) {
  states = SwitchStates{};
  ComparePairs(valuesA, states, ClampSwitchCount(switchCount), leftOut);
  ComparePairs(valuesB, states, ClampSwitchCount(switchCount), leftOut);
}

int SwitchPosition(const SwitchStates& states, int k, int preferred) {
  const auto uk = static_cast<size_t>(k);
  if (states.zeroBetter[uk] && !states.oneBetter[uk]) return 0;
  if (states.oneBetter[uk] && !states.zeroBetter[uk]) return 1;
  return static_cast<int>((static_cast<unsigned>(preferred) >> static_cast<unsigned>(k)) & 1u);
}

int ComposeChoice(const SwitchStates& states, int switchCount, int preferred) {
  int choice = 0;
  for (int k = 0; k < ClampSwitchCount(switchCount); ++k) {
    choice |= SwitchPosition(states, k, preferred) << k;
  }
  return choice;
}

}  // namespace zaltor::engine
