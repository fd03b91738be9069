#include "engine/pass_parameters.h"

#include "engine/worker.h"

namespace zaltor::engine {

PassParameters PassParameters::of(const AntennaSwitchWorkerObj& worker) {
  PassParameters p;
  p.set = worker.active_set();
  if (!worker.shared.configured()) return p;
  const config::ConfigSettings& s = worker.settings();
  p.collect_count = s.RSSICollectCount[p.set];
  p.collect_interval = s.RSSICollectInterval[p.set];
  p.wait_for_stable = s.TimeToWaitForRSSIStable[p.set];
  p.default_mode = s.DefaultMode[p.set];
  return p;
}

}  // namespace zaltor::engine
