#pragma once
// The diagnostic log as every subsystem sees it: a level and a printf-style format.
// The service host owns the real log path (line assembly, event tracing, console echo,
// "rflog.txt"); everything else only writes through this interface.

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

#if defined(__MINGW32__)
#define ZALTOR_PRINTF(fmt_index, first_arg) \
  __attribute__((format(gnu_printf, fmt_index, first_arg)))
#elif defined(__GNUC__)
#define ZALTOR_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define ZALTOR_PRINTF(fmt_index, first_arg)
#endif

namespace zaltor {

// Log levels, passed as one byte.
enum LogLevel : uint8_t {
  kLogCritical = 1,
  kLogError = 2,
  kLogWarning = 3,
  kLogInfo = 4,
  kLogDetail = 5,
};

// Formats printf-style into a std::string (UTF-8 in, UTF-8 out).
std::string vformat(const char* fmt, va_list ap);
std::string format(const char* fmt, ...) ZALTOR_PRINTF(1, 2);

class Log {
 public:
  virtual ~Log() = default;
  // One log call: a level and a format with its arguments. Formats use "%s" for UTF-8 text.
  virtual void vwrite(uint8_t level, const char* fmt, va_list ap) = 0;
  void write(uint8_t level, const char* fmt, ...) ZALTOR_PRINTF(3, 4);
};

// A log that drops everything (for tools that run the loaders quietly).
class NullLog final : public Log {
 public:
  void vwrite(uint8_t, const char*, va_list) override {}
};

// Standard output of the process. Some lines of the system go there instead of the log
// (decryption errors, board query errors, system event names).
class Console {
 public:
  virtual ~Console() = default;
  virtual void write(std::string_view text) = 0;
  void print(const char* fmt, ...) ZALTOR_PRINTF(2, 3);
};

}  // namespace zaltor
