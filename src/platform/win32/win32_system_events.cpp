// The event window: lid-switch and power-source notifications and device-change messages,
// delivered to the portable window handler on the thread that created the window.
//
// The window is a top-level window that is never shown, so that the device-change messages
// that Windows broadcasts to top-level windows reach it. Where the desktop has no room for a
// top-level window (a session without a display, such as Wine without one), it falls back to
// a message-only window: power-setting notifications are addressed to the window and still
// arrive, broadcasts do not.
#include <windows.h>

#include <cstring>
#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_hardware.h"

namespace zaltor::platform {
namespace {

constexpr GUID kLidSwitchStateChange = {
    0xBA3E0F4D, 0xB817, 0x4094, {0xA2, 0xD1, 0xD5, 0x63, 0x79, 0xE6, 0xA0, 0xF3}};
constexpr GUID kAcDcPowerSource = {
    0x5D3E9A59, 0xE9D5, 0x4B00, {0xA6, 0xBD, 0xFF, 0x34, 0xFF, 0x51, 0x65, 0x48}};

// What the window procedure reaches through the window's user data.
struct WindowState {
  WindowHandler* handler = nullptr;  // null while the window is made and after its owner let go
  HWND hwnd = nullptr;
};

// The portable form of a message; kOther for everything the handler has no name for.
WindowMessage translate(UINT msg, WPARAM wparam, LPARAM lparam) {
  WindowMessage m;
  switch (msg) {
    case WM_CREATE:
      m.kind = WindowMessage::kCreate;
      break;
    case WM_DESTROY:
      m.kind = WindowMessage::kDestroy;
      break;
    case WM_DEVICECHANGE:
      m.kind = WindowMessage::kDeviceChange;
      break;
    case WM_POWERBROADCAST: {
      m.kind = WindowMessage::kPowerBroadcastOther;
      if (wparam != PBT_POWERSETTINGCHANGE || lparam == 0) break;
      const auto* setting = reinterpret_cast<const POWERBROADCAST_SETTING*>(lparam);
      const bool lid = IsEqualGUID(setting->PowerSetting, kLidSwitchStateChange);
      const bool source = IsEqualGUID(setting->PowerSetting, kAcDcPowerSource);
      // Both settings carry one 32-bit value; anything else is a notification not asked for.
      if ((!lid && !source) || setting->DataLength < sizeof(DWORD)) break;
      DWORD value = 0;
      std::memcpy(&value, setting->Data, sizeof(value));
      m.kind = WindowMessage::kPowerSettingChange;
      m.setting = lid ? PowerSetting::kLidSwitch : PowerSetting::kAcDcPowerSource;
      m.value = static_cast<uint32_t>(value);
      break;
    }
    default:
      m.kind = WindowMessage::kOther;
      break;
  }
  return m;
}

LRESULT CALLBACK window_proc(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam) {
  if (msg == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lparam);
    auto* state = static_cast<WindowState*>(create->lpCreateParams);
    state->hwnd = hwnd;
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(state));
  }
  auto* state = reinterpret_cast<WindowState*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  if (msg == WM_NCDESTROY && state != nullptr) {
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
    state->hwnd = nullptr;
  }
  // Messages before the window knows its state, or after its owner let go of it.
  if (state == nullptr || state->handler == nullptr)
    return DefWindowProcW(hwnd, msg, wparam, lparam);
  const bool handled = state->handler->on_message(translate(msg, wparam, lparam));
  // The handler only records the destruction; ending the loop is the window's part.
  if (msg == WM_DESTROY) PostQuitMessage(0);
  if (handled) return 0;
  return DefWindowProcW(hwnd, msg, wparam, lparam);
}

class Win32EventWindow final : public EventWindow {
 public:
  explicit Win32EventWindow(std::unique_ptr<WindowState> state) : state_(std::move(state)) {}
  // Runs on the window's thread, as every use of the window does.
  ~Win32EventWindow() override {
    unregister_power_settings();
    state_->handler = nullptr;
    if (state_->hwnd != nullptr) DestroyWindow(state_->hwnd);
  }
  Win32EventWindow(const Win32EventWindow&) = delete;
  Win32EventWindow& operator=(const Win32EventWindow&) = delete;

  bool register_power_setting(PowerSetting setting) override {
    if (state_->hwnd == nullptr) return false;
    const GUID& guid =
        setting == PowerSetting::kLidSwitch ? kLidSwitchStateChange : kAcDcPowerSource;
    const HPOWERNOTIFY n =
        RegisterPowerSettingNotification(state_->hwnd, &guid, DEVICE_NOTIFY_WINDOW_HANDLE);
    if (n == nullptr) return false;
    registrations_.push_back(n);
    return true;
  }

  void run_message_loop() override {
    MSG msg;
    // 0 is the quit message; -1 an error (no queue to read): either way the loop is over.
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
  }

  void unregister_power_settings() override {
    for (HPOWERNOTIFY n : registrations_) UnregisterPowerSettingNotification(n);
    registrations_.clear();
  }

 private:
  std::unique_ptr<WindowState> state_;
  std::vector<HPOWERNOTIFY> registrations_;
};

class Win32SystemEvents final : public SystemEvents {
 public:
  std::unique_ptr<EventWindow> create_window(const std::string& class_name,
                                             const std::string& title,
                                             WindowHandler& handler) override {
    const HINSTANCE instance = GetModuleHandleW(nullptr);
    const std::wstring cls = win32::wide(class_name);
    const std::wstring text = win32::wide(title);
    WNDCLASSW wc = {};
    wc.lpfnWndProc = window_proc;
    wc.hInstance = instance;
    wc.lpszClassName = cls.c_str();
    // A second window of the same class (the class outlives its windows) uses the same
    // procedure: registered already is as good as registered now.
    if (RegisterClassW(&wc) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) return nullptr;

    // The handler is attached once the window exists: a first attempt that fails has run
    // the window's creation messages already, and the handler must see them only once.
    auto state = std::make_unique<WindowState>();
    HWND hwnd = CreateWindowExW(0, cls.c_str(), text.c_str(), WS_OVERLAPPEDWINDOW, CW_USEDEFAULT,
                                CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr,
                                instance, state.get());
    if (hwnd == nullptr) {
      hwnd = CreateWindowExW(0, cls.c_str(), text.c_str(), 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                             instance, state.get());
    }
    if (hwnd == nullptr) return nullptr;
    state->handler = &handler;
    auto window = std::make_unique<Win32EventWindow>(std::move(state));
    WindowMessage create;
    create.kind = WindowMessage::kCreate;
    handler.on_message(create);
    return window;
  }
};

}  // namespace

std::unique_ptr<SystemEvents> make_win32_system_events() {
  return std::make_unique<Win32SystemEvents>();
}

}  // namespace zaltor::platform
