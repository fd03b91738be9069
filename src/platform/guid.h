#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zaltor::platform {

struct Guid {
  uint32_t data1 = 0;
  uint16_t data2 = 0;
  uint16_t data3 = 0;
  std::array<uint8_t, 8> data4{};
  bool operator==(const Guid&) const = default;
};

// "{6A1B2C3D-1111-2222-3333-444455556666}": upper-case hex in braces, as the system prints GUIDs.
std::string to_string(const Guid& g);
// Accepts the braced form (case-insensitive); nullopt when the text is not a GUID.
std::optional<Guid> parse_guid(std::string_view text);

}  // namespace zaltor::platform
