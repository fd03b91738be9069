#pragma once
// What the configuration says about the antenna switches: per port its RSSI counter
// letter and path, the control line (switch ID) of its switch, and the two control values
// (X, Y) of each switch position. The configuration fills it; the control device
// operations and the counters use it.

#include <array>
#include <cstdint>
#include <string>

namespace zaltor::platform {

constexpr int kMaxPorts = 4;
constexpr int kPositionCount = 3;
constexpr int kRssiPortSlots = 3;  // a fourth port never has an RSSI counter

inline constexpr std::array<const char*, kMaxPorts> kPortNames = {"Main", "Aux", "Aux2", "Aux3"};
inline constexpr std::array<const char*, kPositionCount> kPositionNames = {"Main", "Div", "Off"};

enum SwitchPosition : int32_t { kPositionMain = 0, kPositionDiv = 1, kPositionOff = 2 };

struct SwitchTable {
  std::array<char, kMaxPorts> pcw{};  // counter letter; 0 when none
  std::array<std::string, kMaxPorts>
      counter_path;  // "\Intel-Wifi- Rssi Per Antenna\Rssi Antenna %c"
  std::array<int32_t, kMaxPorts> switch_id{0, 1, 2, 3};
  // positions[port][position] = {X, Y}; 0 or 1 is a line level, -1 not driven.
  std::array<std::array<std::array<int32_t, 2>, kPositionCount>, kMaxPorts> positions{{
      {{{1, 1}, {0, 0}, {1, 0}}},
      {{{1, 1}, {0, 0}, {1, 0}}},
      {{{-1, -1}, {-1, -1}, {-1, -1}}},
      {{{-1, -1}, {-1, -1}, {-1, -1}}},
  }};
};

}  // namespace zaltor::platform
