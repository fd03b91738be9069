#pragma once
// The scenario of the simulated notebook: what its firmware, board, adapters, radio, lid
// and power source look like, and how they change over time. A scenario file is JSON
// merged over the built-in default scenario (every member is optional).

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/guid.h"

namespace zaltor::platform::sim {

// A device of a device list. A property left out of the scenario cannot be read.
struct SimDevice {
  std::optional<std::string> hardware_id;
  std::optional<std::string> description;
  std::optional<std::string> friendly_name;
  bool connected = true;
};

struct SimInterface {
  std::string description;
  Guid guid;
  bool connected = true;
  uint32_t channel = 0;
};

// The RSSI of one antenna port with its switch in position "Main" and in position "Div".
struct AntennaRssi {
  int32_t main = -95;
  int32_t div = -95;
};

// The radio's slow changes (see radio_model.h).
struct Drift {
  double start_s = 0;
  double db_per_minute = 0;
  double limit_dbm = -90;
};
struct Blockage {
  size_t port = 0;
  int position = -1;  // 0 "Main", 1 "Div", -1 both
  double period_s = 60;
  double duration_s = 10;
  double offset_s = 0;
  double loss_db = 20;
};
struct Fading {
  double depth_db = 0;
  double period_s = 30;
};

struct TimelineEntry {
  double at_s = 0;  // seconds of the notebook's clock
  nlohmann::json patch;
};

struct Firmware {
  bool open_fails = false;
  bool present = true;
  uint32_t switch_count = 0;  // 0..255
  uint32_t lines = 0;         // 0..255: X lines in bits 0-3, Y lines in bits 4-7
  uint32_t extra_bits = 0;    // only bits 17-31
  bool status_fails = false;
  bool control_fails = false;
  uint32_t control_result = 1;
  bool short_reply = false;
};

struct Scenario {
  std::string clock_mode;  // "scaled" or "virtual"
  double speed = 1.0;
  std::optional<double> stop_after_s;
  // Where the firmware publishes its control lines on every change (empty: nowhere), so
  // that an observer outside the process sees the switches, also after the process ended.
  std::string lines_file;
  std::vector<std::string> products;
  std::optional<int32_t> query_error;  // an HRESULT
  Firmware firmware;
  std::vector<SimDevice> pci_nics;
  std::vector<SimInterface> interfaces;
  std::map<std::string, std::vector<SimDevice>> bluetooth;  // "BTHENUM", "BTHLE"
  bool lid_notifications = true;
  bool lid_open = true;
  uint32_t power_source = 0;
  std::map<char, int> counters;  // counter letter -> antenna port
  std::vector<AntennaRssi> rssi;
  double noise = 0;
  uint64_t seed = 1;
  std::vector<double> rate_mbps;
  bool rate_from_rssi = false;  // no rateMbps: the rate follows the RSSI
  // Per mode (mode 1 first): what every port reads while the switches form that mode, in
  // place of `rssi` and the moving radio (a replayed field log knows only modes). Empty: none.
  std::vector<double> mode_rssi;
  Drift drift;
  std::vector<Blockage> blockages;
  Fading fading;
  int64_t throughput_bps = 0;
  std::vector<TimelineEntry> timeline;  // in the order of `at` (stable)
};

// The built-in default scenario as JSON text.
const char* default_scenario_text();

// Merges `text` (empty: nothing) over the default scenario, checks the result, including
// every timeline patch applied in turn, and fills `doc` (the merged JSON) and `out`.
// False with `error` = "scenario: <member>: <what is wrong>" when anything is wrong.
bool load_scenario(const std::string& text, nlohmann::json& doc, Scenario& out, std::string& error);

// Checks a complete scenario document (after a merge) without applying its timeline.
bool parse_scenario(const nlohmann::json& doc, Scenario& out, std::string& error);

}  // namespace zaltor::platform::sim
