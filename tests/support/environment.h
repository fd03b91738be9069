#pragma once
// Environment variables set and removed by the tests, the same way on every platform (the
// Windows C runtime has _putenv_s instead of setenv and unsetenv).

#include <cstdlib>
#include <string>

namespace zaltor::test_support {

// Sets `name` to `value`. The Windows C runtime keeps no empty variables: there an empty
// value removes the variable, which every reader here takes as it takes an empty one.
inline void set_env(const char* name, const std::string& value) {
#if defined(_WIN32)
  _putenv_s(name, value.c_str());
#else
  ::setenv(name, value.c_str(), 1);
#endif
}

inline void unset_env(const char* name) {
#if defined(_WIN32)
  _putenv_s(name, "");
#else
  ::unsetenv(name);
#endif
}

}  // namespace zaltor::test_support
