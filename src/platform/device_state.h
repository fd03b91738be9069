#pragma once
// The state that the device logic (switch control, board identification, adapter
// discovery, counters) reads and updates. The engine's SharedState (engine/shared_state.h)
// holds the service's one DeviceState and hands it, with the seams, to AntennaSwitch,
// AdapterDiscovery and SignalCounters; the engine reaches it through SharedState.
//
// Two kinds of fields:
// - set once during the worker's initialisation, before any other thread exists, and
//   only read afterwards: plain fields (the thread start publishes them);
// - shared by the RPC, automatic-mode, monitor, event and WLAN threads without a lock:
//   std::atomic, read and written with relaxed order (each is a value of its own; no
//   field's meaning depends on another's).

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "config/settings.h"
#include "platform/control_device.h"
#include "platform/counters.h"
#include "platform/guid.h"
#include "platform/status.h"
#include "platform/switch_table.h"
#include "platform/wlan.h"

namespace zaltor::platform {

// The measurement state of the counter query. The handles are set once by SetUpCounters;
// the flags and the auto loop's stored sweep are shared.
struct CounterState {
  std::unique_ptr<CounterQuery> query;  // null: no query (not set up, or opening failed)
  CounterId throughput = 0;
  CounterId link_speed = 0;
  std::array<CounterId, kRssiPortSlots> rssi{};

  std::atomic<bool> throughput_available{false};  // both throughput counters were added
  std::atomic<bool> rssi_per_antenna{false};      // the RSSI counter of port 0 was added
  // The stored sweep results of automatic mode: row 0 position "Main", row 1 "Div".
  std::array<std::array<std::atomic<int32_t>, kMaxPorts>, 2> auto_sweep{{
      {kRssiAbsent, kRssiAbsent, kRssiAbsent, kRssiAbsent},
      {kRssiAbsent, kRssiAbsent, kRssiAbsent, kRssiAbsent},
  }};
};

struct DeviceState {
  // --- Set during initialisation, read-only afterwards.
  std::unique_ptr<ControlDeviceHandle> device;       // null: the control device is not open
  std::unique_ptr<WlanSession> wlan;                 // null: the WLAN client is not open
  Guid wlan_interface{};                             // the selected Wi-Fi interface
  SwitchTable switches;                              // switch IDs, positions, RSSI counter paths
  const config::ConfigSettings* settings = nullptr;  // null: built-in waits of 0 ms

  // --- Shared between threads.
  std::atomic<bool> ready{false};                 // the worker finished its initialisation
  std::atomic<int32_t> switch_count{0};           // antenna switch number read from the firmware
  std::atomic<uint32_t> mode_count{0};            // 1 << switch_count
  std::atomic<uint32_t> user_mode{kModeUnknown};  // 0 automatic, 1..mode_count fixed
  std::atomic<uint64_t> active_config_set{0};     // index of the config set in force
  std::atomic<bool> lid_notification_registered{false};
  std::atomic<bool> lid_open{true};
  std::atomic<bool> device_change_pending{false};  // the next SelectConfigSet re-scans Bluetooth
  std::atomic<int32_t> bt_connection_count{0};     // connected Bluetooth devices, last scan

  CounterState counters;

  // "TimeToWaitForRSSIStable" and "RSSICollectInterval" of the config set in force.
  int32_t time_to_wait_for_rssi_stable() const {
    return per_set_value(&config::ConfigSettings::TimeToWaitForRSSIStable);
  }
  int32_t rssi_collect_interval() const {
    return per_set_value(&config::ConfigSettings::RSSICollectInterval);
  }

 private:
  int32_t per_set_value(config::PerSet<int32_t> config::ConfigSettings::*field) const {
    if (settings == nullptr) return 0;
    const uint64_t set = active_config_set.load(std::memory_order_relaxed);
    if (set >= static_cast<uint64_t>(config::kConfigSets)) return 0;
    return (settings->*field)[static_cast<size_t>(set)];
  }
};

}  // namespace zaltor::platform
