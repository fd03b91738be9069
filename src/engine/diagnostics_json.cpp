#include "engine/diagnostics_json.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace zaltor::engine {

namespace {

void Append(std::string& out, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void Append(std::string& out, const char* fmt, ...) {
  char text[128];
  va_list ap;
  va_start(ap, fmt);
  const int n = std::vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  if (n > 0) out.append(text, static_cast<size_t>(std::min<int>(n, sizeof text - 1)));
}

// A number as JSON: finite values with up to three decimals, trailing zeros dropped.
void Number(std::string& out, double v) {
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

void Dbm(std::string& out, double v) {
  if (v <= kNoRssiValue) {
    out += "null";
  } else {
    Number(out, v);
  }
}

void String(std::string& out, const std::string& s) {
  out += '"';
  for (const char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (u < 0x20) {
      Append(out, "\\u%04x", u);
    } else {
      out += c;
    }
  }
  out += '"';
}

}  // namespace

const char* PortName(int port) {
  static const char* const kNames[] = {"Main", "Aux", "Aux2", "Aux3"};
  return port >= 0 && port < 4 ? kNames[port] : "?";
}

std::string DecisionJson(const DecisionRecord& r) {
  std::string out;
  out.reserve(256 + 128 * static_cast<size_t>(r.modeCount));
  out += "{\"time\": ";
  Number(out, static_cast<double>(r.timeMs) / 1000.0);
  out += ", \"trigger\": ";
  String(out, TriggerName(r.trigger));
  Append(out, ", \"configSet\": %u, \"determinator\": ", r.configSet);
  String(out, DeterminatorName(r.determinator));
  Append(out, ", \"currentMode\": %d, \"modes\": [", r.currentMode);
  for (int32_t i = 0; i < r.modeCount && i < kMaxModes; ++i) {
    const ModeRecord& m = r.modes[static_cast<size_t>(i)];
    if (i > 0) out += ", ";
    Append(out, "{\"mode\": %d, \"disabled\": %s, \"samples\": %u, \"rssi\": ", i + 1,
           m.disabled ? "true" : "false", m.samples);
    Dbm(out, m.rssi);
    out += ", \"rate\": ";
    Number(out, m.rate);
    out += ", \"weight\": ";
    Number(out, m.weight);
    out += ", \"weighted\": ";
    Dbm(out, m.weighted);
    out += '}';
  }
  Append(out, "], \"chosen\": %d, \"outcome\": ", r.chosen);
  String(out, OutcomeName(r.outcome));
  Append(out, ", \"sleepMs\": %d}", r.sleepMs);
  return out;
}

std::string WhyJson(const DecisionJournal& journal) {
  DecisionRecord last;
  if (!journal.Last(last)) return "{\"decision\": null}";
  return "{\"decision\": " + DecisionJson(last) + "}";
}

std::string HistoryJson(const DecisionJournal& journal, size_t count) {
  std::string out = "{\"decisions\": [";
  bool first = true;
  for (const DecisionRecord& r : journal.History(count)) {
    if (!first) out += ", ";
    first = false;
    out += DecisionJson(r);
  }
  out += "]}";
  return out;
}

std::string HealthJson(const std::vector<PortReport>& ports) {
  std::string out = "{\"ports\": [";
  bool first = true;
  for (const PortReport& p : ports) {
    if (!first) out += ", ";
    first = false;
    out += "{\"port\": ";
    String(out, PortName(p.port));
    out += ", \"state\": ";
    String(out, PortStateName(p.state));
    out += ", \"detail\": ";
    String(out, p.detail);
    out += '}';
  }
  out += "]}";
  return out;
}

}  // namespace zaltor::engine
