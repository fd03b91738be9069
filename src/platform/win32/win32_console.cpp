// Standard output on Windows. A console shows UTF-16, so text for a console goes through
// WriteConsoleW; anything else (a file, a pipe) receives the UTF-8 bytes unchanged.
#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

class Win32Console final : public Console {
 public:
  void write(std::string_view text) override {
    if (text.empty()) return;
    // Whatever the C runtime holds for stdout comes first.
    std::fflush(stdout);
    // Asked on every write: the standard handle may be replaced while the process runs.
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    if (out == nullptr || out == INVALID_HANDLE_VALUE) return;
    DWORD mode = 0;
    if (GetFileType(out) == FILE_TYPE_CHAR && GetConsoleMode(out, &mode)) {
      const std::wstring w = win32::wide(text);
      size_t done = 0;
      while (done < w.size()) {
        DWORD put = 0;
        const DWORD chunk = static_cast<DWORD>(std::min<size_t>(w.size() - done, 16384));
        if (!WriteConsoleW(out, w.data() + done, chunk, &put, nullptr) || put == 0) return;
        done += put;
      }
      return;
    }
    size_t done = 0;
    while (done < text.size()) {
      DWORD put = 0;
      const DWORD chunk = static_cast<DWORD>(std::min<size_t>(text.size() - done, 1 << 20));
      if (!WriteFile(out, text.data() + done, chunk, &put, nullptr) || put == 0) return;
      done += put;
    }
  }
};

}  // namespace

std::unique_ptr<Console> make_win32_console() {
  return std::make_unique<Win32Console>();
}

}  // namespace zaltor::platform
