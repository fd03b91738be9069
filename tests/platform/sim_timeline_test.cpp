// The notebook over time: system event windows, WLAN notifications, the timeline and the
// end of a run, all in virtual time.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

using Lines = std::vector<std::string>;

// Everything the service would see, one line each, with the notebook's time.
class Recorder final : public WindowHandler {
 public:
  explicit Recorder(Clock& clock) : clock_(clock) {}
  bool on_message(const WindowMessage& m) override {
    std::string what;
    switch (m.kind) {
      case WindowMessage::kCreate:
        what = "create";
        break;
      case WindowMessage::kDestroy:
        what = "destroy";
        break;
      case WindowMessage::kPowerSettingChange:
        what = std::string(m.setting == PowerSetting::kLidSwitch ? "lid " : "power ") +
               std::to_string(m.value);
        break;
      case WindowMessage::kDeviceChange:
        what = "device change";
        break;
      default:
        what = "other";
    }
    add(what);
    return true;
  }
  void wlan(uint32_t source, uint32_t code) {
    add("wlan " + std::to_string(source) + "/" + std::to_string(code));
  }
  void add(const std::string& what) {
    const int64_t t = clock_.now_ms();
    std::lock_guard<std::mutex> g(m_);
    lines_.push_back(std::to_string(t) + " " + what);
  }
  Lines lines() {
    std::lock_guard<std::mutex> g(m_);
    return lines_;
  }

 private:
  Clock& clock_;
  std::mutex m_;
  Lines lines_;
};

// A notebook in virtual time with an event window thread and a WLAN registration, as the
// service sets them up.
class Rig {
 public:
  explicit Rig(const std::string& text) {
    std::string error;
    nb = make_sim_notebook_from_text(text, error);
    EXPECT_NE(nb, nullptr) << error;
    rec = std::make_unique<Recorder>(nb->clock());
    nb->clock().attach_current_thread();
    uint32_t err = 0;
    wlan = nb->wlan().open(2, err);
    wlan->register_notification(kWlanSourceMsm,
                                [this](uint32_t s, uint32_t c) { rec->wlan(s, c); });
    window_thread = nb->clock().start_thread("events", [this] {
      auto w = nb->system_events().create_window("svc peek", "peephole", *rec);
      rec->add(w->register_power_setting(PowerSetting::kLidSwitch) ? "lid registered"
                                                                   : "lid refused");
      rec->add(w->register_power_setting(PowerSetting::kAcDcPowerSource) ? "power registered"
                                                                         : "power refused");
      w->run_message_loop();
      w->unregister_power_settings();
    });
  }
  ~Rig() {
    nb->close_windows();
    window_thread->join();
    wlan.reset();
    nb->clock().detach_current_thread();
  }
  std::unique_ptr<SimNotebook> nb;
  std::unique_ptr<Recorder> rec;
  std::unique_ptr<WlanSession> wlan;
  std::unique_ptr<Thread> window_thread;
};

const char* k_virtual = R"({"clock": {"mode": "virtual"}, "timeline": []})";

TEST(SimSystemEvents, CreateThenTheCurrentValuesAtRegistration) {
  Rig rig(k_virtual);
  rig.nb->start();
  rig.nb->clock().sleep_ms(10);
  EXPECT_EQ(rig.rec->lines(),
            (Lines{"0 create", "0 lid registered", "0 power registered", "0 lid 1", "0 power 0"}));
}

TEST(SimSystemEvents, LidRegistrationFailsWithoutLidNotifications) {
  Rig rig(
      R"({"clock": {"mode": "virtual"}, "timeline": [], "lid": {"notifications": false, "open": false}})");
  rig.nb->start();
  rig.nb->clock().sleep_ms(10);
  std::string error;
  ASSERT_TRUE(rig.nb->apply_patch({{"lid", {{"open", true}}}}, error));
  rig.nb->clock().sleep_ms(10);
  EXPECT_EQ(rig.rec->lines(),
            (Lines{"0 create", "0 lid refused", "0 power registered", "0 power 0"}));
}

TEST(SimSystemEvents, TheMessageLoopEndsWithTheDestroyMessage) {
  Rig rig(k_virtual);
  rig.nb->clock().sleep_ms(5);
  rig.nb->close_windows();
  rig.window_thread->join();
  EXPECT_EQ(rig.rec->lines().back(), "5 destroy");
}

constexpr const char* kEveryChange = R"({
  "clock": {"mode": "virtual"},
  "timeline": [
    {"at": 10, "patch": {"lid": {"open": false}}},
    {"at": 20, "patch": {"power": {"source": 1}}},
    {"at": 30, "patch": {"bluetooth": {"BTHLE": [{"hardwareId": "BTHLE\\Dev_9"}]}}},
    {"at": 40, "patch": {"pciNics": []}},
    {"at": 50, "patch": {"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
        "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": false, "channel": 36}]}}},
    {"at": 55, "patch": {"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
        "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": false, "channel": 1}]}}},
    {"at": 60, "patch": {"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
        "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": true, "channel": 1}]}}},
    {"at": 70, "patch": {"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
        "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": true, "channel": 6}]}}},
    {"at": 80, "patch": {"lid": {"open": false}, "power": {"source": 1}, "pciNics": [],
        "radio": {"throughputBps": 5}, "firmware": {"extraBits": 131072}}},
    {"at": 90, "patch": {"wlan": {"interfaces": []}}},
    {"at": 100.5, "patch": {"lid": {"open": true}}}
  ]})";

TEST(SimTimeline, EachChangeRaisesItsNotificationOnceAndUnchangedValuesNothing) {
  Rig rig(kEveryChange);
  rig.nb->start();
  rig.nb->clock().sleep_ms(200 * 1000);
  EXPECT_EQ(rig.rec->lines(), (Lines{
                                  "0 create",
                                  "0 lid registered",
                                  "0 power registered",
                                  "0 lid 1",
                                  "0 power 0",
                                  "10000 lid 0",
                                  "20000 power 1",
                                  "30000 device change",
                                  "40000 device change",
                                  "50000 wlan 16/10",  // disconnected
                                  // 55: the channel changes while disconnected: nothing
                                  "60000 wlan 16/4",  // connected
                                  "70000 wlan 16/4",  // roamed to channel 6
                                  // 80: nothing that is watched changes
                                  "90000 wlan 16/13",  // the adapter is gone
                                  "100500 lid 1",
                              }));
  EXPECT_EQ(rig.nb->scenario().throughput_bps, 5);
}

TEST(SimTimeline, RunsTheSameWayEveryTime) {
  Lines first;
  for (int run = 0; run < 5; ++run) {
    Rig rig(kEveryChange);
    rig.nb->start();
    rig.nb->clock().sleep_ms(200 * 1000);
    if (run == 0) {
      first = rig.rec->lines();
    } else {
      EXPECT_EQ(rig.rec->lines(), first) << "run " << run;
    }
  }
}

TEST(SimTimeline, CancelledWlanRegistrationHearsNothing) {
  Rig rig(kEveryChange);
  rig.wlan->register_notification(kWlanSourceNone, nullptr);
  rig.nb->start();
  rig.nb->clock().sleep_ms(200 * 1000);
  for (const auto& line : rig.rec->lines()) EXPECT_EQ(line.find("wlan"), std::string::npos) << line;
}

TEST(SimTimeline, AnHourOfTimelineWithAServiceLoopTakesWellUnderASecond) {
  nlohmann::json scenario = {{"clock", {{"mode", "virtual"}}},
                             {"timeline", nlohmann::json::array()}};
  for (int i = 1; i <= 60; ++i) {  // the lid toggles once a minute
    scenario["timeline"].push_back({{"at", i * 60}, {"patch", {{"lid", {{"open", i % 2 == 0}}}}}});
  }
  const auto wall = std::chrono::steady_clock::now();
  Rig rig(scenario.dump());
  rig.nb->start();
  // A loop like the service's: one-second steps, reading the counters each time.
  int64_t rssi_sum = 0;
  auto loop = rig.nb->clock().start_thread("auto", [&] {
    uint32_t err = 0;
    auto q = rig.nb->counters().open_query(err);
    CounterId a = 0;
    q->add_counter("\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna A", a);
    for (int s = 0; s < 3600; ++s) {
      rig.nb->clock().sleep_ms(1000);
      int64_t v = 0;
      q->collect();
      q->formatted_large(a, v);
      rssi_sum += v;
    }
  });
  loop->join();
  // Each step: its second, and the time of one counter collection.
  EXPECT_EQ(rig.nb->clock().now_ms(), 3600 * (1000 + kHardwareCallMs));
  EXPECT_EQ(rssi_sum, 3600 * 55);
  const Lines lines = rig.rec->lines();
  ASSERT_EQ(lines.size(), 5u + 60u);
  EXPECT_EQ(lines.back(), "3600000 lid 1");
  EXPECT_LT(std::chrono::steady_clock::now() - wall, std::chrono::seconds(1));
}

TEST(SimTimeline, StopAfterRunsTheHookOnceAfterTheEntriesDueByThen) {
  Rig rig(R"({"clock": {"mode": "virtual"}, "stopAfter": 30,
              "timeline": [{"at": 30, "patch": {"lid": {"open": false}}},
                           {"at": 40, "patch": {"power": {"source": 1}}}]})");
  int calls = 0;
  rig.nb->set_stop_hook([&] {
    ++calls;
    rig.rec->add(rig.nb->scenario().lid_open ? "end, lid open" : "end, lid closed");
  });
  rig.nb->start();
  rig.nb->clock().sleep_ms(100 * 1000);
  EXPECT_EQ(calls, 1);
  const Lines lines = rig.rec->lines();
  // The window hears of the lid after the timeline thread has run the hook.
  EXPECT_EQ(Lines(lines.end() - 2, lines.end()), (Lines{"30000 end, lid closed", "30000 lid 0"}));
  EXPECT_EQ(rig.nb->scenario().power_source, 0u) << "nothing after the end is applied";
}

TEST(SimTimeline, APatchByHandIsCheckedAndAWrongOneChangesNothing) {
  Rig rig(k_virtual);
  std::string error;
  EXPECT_FALSE(rig.nb->apply_patch(
      nlohmann::json::parse(R"({"radio": {"rssi": [{"Main": 1, "Div": -5}]}})"), error));
  EXPECT_EQ(error, "scenario: radio.rssi[0].Main: expected an integer from -127 to 0");
  EXPECT_EQ(rig.nb->scenario().rssi.size(), 2u);
  EXPECT_FALSE(rig.nb->apply_patch({{"clock", {{"mode", "scaled"}}}}, error));
  EXPECT_EQ(error, "scenario: patch.clock: cannot change while the notebook runs");
  EXPECT_TRUE(rig.nb->apply_patch({{"power", {{"source", 2}}}}, error)) << error;
  EXPECT_EQ(rig.nb->scenario().power_source, 2u);
}

}  // namespace
}  // namespace zaltor::platform::sim
