#include "engine/auto_sleep.h"

#include <cmath>
#include <limits>

namespace zaltor::engine {

SleepGrowth SleepGrowth::of(const config::ConfigSettings& settings, std::size_t set) {
  const std::size_t s = set < static_cast<std::size_t>(config::kConfigSets) ? set : 0;
  SleepGrowth g;
  g.stable_times = settings.DeterminatorStableTimesForExp[s];
  g.x = settings.IntervalTimeExpX[s];
  g.y = settings.IntervalTimeExpY[s];
  g.y_incr = settings.IntervalTimeExpYIncr[s];
  return g;
}

int32_t auto_sleep_interval(int32_t base_sleep, uint32_t stable_count, const SleepGrowth& growth) {
  if (growth.stable_times < 1 || stable_count <= static_cast<uint32_t>(growth.stable_times)) {
    return base_sleep;
  }
  const double steps =
      static_cast<double>(stable_count - static_cast<uint32_t>(growth.stable_times));
  const double product =
      std::pow(growth.x, steps * growth.y_incr + growth.y) * static_cast<double>(base_sleep);
  if (std::isnan(product)) return base_sleep;
  constexpr double kMax = static_cast<double>(std::numeric_limits<int32_t>::max());
  constexpr double kMin = static_cast<double>(std::numeric_limits<int32_t>::min());
  if (product >= kMax) return std::numeric_limits<int32_t>::max();
  if (product <= kMin) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(product);  // truncates toward zero
}

}  // namespace zaltor::engine
