#pragma once
// Assembly of log calls into whole lines. A call's text is appended after the pending
// text; a line is emitted when a call ends it with a line end. Detail text (level 5) is
// emitted only when an empty line follows it, so that many detail calls form one entry.
// The emitted line takes the level of the call that finished it.
//
// The buffer holds kCapacity - 1 bytes of UTF-8 text. Text that does not fit is cut to
// the room left (never inside a character); the call's trailing line ends (at most two)
// are always kept, overwriting the end of the pending text when there is no room for them,
// so that a call that finishes a line still finishes it and the buffer can never fill up
// for good.
//
// Calls from several threads are serialised by a lock; their texts may still interleave
// within a line, which is accepted: the buffer is a best-effort staging area.

#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <string>

#include "log/log_entry_writer.h"

namespace zaltor::log {

class LineBuffer {
 public:
  static constexpr size_t kCapacity = 4096;

  // Formats the call's text, assembles it, and emits a finished line through `writer`.
  void assemble(uint8_t level, const char* fmt, va_list ap, LogEntryWriter& writer);
  // Appends already formatted text.
  void assemble_text(uint8_t level, std::string_view text, LogEntryWriter& writer);

  // The text waiting for the rest of its line.
  std::string pending() const;

 private:
  void append_bounded(std::string_view text);

  mutable std::mutex lock_;
  char buffer_[kCapacity] = {};
  uint64_t pending_length_ = 0;
};

}  // namespace zaltor::log
