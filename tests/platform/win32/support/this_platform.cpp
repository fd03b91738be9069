// The Windows side of tests/support/this_platform.h.
#include "support/this_platform.h"

#include <cstdlib>

#include "platform/win32/win32_backends.h"

namespace zaltor::test_support {

std::unique_ptr<platform::FileSystem> platform_file_system() {
  return platform::make_win32_file_system();
}
std::unique_ptr<platform::ProfileReader> platform_profile_reader() {
  return platform::make_private_profile_reader();
}
std::unique_ptr<platform::Crypto> platform_crypto() {
  return platform::make_cng_crypto();
}

void set_env(const char* name, const std::string& value) {
  _putenv_s(name, value.c_str());
}
void unset_env(const char* name) {
  _putenv_s(name, "");  // an empty value removes the variable
}

const char* const kTextModeLineEnd = "\r\n";

}  // namespace zaltor::test_support
