#include "rig/notebook_rig.h"

#include <filesystem>
#include <random>
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

namespace zaltor::rig {

const char* const kQuietNotebook = R"json({
  "clock": { "mode": "virtual", "speed": 1.0 },
  "wlan": { "interfaces": [
    { "description": "Wireless AX (R2) 160MHz",
      "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": true, "channel": 6 } ] },
  "radio": { "noise": 0.0 },
  "timeline": []
})json";

namespace {

// The platform's own backends of the operating-system seams that the worker reaches.
#if defined(_WIN32)
std::unique_ptr<platform::FileSystem> make_files() {
  return platform::make_win32_file_system();
}
std::unique_ptr<platform::ProfileReader> make_profiles() {
  return platform::make_private_profile_reader();
}
std::unique_ptr<platform::Crypto> make_crypto() {
  return platform::make_cng_crypto();
}

// The Windows registry is the machine's: the config tests create and delete the version key
// there while other test processes run. The worker here must find no key, as it does in the
// rig's own registry directory on Linux.
std::unique_ptr<platform::Registry> make_registry(const std::string&) {
  return std::make_unique<NoKeysRegistry>();
}
#else
std::unique_ptr<platform::FileSystem> make_files() {
  return platform::make_posix_file_system();
}
std::unique_ptr<platform::ProfileReader> make_profiles() {
  return platform::make_ini_profile_reader();
}
std::unique_ptr<platform::Crypto> make_crypto() {
  return platform::make_openssl_crypto();
}
// The registry directory confined to the rig's directory (empty: no key).
std::unique_ptr<platform::Registry> make_registry(const std::string& dir) {
  return platform::make_state_dir_registry(dir + "/registry");
}
#endif

// The platform's files, with the program directory and every relative path (the log file)
// in the rig's own directory.
class TempDirFiles final : public platform::FileSystem {
 public:
  explicit TempDirFiles(std::string dir) : dir_(std::move(dir)), inner_(make_files()) {}
  uint32_t program_directory(std::string& dir) override {
    dir = dir_;
    return 0;
  }
  std::string join(const std::string& dir, const std::string& name) override {
    return inner_->join(dir, name);
  }
  bool exists(const std::string& path) override { return inner_->exists(place(path)); }
  int check_input_file(const std::string& path) override {
    return inner_->check_input_file(place(path));
  }
  uint32_t remove(const std::string& path) override { return inner_->remove(place(path)); }
  int read_binary(const std::string& path, std::vector<uint8_t>& data, ReadStep& failed) override {
    return inner_->read_binary(place(path), data, failed);
  }
  int write_text(const std::string& path, std::string_view text, size_t& written) override {
    return inner_->write_text(place(path), text, written);
  }
  int append_utf8_text(const std::string& path, std::string_view text) override {
    return inner_->append_utf8_text(place(path), text);
  }
  int read_utf8_text(const std::string& path, std::string& text) override {
    return inner_->read_utf8_text(place(path), text);
  }

 private:
  std::string place(const std::string& path) const {
    return std::filesystem::path(path).has_root_directory() ? path : inner_->join(dir_, path);
  }
  std::string dir_;
  std::unique_ptr<platform::FileSystem> inner_;
};

// A new directory of its own under the system's temporary directory.
std::string make_temp_dir() {
  std::random_device random;
  for (int tries = 0; tries < 100; ++tries) {
    const auto dir = std::filesystem::temp_directory_path() /
                     ("zaltor-rig-" + std::to_string(random()) + std::to_string(random()));
    std::error_code ec;
    if (std::filesystem::create_directory(dir, ec)) return dir.string();
  }
  throw std::runtime_error("no temporary directory could be made");
}

}  // namespace

int32_t RecordingWriter::WriteLogEntry(std::string_view line, uint8_t level) {
  if (line.substr(0, 7) == "Sleep: ") {
    ++sleep_lines_;
    sleep_line_->set();
  }
  if (!keep_) return 0;
  const int64_t at = clock_.now_ms();
  std::lock_guard<std::mutex> g(lock_);
  entries_.push_back({level, std::string(line), at});
  return 0;
}

std::vector<LogEntry> RecordingWriter::entries() const {
  std::lock_guard<std::mutex> g(lock_);
  return entries_;
}

void RecordingConsole::write(std::string_view text) {
  std::lock_guard<std::mutex> g(lock_);
  text_ += text;
}

std::string RecordingConsole::text() const {
  std::lock_guard<std::mutex> g(lock_);
  return text_;
}

Keys base_keys() {
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

std::string two_switch_gpio() {
  return "[Settings.AB12.GPIO]\n"
         "Port_Main_PCW=A\nPort_Aux_PCW=B\nSw_Main_ID=0\nSw_Aux_ID=1\n"
         "Sw_Main_Main_X=1\nSw_Main_Main_Y=1\nSw_Main_Div_X=0\nSw_Main_Div_Y=0\n"
         "Sw_Main_Off_X=1\nSw_Main_Off_Y=0\n"
         "Sw_Aux_Main_X=1\nSw_Aux_Main_Y=1\nSw_Aux_Div_X=0\nSw_Aux_Div_Y=0\n"
         "Sw_Aux_Off_X=1\nSw_Aux_Off_Y=0\n";
}

std::string four_switch_gpio() {
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

std::string conf_ini(const Keys& keys, const std::string& extra_sections, const std::string& gpio) {
  Keys all = base_keys();
  for (const auto& [k, v] : keys) all[k] = v;
  std::string text = "[Version]\nTargetVersionMajor=2\nTargetVersionMinor=0\n\n[Settings.AB12]\n";
  for (const auto& [k, v] : all) text += k + "=" + v + "\n";
  text += "\n" + (gpio.empty() ? two_switch_gpio() : gpio);
  text += extra_sections;
  return text;
}

RigOptions four_switch_notebook(const std::string& eval_interval_ms, bool growth) {
  RigOptions o;
  o.keep_log = false;
  Keys keys = {{"RSSICollectCount", "3"}, {"BaseSleepIntervalBetweenEval", eval_interval_ms}};
  if (!growth) keys["DeterminatorStableTimesForExp"] = "0";
  for (int m = 5; m <= 16; ++m) {
    keys["RSSIWeightForMode_" + std::to_string(m)] = "0.0";
    keys["DisableMode_" + std::to_string(m)] = "0";
  }
  o.config = conf_ini(keys, "", four_switch_gpio());
  nlohmann::json rates = nlohmann::json::array();
  for (int m = 0; m < 16; ++m) rates.push_back(300.0 + 37.5 * m);
  static constexpr int kMain[4] = {-55, -70, -66, -60};
  static constexpr int kDiv[4] = {-62, -58, -61, -64};
  nlohmann::json rssi = nlohmann::json::array();
  for (int p = 0; p < 4; ++p) rssi.push_back({{"Main", kMain[p]}, {"Div", kDiv[p]}});
  const nlohmann::json patch = {
      {"firmware", {{"switchCount", 4}, {"lines", 255}}},
      {"counters", {{"A", 0}, {"B", 1}, {"C", 2}, {"D", 3}}},
      {"radio", {{"rssi", rssi}, {"rateMbps", rates}}},
  };
  o.scenario_patch = patch.dump();
  return o;
}

NotebookRig::NotebookRig(RigOptions options) : dir_(make_temp_dir()) {
  files_ = std::make_unique<TempDirFiles>(dir_);
  profiles_ = make_profiles();
  crypto_ = make_crypto();
  registry_ = make_registry(dir_);
  if (!options.config.empty()) {
    size_t written = 0;
    files_->write_text("Conf.ini", options.config, written);
  }

  nlohmann::json scenario = nlohmann::json::parse(options.base_scenario);
  if (!options.scenario_patch.empty()) {
    scenario.merge_patch(nlohmann::json::parse(options.scenario_patch));
  }
  std::string error;
  notebook_ = platform::sim::make_sim_notebook_from_text(scenario.dump(), error);
  if (!notebook_) throw std::runtime_error(error);
  notebook_->set_hardware_call_ms(options.hardware_call_ms);
  attached_ = std::make_unique<platform::ClockAttachment>(notebook_->clock());
  writer_ = std::make_unique<RecordingWriter>(notebook_->clock(), options.keep_log);
  console_flag_.store(options.console_mode);

  platform_.clock = &notebook_->clock();
  platform_.console = &console_;
  platform_.control_device = &notebook_->control_device();
  platform_.board = &notebook_->board();
  platform_.devices = &notebook_->devices();
  platform_.wlan = &notebook_->wlan();
  platform_.counters = &notebook_->counters();
  platform_.system_events = &notebook_->system_events();
  platform_.files = files_.get();
  platform_.profiles = profiles_.get();
  platform_.crypto = crypto_.get();
  platform_.registry = registry_.get();
  if (options.prepare) options.prepare(platform_, *notebook_);
  // The notebook's threads run only while this thread waits, so starting them before the
  // worker exists changes nothing of what they see.
  if (options.start_notebook) notebook_->start();
  worker_ = std::make_unique<engine::AntennaSwitchWorkerObj>(platform_);
}

NotebookRig::~NotebookRig() {
  worker_->stop_and_join_auto_threads();
  // The event window thread is detached: end its message loop and wait for it, and let a
  // WLAN notification in hand (with its Bluetooth settle) finish, before the worker and the
  // notebook go.
  close_event_window();
  clock().sleep_ms(5000);
  engine::forget_remembered_worker();
  worker_->teardown();
  worker_.reset();
  attached_.reset();
  notebook_.reset();
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

int32_t NotebookRig::Init(const std::string& console_config_name) {
  log::LogContext context;
  context.lines = &lines_;
  context.writer = writer_.get();
  context.console = &console_flag_;
  return worker_->Init(context, console_config_name);
}

void NotebookRig::take_start_request() {
  for (int i = 0; i < 3; ++i) clock().sleep_ms(0);
  worker_->consume_reevaluation();
}

bool NotebookRig::run_until(const std::function<bool()>& done, int64_t limit_ms, int64_t step_ms) {
  for (int64_t t = 0; t < limit_ms && !done(); t += step_ms) clock().sleep_ms(step_ms);
  return done();
}

bool NotebookRig::run_until_sleep_lines(int count, int64_t limit_ms) {
  const int64_t end = clock().now_ms() + limit_ms;
  while (sleep_lines() < count) {
    const int64_t left = end - clock().now_ms();
    if (left <= 0) return false;
    writer_->sleep_line().wait(left);
  }
  return true;
}

bool NotebookRig::close_event_window() {
  notebook_->close_windows();
  for (int i = 0; i < 1000 && engine::event_window_threads_running() > 0; ++i) clock().sleep_ms(10);
  return engine::event_window_threads_running() == 0;
}

std::string NotebookRig::text() const {
  std::string all;
  for (const auto& e : entries()) all += e.line;
  return all;
}

}  // namespace zaltor::rig
