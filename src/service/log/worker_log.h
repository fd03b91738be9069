#pragma once
// The worker log call: the log through which every subsystem below the service host
// writes. It assembles lines like the service log call and, in console mode only, also
// appends the text of each call (not the assembled line, and without the level) to the
// log file.
//
// The worker owns the LogFile: it sets `name` ("rflog.txt", relative to the current
// directory), creates `mutex` (unowned) and sets `files` during its initialisation. Until
// then `mutex` is null and a file write proceeds without it; without `files` nothing is
// written to the file.

#include <cstdarg>
#include <cstdint>
#include <string>

#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/log.h"
#include "service/log/log_context.h"

namespace zaltor::log {

struct LogFile {
  std::string name;
  platform::Mutex* mutex = nullptr;
  platform::FileSystem* files = nullptr;
};

class WorkerLog final : public Log {
 public:
  WorkerLog(LogContext context, LogFile& file) : context_(context), file_(file) {}

  void vwrite(uint8_t level, const char* fmt, va_list ap) override;

  // Appends the formatted text to the log file under the log mutex: 0, or 31 when the file
  // cannot be opened. After a failed open the mutex is deliberately kept by the calling
  // thread: that thread can still take it again, every other thread that writes the file
  // afterwards waits for ever.
  uint32_t write_file(const char* fmt, va_list ap);

 private:
  LogContext context_;
  LogFile& file_;
};

}  // namespace zaltor::log
