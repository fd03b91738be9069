#pragma once
// The auto loop's interval between two evaluations: BaseSleepIntervalBetweenEval, growing
// exponentially once the same mode has been chosen more than DeterminatorStableTimesForExp
// times in a row.

#include <cstdint>

#include "config/settings.h"

namespace zaltor::engine {

struct SleepGrowth {
  int32_t stableTimes = 0;  // DeterminatorStableTimesForExp (S); below 1 disables the growth
  double x = 0.0;           // IntervalTimeExpX
  double y = 0.0;           // IntervalTimeExpY
  double yIncr = 0.0;       // IntervalTimeExpYIncr

  // The growth settings of config set `set` (an index beyond the record reads set 0).
  static SleepGrowth Of(const config::ConfigSettings& settings, std::size_t set);
};

// Milliseconds to sleep after a pass: with S >= 1 and stableCount > S,
// baseSleep * X ^ ((stableCount - S) * Yi + Y), truncated toward zero; otherwise baseSleep.
// The power follows the floating-point library (a negative X with a fractional exponent
// gives NaN, an overflow infinity). A product beyond the 32-bit range is held at its
// bounds (a huge interval stays a huge interval, still cut short by a request or a stop;
// a hugely negative one sleeps not at all), and a NaN product sleeps baseSleep, so that a
// mistuned configuration never leaves the loop without a sane pause.
int32_t AutoSleepInterval(int32_t baseSleep, uint32_t stableCount, const SleepGrowth& growth);

}  // namespace zaltor::engine
