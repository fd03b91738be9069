// The event window thread and its window procedure: lid switch, power source and device
// change messages.
#include <atomic>

#include "engine/system_events.h"
#include "engine/worker_threads.h"

namespace zaltor::engine {

namespace {
constexpr const char* kWindowClass = "svc peek";
constexpr const char* kWindowTitle = "peephole";

std::atomic<int> g_window_threads{0};

// Counts the thread as running for its whole body, whichever way it ends.
class WindowThreadCount {
 public:
  WindowThreadCount() { g_window_threads.fetch_add(1, std::memory_order_acq_rel); }
  ~WindowThreadCount() { g_window_threads.fetch_sub(1, std::memory_order_acq_rel); }
  WindowThreadCount(const WindowThreadCount&) = delete;
  WindowThreadCount& operator=(const WindowThreadCount&) = delete;
};
}  // namespace

int event_window_threads_running() {
  return g_window_threads.load(std::memory_order_acquire);
}

void EventWindowProc::print(const char* text) {
  Console* console = worker_->platform().console;
  if (console != nullptr) console->write(text);
}

bool EventWindowProc::on_message(const platform::WindowMessage& message) {
  using platform::WindowMessage;
  switch (message.kind) {
    case WindowMessage::kCreate:
      worker_ = creation_parameter_;
      return true;
    case WindowMessage::kDestroy:
      // The window's backend posts the quit message that ends the message loop.
      return true;
    case WindowMessage::kPowerSettingChange:
      if (worker_ != nullptr) on_power_setting_change(message);
      return true;
    case WindowMessage::kPowerBroadcastOther:
      return true;
    case WindowMessage::kDeviceChange:
      if (worker_ == nullptr) return true;
      worker_->shared.set_device_change_pending(true);
      print("WM_DEVICECHANGE\n");
      RequestReevaluation(worker_, true, Trigger::kDevice);
      return true;
    case WindowMessage::kOther:
      break;
  }
  return false;
}

void EventWindowProc::on_power_setting_change(const platform::WindowMessage& message) {
  if (message.setting == platform::PowerSetting::kLidSwitch) {
    worker_->shared.set_lid_open(message.value != 0);
    print("GUID_LIDSWITCH_STATE_CHANGE\n");
    RequestReevaluation(worker_, true, Trigger::kLid);
    return;
  }
  const uint32_t source = message.value;
  print("GUID_ACDC_POWER_SOURCE\n");
  const uint32_t old = worker_->shared.exchange_power_source(source);
  if (source == old) return;
  worker_->log().write(kLogInfo, "Power state changed! (%d -> %d)\n", static_cast<int>(old),
                       static_cast<int>(source));
  // A new decision on the same config set: the power source does not select one.
  RequestReevaluation(worker_, false, Trigger::kPower);
}

void EventWindowThread(AntennaSwitchWorkerObj* worker) {
  WindowThreadCount running;
  if (worker == nullptr) return;
  Log& log = worker->log();
  platform::SystemEvents* events = worker->platform().system_events;
  EventWindowProc proc(worker);
  std::unique_ptr<platform::EventWindow> window;
  if (events != nullptr) window = events->create_window(kWindowClass, kWindowTitle, proc);
  if (!window) {
    log.write(kLogWarning, "Lid status peephole init failed!\n");
    return;
  }
  if (!window->register_power_setting(platform::PowerSetting::kLidSwitch)) {
    log.write(kLogWarning,
              "RegisterPowerSettingNotification for GUID_LIDSWITCH_STATE_CHANGE failed!\n");
    return;
  }
  worker->shared.mark_lid_notification_registered();
  if (!window->register_power_setting(platform::PowerSetting::kAcDcPowerSource)) {
    log.write(kLogWarning, "RegisterPowerSettingNotification for GUID_ACDC_POWER_SOURCE failed!\n");
  }
  window->run_message_loop();
  window->unregister_power_settings();
}

}  // namespace zaltor::engine
