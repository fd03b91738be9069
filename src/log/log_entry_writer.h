#pragma once
// The emitting end of the diagnostic log: one finished line at one level.

#include <cstdint>
#include <string_view>

namespace zaltor::log {

class LogEntryWriter {
 public:
  virtual ~LogEntryWriter() = default;
  // Writes one finished line (it carries its own line end). Returns the event write's
  // status, or -1 when nothing was written.
  virtual int32_t WriteLogEntry(std::string_view line, uint8_t level) = 0;
};

}  // namespace zaltor::log
