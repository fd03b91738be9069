#pragma once
// SharedState: everything the worker's threads share, in one place. The service thread
// (Init, teardown), the control interface's threads, the auto-mode and monitor threads,
// the event window thread and the WLAN notification thread all reach it through the
// worker, and only through the operations below.
//
// Two parts:
// - the device logic's state (DeviceState below: the control device, the WLAN client, the
//   switch table, the counter query, readiness, the switch and mode counts, the user's
//   mode, the config set in force, lid and Bluetooth). The device logic (switch control,
//   counters, adapter discovery, board identification) is handed that part alone; the rest
//   of the engine reads and changes it through the operations of SharedState;
// - the engine's own: what the monitor and the control interface see of the auto loop
//   (autoState), the power source the event window last saw (powerSource) and whether the
//   control interface asked for per-antenna RSSI (rssiPaRequested).
// Fields set once during Init (before any other thread exists) are plain; the others are
// atomics of their own, read and written with relaxed order (no field's meaning depends on
// another's), except readiness, which publishes what Init set.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "config/settings.h"
#include "platform/control_device.h"
#include "platform/counters.h"
#include "platform/guid.h"
#include "platform/status.h"
#include "platform/switch_table.h"
#include "platform/wlan.h"

namespace zaltor::engine {

// autoState values: what the monitor sees of the auto loop.
enum AutoState : uint32_t { kAutoMeasuring = 0, kAutoIdle = 1, kAutoEnded = 2 };

// The device logic's state: what switch control, board identification, adapter discovery
// and the counters read and update. SharedState owns the service's one DeviceState and
// hands it to AntennaSwitch, SignalCounters, AdapterDiscovery and the board identification;
// the rest of the engine reaches it through SharedState's operations.
//
// Two kinds of members:
// - set once during the worker's initialisation, before any other thread exists, and only
//   read afterwards (the control device, the WLAN client and interface, the switch table,
//   the settings, the counter query and its counter ids): plain members, published by the
//   thread start;
// - shared by the control interface, auto-mode, monitor, event and WLAN threads without a
//   lock: atomics, read and written with relaxed order (each is a value of its own; no
//   member's meaning depends on another's), except readiness, which publishes what the
//   initialisation set.
class DeviceState {
 public:
  // --- The control device (null: not open).
  platform::ControlDeviceHandle* control_device() const { return device_.get(); }
  void set_control_device(std::unique_ptr<platform::ControlDeviceHandle> device) {
    device_ = std::move(device);
  }

  // --- The WLAN client (null: not open) and the Wi-Fi interface it selected.
  platform::WlanSession* wlan() const { return wlan_.get(); }
  void set_wlan(std::unique_ptr<platform::WlanSession> wlan) { wlan_ = std::move(wlan); }
  const platform::Guid& wlan_interface() const { return wlan_interface_; }
  void set_wlan_interface(const platform::Guid& guid) { wlan_interface_ = guid; }

  // --- The switch table: switch IDs, positions, RSSI counter paths.
  const platform::SwitchTable& switches() const { return switches_; }
  void set_switches(const platform::SwitchTable& table) { switches_ = table; }

  // --- The configuration's settings (null: built-in waits of 0 ms).
  bool configured() const { return settings_ != nullptr; }
  void set_settings(const config::ConfigSettings* settings) { settings_ = settings; }
  // "TimeToWaitForRSSIStable" and "RSSICollectInterval" of the config set in force.
  int32_t time_to_wait_for_rssi_stable() const {
    return per_set_value(&config::ConfigSettings::TimeToWaitForRSSIStable);
  }
  int32_t rssi_collect_interval() const {
    return per_set_value(&config::ConfigSettings::RSSICollectInterval);
  }

  // --- Readiness: the worker finished its initialisation. Setting it publishes what the
  // initialisation set to the threads that see it.
  bool ready() const { return ready_.load(std::memory_order_relaxed); }
  void set_ready(bool ready) { ready_.store(ready, std::memory_order_release); }

  // --- The antenna switch number read from the firmware and the mode count (1 << it).
  int32_t switch_count() const { return switch_count_.load(std::memory_order_relaxed); }
  void set_switch_count(int32_t count) { switch_count_.store(count, std::memory_order_relaxed); }
  uint32_t mode_count() const { return mode_count_.load(std::memory_order_relaxed); }
  void set_mode_count(uint32_t count) { mode_count_.store(count, std::memory_order_relaxed); }

  // --- The user's mode: 0 automatic, 1..mode_count fixed.
  uint32_t user_mode() const { return user_mode_.load(std::memory_order_relaxed); }
  void set_user_mode(uint32_t mode) { user_mode_.store(mode, std::memory_order_relaxed); }

  // --- The index of the config set in force.
  uint64_t active_config_set() const { return active_config_set_.load(std::memory_order_relaxed); }
  void set_active_config_set(uint64_t set) {
    active_config_set_.store(set, std::memory_order_relaxed);
  }
  // The one atomic that the re-evaluation updates under its loop mutex.
  std::atomic<uint64_t>& active_config_set_field() { return active_config_set_; }

  // --- What the event window and the Bluetooth scan learn of the notebook.
  bool lid_open() const { return lid_open_.load(std::memory_order_relaxed); }
  void set_lid_open(bool open) { lid_open_.store(open, std::memory_order_relaxed); }
  bool lid_notification_registered() const {
    return lid_notification_registered_.load(std::memory_order_relaxed);
  }
  void set_lid_notification_registered(bool registered) {
    lid_notification_registered_.store(registered, std::memory_order_relaxed);
  }
  // A device arrived or left: the next config set selection scans Bluetooth again.
  bool device_change_pending() const {
    return device_change_pending_.load(std::memory_order_relaxed);
  }
  void set_device_change_pending(bool pending) {
    device_change_pending_.store(pending, std::memory_order_relaxed);
  }
  // Clears the pending change; whether one was pending.
  bool take_device_change_pending() {
    return device_change_pending_.exchange(false, std::memory_order_relaxed);
  }
  // Connected Bluetooth devices at the last scan.
  int32_t bt_connection_count() const {
    return bt_connection_count_.load(std::memory_order_relaxed);
  }
  void set_bt_connection_count(int32_t count) {
    bt_connection_count_.store(count, std::memory_order_relaxed);
  }

  // --- The counter query (null: not set up, or opening it failed) and its counters.
  platform::CounterQuery* counter_query() const { return counter_query_.get(); }
  void set_counter_query(std::unique_ptr<platform::CounterQuery> query) {
    counter_query_ = std::move(query);
  }
  platform::CounterId throughput_counter() const { return throughput_counter_; }
  platform::CounterId link_speed_counter() const { return link_speed_counter_; }
  // The RSSI counter of port slot `port` (0: not added).
  platform::CounterId rssi_counter(size_t port) const { return rssi_counters_.at(port); }
  void set_counter_ids(platform::CounterId throughput, platform::CounterId link_speed,
                       const std::array<platform::CounterId, platform::kRssiPortSlots>& rssi) {
    throughput_counter_ = throughput;
    link_speed_counter_ = link_speed;
    rssi_counters_ = rssi;
  }
  // Both throughput counters were added.
  bool throughput_available() const {
    return throughput_available_.load(std::memory_order_relaxed);
  }
  void set_throughput_available(bool available) {
    throughput_available_.store(available, std::memory_order_relaxed);
  }
  // The RSSI counter of port 0 was added.
  bool rssi_per_antenna() const { return rssi_per_antenna_.load(std::memory_order_relaxed); }
  void set_rssi_per_antenna(bool available) {
    rssi_per_antenna_.store(available, std::memory_order_relaxed);
  }
  // The auto loop's stored sweep: row 0 position "Main", row 1 "Div"; kRssiAbsent until
  // stored. Callers keep row in 0..1 and port in 0..kMaxPorts-1.
  int32_t auto_sweep(size_t row, size_t port) const {
    return auto_sweep_.at(row).at(port).load(std::memory_order_relaxed);
  }
  void set_auto_sweep(size_t row, size_t port, int32_t rssi) {
    auto_sweep_.at(row).at(port).store(rssi, std::memory_order_relaxed);
  }

 private:
  int32_t per_set_value(config::PerSet<int32_t> config::ConfigSettings::*field) const {
    if (settings_ == nullptr) return 0;
    const uint64_t set = active_config_set();
    if (set >= static_cast<uint64_t>(config::kConfigSets)) return 0;
    return (settings_->*field)[static_cast<size_t>(set)];
  }

  std::unique_ptr<platform::ControlDeviceHandle> device_;
  std::unique_ptr<platform::WlanSession> wlan_;
  platform::Guid wlan_interface_{};
  platform::SwitchTable switches_;
  const config::ConfigSettings* settings_ = nullptr;

  std::atomic<bool> ready_{false};
  std::atomic<int32_t> switch_count_{0};
  std::atomic<uint32_t> mode_count_{0};
  std::atomic<uint32_t> user_mode_{kModeUnknown};
  std::atomic<uint64_t> active_config_set_{0};
  std::atomic<bool> lid_notification_registered_{false};
  std::atomic<bool> lid_open_{true};
  std::atomic<bool> device_change_pending_{false};
  std::atomic<int32_t> bt_connection_count_{0};

  std::unique_ptr<platform::CounterQuery> counter_query_;
  platform::CounterId throughput_counter_ = 0;
  platform::CounterId link_speed_counter_ = 0;
  std::array<platform::CounterId, platform::kRssiPortSlots> rssi_counters_{};
  std::atomic<bool> throughput_available_{false};
  std::atomic<bool> rssi_per_antenna_{false};
  std::array<std::array<std::atomic<int32_t>, platform::kMaxPorts>, 2> auto_sweep_{{
      {kRssiAbsent, kRssiAbsent, kRssiAbsent, kRssiAbsent},
      {kRssiAbsent, kRssiAbsent, kRssiAbsent, kRssiAbsent},
  }};
};

class SharedState {
 public:
  // The device logic's part, for the device logic itself and for Init and the teardown.
  DeviceState& device() { return device_; }
  const DeviceState& device() const { return device_; }

  // --- Readiness, counts, modes.
  // Init loaded the configuration (its settings are the device logic's waits from then on).
  bool configured() const { return device_.configured(); }
  bool initialised() const { return device_.ready(); }
  // Init is done: what it set becomes visible to the threads that see this.
  void mark_initialised() { device_.set_ready(true); }
  uint32_t user_mode() const { return device_.user_mode(); }
  void set_user_mode(uint32_t mode) { device_.set_user_mode(mode); }
  int32_t switch_count() const { return device_.switch_count(); }
  uint32_t mode_count() const { return device_.mode_count(); }
  uint64_t active_config_set() const { return device_.active_config_set(); }
  // The one atomic that the re-evaluation updates under its loop mutex.
  std::atomic<uint64_t>& active_config_set_field() { return device_.active_config_set_field(); }

  // --- The Wi-Fi interface in use.
  // The connection state of the selected interface; false when there is no WLAN client or
  // the query fails.
  bool query_connection_state(uint32_t& state) const {
    return device_.wlan() != nullptr &&
           device_.wlan()->query_connection_state(device_.wlan_interface(), state) == 0;
  }

  // --- What the event window learns of the notebook.
  bool lid_open() const { return device_.lid_open(); }
  void set_lid_open(bool open) { device_.set_lid_open(open); }
  bool lid_notification_registered() const { return device_.lid_notification_registered(); }
  void mark_lid_notification_registered() { device_.set_lid_notification_registered(true); }
  // A device arrived or left: the next config set selection scans Bluetooth again.
  bool device_change_pending() const { return device_.device_change_pending(); }
  void set_device_change_pending(bool pending) { device_.set_device_change_pending(pending); }
  int32_t bt_connection_count() const { return device_.bt_connection_count(); }
  uint32_t power_source() const { return power_source_.load(std::memory_order_relaxed); }
  // Records the power source now in use; the one recorded before.
  uint32_t exchange_power_source(uint32_t source) {
    const uint32_t old = power_source_.load(std::memory_order_relaxed);
    power_source_.store(source, std::memory_order_relaxed);
    return old;
  }

  // --- The auto loop as others see it.
  uint32_t auto_state() const { return auto_state_.load(std::memory_order_relaxed); }
  void set_auto_state(uint32_t state) { auto_state_.store(state, std::memory_order_relaxed); }
  bool rssi_pa_requested() const { return rssi_pa_requested_.load(std::memory_order_relaxed); }
  void set_rssi_pa_requested(bool requested) {
    rssi_pa_requested_.store(requested, std::memory_order_relaxed);
  }

 private:
  DeviceState device_;
  std::atomic<uint32_t> auto_state_{kAutoEnded};
  std::atomic<uint32_t> power_source_{0};
  std::atomic<bool> rssi_pa_requested_{false};
};

}  // namespace zaltor::engine
