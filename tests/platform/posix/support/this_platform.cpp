// The Linux side of tests/support/this_platform.h.
#include "support/this_platform.h"

#include <cstdlib>

#include "platform/posix/posix_backends.h"

namespace zaltor::test_support {

std::unique_ptr<platform::FileSystem> platform_file_system() {
  return platform::make_posix_file_system();
}
std::unique_ptr<platform::ProfileReader> platform_profile_reader() {
  return platform::make_ini_profile_reader();
}
std::unique_ptr<platform::Crypto> platform_crypto() {
  return platform::make_openssl_crypto();
}

void set_env(const char* name, const std::string& value) {
  ::setenv(name, value.c_str(), 1);
}
void unset_env(const char* name) {
  ::unsetenv(name);
}

const char* const kTextModeLineEnd = "\n";

}  // namespace zaltor::test_support
