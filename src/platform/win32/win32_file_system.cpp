// Files on Windows: Win32 for paths and existence, the C runtime's streams for contents,
// so that text mode and the UTF-8 encoding are the runtime's own ("w": line feeds become
// CR LF; "a+, ccs=UTF-8": a byte-order mark on a new or empty file).
#include <windows.h>
// After windows.h.
#include <pathcch.h>
#include <shlwapi.h>

#include <cerrno>
#include <cstdio>
#include <cwchar>
#include <new>
#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

constexpr DWORD kPathChars = 260;

class Win32FileSystem final : public FileSystem {
 public:
  uint32_t program_directory(std::string& dir) override {
    wchar_t path[kPathChars] = {};
    const DWORD n = GetModuleFileNameW(nullptr, path, kPathChars);
    if (n == 0) return GetLastError();
    // A full buffer means a cut path (ERROR_INSUFFICIENT_BUFFER).
    if (n >= kPathChars) return ERROR_INSUFFICIENT_BUFFER;
    const HRESULT hr = PathCchRemoveFileSpec(path, kPathChars);
    if (FAILED(hr)) return static_cast<uint32_t>(hr);
    dir = win32::narrow(path);
    return 0;
  }

  std::string join(const std::string& dir, const std::string& name) override {
    if (!dir.empty() && (dir.back() == '\\' || dir.back() == '/')) return dir + name;
    return dir + "\\" + name;
  }

  bool exists(const std::string& path) override {
    return PathFileExistsW(win32::wide(path).c_str()) != FALSE;
  }

  uint32_t remove(const std::string& path) override {
    if (!DeleteFileW(win32::wide(path).c_str())) return GetLastError();
    return 0;
  }

  int check_input_file(const std::string& path) override {
    WIN32_FILE_ATTRIBUTE_DATA info{};
    if (!GetFileAttributesExW(win32::wide(path).c_str(), GetFileExInfoStandard, &info)) {
      const DWORD e = GetLastError();
      return e == ERROR_FILE_NOT_FOUND || e == ERROR_PATH_NOT_FOUND ? ENOENT : EACCES;
    }
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return EISDIR;
    const uint64_t size = (uint64_t{info.nFileSizeHigh} << 32) | info.nFileSizeLow;
    return size > kMaxInputFileBytes ? EFBIG : 0;
  }

  int read_binary(const std::string& path, std::vector<uint8_t>& data, ReadStep& failed) override {
    data.clear();
    errno = 0;
    std::FILE* f = _wfopen(win32::wide(path).c_str(), L"rb");
    if (f == nullptr) {
      failed = ReadStep::kOpen;
      return errno != 0 ? errno : EIO;
    }
    int err = 0;
    long size = 0;
    if (std::fseek(f, 0, SEEK_END) != 0 || (size = std::ftell(f)) < 0) {
      failed = ReadStep::kSeek;
      err = errno != 0 ? errno : EIO;
    } else if (static_cast<uint64_t>(size) > kMaxInputFileBytes ||
               !try_resize(data, static_cast<size_t>(size))) {
      // Too large to hold: what a failed allocation of its buffer would do.
      failed = ReadStep::kAllocate;
      err = ENOMEM;
    } else {
      std::rewind(f);
      if (size > 0 && std::fread(data.data(), 1, data.size(), f) != data.size()) {
        failed = ReadStep::kRead;
        err = errno != 0 ? errno : EIO;
      }
    }
    std::fclose(f);
    return err;
  }

  int write_text(const std::string& path, std::string_view text, size_t& written) override {
    written = 0;
    errno = 0;
    std::FILE* f = _wfopen(win32::wide(path).c_str(), L"w");
    if (f == nullptr) return errno != 0 ? errno : EIO;
    written = text.empty() ? 0 : std::fwrite(text.data(), 1, text.size(), f);
    const int err = std::fclose(f) != 0 ? (errno != 0 ? errno : EIO) : 0;
    return written == text.size() ? err : (errno != 0 ? errno : EIO);
  }

  int append_utf8_text(const std::string& path, std::string_view text) override {
    errno = 0;
    std::FILE* f = _wfopen(win32::wide(path).c_str(), L"a+, ccs=UTF-8");
    if (f == nullptr) return errno != 0 ? errno : EIO;
    // The stream converts UTF-16 to UTF-8 and line feeds to CR LF.
    const std::wstring w = win32::wide(text);
    if (!w.empty()) std::fputws(w.c_str(), f);
    std::fclose(f);
    return 0;
  }

  int read_utf8_text(const std::string& path, std::string& text) override {
    text.clear();
    errno = 0;
    std::FILE* f = _wfopen(win32::wide(path).c_str(), L"r, ccs=UTF-8");
    if (f == nullptr) return errno != 0 ? errno : EIO;
    // The stream drops the byte-order mark, decodes UTF-8 and turns CR LF into line feeds.
    if (check_input_file(path) == EFBIG) {
      std::fclose(f);
      return EFBIG;
    }
    std::wstring all;
    wchar_t buf[1024];
    int err = 0;
    while (std::fgetws(buf, 1024, f) != nullptr) {
      all.append(buf);
      if (all.size() > kMaxInputFileBytes) {  // it grew while being read
        err = EFBIG;
        break;
      }
    }
    if (err == 0 && std::ferror(f) != 0) err = errno != 0 ? errno : EIO;
    std::fclose(f);
    if (err != 0) return err;
    text = win32::narrow(all);
    return 0;
  }
};

}  // namespace

std::unique_ptr<FileSystem> make_win32_file_system() {
  return std::make_unique<Win32FileSystem>();
}

}  // namespace zaltor::platform
