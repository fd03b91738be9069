// The decision journal on the simulated notebook in virtual time: each decision pass of the
// auto loop leaves one record naming what began it, the config set, the per-mode
// measurement, the choice and how it was made.
#include <gtest/gtest.h>

#include <string>

#include "engine/decision_journal.h"
#include "engine/engine_harness.h"

namespace zaltor::engine {
namespace {

using testing::all_antennas;
using testing::antennas;
using testing::EngineOnNotebook;

// Lets the worker run until more than `published` records exist (or `limit_ms` passed);
// the newest record.
DecisionRecord wait_for_record(EngineOnNotebook& nb, uint64_t published, int64_t limit_ms) {
  const int64_t until = nb.now() + limit_ms;
  while (nb.worker().journal.published() <= published && nb.now() < until) nb.run_for(100);
  DecisionRecord last;
  EXPECT_TRUE(nb.worker().journal.last(last)) << nb.text();
  EXPECT_GT(last.sequence, published) << nb.text();
  return last;
}

void start_auto(EngineOnNotebook& nb) {
  ASSERT_EQ(nb.Init(), 0);
  ASSERT_EQ(nb.worker().SetUserMode(0), 0u);
}

TEST(DecisionJournal, FirstPassOfTheServiceIsStartWithEveryModeMeasured) {
  EngineOnNotebook nb(antennas(-50, -60));
  start_auto(nb);
  const DecisionRecord r = wait_for_record(nb, 0, 60000);
  EXPECT_EQ(r.sequence, 1u);
  EXPECT_EQ(r.trigger, Trigger::kStart);
  EXPECT_EQ(r.configSet, 1u);  // channel 36
  EXPECT_EQ(r.determinator, 1);
  EXPECT_EQ(r.outcome, Outcome::kChosen);
  EXPECT_EQ(r.sleepMs, 60000);
  ASSERT_EQ(r.mode_count, 4);
  for (int i = 0; i < 4; ++i) {
    const ModeRecord& m = r.modes[static_cast<size_t>(i)];
    EXPECT_FALSE(m.disabled);
    EXPECT_EQ(m.samples, 3u) << "mode " << i + 1;
    EXPECT_DOUBLE_EQ(m.rssi, -55.0) << "mode " << i + 1;  // (-50 + -60) / 2
    EXPECT_DOUBLE_EQ(m.rate, 866.7);
    EXPECT_DOUBLE_EQ(m.weighted, -55.0);
  }
  EXPECT_GE(r.chosen, 1);
  EXPECT_LE(r.chosen, 4);
  int32_t mode = 0;
  ASSERT_EQ(nb.worker().sw.GetCurrentMode(mode), 0u);
  EXPECT_EQ(r.chosen, mode);
}

TEST(DecisionJournal, SignalDropSeenByTheMonitorYieldsAMonitorDecision) {
  EngineOnNotebook nb;
  start_auto(nb);
  wait_for_record(nb, 0, 60000);
  nb.run_for(7000);
  const uint64_t before = nb.worker().journal.published();
  nb.patch(all_antennas(-65));
  const DecisionRecord r = wait_for_record(nb, before, 30000);
  EXPECT_TRUE(nb.log_contains("[Monitor] RSSI become worse: -50 -> -65")) << nb.text();
  EXPECT_EQ(r.trigger, Trigger::kMonitor);
  EXPECT_STREQ(trigger_name(r.trigger), "monitor");
  EXPECT_DOUBLE_EQ(r.modes[0].rssi, -65.0);
}

TEST(DecisionJournal, ClosingTheLidYieldsALidDecisionWithTheLidClosedSet) {
  EngineOnNotebook nb;
  start_auto(nb);
  wait_for_record(nb, 0, 60000);
  nb.run_for(10000);
  const uint64_t before = nb.worker().journal.published();
  nb.patch(R"({"lid": {"open": false}})");
  const DecisionRecord r = wait_for_record(nb, before, 60000);
  EXPECT_EQ(r.trigger, Trigger::kLid);
  EXPECT_STREQ(trigger_name(r.trigger), "lid");
  EXPECT_EQ(r.configSet, 3u);
  EXPECT_EQ(r.modes[0].samples, 2u);  // the lid-closed set takes two samples per mode
}

TEST(DecisionJournal, AModeFailingEverySampleYieldsTheFailedMeasurementFallback) {
  // Mode 1 puts both switches in Main, where neither antenna has a signal.
  EngineOnNotebook nb(
      R"({"radio": {"rssi": [{"Main": -95, "Div": -50}, {"Main": -95, "Div": -55}]}})");
  start_auto(nb);
  const DecisionRecord r = wait_for_record(nb, 0, 60000);
  EXPECT_TRUE(nb.log_contains("All fail while getting rssi for mode 1\n")) << nb.text();
  EXPECT_EQ(r.outcome, Outcome::kFallbackFailedMeasurement);
  EXPECT_STREQ(outcome_name(r.outcome), "fallback-failed-measurement");
  EXPECT_EQ(r.chosen, 1);  // DefaultMode
  EXPECT_EQ(r.modes[0].samples, 0u);
  EXPECT_EQ(r.modes[0].rssi, kNoRssiValue);
  EXPECT_EQ(r.modes[1].samples, 3u);
  EXPECT_EQ(r.modes[1].weighted, kNoRssiValue) << "a fallback ends the pass before weighting";
}

TEST(DecisionJournal, EveryModeBelowTheThresholdYieldsTheBelowThresholdFallback) {
  EngineOnNotebook nb(all_antennas(-90));
  start_auto(nb);
  const DecisionRecord r = wait_for_record(nb, 0, 60000);
  EXPECT_EQ(r.outcome, Outcome::kFallbackBelowThreshold);
  EXPECT_EQ(r.chosen, 1);
}

TEST(DecisionJournal, ADisconnectedInterfaceYieldsNotConnected) {
  EngineOnNotebook nb(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
      "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": false, "channel": 36}]}})");
  start_auto(nb);
  const DecisionRecord r = wait_for_record(nb, 0, 60000);
  EXPECT_EQ(r.outcome, Outcome::kNotConnected);
  EXPECT_EQ(r.mode_count, 0);
  EXPECT_EQ(r.chosen, 1);
}

TEST(DecisionJournal, AnUninterruptedSleepYieldsATimerDecision) {
  EngineOnNotebook nb;
  start_auto(nb);
  const DecisionRecord first = wait_for_record(nb, 0, 60000);
  const DecisionRecord r = wait_for_record(nb, 1, 90000);
  EXPECT_EQ(r.trigger, Trigger::kTimer);
  EXPECT_GE(r.time_ms - first.time_ms, 60000);
}

TEST(DecisionJournal, AutoChosenAfterAFixedModeIsTheUsersDecision) {
  EngineOnNotebook nb;
  start_auto(nb);
  wait_for_record(nb, 0, 60000);
  ASSERT_EQ(nb.worker().SetUserMode(2), 0u);
  nb.run_for(3000);
  const uint64_t before = nb.worker().journal.published();
  ASSERT_EQ(nb.worker().SetUserMode(0), 0u);
  const DecisionRecord r = wait_for_record(nb, before, 60000);
  EXPECT_EQ(r.trigger, Trigger::kUser);
}

// Starts Auto, lets the first decision pass and the loop sleep a while, applies `patch`; the
// decision that follows.
DecisionRecord decision_after(EngineOnNotebook& nb, const std::string& patch) {
  start_auto(nb);
  wait_for_record(nb, 0, 60000);
  nb.run_for(10000);
  const uint64_t before = nb.worker().journal.published();
  nb.patch(patch);
  return wait_for_record(nb, before, 60000);
}

TEST(DecisionJournal, APowerSourceChangeYieldsAPowerDecision) {
  EngineOnNotebook nb;
  EXPECT_EQ(decision_after(nb, R"({"power": {"source": 1}})").trigger, Trigger::kPower);
}

TEST(DecisionJournal, ADeviceArrivalYieldsADeviceDecision) {
  EngineOnNotebook nb;
  const DecisionRecord r = decision_after(nb, R"({"bluetooth": {"BTHLE": [{"hardwareId":
      "BTHLE\\Dev_AABBCCDDEEFF", "description": "Mouse", "friendlyName": "Mouse",
      "connected": true}]}})");
  EXPECT_EQ(r.trigger, Trigger::kDevice);
}

TEST(DecisionJournal, AWlanConnectionOnAnotherChannelYieldsAWlanDecision) {
  EngineOnNotebook nb;
  const DecisionRecord r = decision_after(nb, R"({"wlan": {"interfaces": [{"description":
      "Wireless AX (R2) 160MHz", "guid": "{6A1B2C3D-1111-2222-3333-444455556666}",
      "connected": true, "channel": 6}]}})");
  EXPECT_EQ(r.trigger, Trigger::kWlan);
  // 2.4 GHz; the headset is not counted, as Bluetooth devices are counted only once a device
  // change was seen.
  EXPECT_EQ(r.configSet, 0u);
}

TEST(DecisionJournal, TheRunCountRunningOutYieldsARunLimitRecord) {
  std::string config = testing::kTestConfig;
  const std::string key = "AutoModeRunCount=0";
  config.replace(config.find(key), key.size(), "AutoModeRunCount=1");
  EngineOnNotebook nb("", config);
  start_auto(nb);
  const DecisionRecord first = wait_for_record(nb, 0, 60000);
  EXPECT_EQ(first.outcome, Outcome::kChosen);
  const DecisionRecord last = wait_for_record(nb, 1, 120000);
  EXPECT_EQ(last.outcome, Outcome::kRunLimit);
  EXPECT_STREQ(outcome_name(last.outcome), "run-limit");
  EXPECT_EQ(last.chosen, 1);
  EXPECT_EQ(last.mode_count, 0);
}

TEST(DecisionJournal, DoubleCheckChoicesThatDisagreeYieldTheMismatchFallback) {
  // RSSI is best in mode 1 (both switches in Main), the rate in mode 4.
  EngineOnNotebook nb(R"({"radio": {"rssi": [{"Main": -50, "Div": -60},
      {"Main": -50, "Div": -60}], "rateMbps": [400.0, 500.0, 600.0, 866.7]}})");
  ASSERT_EQ(nb.Init(), 0);
  // The loader stores only 0..2; DoubleCheck is reached when the record holds 3.
  nb.worker().config.settings.DeterminatorMode = 3;
  ASSERT_EQ(nb.worker().SetUserMode(0), 0u);
  const DecisionRecord r = wait_for_record(nb, 0, 60000);
  EXPECT_TRUE(nb.log_contains("Mode Mismatch (1 vs 4)")) << nb.text();
  EXPECT_EQ(r.outcome, Outcome::kFallbackMismatch);
  EXPECT_STREQ(determinator_name(r.determinator), "DoubleCheck");
  EXPECT_EQ(r.chosen, 1);
}

TEST(DecisionJournal, KeepsTheNewestRecordsOldestFirst) {
  DecisionJournal journal;
  DecisionRecord r;
  for (int i = 0; i < 70; ++i) {
    r.time_ms = i;
    journal.publish(r);
  }
  EXPECT_EQ(journal.published(), 70u);
  const auto all = journal.history(100);
  ASSERT_EQ(all.size(), DecisionJournal::kCapacity);
  EXPECT_EQ(all.front().time_ms, 6);
  EXPECT_EQ(all.front().sequence, 7u);
  EXPECT_EQ(all.back().time_ms, 69);
  const auto three = journal.history(3);
  ASSERT_EQ(three.size(), 3u);
  EXPECT_EQ(three[0].time_ms, 67);
  DecisionJournal empty;
  DecisionRecord last;
  EXPECT_FALSE(empty.last(last));
  EXPECT_TRUE(empty.history(5).empty());
}

}  // namespace
}  // namespace zaltor::engine
