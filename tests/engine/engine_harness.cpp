#include "engine/engine_harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <sstream>

#include <nlohmann/json.hpp>

#include "engine/system_events.h"
#include "platform/crypto.h"
#include "platform/file_system.h"
#include "platform/profile.h"
#include "platform/registry.h"
#include "rig/notebook_rig.h"

namespace zaltor::engine::testing {

const std::string kTestConfig = std::string(R"ini(
[Version]
TargetVersionMajor=2
TargetVersionMinor=0

[Settings.AB12]
ForceUseModeSwitching=1
AutoModeRunCount=0
DeterminatorMode=1
BaseSleepIntervalBetweenEval=60000
RSSICollectInterval=1000
RSSICollectCount=3
TimeToWaitForRSSIStable=1000
DefaultMode=1
RSSIThresholdForSwitchToDefaultMode=-85.0
RSSIWeightForMode_1=0.0
RSSIWeightForMode_2=0.0
RSSIWeightForMode_3=0.0
RSSIWeightForMode_4=0.0
DisableMode_1=0
DisableMode_2=0
DisableMode_3=0
DisableMode_4=0
DeterminatorStableTimesForExp=0
IntervalTimeExpX=2.0
IntervalTimeExpY=0.0
IntervalTimeExpYIncr=1.0
WifiStatMonitorInterval=5000
RSSIDeltaToTriggerScan=10.0
MCSDeltaToTriggerScan=30.0

[Settings.AB12.1]
TimeToWaitForRSSIStable=2000

[Settings.AB12.2]
TimeToWaitForRSSIStable=3000

[Settings.AB12.3]
RSSICollectCount=2
TimeToWaitForRSSIStable=4000

)ini") +
                                // the two switches of the quiet notebook
                                rig::two_switch_gpio();

const char* const kTestScenario = R"json({
  "clock": { "mode": "virtual" },
  "board": { "products": ["AB12XY"], "queryError": null },
  "firmware": { "openFails": false, "present": true, "switchCount": 2, "lines": 51,
                "extraBits": 0, "statusFails": false, "controlFails": false,
                "controlResult": 1, "shortReply": false },
  "pciNics": [ { "hardwareId": "PCI\\VEN_8086&DEV_2725&SUBSYS_00248086",
                 "description": "Wireless AX (R2)" } ],
  "wlan": { "interfaces": [ { "description": "Wireless AX (R2) 160MHz",
                              "guid": "{6A1B2C3D-1111-2222-3333-444455556666}",
                              "connected": true, "channel": 36 } ] },
  "bluetooth": {
    "BTHENUM": [ { "hardwareId": "BTHENUM\\Dev_001122334455", "description": "Headset",
                   "friendlyName": "Headset", "connected": true } ],
    "BTHLE": [] },
  "lid": { "notifications": true, "open": true },
  "power": { "source": 0 },
  "counters": { "A": 0, "B": 1 },
  "radio": { "rssi": [ { "Main": -50, "Div": -50 }, { "Main": -50, "Div": -50 } ],
             "noise": 0.0, "seed": 1,
             "rateMbps": [ 866.7, 866.7, 866.7, 866.7 ], "throughputBps": 12000000 },
  "timeline": []
})json";

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

std::string trim(const std::string& s) {
  const size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return "";
  const size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

// Private-profile reads over one INI text held in memory (ASCII: one byte per character).
class MemoryProfile final : public platform::ProfileReader {
 public:
  explicit MemoryProfile(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    std::string section;
    while (std::getline(in, line)) {
      line = trim(line);
      if (line.empty() || line[0] == ';') continue;
      if (line.front() == '[' && line.back() == ']') {
        section = line.substr(1, line.size() - 2);
        order_.push_back(section);
        continue;
      }
      const size_t eq = line.find('=');
      if (eq == std::string::npos) continue;
      values_[lower(section)][lower(trim(line.substr(0, eq)))] = trim(line.substr(eq + 1));
    }
  }

  uint32_t read_int(const std::string& section, const std::string& key, int32_t default_value,
                    const std::string&) override {
    const std::string* v = find(section, key);
    if (v == nullptr || v->empty()) return static_cast<uint32_t>(default_value);
    return static_cast<uint32_t>(std::strtol(v->c_str(), nullptr, 10));
  }

  uint32_t read_string(const std::string& section, const std::string& key,
                       const std::string& default_value, std::string& value, uint32_t size,
                       const std::string&) override {
    const std::string* v = find(section, key);
    const std::string& src = v != nullptr ? *v : default_value;
    if (size == 0) {
      value.clear();
      return 0;
    }
    value = src.substr(0, std::min<size_t>(src.size(), size - 1));
    return static_cast<uint32_t>(value.size());
  }

  uint32_t read_section_names(std::string& names, uint32_t size, const std::string&) override {
    std::string all;
    for (const auto& s : order_) {
      all += s;
      all.push_back('\0');
    }
    if (all.size() + 1 <= size) {
      names = all;
      return static_cast<uint32_t>(all.size());
    }
    const uint32_t n = size >= 2 ? size - 2 : 0;
    names = all.substr(0, n);
    return n;
  }

 private:
  const std::string* find(const std::string& section, const std::string& key) const {
    auto s = values_.find(lower(section));
    if (s == values_.end()) return nullptr;
    auto k = s->second.find(lower(key));
    return k == s->second.end() ? nullptr : &k->second;
  }

  std::vector<std::string> order_;
  std::map<std::string, std::map<std::string, std::string>> values_;
};

// Only the plain configuration file exists; nothing is written.
class ConfigOnlyFiles final : public platform::FileSystem {
 public:
  uint32_t program_directory(std::string& dir) override {
    dir = "/svc";
    return 0;
  }
  std::string join(const std::string& dir, const std::string& name) override {
    return dir + "/" + name;
  }
  bool exists(const std::string& path) override { return path == "/svc/test.ini"; }
  uint32_t remove(const std::string&) override { return 2; }
  int read_binary(const std::string&, std::vector<uint8_t>&, ReadStep& failed) override {
    failed = ReadStep::kOpen;
    return 2;
  }
  int write_text(const std::string&, std::string_view, size_t& written) override {
    written = 0;
    return 13;
  }
  int append_utf8_text(const std::string&, std::string_view) override { return 0; }
  int read_utf8_text(const std::string&, std::string&) override { return 2; }
};

class ScriptedQuery final : public platform::CounterQuery {
 public:
  ScriptedQuery(std::unique_ptr<platform::CounterQuery> inner, ScriptedCounters& owner)
      : inner_(std::move(inner)), owner_(owner) {}
  uint32_t add_counter(const std::string& path, platform::CounterId& counter) override {
    const uint32_t e = inner_->add_counter(path, counter);
    if (e == 0 && path.find("Current Bandwidth") != std::string::npos) link_speed_ = counter;
    return e;
  }
  uint32_t collect() override {
    const int n = ++owner_.collections;
    if (owner_.on_collect) owner_.on_collect(n);
    return inner_->collect();
  }
  uint32_t formatted_large(platform::CounterId counter, int64_t& value) override {
    const uint32_t e = inner_->formatted_large(counter, value);
    if (e == 0 && counter == link_speed_ && owner_.fixed_rate_bps.load() >= 0) {
      value = owner_.fixed_rate_bps.load();
    }
    if (e == 0 && counter == link_speed_ && owner_.zero_rate.load()) value = 0;
    return e;
  }

 private:
  std::unique_ptr<platform::CounterQuery> inner_;
  ScriptedCounters& owner_;
  platform::CounterId link_speed_ = 0;
};

class ScriptedDeviceHandle final : public platform::ControlDeviceHandle {
 public:
  ScriptedDeviceHandle(std::unique_ptr<platform::ControlDeviceHandle> inner, ScriptedDevice& owner)
      : inner_(std::move(inner)), owner_(owner) {}
  bool io_control(uint32_t code, const uint8_t* in, uint32_t in_len, uint8_t* out,
                  uint32_t out_capacity, uint32_t& returned) override {
    // The value this thread wrote last and has not yet read back.
    thread_local bool check_pending = false;
    thread_local uint32_t written = 0;
    const bool write = in_len >= 16 && std::memcmp(in, "DEVS", 4) == 0;
    if (write) {
      ++owner_.writes;
      if (owner_.before_write) owner_.before_write();
    }
    const bool ok = inner_->io_control(code, in, in_len, out, out_capacity, returned);
    if (write) {
      check_pending = ok;
      written = read_u32(in + 12);
    } else if (check_pending && in_len >= 4 && std::memcmp(in, "DSTS", 4) == 0) {
      check_pending = false;
      if (ok && returned >= 4 && read_u32(out) != written) ++owner_.verify_mismatches;
    }
    return ok;
  }

 private:
  static uint32_t read_u32(const uint8_t* p) {
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
  }
  std::unique_ptr<platform::ControlDeviceHandle> inner_;
  ScriptedDevice& owner_;
};

size_t occurrences(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

constexpr const char* kPassMarker = "Using Config Set: ";

// The story notebook's seams: the configuration from memory, no files, no registry key.
void use_story_seams(platform::Platform& p, const std::string& config,
                     std::vector<std::shared_ptr<void>>& owned) {
  auto files = std::make_shared<ConfigOnlyFiles>();
  auto profiles = std::make_shared<MemoryProfile>(config);
  auto registry = std::make_shared<rig::NoKeysRegistry>();
  p.files = files.get();
  p.profiles = profiles.get();
  p.registry = registry.get();
  p.crypto = nullptr;
  owned = {files, profiles, registry};
}

}  // namespace

std::unique_ptr<platform::ControlDeviceHandle> ScriptedDevice::open(const std::string& path,
                                                                    uint32_t& error) {
  auto inner = inner_.open(path, error);
  if (!inner) return nullptr;
  return std::make_unique<ScriptedDeviceHandle>(std::move(inner), *this);
}

std::unique_ptr<platform::CounterQuery> ScriptedCounters::open_query(uint32_t& error) {
  auto inner = inner_.open_query(error);
  if (!inner) return nullptr;
  return std::make_unique<ScriptedQuery>(std::move(inner), *this);
}

EngineHarness::EngineHarness(HarnessOptions options) : story_(options.story) {
  rig::RigOptions r;
  if (story_) {
    r.base_scenario = kTestScenario;
    r.scenario_patch = options.scenario_patch;
    r.start_notebook = true;
  } else {
    r.scenario_patch = options.scenario_patch;
    r.config = conf_ini(options.keys, options.extra_sections, options.gpio);
    r.start_notebook = options.start_notebook;
  }
  r.console_mode = options.console_mode;
  r.keep_log = options.keep_log;
  r.hardware_call_ms = options.hardware_call_ms;
  r.prepare = [this, &options](platform::Platform& p, platform::sim::SimNotebook& nb) {
    scripted_ = std::make_unique<ScriptedCounters>(nb.counters());
    device_ = std::make_unique<ScriptedDevice>(nb.control_device());
    if (options.scripted_counters) p.counters = scripted_.get();
    if (options.scripted_device) p.control_device = device_.get();
    if (story_) use_story_seams(p, options.story_config, owned_);
  };
  try {
    rig_ = std::make_unique<rig::NotebookRig>(std::move(r));
  } catch (const std::exception& e) {
    ADD_FAILURE() << e.what();
    std::abort();
  }
}

EngineHarness::~EngineHarness() {
  // The story notebook's tests also check that the event window ends; the quiet notebook's
  // leave that to the rig's teardown, which waits for it as long as they always did.
  if (story_) {
    worker().stop_and_join_auto_threads();
    close_event_window();
  }
  rig_.reset();
}

int32_t EngineHarness::Init() {
  if (story_) {
    const int32_t result = rig_->Init("test.ini");
    run_for(10);  // the event window thread starts and takes its first messages
    return result;
  }
  const int32_t result = rig_->Init();
  rig_->take_start_request();
  return result;
}

void EngineHarness::sleep_until(int64_t ms) {
  const int64_t now_ms = now();
  if (ms > now_ms) run_for(ms - now_ms);
}

std::unique_ptr<platform::Thread> EngineHarness::after(int64_t ms, std::function<void()> action) {
  return clock().start_thread("test action", [this, ms, action = std::move(action)] {
    clock().sleep_ms(ms);
    action();
  });
}

void EngineHarness::patch(const std::string& json) {
  std::string error;
  EXPECT_TRUE(notebook().apply_patch(nlohmann::json::parse(json), error)) << error;
}

void EngineHarness::close_event_window() {
  EXPECT_TRUE(rig_->close_event_window()) << "the event window thread did not end";
}

size_t EngineHarness::log_count(const std::string& text) const {
  size_t n = 0;
  for (const auto& e : entries()) {
    for (size_t at = e.line.find(text); at != std::string::npos;
         at = e.line.find(text, at + text.size())) {
      ++n;
    }
  }
  return n;
}

std::string EngineHarness::levelled_text() const {
  std::string all;
  for (const auto& e : entries()) all += std::to_string(e.level) + ": " + e.line;
  return all;
}

int EngineHarness::count(uint8_t level, const std::string& text) const {
  int n = 0;
  for (const auto& e : entries()) {
    const bool ends = e.line.size() >= text.size() &&
                      e.line.compare(e.line.size() - text.size(), text.size(), text) == 0;
    n += (e.level == level && ends) ? 1 : 0;
  }
  return n;
}

std::vector<int> EngineHarness::sleeps() const {
  std::vector<int> out;
  static const std::regex kSleep("Sleep: (-?[0-9]+)\n");
  const std::string all = text();
  for (auto it = std::sregex_iterator(all.begin(), all.end(), kSleep); it != std::sregex_iterator();
       ++it) {
    out.push_back(std::stoi((*it)[1].str()));
  }
  return out;
}

int64_t EngineHarness::time_of(const std::string& text, int64_t from_ms) const {
  for (const auto& e : entries()) {
    if (e.at_ms >= from_ms && e.line.find(text) != std::string::npos) return e.at_ms;
  }
  return -1;
}

size_t EngineHarness::passes() const {
  return occurrences(text() + pending(), kPassMarker);
}

EngineHarness::Pass EngineHarness::wait_for_pass(size_t passes, int64_t limit_ms) {
  const std::string marker = kPassMarker;
  const int64_t end = now() + limit_ms;
  for (;;) {
    const std::string all = text() + pending();
    if (occurrences(all, marker) > passes) {
      size_t at = all.find(marker);
      for (size_t i = 0; i < passes; ++i) at = all.find(marker, at + 1);
      Pass p;
      p.at_ms = now();
      p.set = std::atoi(all.c_str() + at + marker.size());
      return p;
    }
    if (now() >= end) return {};
    run_for(100);
  }
}

int64_t EngineHarness::wait_for_log(const std::string& text, int64_t limit_ms, size_t skip) {
  const int64_t end = now() + limit_ms;
  while (occurrences(this->text() + pending(), text) <= skip) {
    if (now() >= end) return -1;
    run_for(100);
  }
  return now();
}

namespace {
HarnessOptions story_options(const std::string& scenario_patch, const std::string& config) {
  HarnessOptions o;
  o.story = true;
  o.scenario_patch = scenario_patch;
  o.story_config = config;
  return o;
}
}  // namespace

EngineOnNotebook::EngineOnNotebook(const std::string& scenario_patch, const std::string& config)
    : EngineHarness(story_options(scenario_patch, config)) {}

std::string all_antennas(int dbm) {
  return antennas(dbm, dbm);
}

std::string antennas(int port0, int port1) {
  nlohmann::json p;
  p["radio"]["rssi"] =
      nlohmann::json::array({{{"Main", port0}, {"Div", port0}}, {{"Main", port1}, {"Div", port1}}});
  return p.dump();
}

std::string all_rates(double mbps) {
  nlohmann::json p;
  p["radio"]["rateMbps"] = nlohmann::json::array({mbps, mbps, mbps, mbps});
  return p.dump();
}

}  // namespace zaltor::engine::testing
