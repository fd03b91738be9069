#include "engine/determinators.h"

namespace zaltor::engine {

namespace {

int nothing_qualified(const DecisionContext& ctx) {
  return ctx.default_mode - 1;
}

void log_determined(const DecisionContext& ctx, int choice) {
  ctx.in.log.write(kLogInfo, "Determined mode: %d\n", choice + 1);
}

}  // namespace

int choose_logged(const DecisionContext& ctx, const ScanResult& scan, const ModeValues& values) {
  if (!scan.found()) return nothing_qualified(ctx);
  if (scan.ties.empty()) return scan.best_index;
  return resolve_ties_logged(ctx.tie(), scan, values);
}

int ChooseWithSecondary(const DecisionContext& ctx, const ModeValues& primary,
                        const ModeValues& secondary) {
  const ScanResult scan = secondary_scan(primary, secondary, ctx.in.mode_count, ctx.disabled);
  if (!scan.found()) return nothing_qualified(ctx);
  if (scan.ties.empty()) return scan.best_index;
  return resolve_ties_logged(ctx.tie(), scan, primary, secondary);
}

int rssi_determinator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using RSSI determinator.\n");
  const ModeValues& weighted = ctx.results.weighted;
  const int choice =
      choose_logged(ctx, best_value_scan(weighted, ctx.in.mode_count, ctx.disabled), weighted);
  log_determined(ctx, choice);
  return choice;
}

int bandwidth_determinator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using Bandwidth determinator.\n");
  const ModeValues& rate = ctx.results.avgRate;
  const int choice =
      choose_logged(ctx, best_value_scan(rate, ctx.in.mode_count, ctx.disabled), rate);
  log_determined(ctx, choice);
  return choice;
}

int hybrid_determinator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using Hybrid determinator.\n");
  const ModeValues& weighted = ctx.results.weighted;

  // The RSSI reference is resolved without log lines: it only serves the mismatch note.
  const ScanResult rssi_scan = best_value_scan(weighted, ctx.in.mode_count, ctx.disabled);
  int rssi_choice = nothing_qualified(ctx);
  if (rssi_scan.found()) {
    rssi_choice = rssi_scan.best_index;
    if (!rssi_scan.ties.empty()) {
      SwitchStates states;
      CompareSwitchPositions(weighted, states, ctx.in.switchCount, ctx.disabled);
      rssi_choice = compose_choice(states, ctx.in.switchCount, rssi_scan.preferred(), ctx.disabled);
    }
  }

  const int choice = ChooseWithSecondary(ctx, ctx.results.avgRate, weighted);
  log_determined(ctx, choice);
  if (choice != rssi_choice) {
    ctx.in.log.write(kLogInfo, "Determined mode[R]: %d, mismatch.\n", rssi_choice + 1);
  }
  return choice;
}

int double_check_determinator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using DoubleCheck determinator.\n");
  const ModeValues& weighted = ctx.results.weighted;
  const ModeValues& rate = ctx.results.avgRate;
  const int rssi_choice =
      choose_logged(ctx, best_value_scan(weighted, ctx.in.mode_count, ctx.disabled), weighted);
  const int rate_choice =
      choose_logged(ctx, best_value_scan(rate, ctx.in.mode_count, ctx.disabled), rate);
  ctx.in.log.write(kLogInfo, "Determined mode[R]: %d\n", rssi_choice + 1);
  ctx.in.log.write(kLogInfo, "Determined mode[B]: %d\n", rate_choice + 1);
  if (rssi_choice == rate_choice) return rssi_choice;
  if (ctx.mismatch != nullptr) *ctx.mismatch = true;

  // The two measures disagree: neither is trusted and the configured default is used. The
  // text of the mismatch line deliberately has no line end; the fallback line follows it.
  ctx.in.log.write(kLogWarning, "Mode Mismatch (%d vs %d)", rssi_choice + 1, rate_choice + 1);
  ctx.in.log.write(kLogWarning, "Determined mode: %d (Fallback)\n", ctx.default_mode);
  return ctx.default_mode - 1;
}

}  // namespace zaltor::engine
