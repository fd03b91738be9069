#pragma once
// The auto loop's interval between two evaluations: BaseSleepIntervalBetweenEval, growing
// exponentially once the same mode has been chosen more than DeterminatorStableTimesForExp
// times in a row.

#include <cstdint>

#include "config/settings.h"

namespace zaltor::engine {

struct SleepGrowth {
  int32_t stable_times = 0;  // DeterminatorStableTimesForExp (S); below 1 disables the growth
  double x = 0.0;            // IntervalTimeExpX
  double y = 0.0;            // IntervalTimeExpY
  double y_incr = 0.0;       // IntervalTimeExpYIncr

  // The growth settings of config set `set` (an index beyond the record reads set 0).
  static SleepGrowth of(const config::ConfigSettings& settings, std::size_t set);
};

// Milliseconds to sleep after a pass: with S >= 1 and stableCount > S,
// baseSleep * X ^ ((stableCount - S) * Yi + Y), truncated toward zero; otherwise baseSleep.
// The power follows the floating-point library (a negative X with a fractional exponent
// gives NaN, an overflow infinity). A product beyond the 32-bit range is held at its
// bounds (a huge interval stays a huge interval, still cut short by a request or a stop;
// a hugely negative one sleeps not at all), and a NaN product sleeps baseSleep, so that a
// mistuned configuration never leaves the loop without a sane pause.
int32_t auto_sleep_interval(int32_t base_sleep, uint32_t stable_count, const SleepGrowth& growth);

}  // namespace zaltor::engine
