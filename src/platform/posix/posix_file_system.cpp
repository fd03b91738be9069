// Files on Linux. Text mode writes line feeds unchanged; the program directory comes from
// /proc/self/exe.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "platform/posix/posix_backends.h"

namespace zaltor::platform {
namespace {

constexpr char kBom[] = "\xEF\xBB\xBF";

class PosixFileSystem final : public FileSystem {
 public:
  uint32_t program_directory(std::string& dir) override {
    std::vector<char> buf(4096);
    const ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size() - 1);
    if (n < 0) return static_cast<uint32_t>(errno);
    std::string path(buf.data(), static_cast<size_t>(n));
    const size_t slash = path.rfind('/');
    dir = slash == std::string::npos ? std::string(".") : path.substr(0, slash == 0 ? 1 : slash);
    return 0;
  }

  std::string join(const std::string& dir, const std::string& name) override {
    if (!dir.empty() && dir.back() == '/') return dir + name;
    return dir + "/" + name;
  }

  bool exists(const std::string& path) override {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
  }

  uint32_t remove(const std::string& path) override {
    if (::unlink(path.c_str()) != 0) return static_cast<uint32_t>(errno);
    return 0;
  }

  int read_binary(const std::string& path, std::vector<uint8_t>& data, ReadStep& failed) override {
    data.clear();
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
      failed = ReadStep::kOpen;
      return errno;
    }
    int err = 0;
    long size = 0;
    if (std::fseek(f, 0, SEEK_END) != 0 || (size = std::ftell(f)) < 0) {
      failed = ReadStep::kSeek;
      err = errno != 0 ? errno : EIO;
    } else {
      std::rewind(f);
      data.resize(static_cast<size_t>(size));
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
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (f == nullptr) return errno;
    written = text.empty() ? 0 : std::fwrite(text.data(), 1, text.size(), f);
    const int err = std::fclose(f) != 0 ? errno : 0;
    return written == text.size() ? err : (errno != 0 ? errno : EIO);
  }

  int append_utf8_text(const std::string& path, std::string_view text) override {
    std::FILE* f = std::fopen(path.c_str(), "a+");
    if (f == nullptr) return errno;
    std::fseek(f, 0, SEEK_END);
    if (std::ftell(f) == 0) std::fwrite(kBom, 1, 3, f);
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), f);
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
    const int err = std::ferror(f) != 0 ? (errno != 0 ? errno : EIO) : 0;
    std::fclose(f);
    if (err != 0) {
      text.clear();
      return err;
    }
    if (text.compare(0, 3, kBom) == 0) text.erase(0, 3);
    return 0;
  }
};

}  // namespace

std::unique_ptr<FileSystem> make_posix_file_system() {
  return std::make_unique<PosixFileSystem>();
}

}  // namespace zaltor::platform
