#include "engine/scenario_notebook.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "engine/system_events.h"
#include "platform/crypto.h"
#include "platform/file_system.h"
#include "platform/profile.h"
#include "platform/registry.h"

namespace zaltor::engine::testing {

const char* const kTestConfig = R"ini(
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

[Settings.AB12.GPIO]
Port_Main_PCW=A
Port_Aux_PCW=B
Sw_Main_ID=0
Sw_Aux_ID=1
Sw_Main_Main_X=1
Sw_Main_Main_Y=1
Sw_Main_Div_X=0
Sw_Main_Div_Y=0
Sw_Main_Off_X=1
Sw_Main_Off_Y=0
Sw_Aux_Main_X=1
Sw_Aux_Main_Y=1
Sw_Aux_Div_X=0
Sw_Aux_Div_Y=0
Sw_Aux_Off_X=1
Sw_Aux_Off_Y=0
)ini";

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

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

std::string Trim(const std::string& s) {
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
      line = Trim(line);
      if (line.empty() || line[0] == ';') continue;
      if (line.front() == '[' && line.back() == ']') {
        section = line.substr(1, line.size() - 2);
        order_.push_back(section);
        continue;
      }
      const size_t eq = line.find('=');
      if (eq == std::string::npos) continue;
      values_[Lower(section)][Lower(Trim(line.substr(0, eq)))] = Trim(line.substr(eq + 1));
    }
  }

  uint32_t read_int(const std::string& section, const std::string& key, int32_t default_value,
                    const std::string&) override {
    const std::string* v = Find(section, key);
    if (v == nullptr || v->empty()) return static_cast<uint32_t>(default_value);
    return static_cast<uint32_t>(std::strtol(v->c_str(), nullptr, 10));
  }

  uint32_t read_string(const std::string& section, const std::string& key,
                       const std::string& default_value, std::string& value, uint32_t size,
                       const std::string&) override {
    const std::string* v = Find(section, key);
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
  const std::string* Find(const std::string& section, const std::string& key) const {
    auto s = values_.find(Lower(section));
    if (s == values_.end()) return nullptr;
    auto k = s->second.find(Lower(key));
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

// No registry key: the version registration only logs.
class NoRegistry final : public platform::Registry {
 public:
  std::unique_ptr<platform::RegistryKey> open_local_machine(const std::string&,
                                                            uint32_t& error) override {
    error = 2;
    return nullptr;
  }
};

}  // namespace

int32_t CapturedLog::WriteLogEntry(std::string_view line, uint8_t level) {
  const int64_t at = clock_.now_ms();
  std::lock_guard<std::mutex> g(m_);
  entries_.push_back({at, level, std::string(line)});
  return 0;
}

std::vector<LogEntry> CapturedLog::entries() {
  std::lock_guard<std::mutex> g(m_);
  return entries_;
}

void CapturedConsole::write(std::string_view text) {
  std::lock_guard<std::mutex> g(m_);
  text_.append(text);
}

std::string CapturedConsole::text() {
  std::lock_guard<std::mutex> g(m_);
  return text_;
}

EngineOnNotebook::EngineOnNotebook(const std::string& scenarioPatch, const std::string& config) {
  nlohmann::json doc = nlohmann::json::parse(kTestScenario);
  if (!scenarioPatch.empty()) doc.merge_patch(nlohmann::json::parse(scenarioPatch));
  std::string error;
  notebook_ = platform::sim::make_sim_notebook_from_text(doc.dump(), error);
  if (!notebook_) {
    ADD_FAILURE() << error;
    std::abort();
  }
  // Hardware that answers at once: the tests count the engine's own waits to the millisecond.
  notebook_->set_hardware_call_ms(0);
  attached_ = std::make_unique<platform::ClockAttachment>(notebook_->clock());
  log_ = std::make_unique<CapturedLog>(notebook_->clock());

  platform_.clock = &notebook_->clock();
  platform_.console = &console_;
  platform_.control_device = &notebook_->control_device();
  platform_.board = &notebook_->board();
  platform_.devices = &notebook_->devices();
  platform_.wlan = &notebook_->wlan();
  platform_.counters = &notebook_->counters();
  platform_.system_events = &notebook_->system_events();
  auto files = std::make_shared<ConfigOnlyFiles>();
  auto profiles = std::make_shared<MemoryProfile>(config);
  auto registry = std::make_shared<NoRegistry>();
  platform_.files = files.get();
  platform_.profiles = profiles.get();
  platform_.registry = registry.get();
  owned_ = {files, profiles, registry};
  notebook_->start();
  worker_ = std::make_unique<AntennaSwitchWorkerObj>(platform_);
}

EngineOnNotebook::~EngineOnNotebook() {
  worker_->StopAndJoinAutoThreads();
  CloseEventWindow();
  // Let a WLAN notification that is being handled (with its Bluetooth settle) finish.
  Sleep(5000);
  ForgetRememberedWorker();
  worker_->Teardown();
  worker_.reset();
  attached_.reset();
  notebook_.reset();
}

int32_t EngineOnNotebook::Init() {
  log::LogContext context;
  context.lines = &lines_;
  context.writer = log_.get();
  const int32_t result = worker_->Init(context, "test.ini");
  Sleep(10);  // the event window thread starts and takes its first messages
  return result;
}

void EngineOnNotebook::SleepUntil(int64_t ms) {
  const int64_t now = Now();
  if (ms > now) Sleep(ms - now);
}

void EngineOnNotebook::Patch(const std::string& json) {
  std::string error;
  EXPECT_TRUE(notebook_->apply_patch(nlohmann::json::parse(json), error)) << error;
}

std::string EngineOnNotebook::LogText() {
  std::string all;
  for (const auto& e : Log()) all += e.line;
  return all;
}

size_t EngineOnNotebook::LogCount(const std::string& text) {
  size_t n = 0;
  for (const auto& e : Log()) {
    for (size_t at = e.line.find(text); at != std::string::npos;
         at = e.line.find(text, at + text.size())) {
      ++n;
    }
  }
  return n;
}

int64_t EngineOnNotebook::FirstAt(const std::string& text, int64_t from_ms) {
  for (const auto& e : Log()) {
    if (e.at_ms >= from_ms && e.line.find(text) != std::string::npos) return e.at_ms;
  }
  return -1;
}

namespace {
size_t Occurrences(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}
}  // namespace

constexpr const char* kPassMarker = "Using Config Set: ";

size_t EngineOnNotebook::Passes() {
  return Occurrences(LogText() + Pending(), kPassMarker);
}

EngineOnNotebook::Pass EngineOnNotebook::WaitForPass(size_t passes, int64_t limitMs) {
  const std::string marker = kPassMarker;
  const int64_t end = Now() + limitMs;
  for (;;) {
    const std::string text = LogText() + Pending();
    if (Occurrences(text, marker) > passes) {
      size_t at = text.find(marker);
      for (size_t i = 0; i < passes; ++i) at = text.find(marker, at + 1);
      Pass p;
      p.at_ms = Now();
      p.set = std::atoi(text.c_str() + at + marker.size());
      return p;
    }
    if (Now() >= end) return {};
    Sleep(100);
  }
}

int64_t EngineOnNotebook::WaitForLog(const std::string& text, int64_t limitMs, size_t skip) {
  const int64_t end = Now() + limitMs;
  while (Occurrences(LogText() + Pending(), text) <= skip) {
    if (Now() >= end) return -1;
    Sleep(100);
  }
  return Now();
}

void EngineOnNotebook::CloseEventWindow() {
  notebook_->close_windows();
  for (int i = 0; i < 1000 && EventWindowThreadsRunning() > 0; ++i) Sleep(10);
  EXPECT_EQ(EventWindowThreadsRunning(), 0) << "the event window thread did not end";
}

std::string AllAntennas(int dbm) {
  return Antennas(dbm, dbm);
}

std::string Antennas(int port0, int port1) {
  nlohmann::json p;
  p["radio"]["rssi"] =
      nlohmann::json::array({{{"Main", port0}, {"Div", port0}}, {{"Main", port1}, {"Div", port1}}});
  return p.dump();
}

std::string AllRates(double mbps) {
  nlohmann::json p;
  p["radio"]["rateMbps"] = nlohmann::json::array({mbps, mbps, mbps, mbps});
  return p.dump();
}

}  // namespace zaltor::engine::testing
