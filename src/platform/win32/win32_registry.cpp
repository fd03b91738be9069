// The local machine's registry. A key stays open as long as the caller holds it.
#include <windows.h>

#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

class Win32RegistryKey final : public RegistryKey {
 public:
  explicit Win32RegistryKey(HKEY key) : key_(key) {}
  ~Win32RegistryKey() override { RegCloseKey(key_); }

  uint32_t read_string(const std::string& name, uint32_t buffer_bytes,
                       std::string& value) override {
    value.clear();
    // One unit more than the caller's buffer so that the text is always terminated here.
    std::vector<wchar_t> buf(buffer_bytes / sizeof(wchar_t) + 1, L'\0');
    DWORD size = buffer_bytes;
    const LSTATUS st = RegGetValueW(key_, nullptr, win32::wide(name).c_str(), RRF_RT_REG_SZ,
                                    nullptr, buf.data(), &size);
    if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
    value = win32::narrow(buf.data());
    return 0;
  }

  uint32_t write_string(const std::string& name, const std::string& value,
                        uint32_t data_bytes) override {
    std::wstring data = win32::wide(value);
    // The registry reads `data_bytes` bytes: never past the end of our text.
    const size_t units = (static_cast<size_t>(data_bytes) + 1) / sizeof(wchar_t) + 1;
    if (data.size() < units) data.resize(units, L'\0');
    const LSTATUS st = RegSetValueExW(key_, win32::wide(name).c_str(), 0, REG_SZ,
                                      reinterpret_cast<const BYTE*>(data.c_str()), data_bytes);
    return static_cast<uint32_t>(st);
  }

 private:
  HKEY key_;
};

class Win32Registry final : public Registry {
 public:
  std::unique_ptr<RegistryKey> open_local_machine(const std::string& path,
                                                  uint32_t& error) override {
    HKEY key = nullptr;
    const LSTATUS st =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, win32::wide(path).c_str(), 0, KEY_ALL_ACCESS, &key);
    error = static_cast<uint32_t>(st);
    if (st != ERROR_SUCCESS) return nullptr;
    return std::make_unique<Win32RegistryKey>(key);
  }
};

}  // namespace

std::unique_ptr<Registry> make_win32_registry() {
  return std::make_unique<Win32Registry>();
}

}  // namespace zaltor::platform
