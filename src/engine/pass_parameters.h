#pragma once
// What one pass of the auto loop reads from the config set in force, taken once when the
// pass begins to measure. The monitor may consume a request mid-pass and bring a pending
// set into force; the pass still finishes with the set it began with, so that its sample
// rows keep one stride (RSSICollectCount) from the first measurement to DetermineMode. The
// next pass takes the new set.

#include <cstddef>
#include <cstdint>

namespace zaltor::engine {

class AntennaSwitchWorkerObj;

struct PassParameters {
  std::size_t set = 0;           // the config set index of the pass
  int32_t collect_count = 0;     // RSSICollectCount
  int32_t collect_interval = 0;  // RSSICollectInterval, milliseconds
  int32_t wait_for_stable = 0;   // TimeToWaitForRSSIStable, milliseconds
  int32_t default_mode = 0;      // DefaultMode

  // The parameters of the set in force now. Before the configuration is loaded every
  // value is 0.
  static PassParameters of(const AntennaSwitchWorkerObj& worker);
};

}  // namespace zaltor::engine
