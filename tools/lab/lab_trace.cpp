#include "lab/lab_trace.h"

namespace zaltor::lab {

nlohmann::json trace_to_json(const Trace& t) {
  nlohmann::json j;
  j["endMs"] = t.end_ms;
  j["initialMode"] = t.initial_mode;
  // Compact rows: a week of simulated time holds many thousands of writes.
  auto sw = nlohmann::json::array();
  for (const auto& e : t.switches) sw.push_back({e.at_ms, e.mode, e.measuring ? 1 : 0});
  j["switches"] = std::move(sw);
  auto ps = nlohmann::json::array();
  for (const auto& p : t.passes) {
    auto m = nlohmann::json::array();
    for (const auto& v : p.measured) m.push_back({v.mode, v.rssi, v.rate});
    ps.push_back({p.start_ms, p.end_ms, p.chosen, p.fallback ? 1 : 0, std::move(m)});
  }
  j["passes"] = std::move(ps);
  return j;
}

bool trace_from_json(const nlohmann::json& j, Trace& t) {
  try {
    t.end_ms = j.at("endMs").get<int64_t>();
    t.initial_mode = j.at("initialMode").get<int>();
    t.switches.clear();
    for (const auto& r : j.at("switches")) {
      t.switches.push_back({r.at(0).get<int64_t>(), r.at(1).get<int>(), r.at(2).get<int>() != 0});
    }
    t.passes.clear();
    for (const auto& r : j.at("passes")) {
      PassRecord p{r.at(0).get<int64_t>(),
                   r.at(1).get<int64_t>(),
                   r.at(2).get<int>(),
                   r.at(3).get<int>() != 0,
                   {}};
      for (const auto& m : r.at(4)) {
        p.measured.push_back({m.at(0).get<int>(), m.at(1).get<double>(), m.at(2).get<double>()});
      }
      t.passes.push_back(std::move(p));
    }
  } catch (const nlohmann::json::exception&) {
    return false;
  }
  return true;
}

}  // namespace zaltor::lab
