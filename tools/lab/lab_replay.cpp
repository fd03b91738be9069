#include "lab/lab_replay.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace zaltor::lab {
namespace {

using nlohmann::json;

constexpr int kSets = 4;
// What the hardware calls of a measurement cost beyond the configured waits: an attempt
// reads the counters and the link (about 6 ms of 1 ms calls), a switch drives each switch's
// lines (about 7 ms). Measured on the simulated notebook; a real notebook's differ a little,
// which the placement of the changes (mid-sleep) absorbs.
constexpr int64_t kAttemptMs = 6;
constexpr int64_t kSwitchMs = 7;

struct ModeMeasure {
  int mode = 0;
  int attempts = 0;  // attempts that waited an interval before the next (retries do not)
};

struct LoggedPass {
  int set = 0;
  std::vector<ModeMeasure> modes;               // in the order measured
  std::vector<std::array<double, 2>> averages;  // per mode: dBm, Mbps (dBm NaN: not measured)
  int64_t sleep_ms = 0;
};

bool starts_with(const std::string& s, const char* prefix) {
  return s.rfind(prefix, 0) == 0;
}

size_t count(const std::string& s, const char* what) {
  size_t n = 0;
  for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + 1)) ++n;
  return n;
}

// "[Settings.X] KEY = N": N, when `line` is that key's line.
bool key_value(const std::string& line, const char* key, int64_t& value) {
  const std::string k = std::string("] ") + key + " = ";
  const size_t at = line.find(k);
  if (line.empty() || line[0] != '[' || at == std::string::npos) return false;
  value = std::strtoll(line.c_str() + at + k.size(), nullptr, 10);
  return true;
}

json interface(int channel) {
  return {{"interfaces", json::array({{{"description", "Wireless AX (R2) 160MHz"},
                                       {"guid", "{6A1B2C3D-1111-2222-3333-444455556666}"},
                                       {"connected", true},
                                       {"channel", channel}}})}};
}

json headset(bool connected) {
  json bt = {{"BTHENUM", json::array()}, {"BTHLE", json::array()}};
  if (connected) {
    bt["BTHENUM"].push_back({{"hardwareId", "BTHENUM\\Dev_001122334455"},
                             {"description", "Headset"},
                             {"friendlyName", "Headset"},
                             {"connected", true}});
  }
  return bt;
}

// The situation in which the service selects config set `set`.
void situation(int set, json& patch) {
  patch["wlan"] = interface(set == 1 ? 36 : 6);
  patch["bluetooth"] = headset(set == 2);
  patch["lid"] = {{"open", set != 3}};
}

}  // namespace

bool scenario_from_log(const std::string& log_text, json& scenario, std::string& error) {
  std::array<int64_t, kSets> interval{};
  std::array<int64_t, kSets> stable{};
  interval.fill(-1);
  stable.fill(-1);
  int report_set = 0;
  std::vector<LoggedPass> passes;
  int max_mode = 0;

  std::istringstream in(log_text);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    int set = 0;
    int64_t v = 0;
    if (std::sscanf(line.c_str(), "Config set %d [", &set) == 1 && set >= 0 && set < kSets) {
      report_set = set;
      continue;
    }
    if (key_value(line, "RSSICollectInterval", v)) {
      interval[static_cast<size_t>(report_set)] = v;
      continue;
    }
    if (key_value(line, "TimeToWaitForRSSIStable", v)) {
      stable[static_cast<size_t>(report_set)] = v;
      continue;
    }
    if (std::sscanf(line.c_str(), "Using Config Set: %d", &set) == 1) {
      LoggedPass p;
      p.set = std::clamp(set, 0, kSets - 1);
      passes.push_back(p);
      continue;
    }
    if (passes.empty()) continue;
    LoggedPass& pass = passes.back();
    int mode = 0;
    if (std::sscanf(line.c_str(), "Getting RSSI for mode %d: ", &mode) == 1) {
      ModeMeasure m;
      m.mode = mode;
      // Samples that counted ("(..M), ") and failed readings ("*ERR, ") each waited.
      m.attempts = static_cast<int>(count(line, "M), ") + count(line, "*ERR, "));
      pass.modes.push_back(m);
      max_mode = std::max(max_mode, mode);
      continue;
    }
    if (starts_with(line, "Avg RSSI: ")) {
      // The averages share the line: "#1)-55.000 (866.7), #2)*ERR, ..."
      for (size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1)) {
        double rssi = 0, rate = 0;
        if (std::sscanf(line.c_str() + at, "#%d)%lf (%lf)", &mode, &rssi, &rate) == 3 &&
            mode >= 1 && mode <= 16) {
          if (pass.averages.size() < static_cast<size_t>(mode)) {
            pass.averages.resize(static_cast<size_t>(mode), {NAN, 0.0});
          }
          pass.averages[static_cast<size_t>(mode - 1)] = {rssi, rate};
          max_mode = std::max(max_mode, mode);
        }
      }
      continue;
    }
    long long sleep = 0;
    if (std::sscanf(line.c_str(), "Sleep: %lld", &sleep) == 1) pass.sleep_ms = sleep;
  }
  for (int s = 0; s < kSets; ++s) {
    const auto i = static_cast<size_t>(s);
    if (interval[i] < 0) interval[i] = s > 0 && interval[0] >= 0 ? interval[0] : 1000;
    if (stable[i] < 0) stable[i] = s > 0 && stable[0] >= 0 ? stable[0] : 2000;
  }
  passes.erase(std::remove_if(passes.begin(), passes.end(),
                              [](const LoggedPass& p) { return p.averages.empty(); }),
               passes.end());
  if (passes.empty()) {
    error = "no pass with measured averages (\"Avg RSSI: \") in the log";
    return false;
  }

  int switches = 0;
  while ((1 << switches) < max_mode && switches < 4) ++switches;
  const int modes = 1 << switches;

  auto radio_of = [&](const LoggedPass& p) {
    json rssi = json::array();
    json rate = json::array();
    for (int m = 1; m <= modes; ++m) {
      const auto at = static_cast<size_t>(m - 1);
      const bool known = at < p.averages.size() && !std::isnan(p.averages[at][0]);
      rssi.push_back(known ? std::round(p.averages[at][0] * 1000) / 1000 : -95.0);
      rate.push_back(known ? p.averages[at][1] : 0.0);
    }
    return json{{"modeRssi", rssi}, {"rateMbps", rate}};
  };

  json doc;
  doc["about"] = "Replay of a field log: " + std::to_string(passes.size()) +
                 " passes, each mode at the averages its pass measured.";
  // Lines 0x33: the switches in the first mode, as the sample configurations map them.
  doc["firmware"] = {{"switchCount", std::max(switches, 1)}, {"lines", 0x33}};
  json ports = json::array();
  json counters = json::object();
  for (int p = 0; p < std::max(switches, 1); ++p) {
    ports.push_back({{"Main", -60}, {"Div", -60}});
    if (p < 3) counters[std::string(1, static_cast<char>('A' + p))] = p;
  }
  doc["counters"] = counters;
  json radio = radio_of(passes[0]);
  radio["rssi"] = ports;
  radio["noise"] = 0.0;
  doc["radio"] = radio;
  json first;
  situation(passes[0].set, first);
  doc.update(first);

  json timeline = json::array();
  int64_t start = 0;
  for (size_t k = 0; k < passes.size(); ++k) {
    const LoggedPass& p = passes[k];
    const auto s = static_cast<size_t>(p.set);
    int64_t duration = 0;
    for (size_t i = 0; i < p.modes.size(); ++i) {
      if (i > 0) duration += stable[s] + kSwitchMs;
      duration +=
          std::max(0, p.modes[i].attempts - 1) * interval[s] + p.modes[i].attempts * kAttemptMs;
    }
    const int64_t sleep = std::max<int64_t>(p.sleep_ms, 1000);
    if (k + 1 < passes.size()) {
      // The next pass's values from the middle of this pass's sleep: the estimated times may
      // be off by a little per pass without a change ever landing in a pass.
      json patch = {{"radio", radio_of(passes[k + 1])}};
      if (passes[k + 1].set != p.set) situation(passes[k + 1].set, patch);
      timeline.push_back(
          {{"at", static_cast<double>(start + duration + sleep / 2) / 1000.0}, {"patch", patch}});
    }
    start += duration + sleep;
  }
  doc["timeline"] = timeline;
  doc["stopAfter"] = static_cast<double>(start) / 1000.0;
  scenario = doc;
  return true;
}

}  // namespace zaltor::lab
