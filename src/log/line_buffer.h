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
// A call is formatted once, straight into the buffer after the pending text; a finished
// line is copied to the stack and handed on after the lock is released. So a call whose
// text fits allocates nothing. Only text longer than the room left is formatted on the
// heap first, to be cut as above.
//
// Calls from several threads are serialised by a lock; their texts may still interleave
// within a line, which is accepted: the buffer is a best-effort staging area.

#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "log/log_entry_writer.h"

namespace zaltor::log {

// Bytes of the line buffer, its terminator included.
constexpr size_t kLineCapacity = 4096;

// The whole text of one call, as the log file receives it: on the stack when it fits the
// line buffer (the usual case), on the heap beyond that.
class CallText {
 public:
  std::string_view view() const { return heap_.empty() ? std::string_view(text_, length_) : heap_; }

 private:
  friend class LineBuffer;
  char text_[kLineCapacity];
  size_t length_ = 0;
  std::string heap_;
};

class LineBuffer {
 public:
  static constexpr size_t kCapacity = kLineCapacity;

  // Formats the call's text, assembles it, and emits a finished line through `writer`.
  // With `call_text`, also hands back the call's whole text (for the log file), so that
  // the call is formatted only once.
  void assemble(uint8_t level, const char* fmt, va_list ap, LogEntryWriter& writer,
                CallText* call_text = nullptr);
  // Appends already formatted text.
  void assemble_text(uint8_t level, std::string_view text, LogEntryWriter& writer);

  // The text waiting for the rest of its line.
  std::string pending() const;

 private:
  void append_bounded(std::string_view text);
  // With the lock held and the call's text in place: takes the finished line, if there is
  // one, into `line` (room for kCapacity bytes) and gives its length, else 0.
  size_t take_line_locked(uint8_t level, char* line);

  mutable std::mutex lock_;
  char buffer_[kCapacity] = {};
  uint64_t pending_length_ = 0;
};

}  // namespace zaltor::log
