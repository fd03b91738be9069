#include "engine/determinators.h"

namespace zaltor::engine {

namespace {

int NothingQualified(const DecisionContext& ctx) {
  return ctx.defaultMode - 1;
}

void LogDetermined(const DecisionContext& ctx, int choice) {
  ctx.in.log.write(kLogInfo, "Determined mode: %d\n", choice + 1);
}

}  // namespace

int ChooseLogged(const DecisionContext& ctx, const ScanResult& scan, const ModeValues& values) {
  if (!scan.found()) return NothingQualified(ctx);
  if (scan.ties.empty()) return scan.bestIndex;
  return ResolveTiesLogged(ctx.tie(), scan, values);
}

int ChooseWithSecondary(const DecisionContext& ctx, const ModeValues& primary,
                        const ModeValues& secondary) {
  const ScanResult scan = SecondaryScan(primary, secondary, ctx.in.modeCount, ctx.disabled);
  if (!scan.found()) return NothingQualified(ctx);
  if (scan.ties.empty()) return scan.bestIndex;
  return ResolveTiesLogged(ctx.tie(), scan, primary, secondary);
}

int RssiDeterminator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using RSSI determinator.\n");
  const ModeValues& weighted = ctx.results.weighted;
  const int choice =
      ChooseLogged(ctx, BestValueScan(weighted, ctx.in.modeCount, ctx.disabled), weighted);
  LogDetermined(ctx, choice);
  return choice;
}

int BandwidthDeterminator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using Bandwidth determinator.\n");
  const ModeValues& rate = ctx.results.avgRate;
  const int choice = ChooseLogged(ctx, BestValueScan(rate, ctx.in.modeCount, ctx.disabled), rate);
  LogDetermined(ctx, choice);
  return choice;
}

int HybridDeterminator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using Hybrid determinator.\n");
  const ModeValues& weighted = ctx.results.weighted;

  // The RSSI reference is resolved without log lines: it only serves the mismatch note.
  const ScanResult rssiScan = BestValueScan(weighted, ctx.in.modeCount, ctx.disabled);
  int rssiChoice = NothingQualified(ctx);
  if (rssiScan.found()) {
    rssiChoice = rssiScan.bestIndex;
    if (!rssiScan.ties.empty()) {
      SwitchStates states;
      CompareSwitchPositions(weighted, states, ctx.in.switchCount, ctx.disabled);
      rssiChoice = ComposeChoice(states, ctx.in.switchCount, rssiScan.preferred(), ctx.disabled);
    }
  }

  const int choice = ChooseWithSecondary(ctx, ctx.results.avgRate, weighted);
  LogDetermined(ctx, choice);
  if (choice != rssiChoice) {
    ctx.in.log.write(kLogInfo, "Determined mode[R]: %d, mismatch.\n", rssiChoice + 1);
  }
  return choice;
}

int DoubleCheckDeterminator(const DecisionContext& ctx) {
  ctx.in.log.write(kLogInfo, "Using DoubleCheck determinator.\n");
  const ModeValues& weighted = ctx.results.weighted;
  const ModeValues& rate = ctx.results.avgRate;
  const int rssiChoice =
      ChooseLogged(ctx, BestValueScan(weighted, ctx.in.modeCount, ctx.disabled), weighted);
  const int rateChoice =
      ChooseLogged(ctx, BestValueScan(rate, ctx.in.modeCount, ctx.disabled), rate);
  ctx.in.log.write(kLogInfo, "Determined mode[R]: %d\n", rssiChoice + 1);
  ctx.in.log.write(kLogInfo, "Determined mode[B]: %d\n", rateChoice + 1);
  if (rssiChoice == rateChoice) return rssiChoice;
  if (ctx.mismatch != nullptr) *ctx.mismatch = true;

  // The two measures disagree: neither is trusted and the configured default is used. The
  // text of the mismatch line deliberately has no line end; the fallback line follows it.
  ctx.in.log.write(kLogWarning, "Mode Mismatch (%d vs %d)", rssiChoice + 1, rateChoice + 1);
  ctx.in.log.write(kLogWarning, "Determined mode: %d (Fallback)\n", ctx.defaultMode);
  return ctx.defaultMode - 1;
}

}  // namespace zaltor::engine
