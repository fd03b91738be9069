// The service's settings in its registry key: the standard "Environment" value
// (REG_MULTI_SZ, "NAME=value" strings) under
// HKLM\SYSTEM\CurrentControlSet\Services\<service>. Windows' service manager gives the
// service process these variables; Wine's does not, so the process applies them itself
// at start (see apply_service_environment).
#include <windows.h>

#include <cstdlib>
#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

std::wstring service_key(const std::string& service_name) {
  return L"SYSTEM\\CurrentControlSet\\Services\\" + win32::wide(service_name);
}

bool is_product_setting(const std::wstring& entry) {
  return entry.rfind(L"ZALTOR_", 0) == 0;
}

}  // namespace

uint32_t write_service_environment(const std::string& service_name,
                                   const std::vector<std::string>& entries) {
  // Strings one after the other, each terminated, and one more terminator at the end.
  std::wstring block;
  for (const auto& e : entries) {
    block += win32::wide(e);
    block.push_back(L'\0');
  }
  block.push_back(L'\0');
  HKEY key = nullptr;
  LSTATUS st =
      RegOpenKeyExW(HKEY_LOCAL_MACHINE, service_key(service_name).c_str(), 0, KEY_SET_VALUE, &key);
  if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
  st = RegSetValueExW(key, L"Environment", 0, REG_MULTI_SZ,
                      reinterpret_cast<const BYTE*>(block.data()),
                      static_cast<DWORD>(block.size() * sizeof(wchar_t)));
  RegCloseKey(key);
  return static_cast<uint32_t>(st);
}

uint32_t apply_service_environment(const std::string& service_name) {
  const std::wstring key = service_key(service_name);
  DWORD size = 0;
  LSTATUS st = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Environment", RRF_RT_REG_MULTI_SZ,
                            nullptr, nullptr, &size);
  if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
  // Room for the value and two more terminators, so that the list always ends here.
  std::vector<wchar_t> buf(size / sizeof(wchar_t) + 2, L'\0');
  st = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Environment", RRF_RT_REG_MULTI_SZ, nullptr,
                    buf.data(), &size);
  if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
  for (const wchar_t* p = buf.data(); *p != L'\0'; p += wcslen(p) + 1) {
    const std::wstring entry(p);
    const size_t eq = entry.find(L'=');
    if (!is_product_setting(entry) || eq == std::wstring::npos) continue;
    const std::wstring name = entry.substr(0, eq);
    // What the process was given explicitly wins.
    const wchar_t* present = _wgetenv(name.c_str());
    if (present != nullptr && *present != L'\0') continue;
    // The C runtime's copy is what getenv reads; _wputenv_s updates the process's too.
    _wputenv_s(name.c_str(), entry.substr(eq + 1).c_str());
  }
  return 0;
}

}  // namespace zaltor::platform
