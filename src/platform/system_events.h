#pragma once
// System events of a notebook: a window that is never shown receives, on Windows, lid-switch and
// power-source notifications and device-change messages.

#include <cstdint>
#include <memory>
#include <string>

namespace zaltor::platform {

enum class PowerSetting { kLidSwitch, kAcDcPowerSource };

struct WindowMessage {
  enum Kind {
    kCreate,               // WM_CREATE
    kDestroy,              // WM_DESTROY
    kPowerSettingChange,   // WM_POWERBROADCAST with PBT_POWERSETTINGCHANGE
    kPowerBroadcastOther,  // any other WM_POWERBROADCAST
    kDeviceChange,         // WM_DEVICECHANGE
    kOther,
  };
  Kind kind = kOther;
  PowerSetting setting = PowerSetting::kLidSwitch;  // kPowerSettingChange only
  uint32_t value = 0;                               // the setting's 32-bit value
};

// The window procedure. Returns true when it handled the message; false asks the window
// for its default handling.
class WindowHandler {
 public:
  virtual ~WindowHandler() = default;
  virtual bool on_message(const WindowMessage& message) = 0;
};

class EventWindow {
 public:
  virtual ~EventWindow() = default;
  // RegisterPowerSettingNotification to this window; false on failure.
  virtual bool register_power_setting(PowerSetting setting) = 0;
  // Runs the message loop on the calling thread until the window's queue ends.
  virtual void run_message_loop() = 0;
  virtual void unregister_power_settings() = 0;
};

class SystemEvents {
 public:
  virtual ~SystemEvents() = default;
  // Registers the window class and creates the window on the calling thread; the handler
  // receives kCreate before this returns. Null on failure.
  virtual std::unique_ptr<EventWindow> create_window(const std::string& class_name,
                                                     const std::string& title,
                                                     WindowHandler& handler) = 0;
};

}  // namespace zaltor::platform
