#include "lab/lab_truth.h"

#include <algorithm>
#include <cmath>

#include "platform/sim/radio_model.h"

namespace zaltor::lab {

bool Truth::load(const std::string& text, std::string& error) {
  nlohmann::json doc;
  platform::sim::Scenario first;
  if (!platform::sim::load_scenario(text, doc, first, error)) return false;
  states_.clear();
  const uint32_t switches = std::min<uint32_t>(first.firmware.switch_count, 4);
  modes_ = 1 << switches;
  ports_ = std::min<size_t>(switches, first.rssi.size());
  states_.push_back({0, first});
  // load_scenario checked every patch in turn; applying them again gives each state (the
  // entries themselves left out of the document, so that each parse is short).
  doc["timeline"] = nlohmann::json::array();
  for (const auto& entry : first.timeline) {
    doc.merge_patch(entry.patch);
    State s;
    s.from_ms = static_cast<int64_t>(std::llround(entry.at_s * 1000.0));
    if (!platform::sim::parse_scenario(doc, s.scenario, error)) return false;
    states_.push_back(std::move(s));
  }
  return true;
}

void Truth::at(int64_t t_ms, std::vector<double>& rate, std::vector<double>& rssi) const {
  // The last state that began at or before t (states are in the order of their time).
  size_t i = 0;
  while (i + 1 < states_.size() && states_[i + 1].from_ms <= t_ms) ++i;
  const platform::sim::Scenario& s = states_[i].scenario;
  const double t_s = static_cast<double>(t_ms) / 1000.0;
  rate.assign(static_cast<size_t>(modes_), 0.0);
  rssi.assign(static_cast<size_t>(modes_), platform::sim::kNoSignalDbm);
  // Each antenna element once (the figures walk a week in 100 ms steps).
  double element[4][2];
  for (size_t p = 0; p < ports_; ++p) {
    for (int pos = 0; pos < 2; ++pos) element[p][pos] = platform::sim::port_rssi_at(s, p, pos, t_s);
  }
  for (int m = 1; m <= modes_; ++m) {
    const auto at = static_cast<size_t>(m - 1);
    double sum = 0;
    int n = 0;
    for (size_t p = 0; p < ports_; ++p) {
      const double v = element[p][(static_cast<unsigned>(m - 1) >> p) & 1u];
      if (v <= platform::sim::kNoSignalDbm) continue;
      sum += v;
      ++n;
    }
    rssi[at] = n == 0 ? platform::sim::kNoSignalDbm : sum / n;
    double direct = 0;
    if (platform::sim::mode_reading(s, m, direct)) rssi[at] = direct;
    rate[at] = s.rate_from_rssi          ? platform::sim::rate_for_rssi(rssi[at])
               : at < s.rate_mbps.size() ? s.rate_mbps[at]
                                         : 0.0;
    // A mode without any signal carries no traffic, whatever rate the scenario lists.
    if (rssi[at] <= platform::sim::kNoSignalDbm) rate[at] = 0;
  }
}

int Truth::best(const std::vector<double>& rate, const std::vector<double>& rssi) {
  size_t best = 0;
  for (size_t m = 1; m < rate.size(); ++m) {
    if (rate[m] > rate[best] || (rate[m] == rate[best] && rssi[m] > rssi[best])) best = m;
  }
  return static_cast<int>(best) + 1;
}

}  // namespace zaltor::lab
