#include "log/line_buffer.h"

#include "log/text_limits.h"
#include "platform/log.h"

namespace zaltor::log {

void LineBuffer::assemble(uint8_t level, const char* fmt, va_list ap, LogEntryWriter& writer) {
  assemble_text(level, vformat(fmt, ap), writer);
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

void LineBuffer::assemble_text(uint8_t level, std::string_view text, LogEntryWriter& writer) {
  std::string line;
  {
    std::lock_guard<std::mutex> hold(lock_);
    append_bounded(text);
    const size_t length = static_cast<size_t>(pending_length_);
    if (length == 0 || buffer_[length - 1] != '\n') return;  // waits for the rest
    size_t emit = length;
    if (level == kLogDetail) {
      if (length < 2 || buffer_[length - 2] != '\n') return;  // detail waits for an empty line
      emit = length - 1;                                      // one of the two line ends goes
    }
    line.assign(buffer_, emit);
    pending_length_ = 0;
    buffer_[0] = '\0';
  }
  writer.WriteLogEntry(line, level);
}

std::string LineBuffer::pending() const {
  std::lock_guard<std::mutex> hold(lock_);
  return std::string(buffer_, static_cast<size_t>(pending_length_));
}

}  // namespace zaltor::log
