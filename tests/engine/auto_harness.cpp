#include "engine/auto_harness.h"

#include <cstring>
#include <filesystem>
#include <random>
#include <regex>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "engine/system_events.h"
#include "log/log_context.h"
#include "platform/clock.h"
#if defined(_WIN32)
#include "platform/win32/win32_backends.h"
#else
#include "platform/posix/posix_backends.h"
#endif

namespace zaltor::engine::autotest {

namespace {

// The notebook of these tests: the built-in one in virtual time, without the timeline and
// without noise, so that every run is the same, on a 2.4 GHz link (channel 6) so that the
// default config set is in force.
constexpr const char* kTestNotebook = R"json({
  "clock": { "mode": "virtual", "speed": 1.0 },
  "wlan": { "interfaces": [
    { "description": "Wireless AX (R2) 160MHz",
      "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": true, "channel": 6 } ] },
  "radio": { "noise": 0.0 },
  "timeline": []
})json";

// The platform's own backends of the operating-system seams that the worker reaches.
#if defined(_WIN32)
std::unique_ptr<platform::FileSystem> MakeFiles() {
  return platform::make_win32_file_system();
}
std::unique_ptr<platform::ProfileReader> MakeProfiles() {
  return platform::make_private_profile_reader();
}
std::unique_ptr<platform::Crypto> MakeCrypto() {
  return platform::make_cng_crypto();
}

// The Windows registry is the machine's: the config tests create and delete the version key
// there while other test processes run. The worker here must find no key, as it does in the
// test's own registry directory on Linux, so it gets a registry without keys.
class NoKeysRegistry final : public platform::Registry {
 public:
  std::unique_ptr<platform::RegistryKey> open_local_machine(const std::string&,
                                                            uint32_t& error) override {
    error = platform::kRegistryNotFound;
    return nullptr;
  }
};
std::unique_ptr<platform::Registry> MakeRegistry(const std::string&) {
  return std::make_unique<NoKeysRegistry>();
}
#else
std::unique_ptr<platform::FileSystem> MakeFiles() {
  return platform::make_posix_file_system();
}
std::unique_ptr<platform::ProfileReader> MakeProfiles() {
  return platform::make_ini_profile_reader();
}
std::unique_ptr<platform::Crypto> MakeCrypto() {
  return platform::make_openssl_crypto();
}
// The registry directory confined to the test's directory (empty: no key).
std::unique_ptr<platform::Registry> MakeRegistry(const std::string& dir) {
  return platform::make_state_dir_registry(dir + "/registry");
}
#endif

// The platform's files, with the program directory and every relative path (the log file)
// in the test's own directory.
class TempDirFiles final : public platform::FileSystem {
 public:
  explicit TempDirFiles(std::string dir) : dir_(std::move(dir)), inner_(MakeFiles()) {}
  uint32_t program_directory(std::string& dir) override {
    dir = dir_;
    return 0;
  }
  std::string join(const std::string& dir, const std::string& name) override {
    return inner_->join(dir, name);
  }
  bool exists(const std::string& path) override { return inner_->exists(Place(path)); }
  int check_input_file(const std::string& path) override {
    return inner_->check_input_file(Place(path));
  }
  uint32_t remove(const std::string& path) override { return inner_->remove(Place(path)); }
  int read_binary(const std::string& path, std::vector<uint8_t>& data, ReadStep& failed) override {
    return inner_->read_binary(Place(path), data, failed);
  }
  int write_text(const std::string& path, std::string_view text, size_t& written) override {
    return inner_->write_text(Place(path), text, written);
  }
  int append_utf8_text(const std::string& path, std::string_view text) override {
    return inner_->append_utf8_text(Place(path), text);
  }
  int read_utf8_text(const std::string& path, std::string& text) override {
    return inner_->read_utf8_text(Place(path), text);
  }

 private:
  std::string Place(const std::string& path) const {
    return std::filesystem::path(path).has_root_directory() ? path : inner_->join(dir_, path);
  }
  std::string dir_;
  std::unique_ptr<platform::FileSystem> inner_;
};

class RecordingConsole final : public Console {
 public:
  void write(std::string_view text) override {
    std::lock_guard<std::mutex> g(lock_);
    text_ += text;
  }

 private:
  std::mutex lock_;
  std::string text_;
};

class ScriptedQuery final : public platform::CounterQuery {
 public:
  ScriptedQuery(std::unique_ptr<platform::CounterQuery> inner, ScriptedCounters& owner)
      : inner_(std::move(inner)), owner_(owner) {}
  uint32_t add_counter(const std::string& path, platform::CounterId& counter) override {
    const uint32_t e = inner_->add_counter(path, counter);
    if (e == 0 && path.find("Current Bandwidth") != std::string::npos) linkSpeed_ = counter;
    return e;
  }
  uint32_t collect() override {
    const int n = ++owner_.collections;
    if (owner_.onCollect) owner_.onCollect(n);
    return inner_->collect();
  }
  uint32_t formatted_large(platform::CounterId counter, int64_t& value) override {
    const uint32_t e = inner_->formatted_large(counter, value);
    if (e == 0 && counter == linkSpeed_ && owner_.fixedRateBps.load() >= 0) {
      value = owner_.fixedRateBps.load();
    }
    if (e == 0 && counter == linkSpeed_ && owner_.zeroRate.load()) value = 0;
    return e;
  }

 private:
  std::unique_ptr<platform::CounterQuery> inner_;
  ScriptedCounters& owner_;
  platform::CounterId linkSpeed_ = 0;
};

class ScriptedDeviceHandle final : public platform::ControlDeviceHandle {
 public:
  ScriptedDeviceHandle(std::unique_ptr<platform::ControlDeviceHandle> inner, ScriptedDevice& owner)
      : inner_(std::move(inner)), owner_(owner) {}
  bool io_control(uint32_t code, const uint8_t* in, uint32_t in_len, uint8_t* out,
                  uint32_t out_capacity, uint32_t& returned) override {
    // The value this thread wrote last and has not yet read back.
    thread_local bool checkPending = false;
    thread_local uint32_t written = 0;
    const bool write = in_len >= 16 && std::memcmp(in, "DEVS", 4) == 0;
    if (write) {
      ++owner_.writes;
      if (owner_.beforeWrite) owner_.beforeWrite();
    }
    const bool ok = inner_->io_control(code, in, in_len, out, out_capacity, returned);
    if (write) {
      checkPending = ok;
      written = ReadU32(in + 12);
    } else if (checkPending && in_len >= 4 && std::memcmp(in, "DSTS", 4) == 0) {
      checkPending = false;
      if (ok && returned >= 4 && ReadU32(out) != written) ++owner_.verifyMismatches;
    }
    return ok;
  }

 private:
  static uint32_t ReadU32(const uint8_t* p) {
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
  }
  std::unique_ptr<platform::ControlDeviceHandle> inner_;
  ScriptedDevice& owner_;
};

// A new directory of its own under the system's temporary directory.
std::string MakeTempDir() {
  std::random_device random;
  for (int tries = 0; tries < 100; ++tries) {
    const auto dir = std::filesystem::temp_directory_path() /
                     ("zaltor-auto-" + std::to_string(random()) + std::to_string(random()));
    std::error_code ec;
    if (std::filesystem::create_directory(dir, ec)) return dir.string();
  }
  throw std::runtime_error("no temporary directory could be made");
}

}  // namespace

int32_t RecordingWriter::WriteLogEntry(std::string_view line, uint8_t level) {
  if (line.substr(0, 7) == "Sleep: ") ++sleepLines_;
  if (!keep_) return 0;
  const int64_t at = clock_.now_ms();
  std::lock_guard<std::mutex> g(lock_);
  entries_.push_back({level, std::string(line), at});
  return 0;
}

std::vector<LogEntry> RecordingWriter::Entries() const {
  std::lock_guard<std::mutex> g(lock_);
  return entries_;
}

Keys BaseKeys() {
  Keys k = {
      {"ForceUseModeSwitching", "1"},
      {"AutoModeRunCount", "0"},
      {"DeterminatorMode", "1"},
      {"BaseSleepIntervalBetweenEval", "10000"},
      {"RSSICollectInterval", "1000"},
      {"RSSICollectCount", "2"},
      {"TimeToWaitForRSSIStable", "1000"},
      {"DefaultMode", "1"},
      {"RSSIThresholdForSwitchToDefaultMode", "-85.0"},
      {"DeterminatorStableTimesForExp", "2"},
      {"IntervalTimeExpX", "2.0"},
      {"IntervalTimeExpY", "0.0"},
      {"IntervalTimeExpYIncr", "1.0"},
      {"WifiStatMonitorInterval", "5000"},
      {"RSSIDeltaToTriggerScan", "10.0"},
      {"MCSDeltaToTriggerScan", "30.0"},
  };
  for (int m = 1; m <= 4; ++m) {
    k["RSSIWeightForMode_" + std::to_string(m)] = "0.0";
    k["DisableMode_" + std::to_string(m)] = "0";
  }
  return k;
}

std::string TwoSwitchGpio() {
  return "[Settings.AB12.GPIO]\n"
         "Port_Main_PCW=A\nPort_Aux_PCW=B\nSw_Main_ID=0\nSw_Aux_ID=1\n"
         "Sw_Main_Main_X=1\nSw_Main_Main_Y=1\nSw_Main_Div_X=0\nSw_Main_Div_Y=0\n"
         "Sw_Main_Off_X=1\nSw_Main_Off_Y=0\n"
         "Sw_Aux_Main_X=1\nSw_Aux_Main_Y=1\nSw_Aux_Div_X=0\nSw_Aux_Div_Y=0\n"
         "Sw_Aux_Off_X=1\nSw_Aux_Off_Y=0\n";
}

std::string FourSwitchGpio() {
  const char* ports[] = {"Main", "Aux", "Aux2", "Aux3"};
  const char letters[] = {'A', 'B', 'C', 'D'};
  std::string text = "[Settings.AB12.GPIO]\n";
  for (int k = 0; k < 4; ++k) {
    const std::string p = ports[k];
    text += "Port_" + p + "_PCW=" + letters[k] + "\n";
    text += "Sw_" + p + "_ID=" + std::to_string(k) + "\n";
    text += "Sw_" + p + "_Main_X=1\nSw_" + p + "_Main_Y=1\n";
    text += "Sw_" + p + "_Div_X=0\nSw_" + p + "_Div_Y=0\n";
    text += "Sw_" + p + "_Off_X=1\nSw_" + p + "_Off_Y=0\n";
  }
  return text;
}

std::string ConfIni(const Keys& keys, const std::string& extraSections, const std::string& gpio) {
  Keys all = BaseKeys();
  for (const auto& [k, v] : keys) all[k] = v;
  std::string text = "[Version]\nTargetVersionMajor=2\nTargetVersionMinor=0\n\n[Settings.AB12]\n";
  for (const auto& [k, v] : all) text += k + "=" + v + "\n";
  text += "\n" + (gpio.empty() ? TwoSwitchGpio() : gpio);
  text += extraSections;
  return text;
}

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

AutoHarness::AutoHarness(HarnessOptions options) : dir_(MakeTempDir()) {
  files_ = std::make_unique<TempDirFiles>(dir_);
  profiles_ = MakeProfiles();
  crypto_ = MakeCrypto();
  registry_ = MakeRegistry(dir_);
  console_ = std::make_unique<RecordingConsole>();
  size_t written = 0;
  files_->write_text("Conf.ini", ConfIni(options.keys, options.extraSections, options.gpio),
                     written);

  nlohmann::json scenario = nlohmann::json::parse(kTestNotebook);
  scenario.merge_patch(nlohmann::json::parse(options.scenarioPatch));
  std::string error;
  notebook_ = platform::sim::make_sim_notebook_from_text(scenario.dump(), error);
  if (!notebook_) throw std::runtime_error(error);
  notebook_->set_hardware_call_ms(options.hardwareCallMs);
  notebook_->clock().attach_current_thread();

  scripted_ = std::make_unique<ScriptedCounters>(notebook_->counters());
  device_ = std::make_unique<ScriptedDevice>(notebook_->control_device());
  writer_ = std::make_unique<RecordingWriter>(notebook_->clock(), options.keepLog);
  consoleFlag_.store(options.consoleMode);

  platform_.clock = &notebook_->clock();
  platform_.console = console_.get();
  platform_.control_device = options.scriptedDevice
                                 ? static_cast<platform::ControlDevice*>(device_.get())
                                 : &notebook_->control_device();
  platform_.board = &notebook_->board();
  platform_.devices = &notebook_->devices();
  platform_.wlan = &notebook_->wlan();
  platform_.counters = options.scriptedCounters ? static_cast<platform::Counters*>(scripted_.get())
                                                : &notebook_->counters();
  platform_.system_events = &notebook_->system_events();
  platform_.files = files_.get();
  platform_.profiles = profiles_.get();
  platform_.crypto = crypto_.get();
  platform_.registry = registry_.get();
  worker_ = std::make_unique<AntennaSwitchWorkerObj>(platform_);
  if (options.startNotebook) notebook_->start();
}

AutoHarness::~AutoHarness() {
  worker_->StopAndJoinAutoThreads();
  // The event window thread is detached: end its message loop and wait for it, and let a
  // WLAN notification in hand finish, before the worker and the notebook go.
  notebook_->close_windows();
  for (int i = 0; i < 1000 && EventWindowThreadsRunning() > 0; ++i) clock().sleep_ms(10);
  clock().sleep_ms(5000);
  ForgetRememberedWorker();
  worker_->Teardown();
  worker_.reset();
  notebook_->clock().detach_current_thread();
  notebook_.reset();
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

int32_t AutoHarness::Init() {
  log::LogContext context;
  context.lines = &lines_;
  context.writer = writer_.get();
  context.console = &consoleFlag_;
  const int32_t result = worker_->Init(context, "");
  // The event window registers for the lid and the power source and receives their current
  // values at once; the lid message asks for a decision. Let it arrive (yields, so that
  // simulated time does not move) and take that request, so that a test's first pass is not
  // restarted by it.
  for (int i = 0; i < 3; ++i) clock().sleep_ms(0);
  worker_->ConsumeReevaluation();
  return result;
}

void AutoHarness::RunFor(int64_t ms) {
  clock().sleep_ms(ms);
}

bool AutoHarness::RunUntil(const std::function<bool()>& done, int64_t limitMs) {
  for (int64_t t = 0; t < limitMs && !done(); t += 1000) clock().sleep_ms(1000);
  return done();
}

std::unique_ptr<platform::Thread> AutoHarness::After(int64_t ms, std::function<void()> action) {
  return clock().start_thread("test action", [this, ms, action = std::move(action)] {
    clock().sleep_ms(ms);
    action();
  });
}

std::string AutoHarness::Text() const {
  std::string all;
  for (const auto& e : Entries()) all += e.line;
  return all;
}

std::string AutoHarness::ConsoleText() const {
  std::string all;
  for (const auto& e : Entries()) all += std::to_string(e.level) + ": " + e.line;
  return all;
}

int AutoHarness::Count(uint8_t level, const std::string& text) const {
  int n = 0;
  for (const auto& e : Entries()) {
    const bool ends = e.line.size() >= text.size() &&
                      e.line.compare(e.line.size() - text.size(), text.size(), text) == 0;
    n += (e.level == level && ends) ? 1 : 0;
  }
  return n;
}

std::vector<int> AutoHarness::Sleeps() const {
  std::vector<int> out;
  static const std::regex kSleep("Sleep: (-?[0-9]+)\n");
  const std::string text = Text();
  for (auto it = std::sregex_iterator(text.begin(), text.end(), kSleep);
       it != std::sregex_iterator(); ++it) {
    out.push_back(std::stoi((*it)[1].str()));
  }
  return out;
}

int64_t AutoHarness::TimeOf(const std::string& text, int64_t fromMs) const {
  for (const auto& e : Entries()) {
    if (e.atMs >= fromMs && e.line.find(text) != std::string::npos) return e.atMs;
  }
  return -1;
}

}  // namespace zaltor::engine::autotest
