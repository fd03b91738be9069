// INI files through the private-profile functions of Windows; sizes and counts are UTF-16
// units, as the seam counts them.
#include <windows.h>

#include <algorithm>
#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

class PrivateProfileReader final : public ProfileReader {
 public:
  uint32_t read_int(const std::string& section, const std::string& key, int32_t default_value,
                    const std::string& path) override {
    return GetPrivateProfileIntW(win32::wide(section).c_str(), win32::wide(key).c_str(),
                                 default_value, win32::wide(path).c_str());
  }

  uint32_t read_string(const std::string& section, const std::string& key,
                       const std::string& default_value, std::string& value, uint32_t size,
                       const std::string& path) override {
    std::vector<wchar_t> buf(static_cast<size_t>(size) + 1, L'\0');
    const DWORD n = GetPrivateProfileStringW(win32::wide(section).c_str(), win32::wide(key).c_str(),
                                             win32::wide(default_value).c_str(), buf.data(), size,
                                             win32::wide(path).c_str());
    value = win32::narrow(buf.data(), std::min<size_t>(n, size));
    return n;
  }

  uint32_t read_section_names(std::string& names, uint32_t size, const std::string& path) override {
    std::vector<wchar_t> buf(static_cast<size_t>(size) + 1, L'\0');
    const DWORD n = GetPrivateProfileStringW(nullptr, nullptr, nullptr, buf.data(), size,
                                             win32::wide(path).c_str());
    // The names with their zero characters, as many as the call counted.
    names = win32::narrow(buf.data(), std::min<size_t>(n, size));
    return n;
  }
};

}  // namespace

std::unique_ptr<ProfileReader> make_private_profile_reader() {
  return std::make_unique<PrivateProfileReader>();
}

}  // namespace zaltor::platform
