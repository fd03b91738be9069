#include "log/text_limits.h"

namespace zaltor::log {
namespace {

bool is_continuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// UTF-16 units of the character that starts with lead byte `c`: four-byte sequences are
// surrogate pairs.
size_t units_of_lead(char c) {
  return (static_cast<unsigned char>(c) >= 0xF0) ? 2 : 1;
}

}  // namespace

size_t utf16_length(std::string_view text) {
  size_t units = 0;
  for (char c : text) {
    if (!is_continuation(c)) units += units_of_lead(c);
  }
  return units;
}

std::string truncate_utf16(std::string_view text, size_t max_units) {
  size_t units = 0;
  size_t i = 0;
  while (i < text.size()) {
    const size_t need = units_of_lead(text[i]);
    if (units + need > max_units) break;
    units += need;
    ++i;
    while (i < text.size() && is_continuation(text[i])) ++i;
  }
  return std::string(text.substr(0, i));
}

size_t utf8_prefix_length(std::string_view text, size_t max_bytes) {
  if (max_bytes >= text.size()) return text.size();
  size_t n = max_bytes;
  // text[n] is the first byte left out: if it continues a sequence, drop that sequence.
  while (n > 0 && is_continuation(text[n])) --n;
  return n;
}

}  // namespace zaltor::log
