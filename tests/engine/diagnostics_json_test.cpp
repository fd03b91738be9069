// The JSON texts of the decision journal and the antenna health.
#include "engine/diagnostics_json.h"

#include <gtest/gtest.h>

namespace zaltor::engine {
namespace {

DecisionRecord sample() {
  DecisionRecord r;
  r.time_ms = 61500;
  r.trigger = Trigger::kMonitor;
  r.configSet = 1;
  r.determinator = 1;
  r.currentMode = 2;
  r.mode_count = 2;
  r.modes[0] = ModeRecord{false, 3, -55.0, 866.7, 2.0, -53.0};
  r.modes[1] = ModeRecord{true, 0, kNoRssiValue, 0.0, 0.0, kNoRssiValue};
  r.chosen = 1;
  r.outcome = Outcome::kChosen;
  r.sleepMs = 60000;
  return r;
}

TEST(DiagnosticsJson, ADecisionHasEveryMemberWithAbsentValuesAsNull) {
  EXPECT_EQ(decision_json(sample()),
            R"({"time": 61.5, "trigger": "monitor", "configSet": 1, "determinator": "RSSI", )"
            R"("currentMode": 2, "modes": [{"mode": 1, "disabled": false, "samples": 3, )"
            R"("rssi": -55, "rate": 866.7, "weight": 2, "weighted": -53}, {"mode": 2, )"
            R"("disabled": true, "samples": 0, "rssi": null, "rate": 0, "weight": 0, )"
            R"("weighted": null}], "chosen": 1, "outcome": "chosen", "sleepMs": 60000})");
}

TEST(DiagnosticsJson, WhyIsNullBeforeTheFirstDecisionAndHistoryIsOldestFirst) {
  DecisionJournal journal;
  EXPECT_EQ(why_json(journal), R"({"decision": null})");
  EXPECT_EQ(history_json(journal, 10), R"({"decisions": []})");
  DecisionRecord r = sample();
  r.mode_count = 0;
  r.outcome = Outcome::kNotConnected;
  journal.publish(r);
  r.outcome = Outcome::kRunLimit;
  journal.publish(r);
  EXPECT_NE(why_json(journal).find(R"("outcome": "run-limit")"), std::string::npos);
  const std::string history = history_json(journal, 10);
  EXPECT_LT(history.find("not-connected"), history.find("run-limit")) << history;
  EXPECT_NE(history.find(R"("modes": [])"), std::string::npos) << history;
}

TEST(DiagnosticsJson, HealthNamesThePortsAndEscapesTheDetail) {
  std::vector<PortReport> ports(2);
  ports[0] = {0, PortState::kOk, "Main -50.0 dBm"};
  ports[1] = {1, PortState::kNoSignal, "say \"no\"\n"};
  EXPECT_EQ(health_json(ports),
            R"({"ports": [{"port": "Main", "state": "ok", "detail": "Main -50.0 dBm"}, )"
            R"({"port": "Aux", "state": "no-signal", "detail": "say \"no\"\u000a"}]})");
}

}  // namespace
}  // namespace zaltor::engine
