#pragma once
// Ring of the per-mode average RSSI of the last 20 evaluations (row = evaluation, column =
// mode index). Only the auto-mode thread touches it, so it needs no lock.

#include <array>
#include <cstdint>

#include "engine/mode_results.h"

namespace zaltor::engine {

constexpr uint32_t kRssiHistoryRows = 20;

struct RssiHistory {
  std::array<ModeValues, kRssiHistoryRows> rows{};
  uint32_t index = 0;  // next row to write, kept modulo 20

  // Done when the auto-mode thread starts.
  void clear() {
    for (auto& row : rows) row.fill(0.0);
    index = 0;
  }
};

}  // namespace zaltor::engine
