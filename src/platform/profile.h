#pragma once
// Reading INI files with the private-profile rules of Windows. Names and values are UTF-8;
// every size and count is in UTF-16 code units ("characters"), as on Windows, so that a
// buffer-size loop behaves the same on every platform.

#include <cstdint>
#include <string>

namespace zaltor::platform {

class ProfileReader {
 public:
  virtual ~ProfileReader() = default;

  // GetPrivateProfileIntW: the key's value as an integer, or `default_value` when the section
  // or key is absent or the value is empty. A value without digits reads as 0.
  virtual uint32_t read_int(const std::string& section, const std::string& key,
                            int32_t default_value, const std::string& path) = 0;

  // GetPrivateProfileStringW: copies at most size - 1 characters of the value (or of the
  // default) into `value` and returns their count; size 0 copies nothing and returns 0.
  virtual uint32_t read_string(const std::string& section, const std::string& key,
                               const std::string& default_value, std::string& value, uint32_t size,
                               const std::string& path) = 0;

  // GetPrivateProfileStringW with no section and no key: the names of every section, each
  // followed by a zero character, into a buffer of `size` characters whose last character is
  // the list's final zero. `names` receives the first <returned count> characters. When the
  // list does not fit, the last name is cut and the return is size - 2.
  virtual uint32_t read_section_names(std::string& names, uint32_t size,
                                      const std::string& path) = 0;
};

}  // namespace zaltor::platform
