// The firmware's control device: a file handle spoken to with DeviceIoControl.
#include <windows.h>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_hardware.h"

namespace zaltor::platform {
namespace {

class Win32ControlHandle final : public ControlDeviceHandle {
 public:
  explicit Win32ControlHandle(HANDLE handle) : handle_(handle) {}
  ~Win32ControlHandle() override { CloseHandle(handle_); }
  Win32ControlHandle(const Win32ControlHandle&) = delete;
  Win32ControlHandle& operator=(const Win32ControlHandle&) = delete;

  bool io_control(uint32_t code, const uint8_t* in, uint32_t in_len, uint8_t* out,
                  uint32_t out_capacity, uint32_t& returned) override {
    DWORD got = 0;
    // The input buffer is only read; the API's parameter is not const.
    const BOOL ok = DeviceIoControl(handle_, code, const_cast<uint8_t*>(in), in_len, out,
                                    out_capacity, &got, nullptr);
    returned = ok ? static_cast<uint32_t>(got) : 0;
    return ok != FALSE;
  }

 private:
  HANDLE handle_;
};

class Win32ControlDevice final : public ControlDevice {
 public:
  std::unique_ptr<ControlDeviceHandle> open(const std::string& path, uint32_t& error) override {
    const HANDLE h =
        CreateFileW(win32::wide(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    // -2 is the pseudo handle of the current thread, never a device: a failure as well.
    if (h == INVALID_HANDLE_VALUE || h == reinterpret_cast<HANDLE>(static_cast<intptr_t>(-2))) {
      error = static_cast<uint32_t>(GetLastError());
      return nullptr;
    }
    error = 0;
    return std::make_unique<Win32ControlHandle>(h);
  }
};

}  // namespace

std::unique_ptr<ControlDevice> make_win32_control_device() {
  return std::make_unique<Win32ControlDevice>();
}

}  // namespace zaltor::platform
