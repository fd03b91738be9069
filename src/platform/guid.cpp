#include "platform/guid.h"

#include <cstdio>

namespace zaltor::platform {

std::string to_string(const Guid& g) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                static_cast<unsigned>(g.data1), g.data2, g.data3, g.data4[0], g.data4[1],
                g.data4[2], g.data4[3], g.data4[4], g.data4[5], g.data4[6], g.data4[7]);
  return buf;
}

namespace {
int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

std::optional<Guid> parse_guid(std::string_view t) {
  // {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}
  if (t.size() != 38 || t.front() != '{' || t.back() != '}') return std::nullopt;
  std::string hex;
  for (size_t i = 1; i + 1 < t.size(); ++i) {
    const bool dash_pos = (i == 9 || i == 14 || i == 19 || i == 24);
    if (dash_pos) {
      if (t[i] != '-') return std::nullopt;
      continue;
    }
    if (hex_digit(t[i]) < 0) return std::nullopt;
    hex.push_back(t[i]);
  }
  auto byte_at = [&](size_t k) {
    return static_cast<uint8_t>(hex_digit(hex[2 * k]) * 16 + hex_digit(hex[2 * k + 1]));
  };
  Guid g;
  g.data1 = (uint32_t{byte_at(0)} << 24) | (uint32_t{byte_at(1)} << 16) |
            (uint32_t{byte_at(2)} << 8) | byte_at(3);
  g.data2 = static_cast<uint16_t>((byte_at(4) << 8) | byte_at(5));
  g.data3 = static_cast<uint16_t>((byte_at(6) << 8) | byte_at(7));
  for (size_t k = 0; k < 8; ++k) g.data4[k] = byte_at(8 + k);
  return g;
}

}  // namespace zaltor::platform
