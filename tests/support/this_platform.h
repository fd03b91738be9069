#pragma once
// What the tests take from the platform they run on: its own backends of the seams that
// portable tests run over for real (the Linux files, INI reader and OpenSSL; the Win32 files,
// GetPrivateProfile* and CNG under Wine), and its environment calls. Defined once per
// platform in tests/platform/posix/support or tests/platform/win32/support, the folder that
// CMake builds as it builds src/platform/posix or src/platform/win32.

#include <memory>
#include <string>

#include "platform/crypto.h"
#include "platform/file_system.h"
#include "platform/profile.h"

namespace zaltor::test_support {

std::unique_ptr<platform::FileSystem> platform_file_system();
std::unique_ptr<platform::ProfileReader> platform_profile_reader();
std::unique_ptr<platform::Crypto> platform_crypto();

// Sets `name` to `value`. The Windows C runtime keeps no empty variables: there an empty
// value removes the variable, which every reader here takes as it takes an empty one.
void set_env(const char* name, const std::string& value);
void unset_env(const char* name);

// How the C runtime ends a line that it writes in text mode: CR LF on Windows.
extern const char* const kTextModeLineEnd;

}  // namespace zaltor::test_support
