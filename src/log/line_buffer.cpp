#include "log/line_buffer.h"

#include <cstdio>
#include <cstring>

#include "log/printf_format.h"
#include "log/text_limits.h"
#include "platform/log.h"

namespace zaltor::log {

void LineBuffer::assemble(uint8_t level, const char* fmt, va_list ap, LogEntryWriter& writer,
                          CallText* call_text) {
  char line[kCapacity];
  size_t emit = 0;
  {
    std::lock_guard<std::mutex> hold(lock_);
    const size_t length = static_cast<size_t>(pending_length_);
    const size_t room = kCapacity - length;  // the text and its terminator
    va_list again;
    va_copy(again, ap);
    const int n = format_into(buffer_ + length, room, fmt, ap);
    if (n < 0) {
      buffer_[length] = '\0';  // a format error adds nothing
      if (call_text != nullptr) call_text->length_ = 0;
    } else if (static_cast<size_t>(n) < room) {
      pending_length_ = length + static_cast<size_t>(n);
      if (call_text != nullptr) {
        std::memcpy(call_text->text_, buffer_ + length, static_cast<size_t>(n));
        call_text->length_ = static_cast<size_t>(n);
      }
    } else {
      // Longer than the room left: formatted whole, then cut to fit.
      buffer_[length] = '\0';
      std::string text = vformat(fmt, again);
      append_bounded(text);
      if (call_text != nullptr) call_text->heap_ = std::move(text);
    }
    va_end(again);
    emit = take_line_locked(level, line);
  }
  if (emit > 0) writer.WriteLogEntry(std::string_view(line, emit), level);
}

void LineBuffer::append_bounded(std::string_view text) {
  const size_t max_text = kCapacity - 1;  // one place for the terminator
  size_t length = static_cast<size_t>(pending_length_);
  if (length + text.size() <= max_text) {
    text.copy(buffer_ + length, text.size());
    pending_length_ = length + text.size();
    buffer_[pending_length_] = '\0';
    return;
  }
  size_t tail = 0;
  while (tail < 2 && tail < text.size() && text[text.size() - 1 - tail] == '\n') ++tail;
  const std::string_view body = text.substr(0, text.size() - tail);
  if (length + tail > max_text) {
    // No room even for the line ends: give up the end of the pending text, but not the line
    // ends it finishes with (an empty line of detail text needs both).
    size_t pending_tail = 0;
    while (pending_tail + tail < 2 && pending_tail < length &&
           buffer_[length - 1 - pending_tail] == '\n') {
      ++pending_tail;
    }
    const size_t kept = utf8_prefix_length(std::string_view(buffer_, length - pending_tail),
                                           max_text - tail - pending_tail);
    for (size_t i = 0; i < pending_tail; ++i) buffer_[kept + i] = '\n';
    length = kept + pending_tail;
  }
  const size_t keep = utf8_prefix_length(body, max_text - tail - length);
  body.copy(buffer_ + length, keep);
  length += keep;
  for (size_t i = 0; i < tail; ++i) buffer_[length++] = '\n';
  buffer_[length] = '\0';
  pending_length_ = length;
}

size_t LineBuffer::take_line_locked(uint8_t level, char* line) {
  const size_t length = static_cast<size_t>(pending_length_);
  if (length == 0 || buffer_[length - 1] != '\n') return 0;  // waits for the rest
  size_t emit = length;
  if (level == kLogDetail) {
    if (length < 2 || buffer_[length - 2] != '\n') return 0;  // detail waits for an empty line
    emit = length - 1;                                        // one of the two line ends goes
  }
  std::memcpy(line, buffer_, emit);
  pending_length_ = 0;
  buffer_[0] = '\0';
  return emit;
}

void LineBuffer::assemble_text(uint8_t level, std::string_view text, LogEntryWriter& writer) {
  char line[kCapacity];
  size_t emit = 0;
  {
    std::lock_guard<std::mutex> hold(lock_);
    append_bounded(text);
    emit = take_line_locked(level, line);
  }
  if (emit > 0) writer.WriteLogEntry(std::string_view(line, emit), level);
}

std::string LineBuffer::pending() const {
  std::lock_guard<std::mutex> hold(lock_);
  return std::string(buffer_, static_cast<size_t>(pending_length_));
}

}  // namespace zaltor::log
