// Files on Linux. Text mode writes line feeds unchanged; the program directory comes from
// /proc/self/exe. A directory opens as a stream on Linux (and reports a size of 2^63 - 1 at
// its end): every whole-file read examines what it opened first, so that a directory is an
// unreadable file and a huge file is refused before its buffer is allocated.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <vector>

#include "platform/posix/posix_backends.h"

namespace zaltor::platform {
namespace {

constexpr char kBom[] = "\xEF\xBB\xBF";

// 0 when the open stream is a regular file of at most kMaxInputFileBytes; else EISDIR for
// anything that is not a plain file, EFBIG for a larger one, or the error of fstat.
int check_open_file(std::FILE* f) {
  struct stat st {};
  if (::fstat(::fileno(f), &st) != 0) return errno != 0 ? errno : EIO;
  if (!S_ISREG(st.st_mode)) return EISDIR;
  if (static_cast<uint64_t>(st.st_size) > kMaxInputFileBytes) return EFBIG;
  return 0;
}

// Opens `path` for reading whole: null with `err` set when it cannot be opened, and EISDIR
// for anything that is not a plain file. It opens without blocking, since opening a FIFO
// for reading waits for a writer, which a service start would wait for for ever.
std::FILE* open_input(const std::string& path, const char* mode, int& err) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    err = errno != 0 ? errno : EIO;
    return nullptr;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    err = S_ISREG(st.st_mode) ? (errno != 0 ? errno : EIO) : EISDIR;
    ::close(fd);
    return nullptr;
  }
  const int flags = ::fcntl(fd, F_GETFL);
  std::FILE* f =
      flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0 ? nullptr : ::fdopen(fd, mode);
  if (f == nullptr) {
    err = errno != 0 ? errno : EIO;
    ::close(fd);
  }
  return f;
}

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

  int check_input_file(const std::string& path) override {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return errno != 0 ? errno : EIO;
    if (!S_ISREG(st.st_mode)) return EISDIR;
    if (static_cast<uint64_t>(st.st_size) > kMaxInputFileBytes) return EFBIG;
    return 0;
  }

  int read_binary(const std::string& path, std::vector<uint8_t>& data, ReadStep& failed) override {
    data.clear();
    int open_err = 0;
    std::FILE* f = open_input(path, "rb", open_err);
    if (f == nullptr) {
      failed = ReadStep::kOpen;
      return open_err;
    }
    const int kind = check_open_file(f);
    if (kind == EISDIR) {
      std::fclose(f);
      failed = ReadStep::kOpen;
      return EISDIR;
    }
    int err = 0;
    long size = 0;
    if (std::fseek(f, 0, SEEK_END) != 0 || (size = std::ftell(f)) < 0) {
      failed = ReadStep::kSeek;
      err = errno != 0 ? errno : EIO;
    } else if (kind == EFBIG || !try_resize(data, static_cast<size_t>(size))) {
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
    int open_err = 0;
    std::FILE* f = open_input(path, "r", open_err);
    if (f == nullptr) return open_err;
    if (const int kind = check_open_file(f); kind != 0) {
      std::fclose(f);
      return kind;
    }
    char buf[4096];
    size_t n = 0;
    int err = 0;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
      text.append(buf, n);
      if (text.size() > kMaxInputFileBytes) {  // it grew while being read
        err = EFBIG;
        break;
      }
    }
    if (err == 0 && std::ferror(f) != 0) err = errno != 0 ? errno : EIO;
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
