#pragma once
// The local machine's registry, as far as the service needs it: open a key, read and write
// one string value. Error codes are Win32 error codes (0 = success, 2 = not found).

#include <cstdint>
#include <memory>
#include <string>

namespace zaltor::platform {

constexpr uint32_t kRegistryNotFound = 2;            // ERROR_FILE_NOT_FOUND
constexpr uint32_t kRegistryMoreData = 234;          // ERROR_MORE_DATA
constexpr uint32_t kRegistryUnsupportedType = 1630;  // ERROR_UNSUPPORTED_TYPE

class RegistryKey {
 public:
  virtual ~RegistryKey() = default;
  // RegGetValueW restricted to REG_SZ into a buffer of `buffer_bytes` bytes: `value` gets
  // the string without its terminating zero. ERROR_MORE_DATA when the UTF-16 text and its
  // terminator do not fit.
  virtual uint32_t read_string(const std::string& name, uint32_t buffer_bytes,
                               std::string& value) = 0;
  // RegSetValueExW with REG_SZ and `data_bytes` bytes of the UTF-16 form of `value`
  // (characters first, then the terminator). A size that cuts a character keeps only the
  // whole characters; the stored string is always terminated, as the registry does.
  virtual uint32_t write_string(const std::string& name, const std::string& value,
                                uint32_t data_bytes) = 0;
};

class Registry {
 public:
  virtual ~Registry() = default;
  // RegOpenKeyExW on HKEY_LOCAL_MACHINE with KEY_ALL_ACCESS; `path` uses backslashes.
  // Null and `error` set when it cannot be opened.
  virtual std::unique_ptr<RegistryKey> open_local_machine(const std::string& path,
                                                          uint32_t& error) = 0;
};

}  // namespace zaltor::platform
