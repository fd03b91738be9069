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

std::string interface(bool connected, int channel) {
  return std::string(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",)") +
         R"("guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": )" +
         (connected ? "true" : "false") + R"(, "channel": )" + std::to_string(channel) + "}]}}";
}

constexpr const char* kLeDeviceArrives = R"({"bluetooth": {"BTHLE": [
    {"hardwareId": "BTHLE\\Dev_a1b2c3d4e5f6", "description": "Mouse", "friendlyName": "Mouse",
     "connected": true}]}})";

// Starts from a settled worker: the first lid message's request is consumed, so that the
// set in force is the one the notebook's situation selects.
void settle(EngineOnNotebook& nb) {
  ASSERT_EQ(nb.Init(), 0);
  nb.worker().consume_reevaluation();
}

TEST(EventsLid, ClosingSelectsTheLidSetWhateverTheBandOpeningReturnsToTheBand) {
  EngineOnNotebook nb;  // channel 36
  settle(nb);
  ASSERT_EQ(nb.worker().active_config_set(), 1u);
  nb.patch(R"({"lid": {"open": false}})");
  nb.run_for(100);
  EXPECT_NE(nb.console_text().find("GUID_LIDSWITCH_STATE_CHANGE\n"), std::string::npos);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 1 -> 3\n"));
  EXPECT_FALSE(nb.worker().shared.lid_open());
  EXPECT_EQ(nb.worker().active_config_set(), 1u) << "pending until the request is consumed";
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 3u);

  nb.patch(R"({"lid": {"open": true}})");
  nb.run_for(100);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 3 -> 1\n"));
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 1u);
}

TEST(EventsLid, ClosingAndOpeningBeforeTheRequestIsTakenKeepsTheBandSet) {
  EngineOnNotebook nb;  // channel 36
  settle(nb);
  nb.patch(R"({"lid": {"open": false}})");
  nb.run_for(100);
  ASSERT_TRUE(nb.log_contains("CONFIG changed! 1 -> 3\n"));
  nb.patch(R"({"lid": {"open": true}})");
  nb.run_for(100);
  EXPECT_FALSE(nb.worker().reevaluation.config_change_pending());
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 1u) << "the lid is open again: no lid-closed set";
}

TEST(EventsLid, OpeningOnA24GHzLinkReturnsToTheDefaultSet) {
  EngineOnNotebook nb(interface(true, 6));
  settle(nb);
  ASSERT_EQ(nb.worker().active_config_set(), 0u);
  nb.patch(R"({"lid": {"open": false}})");
  nb.run_for(100);
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 3u);
  nb.patch(R"({"lid": {"open": true}})");
  nb.run_for(100);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 3 -> 0\n"));
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 0u);
}

TEST(EventsLid, OpeningOnA24GHzLinkWithBluetoothReturnsToTheCoexistenceSet) {
  EngineOnNotebook nb(interface(true, 6));
  settle(nb);
  nb.patch(kLeDeviceArrives);  // counts the headset and the mouse
  nb.run_for(3000);
  ASSERT_EQ(nb.worker().shared.bt_connection_count(), 2);
  nb.patch(R"({"lid": {"open": false}})");
  nb.run_for(100);
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 3u);
  nb.patch(R"({"lid": {"open": true}})");
  nb.run_for(100);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 3 -> 2\n"));
}

TEST(EventsDevice, DeviceChangeRescansBluetoothAfterTheSettle) {
  EngineOnNotebook nb(interface(true, 6));
  settle(nb);
  EXPECT_EQ(nb.worker().shared.bt_connection_count(), 0) << "not scanned before a change";
  const int64_t at = nb.now();
  nb.patch(kLeDeviceArrives);
  nb.run_for(100);
  EXPECT_NE(nb.console_text().find("WM_DEVICECHANGE\n"), std::string::npos);
  EXPECT_EQ(nb.worker().shared.bt_connection_count(), 0) << "still settling";
  nb.run_for(3000);
  EXPECT_EQ(nb.worker().shared.bt_connection_count(), 2);
  EXPECT_FALSE(nb.worker().shared.device_change_pending());
  EXPECT_EQ(nb.time_of("CONFIG changed! 0 -> 2\n"), at + 2000)
      << "the selection waits 2000 ms before it counts";
  EXPECT_TRUE(nb.worker().reevaluation_requested());
}

TEST(EventsWlan, ConnectionOnChannel36YieldsThe5GHzSetEvenWithBluetooth) {
  EngineOnNotebook nb(interface(true, 6));
  settle(nb);
  nb.patch(kLeDeviceArrives);
  nb.run_for(3000);
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  ASSERT_EQ(nb.worker().active_config_set(), 2u);
  nb.patch(interface(true, 36));
  nb.run_for(100);
  EXPECT_NE(nb.console_text().find("wlan_notification_msm_connected\n"), std::string::npos);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 2 -> 1\n"));
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 1u);
}

TEST(EventsWlan, ConnectionOnChannel6WithOneBluetoothDeviceYieldsTheCoexistenceSet) {
  EngineOnNotebook nb;  // channel 36, one connected headset
  settle(nb);
  nb.patch(R"({"bluetooth": {"BTHENUM": [{"hardwareId": "BTHENUM\\Dev_001122334455",
      "description": "Headset", "friendlyName": "Headset", "connected": true},
      {"hardwareId": "BTHENUM\\Dev_00aa00bb00cc", "description": "Speaker",
       "friendlyName": "Speaker", "connected": false}]}})");
  nb.run_for(3000);
  ASSERT_EQ(nb.worker().shared.bt_connection_count(), 1);
  nb.worker().consume_reevaluation();
  ASSERT_EQ(nb.worker().active_config_set(), 1u);
  nb.patch(interface(true, 6));
  nb.run_for(100);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 1 -> 2\n"));
  ASSERT_TRUE(nb.worker().consume_reevaluation());
  EXPECT_EQ(nb.worker().active_config_set(), 2u);
}

TEST(EventsWlan, DisconnectionAsksForADecisionWithoutRecomputing) {
  EngineOnNotebook nb;
  settle(nb);
  nb.worker().shared.device().set_active_config_set(0);  // a recomputation would select set 1
  const size_t before = nb.log_count("CONFIG changed!");
  nb.patch(interface(false, 36));
  nb.run_for(100);
  EXPECT_NE(nb.console_text().find("wlan_notification_msm_disconnected\n"), std::string::npos);
  EXPECT_TRUE(nb.worker().reevaluation_requested());
  EXPECT_EQ(nb.log_count("CONFIG changed!"), before);
  EXPECT_FALSE(nb.worker().reevaluation.config_change_pending());
}

TEST(EventsWlan, AdapterRemovalAsksForADecisionOtherSourcesAndCodesAreIgnored) {
  EngineOnNotebook nb;
  settle(nb);
  const uint32_t acm = 0x08;
  WlanNotificationCallback(acm, platform::kWlanMsmConnected);
  WlanNotificationCallback(platform::kWlanSourceMsm, 7);
  EXPECT_FALSE(nb.worker().reevaluation_requested());
  EXPECT_EQ(nb.console_text().find("wlan_notification"), std::string::npos);
  WlanNotificationCallback(platform::kWlanSourceMsm, platform::kWlanMsmAdapterRemoval);
  EXPECT_NE(nb.console_text().find("wlan_notification_msm_adapter_removal\n"), std::string::npos);
  EXPECT_TRUE(nb.worker().reevaluation_requested());
}

TEST(EventsWlan, NotificationsBeforeAnyWorkerIsRememberedAreIgnored) {
  // Without lid notifications the window delivers nothing that would remember the worker.
  EngineOnNotebook nb(R"({"lid": {"notifications": false}})");
  ASSERT_EQ(nb.Init(), 0);
  ASSERT_EQ(remembered_worker(), nullptr);
  nb.patch(interface(false, 36));
  nb.run_for(100);
  nb.patch(interface(true, 36));
  nb.run_for(100);
  EXPECT_EQ(nb.console_text().find("wlan_notification"), std::string::npos);
  EXPECT_FALSE(nb.worker().reevaluation_requested());

  // Once a request has remembered it, the same notifications act.
  RequestReevaluation(&nb.worker(), false, Trigger::kDevice);
  EXPECT_EQ(remembered_worker(), &nb.worker());
  nb.worker().consume_reevaluation();
  nb.patch(interface(false, 36));
  nb.run_for(100);
  EXPECT_NE(nb.console_text().find("wlan_notification_msm_disconnected\n"), std::string::npos);
  EXPECT_TRUE(nb.worker().reevaluation_requested());
}

TEST(EventsPower, UnchangedValueDoesNothing) {
  EngineOnNotebook nb;
  settle(nb);
  // The registration delivered the current value (0), equal to the stored one.
  EXPECT_NE(nb.console_text().find("GUID_ACDC_POWER_SOURCE\n"), std::string::npos);
  EXPECT_FALSE(nb.log_contains("Power state changed!"));
  forget_remembered_worker();

  EventWindowProc proc(&nb.worker());
  platform::WindowMessage m;
  m.kind = platform::WindowMessage::kCreate;
  proc.on_message(m);
  m.kind = platform::WindowMessage::kPowerSettingChange;
  m.setting = platform::PowerSetting::kAcDcPowerSource;
  m.value = 0;
  EXPECT_TRUE(proc.on_message(m));
  EXPECT_FALSE(nb.log_contains("Power state changed!"));
  EXPECT_FALSE(nb.worker().reevaluation_requested());
  EXPECT_EQ(remembered_worker(), nullptr) << "an unchanged value remembers nothing";
}

TEST(EventsPower, ChangedValueAsksForADecisionWithoutRecomputingTheSet) {
  EngineOnNotebook nb(R"({"lid": {"notifications": true}})");
  settle(nb);
  forget_remembered_worker();
  nb.worker().shared.device().set_active_config_set(0);  // a recomputation would select set 1
  const size_t before = nb.log_count("CONFIG changed!");
  nb.patch(R"({"power": {"source": 1}})");
  nb.run_for(100);
  EXPECT_TRUE(nb.log_contains("Power state changed! (0 -> 1)\n"));
  EXPECT_EQ(nb.worker().shared.power_source(), 1u);
  EXPECT_TRUE(nb.worker().reevaluation_requested());
  EXPECT_EQ(nb.log_count("CONFIG changed!"), before);
  EXPECT_FALSE(nb.worker().reevaluation.config_change_pending());
  EXPECT_EQ(remembered_worker(), &nb.worker()) << "the first power change remembers the worker";
}

TEST(EventsRequest, RecomputeMakesADifferentSetPendingAndLeavesAnEqualOneAlone) {
  EngineOnNotebook nb;
  settle(nb);
  const size_t before = nb.log_count("CONFIG changed!");
  RequestReevaluation(&nb.worker(), true, Trigger::kDevice);  // still set 1
  EXPECT_EQ(nb.log_count("CONFIG changed!"), before);
  EXPECT_FALSE(nb.worker().reevaluation.config_change_pending());
  EXPECT_TRUE(nb.worker().consume_reevaluation());

  nb.worker().shared.set_lid_open(false);
  RequestReevaluation(&nb.worker(), true, Trigger::kDevice);
  EXPECT_TRUE(nb.log_contains("CONFIG changed! 1 -> 3\n"));
  EXPECT_TRUE(nb.worker().reevaluation.config_change_pending());
  EXPECT_EQ(nb.worker().reevaluation.pending_config_set(), 3u);
  RequestReevaluation(nullptr, true, Trigger::kDevice);  // nothing happens for an empty worker
}

// --- The window's set-up, over a scripted window.

class ScriptedWindow final : public platform::EventWindow {
 public:
  struct Script {
    bool lid_ok = true;
    bool power_ok = true;
    std::vector<platform::PowerSetting> registered;
    bool looped = false;
    bool unregistered = false;
    std::vector<platform::WindowMessage> messages;  // delivered by the loop
  };
  ScriptedWindow(Script& s, platform::WindowHandler& h) : s_(s), h_(h) {}
  bool register_power_setting(platform::PowerSetting setting) override {
    s_.registered.push_back(setting);
    return setting == platform::PowerSetting::kLidSwitch ? s_.lid_ok : s_.power_ok;
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
  std::unique_ptr<platform::EventWindow> create_window(const std::string& window_class,
                                                       const std::string& title,
                                                       platform::WindowHandler& handler) override {
    class_name = window_class;
    window_title = title;
    if (!create_ok) return nullptr;
    platform::WindowMessage create;
    create.kind = platform::WindowMessage::kCreate;
    handler.on_message(create);
    return std::make_unique<ScriptedWindow>(script, handler);
  }
  bool create_ok = true;
  std::string class_name;
  std::string window_title;
  ScriptedWindow::Script script;
};

TEST(EventsWindow, ClassAndTitleRegistrationsLoopAndUnregistering) {
  EngineOnNotebook nb;
  ScriptedEvents events;
  platform::WindowMessage destroy;
  destroy.kind = platform::WindowMessage::kDestroy;
  events.script.messages = {destroy};
  nb.use_system_events(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_EQ(event_window_threads_running(), 0);
  EXPECT_EQ(events.class_name, "svc peek");
  EXPECT_EQ(events.window_title, "peephole");
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
  events.create_ok = false;
  nb.use_system_events(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_EQ(event_window_threads_running(), 0);
  EXPECT_TRUE(nb.log_contains("Lid status peephole init failed!\n"));
  EXPECT_TRUE(events.script.registered.empty());
}

TEST(EventsWindow, LidRegistrationFailureEndsTheThread) {
  EngineOnNotebook nb;
  ScriptedEvents events;
  events.script.lid_ok = false;
  nb.use_system_events(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_TRUE(nb.log_contains(
      "RegisterPowerSettingNotification for GUID_LIDSWITCH_STATE_CHANGE failed!\n"));
  EXPECT_FALSE(nb.worker().shared.lid_notification_registered());
  EXPECT_EQ(events.script.registered.size(), 1u) << "the power source is not registered";
  EXPECT_FALSE(events.script.looped);
}

TEST(EventsWindow, PowerRegistrationFailureIsLoggedAndTheLoopRuns) {
  EngineOnNotebook nb;
  ScriptedEvents events;
  events.script.power_ok = false;
  nb.use_system_events(&events);
  ASSERT_EQ(nb.Init(), 0);
  EXPECT_TRUE(
      nb.log_contains("RegisterPowerSettingNotification for GUID_ACDC_POWER_SOURCE failed!\n"));
  EXPECT_TRUE(nb.worker().shared.lid_notification_registered());
  EXPECT_TRUE(events.script.looped);
  EXPECT_TRUE(events.script.unregistered);
}

TEST(EventsWindow, ProcedureHandlesItsMessagesAndLeavesOthersToTheDefault) {
  EngineOnNotebook nb;
  settle(nb);
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
  EXPECT_FALSE(nb.worker().reevaluation_requested());
  m.kind = platform::WindowMessage::kDestroy;
  EXPECT_TRUE(proc.on_message(m));
}

}  // namespace
}  // namespace zaltor::engine
