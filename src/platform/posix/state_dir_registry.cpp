// The registry substitute on Linux: a key is a directory under the state root (the key
// path with '\' turned into '/'), a string value a file of that name holding UTF-8 text.
// The service never creates a key; the packaging does.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/posix/posix_backends.h"
#include "platform/utf16.h"

namespace zaltor::platform {
namespace {

constexpr uint32_t kAccessDenied = 5;  // ERROR_ACCESS_DENIED
constexpr uint32_t kGenFailure = 31;   // ERROR_GEN_FAILURE: any other I/O problem

uint32_t error_from_errno(int e) {
  if (e == ENOENT || e == ENOTDIR) return kRegistryNotFound;
  if (e == EACCES || e == EPERM || e == EROFS) return kAccessDenied;
  return kGenFailure;
}

class StateDirKey final : public RegistryKey {
 public:
  explicit StateDirKey(std::string dir) : dir_(std::move(dir)) {}

  uint32_t read_string(const std::string& name, uint32_t buffer_bytes,
                       std::string& value) override {
    value.clear();
    std::FILE* f = std::fopen((dir_ + "/" + name).c_str(), "rb");
    if (f == nullptr) return error_from_errno(errno);
    std::string text;
    char buf[4096];
    size_t n = 0;
    // A value longer than the buffer can take is more data however long it is: stop
    // reading once no UTF-8 text of this length fits (each character is at most three bytes
    // per UTF-16 unit), rather than hold a huge file in memory.
    const size_t enough = static_cast<size_t>(buffer_bytes) * 2 + 4;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
      text.append(buf, n);
      if (text.size() > enough) {
        std::fclose(f);
        return kRegistryMoreData;
      }
    }
    const bool failed = std::ferror(f) != 0;
    std::fclose(f);
    if (failed) return kGenFailure;
    const size_t units = utf8_to_utf16(text).size();
    if ((units + 1) * 2 > buffer_bytes) return kRegistryMoreData;
    value = std::move(text);
    return 0;
  }

  uint32_t write_string(const std::string& name, const std::string& value,
                        uint32_t data_bytes) override {
    std::u16string units = utf8_to_utf16(value);
    if (units.size() > data_bytes / 2) units.resize(data_bytes / 2);
    const std::string text = utf16_to_utf8(units);
    std::FILE* f = std::fopen((dir_ + "/" + name).c_str(), "wb");
    if (f == nullptr) return error_from_errno(errno);
    const size_t put = text.empty() ? 0 : std::fwrite(text.data(), 1, text.size(), f);
    const bool closed = std::fclose(f) == 0;
    if (put != text.size() || !closed) return kGenFailure;
    return 0;
  }

 private:
  std::string dir_;
};

class StateDirRegistry final : public Registry {
 public:
  explicit StateDirRegistry(std::string root) : root_(std::move(root)) {}

  std::unique_ptr<RegistryKey> open_local_machine(const std::string& path,
                                                  uint32_t& error) override {
    std::string rel = path;
    for (char& c : rel) {
      if (c == '\\') c = '/';
    }
    const std::string dir = root_ + "/" + rel;
    struct stat st {};
    if (::stat(dir.c_str(), &st) != 0) {
      error = error_from_errno(errno);
      return nullptr;
    }
    if (!S_ISDIR(st.st_mode)) {
      error = kRegistryNotFound;
      return nullptr;
    }
    // All access: the value files must be readable and writable.
    if (::access(dir.c_str(), R_OK | W_OK | X_OK) != 0) {
      error = kAccessDenied;
      return nullptr;
    }
    error = 0;
    return std::make_unique<StateDirKey>(dir);
  }

 private:
  std::string root_;
};

}  // namespace

std::unique_ptr<Registry> make_state_dir_registry(const std::string& root) {
  return std::make_unique<StateDirRegistry>(root);
}

std::unique_ptr<Registry> make_state_dir_registry() {
  const char* root = std::getenv("ZALTOR_STATE_DIR");
  return make_state_dir_registry(root != nullptr && *root != '\0' ? root
                                                                  : "/var/lib/zaltor-multiantenna");
}

}  // namespace zaltor::platform
