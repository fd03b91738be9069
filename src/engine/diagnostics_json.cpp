#include "engine/diagnostics_json.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace zaltor::engine {

namespace {

void append(std::string& out, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void append(std::string& out, const char* fmt, ...) {
  char text[128];
  va_list ap;
  va_start(ap, fmt);
  const int n = std::vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  if (n > 0) out.append(text, static_cast<size_t>(std::min<int>(n, sizeof text - 1)));
}

// A number as JSON: finite values with up to three decimals, trailing zeros dropped.
void number(std::string& out, double v) {
  if (!std::isfinite(v)) {
    out += "null";
    return;
  }
  char text[64];
  std::snprintf(text, sizeof text, "%.3f", v);
  std::string s = text;
  while (!s.empty() && s.back() == '0') s.pop_back();
  if (!s.empty() && s.back() == '.') s.pop_back();
  if (s == "-0") s = "0";
  out += s;
}

void dbm(std::string& out, double v) {
  if (v <= kNoRssiValue) {
    out += "null";
  } else {
    number(out, v);
  }
}

void string(std::string& out, const std::string& s) {
  out += '"';
  for (const char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (u < 0x20) {
      append(out, "\\u%04x", u);
    } else {
      out += c;
    }
  }
  out += '"';
}

}  // namespace

const char* port_name(int port) {
  static const char* const kNames[] = {"Main", "Aux", "Aux2", "Aux3"};
  return port >= 0 && port < 4 ? kNames[port] : "?";
}

std::string decision_json(const DecisionRecord& r) {
  std::string out;
  out.reserve(256 + 128 * static_cast<size_t>(r.mode_count));
  out += "{\"time\": ";
  number(out, static_cast<double>(r.time_ms) / 1000.0);
  out += ", \"trigger\": ";
  string(out, trigger_name(r.trigger));
  append(out, ", \"configSet\": %u, \"determinator\": ", r.configSet);
  string(out, determinator_name(r.determinator));
  append(out, ", \"currentMode\": %d, \"modes\": [", r.currentMode);
  for (int32_t i = 0; i < r.mode_count && i < kMaxModes; ++i) {
    const ModeRecord& m = r.modes[static_cast<size_t>(i)];
    if (i > 0) out += ", ";
    append(out, "{\"mode\": %d, \"disabled\": %s, \"samples\": %u, \"rssi\": ", i + 1,
           m.disabled ? "true" : "false", m.samples);
    dbm(out, m.rssi);
    out += ", \"rate\": ";
    number(out, m.rate);
    out += ", \"weight\": ";
    number(out, m.weight);
    out += ", \"weighted\": ";
    dbm(out, m.weighted);
    out += '}';
  }
  append(out, "], \"chosen\": %d, \"outcome\": ", r.chosen);
  string(out, outcome_name(r.outcome));
  append(out, ", \"sleepMs\": %d}", r.sleepMs);
  return out;
}

std::string why_json(const DecisionJournal& journal) {
  DecisionRecord last;
  if (!journal.last(last)) return "{\"decision\": null}";
  return "{\"decision\": " + decision_json(last) + "}";
}

std::string history_json(const DecisionJournal& journal, size_t count) {
  std::string out = "{\"decisions\": [";
  bool first = true;
  for (const DecisionRecord& r : journal.history(count)) {
    if (!first) out += ", ";
    first = false;
    out += decision_json(r);
  }
  out += "]}";
  return out;
}

std::string health_json(const std::vector<PortReport>& ports) {
  std::string out = "{\"ports\": [";
  bool first = true;
  for (const PortReport& p : ports) {
    if (!first) out += ", ";
    first = false;
    out += "{\"port\": ";
    string(out, port_name(p.port));
    out += ", \"state\": ";
    string(out, port_state_name(p.state));
    out += ", \"detail\": ";
    string(out, p.detail);
    out += '}';
  }
  out += "]}";
  return out;
}

}  // namespace zaltor::engine
