// Files on a POSIX file system. Text mode writes line feeds unchanged.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/posix/posix_backends.h"

namespace zaltor::platform {
namespace {

class PosixFileSystem final : public FileSystem {
 public:
  uint32_t program_directory(std::string& dir) override {
    char buf[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf);
    if (n < 0 || static_cast<size_t>(n) >= sizeof buf) return static_cast<uint32_t>(errno);
    std::string path(buf, static_cast<size_t>(n));
    const size_t slash = path.find_last_of('/');
    dir = slash == std::string::npos ? std::string() : path.substr(0, slash);
    return 0;
  }

  std::string join(const std::string& dir, const std::string& name) override {
    if (dir.empty()) return name;
    if (dir.back() == '/') return dir + name;
    return dir + "/" + name;
  }

  bool exists(const std::string& path) override { return ::access(path.c_str(), F_OK) == 0; }

  uint32_t remove(const std::string& path) override {
    return ::unlink(path.c_str()) == 0 ? 0 : static_cast<uint32_t>(errno);
  }

  int read_binary(const std::string& path, std::vector<uint8_t>& data, ReadStep& failed) override {
    data.clear();
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
      failed = ReadStep::kOpen;
      return errno;
    }
    if (std::fseek(f, 0, SEEK_END) != 0) {
      const int e = errno;
      std::fclose(f);
      failed = ReadStep::kSeek;
      return e;
    }
    const long size = std::ftell(f);
    if (size < 0 || std::fseek(f, 0, SEEK_SET) != 0) {
      const int e = errno;
      std::fclose(f);
      failed = ReadStep::kSeek;
      return e;
    }
    data.resize(static_cast<size_t>(size));
    if (size > 0 && std::fread(data.data(), 1, data.size(), f) != data.size()) {
      const int e = std::ferror(f) ? errno : EIO;
      std::fclose(f);
      failed = ReadStep::kRead;
      return e;
    }
    std::fclose(f);
    return 0;
  }

  int write_text(const std::string& path, std::string_view text, size_t& written) override {
    written = 0;
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (f == nullptr) return errno;
    written = std::fwrite(text.data(), 1, text.size(), f);
    const int e = written == text.size() ? 0 : errno;
    if (std::fclose(f) != 0 && e == 0) return errno;
    return e;
  }

  int append_utf8_text(const std::string& path, std::string_view text) override {
    std::FILE* f = std::fopen(path.c_str(), "a+");
    if (f == nullptr) return errno;
    struct stat st {};
    // A new or empty file starts with the byte-order mark.
    if (::fstat(::fileno(f), &st) == 0 && st.st_size == 0) std::fputs("\xEF\xBB\xBF", f);
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    return 0;
  }

  int read_utf8_text(const std::string& path, std::string& text) override {
    text.clear();
    std::FILE* f = std::fopen(path.c_str(), "r");
    if (f == nullptr) return errno;
    char buf[4096];
    size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
    std::fclose(f);
    if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);
    return 0;
  }
};

}  // namespace

std::unique_ptr<FileSystem> make_posix_file_system() {
  return std::make_unique<PosixFileSystem>();
}

}  // namespace zaltor::platform
