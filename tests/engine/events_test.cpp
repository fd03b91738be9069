// Lid, power-source, device-change and WLAN events on the simulated notebook, and the
// event window's set-up over a scripted window.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/engine_harness.h"
#include "engine/system_events.h"
#include "engine/worker_threads.h"
#include "platform/wlan.h"

namespace zaltor::engine {
namespace {

using testing::EngineOnNotebook;

std::string Interface(bool connected, int channel) {
  return std::string(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",)") +
         R"("guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": )" +
         (connected ? "true" : "false") + R"(, "channel": )" + std::to_string(channel) + "}]}}";
}

constexpr const char* kLeDeviceArrives = R"({"bluetooth": {"BTHLE": [
    {"hardwareId": "BTHLE\\Dev_a1b2c3d4e5f6", "description": "Mouse", "friendlyName": "Mouse",
     "connected": true}]}})";

// Starts from a settled worker: the first lid message's request is consumed, so that the
// set in force is the one the notebook's situation selects.
void Settle(EngineOnNotebook& nb) {
  ASSERT_EQ(nb.Init(), 0);
  nb.worker().ConsumeReevaluation();
}

TEST(EventsLid, ClosingSelectsTheLidSetWhateverTheBandOpeningReturnsToTheBand) {
  EngineOnNotebook nb;  // channel 36
  Settle(nb);
  ASSERT_EQ(nb.worker().activeConfigSet(), 1u);
  nb.Patch(R"({"lid": {"open": false}})");
  nb.RunFor(100);
  EXPECT_NE(nb.ConsoleText().find("GUID_LIDSWITCH_STATE_CHANGE\n"), std::string::npos);
  EXPECT_TRUE(nb.LogContains("CONFIG changed! 1 -> 3\n"));
  EXPECT_FALSE(nb.worker().shared.lid_open());
  EXPECT_EQ(nb.worker().activeConfigSet(), 1u) << "pending until the request is consumed";
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 3u);

  nb.Patch(R"({"lid": {"open": true}})");
  nb.RunFor(100);
  EXPECT_TRUE(nb.LogContains("CONFIG changed! 3 -> 1\n"));
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 1u);
}

TEST(EventsLid, ClosingAndOpeningBeforeTheRequestIsTakenKeepsTheBandSet) {
  EngineOnNotebook nb;  // channel 36
  Settle(nb);
  nb.Patch(R"({"lid": {"open": false}})");
  nb.RunFor(100);
  ASSERT_TRUE(nb.LogContains("CONFIG changed! 1 -> 3\n"));
  nb.Patch(R"({"lid": {"open": true}})");
  nb.RunFor(100);
  EXPECT_FALSE(nb.worker().reevaluation.configChangePending());
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 1u) << "the lid is open again: no lid-closed set";
}

TEST(EventsLid, OpeningOnA24GHzLinkReturnsToTheDefaultSet) {
  EngineOnNotebook nb(Interface(true, 6));
  Settle(nb);
  ASSERT_EQ(nb.worker().activeConfigSet(), 0u);
  nb.Patch(R"({"lid": {"open": false}})");
  nb.RunFor(100);
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 3u);
  nb.Patch(R"({"lid": {"open": true}})");
  nb.RunFor(100);
  EXPECT_TRUE(nb.LogContains("CONFIG changed! 3 -> 0\n"));
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 0u);
}

TEST(EventsLid, OpeningOnA24GHzLinkWithBluetoothReturnsToTheCoexistenceSet) {
  EngineOnNotebook nb(Interface(true, 6));
  Settle(nb);
  nb.Patch(kLeDeviceArrives);  // counts the headset and the mouse
  nb.RunFor(3000);
  ASSERT_EQ(nb.worker().shared.bt_connection_count(), 2);
  nb.Patch(R"({"lid": {"open": false}})");
  nb.RunFor(100);
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 3u);
  nb.Patch(R"({"lid": {"open": true}})");
  nb.RunFor(100);
  EXPECT_TRUE(nb.LogContains("CONFIG changed! 3 -> 2\n"));
}

TEST(EventsDevice, DeviceChangeRescansBluetoothAfterTheSettle) {
  EngineOnNotebook nb(Interface(true, 6));
  Settle(nb);
  EXPECT_EQ(nb.worker().shared.bt_connection_count(), 0) << "not scanned before a change";
  const int64_t at = nb.Now();
  nb.Patch(kLeDeviceArrives);
  nb.RunFor(100);
  EXPECT_NE(nb.ConsoleText().find("WM_DEVICECHANGE\n"), std::string::npos);
  EXPECT_EQ(nb.worker().shared.bt_connection_count(), 0) << "still settling";
  nb.RunFor(3000);
  EXPECT_EQ(nb.worker().shared.bt_connection_count(), 2);
  EXPECT_FALSE(nb.worker().shared.device_change_pending());
  EXPECT_EQ(nb.TimeOf("CONFIG changed! 0 -> 2\n"), at + 2000)
      << "the selection waits 2000 ms before it counts";
  EXPECT_TRUE(nb.worker().ReevaluationRequested());
}

TEST(EventsWlan, ConnectionOnChannel36YieldsThe5GHzSetEvenWithBluetooth) {
  EngineOnNotebook nb(Interface(true, 6));
  Settle(nb);
  nb.Patch(kLeDeviceArrives);
  nb.RunFor(3000);
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  ASSERT_EQ(nb.worker().activeConfigSet(), 2u);
  nb.Patch(Interface(true, 36));
  nb.RunFor(100);
  EXPECT_NE(nb.ConsoleText().find("wlan_notification_msm_connected\n"), std::string::npos);
  EXPECT_TRUE(nb.LogContains("CONFIG changed! 2 -> 1\n"));
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 1u);
}

TEST(EventsWlan, ConnectionOnChannel6WithOneBluetoothDeviceYieldsTheCoexistenceSet) {
  EngineOnNotebook nb;  // channel 36, one connected headset
  Settle(nb);
  nb.Patch(R"({"bluetooth": {"BTHENUM": [{"hardwareId": "BTHENUM\\Dev_001122334455",
      "description": "Headset", "friendlyName": "Headset", "connected": true},
      {"hardwareId": "BTHENUM\\Dev_00aa00bb00cc", "description": "Speaker",
       "friendlyName": "Speaker", "connected": false}]}})");
  nb.RunFor(3000);
  ASSERT_EQ(nb.worker().shared.bt_connection_count(), 1);
  nb.worker().ConsumeReevaluation();
  ASSERT_EQ(nb.worker().activeConfigSet(), 1u);
  nb.Patch(Interface(true, 6));
  nb.RunFor(100);
  EXPECT_TRUE(nb.LogContains("CONFIG changed! 1 -> 2\n"));
  ASSERT_TRUE(nb.worker().ConsumeReevaluation());
  EXPECT_EQ(nb.worker().activeConfigSet(), 2u);
}

TEST(EventsWlan, DisconnectionAsksForADecisionWithoutRecomputing) {
  EngineOnNotebook nb;
  Settle(nb);
  nb.worker().shared.device().active_config_set.store(0);  // a recomputation would select set 1
  const size_t before = nb.LogCount("CONFIG changed!");
  nb.Patch(Interface(false, 36));
  nb.RunFor(100);
  EXPECT_NE(nb.ConsoleText().find("wlan_notification_msm_disconnected\n"), std::string::npos);
  EXPECT_TRUE(nb.worker().ReevaluationRequested());
  EXPECT_EQ(nb.LogCount("CONFIG changed!"), before);
  EXPECT_FALSE(nb.worker().reevaluation.configChangePending());
}

TEST(EventsWlan, AdapterRemovalAsksForADecisionOtherSourcesAndCodesAreIgnored) {
  EngineOnNotebook nb;
  Settle(nb);
  const uint32_t acm = 0x08;
  WlanNotificationCallback(acm, platform::kWlanMsmConnected);
  WlanNotificationCallback(platform::kWlanSourceMsm, 7);
  EXPECT_FALSE(nb.worker().ReevaluationRequested());
  EXPECT_EQ(nb.ConsoleText().find("wlan_notification"), std::string::npos);
  WlanNotificationCallback(platform::kWlanSourceMsm, platform::kWlanMsmAdapterRemoval);
  EXPECT_NE(nb.ConsoleText().find("wlan_notification_msm_adapter_removal\n"), std::string::npos);
  EXPECT_TRUE(nb.worker().ReevaluationRequested());
}

TEST(EventsWlan, NotificationsBeforeAnyWorkerIsRememberedAreIgnored) {
  // Without lid notifications the window delivers nothing that would remember the worker.
  EngineOnNotebook nb(R"({"lid": {"notifications": false}})");
  ASSERT_EQ(nb.Init(), 0);
  ASSERT_EQ(RememberedWorker(), nullptr);
  nb.Patch(Interface(false, 36));
  nb.RunFor(100);
  nb.Patch(Interface(true, 36));
  nb.RunFor(100);
  EXPECT_EQ(nb.ConsoleText().find("wlan_notification"), std::string::npos);
  EXPECT_FALSE(nb.worker().ReevaluationRequested());

  // Once a request has remembered it, the same notifications act.
  RequestReevaluation(&nb.worker(), false, Trigger::kDevice);
  EXPECT_EQ(RememberedWorker(), &nb.worker());
  nb.worker().ConsumeReevaluation();
  nb.Patch(Interface(false, 36));
  nb.RunFor(100);
  EXPECT_NE(nb.ConsoleText().find("wlan_notification_msm_disconnected\n"), std::string::npos);
  EXPECT_TRUE(nb.worker().ReevaluationRequested());
}

TEST(EventsPower, UnchangedValueDoesNothing) {
  EngineOnNotebook nb;
  Settle(nb);
  // The registration delivered the current value (0), equal to the stored one.
  EXPECT_NE(nb.ConsoleText().find("GUID_ACDC_POWER_SOURCE\n"), std::string::npos);
  EXPECT_FALSE(nb.LogContains("Power state changed!"));
  ForgetRememberedWorker();

  EventWindowProc proc(&nb.worker());
  platform::WindowMessage m;
  m.kind = platform::WindowMessage::kCreate;
  proc.on_message(m);
  m.kind = platform::WindowMessage::kPowerSettingChange;
  m.setting = platform::PowerSetting::kAcDcPowerSource;
  m.value = 0;
  EXPECT_TRUE(proc.on_message(m));
  EXPECT_FALSE(nb.LogContains("Power state changed!"));
  EXPECT_FALSE(nb.worker().ReevaluationRequested());
  EXPECT_EQ(RememberedWorker(), nullptr) << "an unchanged value remembers nothing";
}

TEST(EventsPower, ChangedValueAsksForADecisionWithoutRecomputingTheSet) {
  EngineOnNotebook nb(R"({"lid": {"notifications": true}})");
  Settle(nb);
  ForgetRememberedWorker();
  nb.worker().shared.device().active_config_set.store(0);  // a recomputation would select set 1
  const size_t before = nb.LogCount("CONFIG changed!");
  nb.Patch(R"({"power": {"source": 1}})");
  nb.RunFor(100);
  EXPECT_TRUE(nb.LogContains("Power state changed! (0 -> 1)\n"));
  EXPECT_EQ(nb.worker().shared.power_source(), 1u);
  EXPECT_TRUE(nb.worker().ReevaluationRequested());
  EXPECT_EQ(nb.LogCount("CONFIG changed!"), before);
  EXPECT_FALSE(nb.worker().reevaluation.configChangePending());
  EXPECT_EQ(RememberedWorker(), &nb.worker()) << "the first power change remembers the worker";
}

TEST(EventsRequest, RecomputeMakesADifferentSetPendingAndLeavesAnEqualOneAlone) {
  EngineOnNotebook nb;
  Settle(nb);
  const size_t before = nb.LogCount("CONFIG changed!");
  RequestReevaluation(&nb.worker(), true, Trigger::kDevice);  // still set 1
  EXPECT_EQ(nb.LogCount("CONFIG changed!"), before);
  EXPECT_FALSE(nb.worker().reevaluation.configChangePending());
  EXPECT_TRUE(nb.worker().ConsumeReevaluation());

  nb.worker().shared.set_lid_open(false);
  RequestReevaluation(&nb.worker(), true, Trigger::kDevice);
  EXPECT_TRUE(nb.LogContains("CONFIG changed! 1 -> 3\n"));
  EXPECT_TRUE(nb.worker().reevaluation.configChangePending());
  EXPECT_EQ(nb.worker().reevaluation.pendingConfigSet(), 3u);
  RequestReevaluation(nullptr, true, Trigger::kDevice);  // nothing happens for an empty worker
}

// --- The window's set-up, over a scripted window.

class ScriptedWindow final : public platform::EventWindow {
 public:
  struct Script {
    bool lidOk = true;
    bool powerOk = true;
    std::vector<platform::PowerSetting> registered;
    bool looped = false;
    bool unregistered = false;
    std::vector<platform::WindowMessage> messages;  // delivered by the loop
  };
  ScriptedWindow(Script& s, platform::WindowHandler& h) : s_(s), h_(h) {}
  bool register_power_setting(platform::PowerSetting setting) override {
    s_.registered.push_back(setting);
    return setting == platform::PowerSetting::kLidSwitch ? s_.lidOk : s_.powerOk;
  }
  void run_message_loop() override {
    s_.looped = true;
    for (const auto& m : s_.messages) h_.on_message(m);
  }
  void unregister_power_settings() override { s_.unregistered = true; }

 private:
  Script& s_;
  platform::WindowHandler& h_;
};

class ScriptedEvents final : public platform::SystemEvents {
 public:
  std::unique_ptr<platform::EventWindow> create_window(const std::string& class_name,
                                                       const std::string& title,
                                                       platform::WindowHandler& handler) override {
    className = class_name;
    windowTitle = title;
    if (!createOk) return nullptr;
    platform::WindowMessage create;
    create.kind = platform::WindowMessage::kCreate;
    handler.on_message(create);
    return std::make_unique<ScriptedWindow>(script, handler);
  }
  bool createOk = true;
  std::string className;
  std::string windowTitle;
  ScriptedWindow::Script script;
};

TEST(EventsWindow, ClassAndTitleRegistrationsLoopAndUnregistering) {
  EngineOnNotebook nb;
  ScriptedEvents events;
  platform::WindowMessage destroy;
  destroy.kind = platform::WindowMessage::kDestroy;
  events.script.messages = {destroy};
  nb.UseSystemEvents(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_EQ(EventWindowThreadsRunning(), 0);
  EXPECT_EQ(events.className, "svc peek");
  EXPECT_EQ(events.windowTitle, "peephole");
  EXPECT_EQ(events.script.registered,
            (std::vector<platform::PowerSetting>{platform::PowerSetting::kLidSwitch,
                                                 platform::PowerSetting::kAcDcPowerSource}));
  EXPECT_TRUE(nb.worker().shared.lid_notification_registered());
  EXPECT_TRUE(events.script.looped);
  EXPECT_TRUE(events.script.unregistered);
}

TEST(EventsWindow, CreationFailureEndsTheThread) {
  EngineOnNotebook nb;
  ScriptedEvents events;
  events.createOk = false;
  nb.UseSystemEvents(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_EQ(EventWindowThreadsRunning(), 0);
  EXPECT_TRUE(nb.LogContains("Lid status peephole init failed!\n"));
  EXPECT_TRUE(events.script.registered.empty());
}

TEST(EventsWindow, LidRegistrationFailureEndsTheThread) {
  EngineOnNotebook nb;
  ScriptedEvents events;
  events.script.lidOk = false;
  nb.UseSystemEvents(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_TRUE(
      nb.LogContains("RegisterPowerSettingNotification for GUID_LIDSWITCH_STATE_CHANGE failed!\n"));
  EXPECT_FALSE(nb.worker().shared.lid_notification_registered());
  EXPECT_EQ(events.script.registered.size(), 1u) << "the power source is not registered";
  EXPECT_FALSE(events.script.looped);
}

TEST(EventsWindow, PowerRegistrationFailureIsLoggedAndTheLoopRuns) {
  EngineOnNotebook nb;
  ScriptedEvents events;
  events.script.powerOk = false;
  nb.UseSystemEvents(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_TRUE(
      nb.LogContains("RegisterPowerSettingNotification for GUID_ACDC_POWER_SOURCE failed!\n"));
  EXPECT_TRUE(nb.worker().shared.lid_notification_registered());
  EXPECT_TRUE(events.script.looped);
  EXPECT_TRUE(events.script.unregistered);
}

TEST(EventsWindow, ProcedureHandlesItsMessagesAndLeavesOthersToTheDefault) {
  EngineOnNotebook nb;
  Settle(nb);
  EventWindowProc proc(&nb.worker());
  platform::WindowMessage m;
  m.kind = platform::WindowMessage::kDeviceChange;
  EXPECT_TRUE(proc.on_message(m));
  EXPECT_FALSE(nb.worker().shared.device_change_pending())
      << "messages before the creation message have no worker";
  m.kind = platform::WindowMessage::kCreate;
  EXPECT_TRUE(proc.on_message(m));
  m.kind = platform::WindowMessage::kOther;
  EXPECT_FALSE(proc.on_message(m));
  m.kind = platform::WindowMessage::kPowerBroadcastOther;
  EXPECT_TRUE(proc.on_message(m));
  EXPECT_FALSE(nb.worker().ReevaluationRequested());
  m.kind = platform::WindowMessage::kDestroy;
  EXPECT_TRUE(proc.on_message(m));
}

}  // namespace
}  // namespace zaltor::engine
