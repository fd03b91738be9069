#include "engine/pass_parameters.h"

#include "engine/worker.h"

namespace zaltor::engine {

PassParameters PassParameters::Of(const AntennaSwitchWorkerObj& worker) {
  PassParameters p;
  p.set = worker.activeSet();
  if (!worker.shared.configured()) return p;
  const config::ConfigSettings& s = worker.settings();
  p.collectCount = s.RSSICollectCount[p.set];
  p.collectInterval = s.RSSICollectInterval[p.set];
  p.waitForStable = s.TimeToWaitForRSSIStable[p.set];
  p.defaultMode = s.DefaultMode[p.set];
  return p;
}

}  // namespace zaltor::engine
