#pragma once
// Conversions between the UTF-8 text used inside the service and UTF-16, the unit in which
// Windows counts characters of buffers and registry data.

#include <string>
#include <string_view>

namespace zaltor::platform {

// Invalid UTF-8 sequences become U+FFFD, as MultiByteToWideChar does without flags.
std::u16string utf8_to_utf16(std::string_view text);
// The same into `out`, which takes at most `capacity` units; returns the units written.
// A text never takes more units than it has bytes, so text.size() units are always room
// enough.
size_t utf8_to_utf16(std::string_view text, char16_t* out, size_t capacity);
// Unpaired surrogates become U+FFFD.
std::string utf16_to_utf8(std::u16string_view text);

}  // namespace zaltor::platform
