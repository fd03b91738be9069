#pragma once
// Bounds on UTF-8 text that the system measures in UTF-16 characters (fixed-size wide
// buffers on Windows).

#include <cstddef>
#include <string>
#include <string_view>

namespace zaltor::log {

// The number of UTF-16 code units that `text` takes.
size_t utf16_length(std::string_view text);
// The longest prefix of `text` that takes at most `max_units` UTF-16 code units, never
// cutting a character.
std::string truncate_utf16(std::string_view text, size_t max_units);
// The largest n <= max_bytes such that text[0, n) does not end inside a UTF-8 sequence.
size_t utf8_prefix_length(std::string_view text, size_t max_bytes);

}  // namespace zaltor::log
