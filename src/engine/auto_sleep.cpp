#include "engine/auto_sleep.h"

#include <cmath>
#include <limits>

namespace zaltor::engine {

SleepGrowth SleepGrowth::Of(const config::ConfigSettings& settings, std::size_t set) {
  const std::size_t s = set < static_cast<std::size_t>(config::kConfigSets) ? set : 0;
  SleepGrowth g;
  g.stableTimes = settings.DeterminatorStableTimesForExp[s];
  g.x = settings.IntervalTimeExpX[s];
  g.y = settings.IntervalTimeExpY[s];
  g.yIncr = settings.IntervalTimeExpYIncr[s];
  return g;
}

int32_t AutoSleepInterval(int32_t baseSleep, uint32_t stableCount, const SleepGrowth& growth) {
  if (growth.stableTimes < 1 || stableCount <= static_cast<uint32_t>(growth.stableTimes)) {
    return baseSleep;
  }
  const double steps = static_cast<double>(stableCount - static_cast<uint32_t>(growth.stableTimes));
  const double product =
      std::pow(growth.x, steps * growth.yIncr + growth.y) * static_cast<double>(baseSleep);
  if (std::isnan(product)) return baseSleep;
  constexpr double kMax = static_cast<double>(std::numeric_limits<int32_t>::max());
  constexpr double kMin = static_cast<double>(std::numeric_limits<int32_t>::min());
  if (product >= kMax) return std::numeric_limits<int32_t>::max();
  if (product <= kMin) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(product);  // truncates toward zero
}

}  // namespace zaltor::engine
