#include "engine/tie_resolution.h"

#include <algorithm>

namespace zaltor::engine {

namespace {

int compose_logged(const TieContext& ctx, const SwitchStates& states, int preferred) {
  Log& log = ctx.log;
  log.write(kLogDetail, "Determined Switch States: ");
  int choice = 0;
  const int switches = std::clamp(ctx.switchCount, 0, kMaxSwitches);
  for (int k = 0; k < switches; ++k) {
    const auto uk = static_cast<size_t>(k);
    log.write(kLogDetail, "{%d, %d} = ", states.zero_better[uk] ? 1 : 0,
              states.one_better[uk] ? 1 : 0);
    const int position = switch_position(states, k, preferred);
    if (states.zero_better[uk] != states.one_better[uk]) {
      log.write(kLogDetail, "%s", ctx.labels[uk].positions[static_cast<size_t>(position)].c_str());
    } else {
      log.write(kLogDetail, "**(%d)", position);
    }
    log.write(kLogDetail, ", ");
    choice |= position << k;
  }
  log.write(kLogDetail, "\n");
  return avoid_disabled(choice, preferred, ctx.disabled);
}

int preamble(const TieContext& ctx, const ScanResult& scan) {
  ctx.log.write(kLogDetail, "Use more precise methods with switch count %d...\n", ctx.switchCount);
  const int preferred = scan.preferred();
  ctx.log.write(kLogInfo, "Preferred mode = %d\n", preferred + 1);
  return preferred;
}

}  // namespace

int resolve_ties_logged(const TieContext& ctx, const ScanResult& scan, const ModeValues& values) {
  const int preferred = preamble(ctx, scan);
  SwitchStates states;
  CompareSwitchPositions(values, states, ctx.switchCount, ctx.disabled);
  return compose_logged(ctx, states, preferred);
}

int resolve_ties_logged(const TieContext& ctx, const ScanResult& scan, const ModeValues& valuesA,
                        const ModeValues& valuesB) {
  const int preferred = preamble(ctx, scan);
  SwitchStates states;
  CompareSwitchPositions(valuesA, valuesB, states, ctx.switchCount, ctx.disabled);
  return compose_logged(ctx, states, preferred);
}

}  // namespace zaltor::engine
