#pragma once
// SharedState: everything the worker's threads share, in one place. The service thread
// (Init, teardown), the control interface's threads, the auto-mode and monitor threads,
// the event window thread and the WLAN notification thread all reach it through the
// worker, and only through the operations below.
//
// Two parts:
// - the device logic's state (platform::DeviceState: the control device, the WLAN client,
//   the switch table, the counter query, readiness, the switch and mode counts, the user's
//   mode, the config set in force, lid and Bluetooth). The device logic (switch control,
//   counters, adapter discovery, board identification) sits below the engine and is handed
//   that part alone; the engine reads and changes it through the operations here;
// - the engine's own: what the monitor and the control interface see of the auto loop
//   (autoState), the power source the event window last saw (powerSource) and whether the
//   control interface asked for per-antenna RSSI (rssiPaRequested).
// Fields set once during Init (before any other thread exists) are plain; the others are
// atomics of their own, read and written with relaxed order (no field's meaning depends on
// another's), except readiness, which publishes what Init set.

#include <atomic>
#include <cstdint>

#include "platform/device_state.h"
#include "platform/wlan.h"

namespace zaltor::engine {

// autoState values: what the monitor sees of the auto loop.
enum AutoState : uint32_t { kAutoMeasuring = 0, kAutoIdle = 1, kAutoEnded = 2 };

class SharedState {
 public:
  // The device logic's part, for the device logic itself and for Init and the teardown.
  platform::DeviceState& device() { return device_; }
  const platform::DeviceState& device() const { return device_; }

  // --- Readiness, counts, modes.
  // Init loaded the configuration (its settings are the device logic's waits from then on).
  bool configured() const { return device_.settings != nullptr; }
  bool initialised() const { return device_.ready.load(std::memory_order_relaxed); }
  // Init is done: what it set becomes visible to the threads that see this.
  void mark_initialised() { device_.ready.store(true, std::memory_order_release); }
  uint32_t user_mode() const { return device_.user_mode.load(std::memory_order_relaxed); }
  void set_user_mode(uint32_t mode) { device_.user_mode.store(mode, std::memory_order_relaxed); }
  int32_t switch_count() const { return device_.switch_count.load(std::memory_order_relaxed); }
  uint32_t mode_count() const { return device_.mode_count.load(std::memory_order_relaxed); }
  uint64_t active_config_set() const {
    return device_.active_config_set.load(std::memory_order_relaxed);
  }
  // The one atomic that the re-evaluation updates under its loop mutex.
  std::atomic<uint64_t>& active_config_set_field() { return device_.active_config_set; }

  // --- The Wi-Fi interface in use.
  // The connection state of the selected interface; false when there is no WLAN client or
  // the query fails.
  bool query_connection_state(uint32_t& state) const {
    return device_.wlan != nullptr &&
           device_.wlan->query_connection_state(device_.wlan_interface, state) == 0;
  }

  // --- What the event window learns of the notebook.
  bool lid_open() const { return device_.lid_open.load(std::memory_order_relaxed); }
  void set_lid_open(bool open) { device_.lid_open.store(open, std::memory_order_relaxed); }
  bool lid_notification_registered() const {
    return device_.lid_notification_registered.load(std::memory_order_relaxed);
  }
  void mark_lid_notification_registered() {
    device_.lid_notification_registered.store(true, std::memory_order_relaxed);
  }
  // A device arrived or left: the next config set selection scans Bluetooth again.
  bool device_change_pending() const {
    return device_.device_change_pending.load(std::memory_order_relaxed);
  }
  void set_device_change_pending(bool pending) {
    device_.device_change_pending.store(pending, std::memory_order_relaxed);
  }
  int32_t bt_connection_count() const {
    return device_.bt_connection_count.load(std::memory_order_relaxed);
  }
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
  platform::DeviceState device_;
  std::atomic<uint32_t> auto_state_{kAutoEnded};
  std::atomic<uint32_t> power_source_{0};
  std::atomic<bool> rssi_pa_requested_{false};
};

}  // namespace zaltor::engine
