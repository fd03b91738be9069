// The whole worker (Init, then Auto) on the simulated notebook in virtual time: the auto
// loop, the monitor and the event handling together, driven by changes of the notebook.
//
// The test configuration gives each config set its own stabilisation wait and the
// lid-closed set two samples per mode instead of three, so that a pass shows which set it
// ran with; the loop sleeps 60 s between passes and the monitor looks every 5 s.
#include <gtest/gtest.h>

#include <string>

#include "engine/engine_harness.h"
#include "engine/system_events.h"

namespace zaltor::engine {
namespace {

using testing::all_antennas;
using testing::EngineOnNotebook;

std::string wlan_interface(bool connected, int channel) {
  return std::string(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",)") +
         R"("guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": )" +
         (connected ? "true" : "false") + R"(, "channel": )" + std::to_string(channel) + "}]}}";
}

// Init and Auto; returns once the first pass has chosen a mode and the loop sleeps.
void start_auto_until_sleep(EngineOnNotebook& nb) {
  ASSERT_EQ(nb.Init(), 0);
  ASSERT_EQ(nb.worker().SetUserMode(0), 0u);
  ASSERT_GE(nb.wait_for_log("Sleep: 60000\n", 60000), 0) << nb.text();
  ASSERT_EQ(nb.worker().shared.auto_state(), kAutoIdle);
}

// The measurement text of the pass that begins at the `n`th (0-based) "Using Config Set".
std::string pass_text(const std::string& log, size_t n) {
  size_t at = log.find("Using Config Set: ");
  for (size_t i = 0; i < n && at != std::string::npos; ++i) {
    at = log.find("Using Config Set: ", at + 1);
  }
  if (at == std::string::npos) return "";
  const size_t end = log.find("Sleep: ", at);
  return log.substr(at, end == std::string::npos ? std::string::npos : end - at);
}

TEST(ScenarioLid, ClosingOnA5GHzLinkSwitchesToTheLidSetAndOpeningBackTo5GHz) {
  EngineOnNotebook nb;  // channel 36
  start_auto_until_sleep(nb);
  EXPECT_EQ(nb.worker().active_config_set(), 1u);
  EXPECT_NE(nb.text().find("Using Config Set: 1\n"), std::string::npos);

  nb.run_for(10000);
  size_t passes = nb.passes();
  const size_t closed_at = passes;  // the index of the pass that the lid closing begins
  nb.patch(R"({"lid": {"open": false}})");
  nb.run_for(1);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 1 -> 3\n")) << nb.text();
  const auto closed = nb.wait_for_pass(passes, 120000);
  ASSERT_EQ(closed.set, 3) << nb.text();
  ASSERT_GE(nb.wait_for_log("Sleep: ", 70000, 1), 0);
  passes = nb.passes();
  // The pass ran with the lid-closed set: two samples per mode.
  const std::string pass = pass_text(nb.text() + nb.pending(), closed_at);
  EXPECT_NE(pass.find("Getting RSSI for mode 1: -50 (866.7M), -50 (866.7M), Avg:"),
            std::string::npos)
      << pass;

  nb.patch(R"({"lid": {"open": true}})");
  nb.run_for(1);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 3 -> 1\n")) << nb.text();
  const auto opened = nb.wait_for_pass(passes, 120000);
  EXPECT_EQ(opened.set, 1);
  EXPECT_EQ(nb.worker().active_config_set(), 1u);
}

TEST(ScenarioBand, ChannelChangeTo24GHzWithAConnectedHeadsetSelectsTheCoexistenceSet) {
  EngineOnNotebook nb;  // channel 36, one connected headset
  start_auto_until_sleep(nb);
  // A device arrives (a speaker that is not connected): the Bluetooth devices are counted.
  nb.patch(R"({"bluetooth": {"BTHENUM": [{"hardwareId": "BTHENUM\\Dev_001122334455",
      "description": "Headset", "friendlyName": "Headset", "connected": true},
      {"hardwareId": "BTHENUM\\Dev_00aa00bb00cc", "description": "Speaker",
       "friendlyName": "Speaker", "connected": false}]}})");
  nb.run_for(3000);
  ASSERT_EQ(nb.worker().shared.bt_connection_count(), 1);
  EXPECT_FALSE(nb.log_contains("CONFIG changed! 1 ->")) << "still on 5 GHz";

  // The device change's request began a pass (set 1) that measures now. The request of
  // the channel change may be taken by the monitor before the loop looks, in which case the
  // loop finishes its pass and the next one, after the sleep, runs with the new set.
  const size_t passes = nb.passes();
  nb.patch(wlan_interface(true, 6));
  nb.run_for(1);
  EXPECT_NE(nb.console_text().find("wlan_notification_msm_connected\n"), std::string::npos);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 1 -> 2\n")) << nb.text();
  const auto pass = nb.wait_for_pass(passes, 120000);
  EXPECT_EQ(pass.set, 2) << nb.text();
  EXPECT_EQ(nb.worker().active_config_set(), 2u);
}

TEST(ScenarioMonitor, RssiDropWhileTheLoopSleepsStartsANewPassWithinTwoSeconds) {
  EngineOnNotebook nb;
  start_auto_until_sleep(nb);
  nb.run_for(7000);
  ASSERT_EQ(nb.worker().shared.auto_state(), kAutoIdle);
  const size_t passes = nb.passes();
  nb.patch(all_antennas(-65));
  const std::string trigger =
      "[Monitor] RSSI become worse: -50 -> -65, going to determine next mode.\n";
  const int64_t triggered = nb.wait_for_log(trigger, 6000);
  ASSERT_GE(triggered, 0) << nb.text();
  const int64_t at = nb.time_of(trigger);
  const auto pass = nb.wait_for_pass(passes, 5000);
  ASSERT_GE(pass.at_ms, 0) << nb.text();
  EXPECT_LE(pass.at_ms - at, 2000) << "the loop took the request within its next step";
  EXPECT_EQ(pass.set, 1);
}

TEST(ScenarioPower, ChangeAsksForANewDecisionWithoutRecomputingTheSet) {
  EngineOnNotebook nb;
  start_auto_until_sleep(nb);
  // The registration delivered the current source, equal to the stored one: nothing.
  EXPECT_NE(nb.console_text().find("GUID_ACDC_POWER_SOURCE\n"), std::string::npos);
  EXPECT_FALSE(nb.log_contains("Power state changed!"));

  nb.run_for(10000);
  // A Bluetooth re-scan that a recomputation would carry out (and clear) is pending.
  nb.worker().shared.set_device_change_pending(true);
  const size_t passes = nb.passes();
  const size_t changes = nb.log_count("CONFIG changed!");
  nb.patch(R"({"power": {"source": 1}})");
  nb.run_for(1);
  EXPECT_TRUE(nb.log_contains("Power state changed! (0 -> 1)\n"));
  const auto pass = nb.wait_for_pass(passes, 3000);
  EXPECT_GE(pass.at_ms, 0) << "a new decision";
  EXPECT_EQ(pass.set, 1);
  EXPECT_TRUE(nb.worker().shared.device_change_pending()) << "the set was not recomputed";
  EXPECT_EQ(nb.log_count("CONFIG changed!"), changes);
}

TEST(ScenarioPower, UnchangedSourceDoesNothing) {
  EngineOnNotebook nb(R"({"power": {"source": 1}})");
  start_auto_until_sleep(nb);
  // The first delivery differs from the stored 0 and is a change.
  EXPECT_EQ(nb.log_count("Power state changed! (0 -> 1)\n"), 1u);
  const size_t passes = nb.passes();
  // The same value again, straight through the window procedure.
  EventWindowProc proc(&nb.worker());
  platform::WindowMessage m;
  m.kind = platform::WindowMessage::kCreate;
  proc.on_message(m);
  m.kind = platform::WindowMessage::kPowerSettingChange;
  m.setting = platform::PowerSetting::kAcDcPowerSource;
  m.value = 1;
  proc.on_message(m);
  nb.run_for(5000);
  EXPECT_EQ(nb.log_count("Power state changed!"), 1u);
  EXPECT_EQ(nb.passes(), passes) << "no new pass";
}

TEST(ScenarioWlan, NotificationBeforeAnyWorkerIsRememberedIsIgnored) {
  // Without lid notifications nothing remembers the worker at start.
  EngineOnNotebook nb(R"({"lid": {"notifications": false}})");
  start_auto_until_sleep(nb);
  ASSERT_EQ(remembered_worker(), nullptr);
  const size_t changes = nb.log_count("CONFIG changed!");
  nb.patch(wlan_interface(true, 6));  // a connected notification: 2.4 GHz now
  nb.run_for(3000);
  EXPECT_EQ(nb.console_text().find("wlan_notification_msm_connected"), std::string::npos);
  EXPECT_EQ(nb.log_count("CONFIG changed!"), changes);
  EXPECT_EQ(nb.worker().active_config_set(), 1u);
  EXPECT_FALSE(nb.worker().reevaluation_requested());
}

}  // namespace
}  // namespace zaltor::engine
