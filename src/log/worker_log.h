#pragma once
// The worker log call: the log through which every subsystem below the service host
// writes. It assembles lines like the service log call and, in console mode only, also
// appends the text of each call (not the assembled line, and without the level) to the
// log file.
//
// The path of one log line, from a call in the engine to its sinks:
//
//   engine / platform device logic          log.write(kLogDetail, "Sleep: %d\n\n", s)
//        |  (platform::Log&, held from the worker's construction)
//        v
//   WorkerLog::vwrite  -- detached (before Init, after the service object goes): dropped
//        |-- LineBuffer::assemble (line_buffer.h): the call is formatted once
//        |        (format_into, printf_format.h), straight into the line buffer after the
//        |        pending text; each complete line (at "\n", or at the length limit) is
//        |        copied to the stack and goes on, with its level, to
//        |   LogEntryWriter::WriteLogEntry (log_entry_writer.h; the service object's
//        |        log-entry operation): the console echo when the service runs in a
//        |        console, then write_log_event (log_event.h), which asks the trace
//        |        (EventTrace::enabled, EventEnabled on Windows) whether any session records
//        |        the line's level before the backend converts it (UTF-16 on Windows, on
//        |        the stack) and writes it
//        `-- console mode only: write_file_text -> "rflog.txt", the text of the call as
//                 the line buffer received it (no level, no assembly), under the log
//                 file's mutex
//
// So a call whose text fits the line buffer allocates nothing until a sink writes it, and
// detail text that no session records costs its formatting and a copy: the decision pass
// makes around two hundred such calls.
//
// The device logic holds the worker log from the worker's construction on, before the
// service object's log context exists: it stays detached until attach, and detach (the
// service object is about to go) waits for calls in progress, so that the line buffer and
// the log-entry operation behind it can go away while the worker's threads still run.
//
// The worker owns the LogFile: it sets `name` ("rflog.txt", relative to the current
// directory), creates `mutex` (unowned) and sets `files` during its initialisation. Until
// then `mutex` is null and a file write proceeds without it; without `files` nothing is
// written to the file.

#include <cstdarg>
#include <cstdint>
#include <shared_mutex>
#include <string>

#include "log/log_context.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/log.h"

namespace zaltor::log {

struct LogFile {
  std::string name;
  platform::Mutex* mutex = nullptr;
  platform::FileSystem* files = nullptr;
};

class WorkerLog final : public Log {
 public:
  // Detached: log calls are dropped until attach.
  explicit WorkerLog(LogFile& file) : file_(file) {}
  WorkerLog(LogContext context, LogFile& file) : file_(file) { attach(context); }

  // Starts sending calls to the service object's log state.
  void attach(LogContext context);
  // Later calls are dropped (a redirection ends too); returns once the calls in progress
  // have ended.
  void detach();
  // Every later call goes to `calls` as it was made, instead of the service object's log
  // state (the lab reads the worker's calls this way); null ends the redirection.
  void redirect(Log* calls);

  void vwrite(uint8_t level, const char* fmt, va_list ap) override;

  // Writes one finished line straight to the log-entry operation (the event trace), without
  // line assembly and without the log file. Dropped while detached.
  void write_entry(uint8_t level, const char* line);

  // Appends the formatted text to the log file under the log mutex: 0, or 31 when the file
  // cannot be opened. After a failed open the mutex is deliberately kept by the calling
  // thread: that thread can still take it again, every other thread that writes the file
  // afterwards waits for ever.
  uint32_t write_file(const char* fmt, va_list ap);
  // The same for text formatted already.
  uint32_t write_file_text(std::string_view text);

 private:
  std::shared_mutex lock_;  // shared by log calls, exclusive to attach and detach
  bool attached_ = false;
  Log* redirect_ = nullptr;
  LogContext context_;
  LogFile& file_;
};

}  // namespace zaltor::log
