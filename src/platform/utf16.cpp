#include "platform/utf16.h"

#include <cstdint>

namespace zaltor::platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void append_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace

namespace {

// Decodes `text` and hands each UTF-16 unit to `put`.
template <typename Put>
void decode_utf8(std::string_view text, Put&& put) {
  size_t i = 0;
  while (i < text.size()) {
    const auto b = static_cast<uint8_t>(text[i]);
    char32_t c = kReplacement;
    size_t need = 0;
    if (b < 0x80) {
      c = b;
    } else if (b >= 0xC2 && b < 0xE0) {
      c = b & 0x1F;
      need = 1;
    } else if (b >= 0xE0 && b < 0xF0) {
      c = b & 0x0F;
      need = 2;
    } else if (b >= 0xF0 && b < 0xF5) {
      c = b & 0x07;
      need = 3;
    }
    ++i;
    if (b >= 0x80 && need == 0) {
      put(static_cast<char16_t>(kReplacement));
      continue;
    }
    size_t got = 0;
    while (got < need && i < text.size() && (static_cast<uint8_t>(text[i]) & 0xC0) == 0x80) {
      c = (c << 6) | (static_cast<uint8_t>(text[i]) & 0x3F);
      ++i;
      ++got;
    }
    const bool overlong = (need == 2 && c < 0x800) || (need == 3 && c < 0x10000);
    if (got < need || overlong || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
      put(static_cast<char16_t>(kReplacement));
      continue;
    }
    if (c >= 0x10000) {
      c -= 0x10000;
      put(static_cast<char16_t>(0xD800 + (c >> 10)));
      put(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    } else {
      put(static_cast<char16_t>(c));
    }
  }
}

}  // namespace

std::u16string utf8_to_utf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  decode_utf8(text, [&](char16_t u) { out.push_back(u); });
  return out;
}

size_t utf8_to_utf16(std::string_view text, char16_t* out, size_t capacity) {
  size_t n = 0;
  decode_utf8(text, [&](char16_t u) {
    if (n < capacity) out[n++] = u;
  });
  return n;
}

std::string utf16_to_utf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c < 0xE000) {
      c = kReplacement;
    }
    append_utf8(out, c);
  }
  return out;
}

}  // namespace zaltor::platform
