#pragma once
// UTF-8 <-> UTF-16 at the Win32 calls (wchar_t is a UTF-16 unit on Windows).

#include <string>
#include <string_view>

#include "platform/utf16.h"

namespace zaltor::platform::win32 {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "wchar_t must be a UTF-16 unit");

inline std::wstring wide(std::string_view utf8) {
  const std::u16string u = utf8_to_utf16(utf8);
  return std::wstring(u.begin(), u.end());
}

inline std::string narrow(const wchar_t* text, size_t length) {
  std::u16string u(length, u'\0');
  for (size_t i = 0; i < length; ++i) u[i] = static_cast<char16_t>(text[i]);
  return utf16_to_utf8(u);
}

inline std::string narrow(std::wstring_view text) {
  return narrow(text.data(), text.size());
}

}  // namespace zaltor::platform::win32
