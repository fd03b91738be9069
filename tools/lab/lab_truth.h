#pragma once
// The truth of a scenario: what every mode would give at each moment, taken from the
// scenario document itself (its values, its timeline patches and its moving radio), never
// from what the service measured.
//
// A mode's RSSI is the mean over its ports, each port in its position of that mode, with
// ports without a signal (-95 dBm) left out; its rate is `radio.rateMbps` or, without it,
// the rate the MCS-like table gives for that RSSI. The best mode has the highest rate and,
// among equal rates, the highest RSSI (the lower mode number on a full tie).

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/sim/scenario.h"

namespace zaltor::lab {

class Truth {
 public:
  // From a scenario text (merged over the default scenario as the notebook does). False
  // with `error` ("scenario: <member>: ...") when it is not a valid scenario.
  bool load(const std::string& text, std::string& error);

  int modes() const { return modes_; }
  // Each mode's rate (Mbps) and RSSI (dBm) at `t_ms`, mode 1 first.
  void at(int64_t t_ms, std::vector<double>& rate, std::vector<double>& rssi) const;
  // The best mode (1-based) of values as At gives them.
  static int best(const std::vector<double>& rate, const std::vector<double>& rssi);

 private:
  struct State {
    int64_t from_ms = 0;
    platform::sim::Scenario scenario;
  };
  std::vector<State> states_;  // the scenario as each timeline entry leaves it
  int modes_ = 1;
  size_t ports_ = 0;
};

}  // namespace zaltor::lab
