// Loading and checking a scenario. Every message names the member at fault, as a path
// such as "radio.rssi[2].Main", so that a scenario author finds the mistake at once.
#include "platform/sim/scenario.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <new>
#include <set>

namespace zaltor::platform::sim {
namespace {

using nlohmann::json;

// Scenarios nest a handful of levels; far deeper documents are refused.
constexpr size_t kMaxNesting = 64;

std::string join(const std::string& path, const std::string& key) {
  return path.empty() ? key : path + "." + key;
}
std::string index(const std::string& path, size_t i) {
  return path + "[" + std::to_string(i) + "]";
}

class Checker {
 public:
  std::string error;

  bool fail(const std::string& path, const std::string& what) {
    if (error.empty()) error = "scenario: " + (path.empty() ? what : path + ": " + what);
    return false;
  }

  // An object whose members are all among `allowed`.
  bool object(const json& j, const std::string& path, std::initializer_list<const char*> allowed) {
    if (!j.is_object()) return fail(path, "expected an object");
    for (auto it = j.begin(); it != j.end(); ++it) {
      const bool known =
          std::any_of(allowed.begin(), allowed.end(), [&](const char* a) { return it.key() == a; });
      if (!known) return fail(join(path, it.key()), "unknown member");
    }
    return true;
  }

  // A member that must be there (a scenario can remove a default with null).
  const json* need(const json& obj, const std::string& path, const char* key) {
    auto it = obj.find(key);
    if (it == obj.end()) {
      fail(join(path, key), "missing");
      return nullptr;
    }
    return &*it;
  }

  bool boolean(const json& obj, const std::string& path, const char* key, bool& out) {
    const json* j = need(obj, path, key);
    if (j == nullptr) return false;
    if (!j->is_boolean()) return fail(join(path, key), "expected true or false");
    out = j->get<bool>();
    return true;
  }
  bool optional_boolean(const json& obj, const std::string& path, const char* key, bool& out) {
    if (!obj.contains(key)) return true;
    return boolean(obj, path, key, out);
  }

  bool integer(const json& obj, const std::string& path, const char* key, int64_t lo, int64_t hi,
               int64_t& out) {
    const json* j = need(obj, path, key);
    if (j == nullptr) return false;
    return integer_value(*j, join(path, key), lo, hi, out);
  }
  bool integer_value(const json& j, const std::string& path, int64_t lo, int64_t hi, int64_t& out) {
    const std::string range =
        "expected an integer from " + std::to_string(lo) + " to " + std::to_string(hi);
    if (j.is_number_unsigned()) {
      const uint64_t v = j.get<uint64_t>();
      if (v > static_cast<uint64_t>(hi)) return fail(path, range);
      out = static_cast<int64_t>(v);
    } else if (j.is_number_integer()) {
      out = j.get<int64_t>();
    } else {
      return fail(path, range);
    }
    if (out < lo || out > hi) return fail(path, range);
    return true;
  }
  bool u32(const json& obj, const std::string& path, const char* key, uint32_t lo, uint32_t hi,
           uint32_t& out) {
    int64_t v = 0;
    if (!integer(obj, path, key, lo, hi, v)) return false;
    out = static_cast<uint32_t>(v);
    return true;
  }

  bool number(const json& obj, const std::string& path, const char* key, double& out) {
    const json* j = need(obj, path, key);
    if (j == nullptr) return false;
    if (!j->is_number()) return fail(join(path, key), "expected a number");
    out = j->get<double>();
    if (!std::isfinite(out)) return fail(join(path, key), "expected a finite number");
    return true;
  }

  bool string(const json& obj, const std::string& path, const char* key, std::string& out) {
    const json* j = need(obj, path, key);
    if (j == nullptr) return false;
    if (!j->is_string()) return fail(join(path, key), "expected a string");
    out = j->get<std::string>();
    return true;
  }
  bool optional_string(const json& obj, const std::string& path, const char* key,
                       std::optional<std::string>& out) {
    if (!obj.contains(key)) return true;
    std::string s;
    if (!string(obj, path, key, s)) return false;
    out = s;
    return true;
  }

  const json* array(const json& obj, const std::string& path, const char* key) {
    const json* j = need(obj, path, key);
    if (j == nullptr) return nullptr;
    if (!j->is_array()) {
      fail(join(path, key), "expected an array");
      return nullptr;
    }
    return j;
  }

  bool device(const json& j, const std::string& path, SimDevice& d) {
    if (!object(j, path, {"hardwareId", "description", "friendlyName", "connected"})) return false;
    return optional_string(j, path, "hardwareId", d.hardware_id) &&
           optional_string(j, path, "description", d.description) &&
           optional_string(j, path, "friendlyName", d.friendly_name) &&
           optional_boolean(j, path, "connected", d.connected);
  }
  bool devices(const json& obj, const std::string& path, const char* key,
               std::vector<SimDevice>& out) {
    const json* arr = array(obj, path, key);
    if (arr == nullptr) return false;
    out.clear();
    for (size_t i = 0; i < arr->size(); ++i) {
      SimDevice d;
      if (!device((*arr)[i], index(join(path, key), i), d)) return false;
      out.push_back(d);
    }
    return true;
  }
};

bool parse_query_error(Checker& c, const json& board, Scenario& s) {
  auto it = board.find("queryError");
  if (it == board.end() || it->is_null()) {
    s.query_error.reset();
    return true;
  }
  const std::string what = "expected null or a failing HRESULT such as \"0x80041003\"";
  if (!it->is_string()) return c.fail("board.queryError", what);
  const std::string text = it->get<std::string>();
  if (text.size() < 3 || text.size() > 10 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X') ||
      !std::all_of(text.begin() + 2, text.end(),
                   [](char ch) { return std::isxdigit(static_cast<unsigned char>(ch)); })) {
    return c.fail("board.queryError", what);
  }
  const auto value = static_cast<uint32_t>(std::stoul(text.substr(2), nullptr, 16));
  if ((value & 0x80000000u) == 0) return c.fail("board.queryError", what);
  s.query_error = static_cast<int32_t>(value);
  return true;
}

bool parse_interfaces(Checker& c, const json& wlan, Scenario& s) {
  const json* arr = c.array(wlan, "wlan", "interfaces");
  if (arr == nullptr) return false;
  s.interfaces.clear();
  std::set<std::string> guids;
  for (size_t i = 0; i < arr->size(); ++i) {
    const std::string path = index("wlan.interfaces", i);
    const json& j = (*arr)[i];
    if (!c.object(j, path, {"description", "guid", "connected", "channel"})) return false;
    SimInterface itf;
    std::string guid_text;
    if (!c.string(j, path, "description", itf.description) ||
        !c.string(j, path, "guid", guid_text) ||
        !c.optional_boolean(j, path, "connected", itf.connected)) {
      return false;
    }
    const auto guid = parse_guid(guid_text);
    if (!guid)
      return c.fail(join(path, "guid"),
                    "expected a GUID such as \"{6A1B2C3D-1111-2222-3333-444455556666}\"");
    if (!guids.insert(to_string(*guid)).second)
      return c.fail(join(path, "guid"), "used by an earlier interface");
    itf.guid = *guid;
    if (j.contains("channel") && !c.u32(j, path, "channel", 0, 255, itf.channel)) return false;
    s.interfaces.push_back(itf);
  }
  return true;
}

bool parse_drift(Checker& c, const json& j, Scenario& s) {
  s.drift = Drift{};
  if (j.is_null()) return true;
  if (!c.object(j, "radio.drift", {"start", "dbPerMinute", "limitDbm"})) return false;
  if (!c.number(j, "radio.drift", "start", s.drift.start_s) ||
      !c.number(j, "radio.drift", "dbPerMinute", s.drift.db_per_minute)) {
    return false;
  }
  if (j.contains("limitDbm") && !c.number(j, "radio.drift", "limitDbm", s.drift.limit_dbm))
    return false;
  if (s.drift.start_s < 0) return c.fail("radio.drift.start", "expected seconds of 0 or more");
  if (s.drift.limit_dbm < -95 || s.drift.limit_dbm > 0)
    return c.fail("radio.drift.limitDbm", "expected dBm from -95 to 0");
  return true;
}

bool parse_blockage(Checker& c, const json& j, Scenario& s) {
  s.blockages.clear();
  if (j.is_null()) return true;
  if (!j.is_array()) return c.fail("radio.blockage", "expected an array");
  for (size_t i = 0; i < j.size(); ++i) {
    const std::string path = index("radio.blockage", i);
    const json& b = j[i];
    if (!c.object(b, path, {"port", "position", "period", "duration", "offset", "lossDb"}))
      return false;
    Blockage out;
    if (b.contains("position")) {
      const json& pos = b["position"];
      if (pos == "Main") {
        out.position = 0;
      } else if (pos == "Div") {
        out.position = 1;
      } else if (!pos.is_null()) {
        return c.fail(path + ".position", "expected \"Main\", \"Div\" or null (both)");
      }
    }
    int64_t port = 0;
    if (!c.integer(b, path, "port", 0, 3, port)) return false;
    out.port = static_cast<size_t>(port);
    if (!c.number(b, path, "period", out.period_s) ||
        !c.number(b, path, "duration", out.duration_s) ||
        !c.number(b, path, "lossDb", out.loss_db)) {
      return false;
    }
    if (b.contains("offset") && !c.number(b, path, "offset", out.offset_s)) return false;
    if (out.period_s <= 0) return c.fail(path + ".period", "expected seconds above 0");
    if (out.duration_s < 0 || out.duration_s > out.period_s)
      return c.fail(path + ".duration", "expected seconds from 0 to the period");
    if (out.offset_s < 0) return c.fail(path + ".offset", "expected seconds of 0 or more");
    if (out.loss_db < 0) return c.fail(path + ".lossDb", "expected a loss of 0 dB or more");
    s.blockages.push_back(out);
  }
  return true;
}

bool parse_fading(Checker& c, const json& j, Scenario& s) {
  s.fading = Fading{};
  if (j.is_null()) return true;
  if (!c.object(j, "radio.fading", {"depthDb", "periodSeconds"})) return false;
  if (!c.number(j, "radio.fading", "depthDb", s.fading.depth_db)) return false;
  if (j.contains("periodSeconds") &&
      !c.number(j, "radio.fading", "periodSeconds", s.fading.period_s)) {
    return false;
  }
  if (s.fading.depth_db < 0 || s.fading.depth_db > 40)
    return c.fail("radio.fading.depthDb", "expected a depth from 0 to 40 dB");
  if (s.fading.period_s < 1)
    return c.fail("radio.fading.periodSeconds", "expected a period of 1 second or more");
  return true;
}

bool parse_radio(Checker& c, const json& radio, Scenario& s) {
  if (!c.object(radio, "radio",
                {"rssi", "noise", "seed", "rateMbps", "throughputBps", "drift", "blockage",
                 "fading", "modeRssi"}))
    return false;
  const json* rssi = c.array(radio, "radio", "rssi");
  if (rssi == nullptr) return false;
  s.rssi.clear();
  for (size_t i = 0; i < rssi->size(); ++i) {
    const std::string path = index("radio.rssi", i);
    const json& j = (*rssi)[i];
    if (!c.object(j, path, {"Main", "Div"})) return false;
    int64_t main = 0;
    int64_t div = 0;
    if (!c.integer(j, path, "Main", -127, 0, main) || !c.integer(j, path, "Div", -127, 0, div)) {
      return false;
    }
    s.rssi.push_back({static_cast<int32_t>(main), static_cast<int32_t>(div)});
  }
  if (!c.number(radio, "radio", "noise", s.noise)) return false;
  if (s.noise < 0) return c.fail("radio.noise", "expected a standard deviation of 0 or more");
  int64_t seed = 0;
  if (!c.integer(radio, "radio", "seed", 0, std::numeric_limits<int64_t>::max(), seed))
    return false;
  s.seed = static_cast<uint64_t>(seed);
  s.rate_mbps.clear();
  // Left out (a scenario removes the default's with null): the rate follows the RSSI.
  s.rate_from_rssi = !radio.contains("rateMbps");
  if (!s.rate_from_rssi) {
    const json* rates = c.array(radio, "radio", "rateMbps");
    if (rates == nullptr) return false;
    for (size_t i = 0; i < rates->size(); ++i) {
      const json& r = (*rates)[i];
      if (!r.is_number() || r.get<double>() < 0 || !std::isfinite(r.get<double>())) {
        return c.fail(index("radio.rateMbps", i), "expected a rate of 0 or more");
      }
      s.rate_mbps.push_back(r.get<double>());
    }
  }
  if (!parse_drift(c, radio.contains("drift") ? radio["drift"] : json(), s) ||
      !parse_blockage(c, radio.contains("blockage") ? radio["blockage"] : json(), s) ||
      !parse_fading(c, radio.contains("fading") ? radio["fading"] : json(), s)) {
    return false;
  }
  s.mode_rssi.clear();
  if (radio.contains("modeRssi") && !radio["modeRssi"].is_null()) {
    const json* modes = c.array(radio, "radio", "modeRssi");
    if (modes == nullptr) return false;
    for (size_t i = 0; i < modes->size(); ++i) {
      const json& v = (*modes)[i];
      if (!v.is_number() || v.get<double>() < -127 || v.get<double>() > 0) {
        return c.fail(index("radio.modeRssi", i), "expected dBm from -127 to 0");
      }
      s.mode_rssi.push_back(v.get<double>());
    }
  }
  for (const Blockage& b : s.blockages) {
    if (b.port >= s.rssi.size()) return c.fail("radio.blockage", "a port without radio.rssi entry");
  }
  return c.integer(radio, "radio", "throughputBps", 0, std::numeric_limits<int64_t>::max(),
                   s.throughput_bps);
}

bool parse_counters(Checker& c, const json& counters, Scenario& s) {
  if (!counters.is_object()) return c.fail("counters", "expected an object");
  s.counters.clear();
  for (auto it = counters.begin(); it != counters.end(); ++it) {
    const std::string path = join("counters", it.key());
    if (it.key().size() != 1 || !std::isalpha(static_cast<unsigned char>(it.key()[0]))) {
      return c.fail(path, "a counter is named by one letter");
    }
    int64_t port = 0;
    if (!c.integer_value(it.value(), path, 0, 3, port)) return false;
    if (static_cast<size_t>(port) >= s.rssi.size()) {
      return c.fail(path, "antenna port " + std::to_string(port) + " has no radio.rssi entry");
    }
    s.counters[it.key()[0]] = static_cast<int>(port);
  }
  return true;
}

bool parse_timeline(Checker& c, const json& timeline, Scenario& s) {
  if (!timeline.is_array()) return c.fail("timeline", "expected an array");
  s.timeline.clear();
  for (size_t i = 0; i < timeline.size(); ++i) {
    const std::string path = index("timeline", i);
    const json& j = timeline[i];
    if (!c.object(j, path, {"at", "patch"})) return false;
    TimelineEntry e;
    if (!c.number(j, path, "at", e.at_s)) return false;
    if (e.at_s < 0) return c.fail(join(path, "at"), "expected seconds of 0 or more");
    const json* patch = c.need(j, path, "patch");
    if (patch == nullptr) return false;
    if (!patch->is_object()) return c.fail(join(path, "patch"), "expected an object");
    for (const char* fixed : {"clock", "timeline", "stopAfter", "linesFile"}) {
      if (patch->contains(fixed)) {
        return c.fail(join(join(path, "patch"), fixed), "cannot change while the notebook runs");
      }
    }
    e.patch = *patch;
    s.timeline.push_back(e);
  }
  std::stable_sort(s.timeline.begin(), s.timeline.end(),
                   [](const TimelineEntry& a, const TimelineEntry& b) { return a.at_s < b.at_s; });
  return true;
}

bool parse(Checker& c, const json& doc, Scenario& s) {
  if (!c.object(doc, "",
                {"clock", "stopAfter", "linesFile", "board", "firmware", "pciNics", "wlan",
                 "bluetooth", "lid", "power", "counters", "radio", "timeline", "about"})) {
    return false;
  }
  // about: one line of text that says what the scenario models; the notebook ignores it.
  if (doc.contains("about") && !doc["about"].is_string() && !doc["about"].is_null()) {
    return c.fail("about", "expected a line of text");
  }
  // clock
  const json* clock = c.need(doc, "", "clock");
  if (clock == nullptr || !c.object(*clock, "clock", {"mode", "speed"})) return false;
  if (!c.string(*clock, "clock", "mode", s.clock_mode)) return false;
  if (s.clock_mode != "scaled" && s.clock_mode != "virtual") {
    return c.fail("clock.mode", "expected \"scaled\" or \"virtual\"");
  }
  if (!c.number(*clock, "clock", "speed", s.speed)) return false;
  if (!(s.speed > 0)) return c.fail("clock.speed", "expected a speed above 0");
  // stopAfter
  s.stop_after_s.reset();
  if (doc.contains("stopAfter") && !doc["stopAfter"].is_null()) {
    double stop = 0;
    if (!c.number(doc, "", "stopAfter", stop)) return false;
    if (stop < 0) return c.fail("stopAfter", "expected seconds of 0 or more");
    s.stop_after_s = stop;
  }
  // linesFile
  s.lines_file.clear();
  if (doc.contains("linesFile") && !doc["linesFile"].is_null()) {
    std::optional<std::string> file;
    if (!c.optional_string(doc, "", "linesFile", file)) return false;
    if (file->empty()) return c.fail("linesFile", "expected a file name or null");
    s.lines_file = *file;
  }
  // board
  const json* board = c.need(doc, "", "board");
  if (board == nullptr || !c.object(*board, "board", {"products", "queryError"})) return false;
  const json* products = c.array(*board, "board", "products");
  if (products == nullptr) return false;
  s.products.clear();
  for (size_t i = 0; i < products->size(); ++i) {
    if (!(*products)[i].is_string()) return c.fail(index("board.products", i), "expected a string");
    s.products.push_back((*products)[i].get<std::string>());
  }
  if (!parse_query_error(c, *board, s)) return false;
  // firmware
  const json* fw = c.need(doc, "", "firmware");
  if (fw == nullptr || !c.object(*fw, "firmware",
                                 {"openFails", "present", "switchCount", "lines", "extraBits",
                                  "statusFails", "controlFails", "controlResult", "shortReply"})) {
    return false;
  }
  Firmware& f = s.firmware;
  if (!c.boolean(*fw, "firmware", "openFails", f.open_fails) ||
      !c.boolean(*fw, "firmware", "present", f.present) ||
      !c.u32(*fw, "firmware", "switchCount", 0, 255, f.switch_count) ||
      !c.u32(*fw, "firmware", "lines", 0, 255, f.lines) ||
      !c.u32(*fw, "firmware", "extraBits", 0, 0xFFFFFFFFu, f.extra_bits) ||
      !c.boolean(*fw, "firmware", "statusFails", f.status_fails) ||
      !c.boolean(*fw, "firmware", "controlFails", f.control_fails) ||
      !c.u32(*fw, "firmware", "controlResult", 0, 0xFFFFFFFFu, f.control_result) ||
      !c.boolean(*fw, "firmware", "shortReply", f.short_reply)) {
    return false;
  }
  if ((f.extra_bits & 0x1FFFFu) != 0) {
    return c.fail("firmware.extraBits", "only bits 17-31 may be set (the value is ORed in as is)");
  }
  // adapters
  if (!c.devices(doc, "", "pciNics", s.pci_nics)) return false;
  const json* wlan = c.need(doc, "", "wlan");
  if (wlan == nullptr || !c.object(*wlan, "wlan", {"interfaces"}) ||
      !parse_interfaces(c, *wlan, s)) {
    return false;
  }
  const json* bt = c.need(doc, "", "bluetooth");
  if (bt == nullptr || !c.object(*bt, "bluetooth", {"BTHENUM", "BTHLE"})) return false;
  s.bluetooth.clear();
  for (const char* e : {"BTHENUM", "BTHLE"}) {
    s.bluetooth[e] = {};
    if (bt->contains(e) && !c.devices(*bt, "bluetooth", e, s.bluetooth[e])) return false;
  }
  // lid and power
  const json* lid = c.need(doc, "", "lid");
  if (lid == nullptr || !c.object(*lid, "lid", {"notifications", "open"}) ||
      !c.boolean(*lid, "lid", "notifications", s.lid_notifications) ||
      !c.boolean(*lid, "lid", "open", s.lid_open)) {
    return false;
  }
  const json* power = c.need(doc, "", "power");
  if (power == nullptr || !c.object(*power, "power", {"source"})) return false;
  if (!c.u32(*power, "power", "source", 0, 2, s.power_source)) return false;
  // radio, then the counters that refer to its ports
  const json* radio = c.need(doc, "", "radio");
  if (radio == nullptr || !parse_radio(c, *radio, s)) return false;
  const json* counters = c.need(doc, "", "counters");
  if (counters == nullptr || !parse_counters(c, *counters, s)) return false;
  const json* timeline = c.need(doc, "", "timeline");
  return timeline != nullptr && parse_timeline(c, *timeline, s);
}

// The deepest nesting of arrays and objects in `text`, brackets inside strings not
// counted; stops counting once `limit` is passed.
size_t nesting_depth(const std::string& text, size_t limit) {
  size_t depth = 0;
  size_t deepest = 0;
  bool in_string = false;
  for (size_t i = 0; i < text.size() && deepest <= limit; ++i) {
    const char ch = text[i];
    if (in_string) {
      if (ch == '\\') {
        ++i;
      } else if (ch == '"') {
        in_string = false;
      }
    } else if (ch == '"') {
      in_string = true;
    } else if (ch == '[' || ch == '{') {
      deepest = std::max(deepest, ++depth);
    } else if ((ch == ']' || ch == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

bool load_checked(const std::string& text, json& doc, Scenario& out, std::string& error) {
  json merged = json::parse(default_scenario_text());
  if (!text.empty()) {
    // Merging and copying walk the document recursively: refuse nesting that no scenario
    // needs before it can exhaust the stack.
    if (nesting_depth(text, kMaxNesting) > kMaxNesting) {
      error = "scenario: nested deeper than " + std::to_string(kMaxNesting) + " levels";
      return false;
    }
    json file;
    try {
      file = json::parse(text);
    } catch (const json::exception& e) {
      error = std::string("scenario: not valid JSON: ") + e.what();
      return false;
    }
    if (!file.is_object()) {
      error = "scenario: expected an object at the top level";
      return false;
    }
    // The timeline and the stop are a scenario's own story: a file that leaves them out
    // has no timed changes and runs until it is ended. Everything else it leaves out
    // takes the default's value.
    merged["timeline"] = json::array();
    merged.erase("stopAfter");
    merged.merge_patch(file);
    if (!merged.contains("timeline")) merged["timeline"] = json::array();  // given as null
  }
  Scenario s;
  if (!parse_scenario(merged, s, error)) return false;
  // Each patch must leave a valid notebook behind, applied in the order the notebook will.
  // The timeline itself is checked above; leaving its entries out of each check keeps a
  // long story from costing the square of its length.
  json running = merged;
  running["timeline"] = json::array();
  const json& entries = merged["timeline"];
  std::vector<size_t> order(entries.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    return entries[a]["at"].get<double>() < entries[b]["at"].get<double>();
  });
  for (size_t i : order) {
    running.merge_patch(entries[i]["patch"]);
    Scenario check;
    std::string inner;
    if (!parse_scenario(running, check, inner)) {
      // "scenario: radio.rssi[2]: ..." becomes "scenario: timeline[1].patch: radio.rssi[2]: ..."
      error = "scenario: timeline[" + std::to_string(i) + "].patch: " + inner.substr(10);
      return false;
    }
  }
  doc = std::move(merged);
  out = std::move(s);
  return true;
}

}  // namespace

bool parse_scenario(const nlohmann::json& doc, Scenario& out, std::string& error) {
  Checker c;
  Scenario s;
  try {
    if (!parse(c, doc, s)) {
      error = c.error;
      return false;
    }
  } catch (const json::exception& e) {
    // The checks come before every conversion; this only keeps a slip from ending the
    // process.
    error = std::string("scenario: ") + e.what();
    return false;
  }
  out = std::move(s);
  return true;
}

bool load_scenario(const std::string& text, nlohmann::json& doc, Scenario& out,
                   std::string& error) {
  // Nothing the JSON library throws (a number beyond a double, a type or range problem)
  // may leave here: a scenario is refused with a message, never with an exception.
  try {
    return load_checked(text, doc, out, error);
  } catch (const json::exception& e) {
    error = std::string("scenario: not valid JSON: ") + e.what();
  } catch (const std::bad_alloc&) {
    error = "scenario: too large to hold in memory";
  }
  return false;
}

}  // namespace zaltor::platform::sim
