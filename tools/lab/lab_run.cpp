#include "lab/lab_run.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>

#include "config/config_loader.h"
#include "config/config_report.h"
#include "config/configuration.h"
#include "engine/system_events.h"
#include "engine/worker.h"
#include "lab/lab_truth.h"
#include "log/line_buffer.h"
#include "log/log_entry_writer.h"
#include "platform/log.h"
#include "platform/posix/posix_backends.h"
#include "platform/program_directory_files.h"
#include "platform/registry.h"
#include "platform/sim/sim_notebook.h"
#include "rig/notebook_rig.h"

namespace zaltor::lab {
namespace {

using nlohmann::json;

class NullConsole final : public Console {
 public:
  void write(std::string_view) override {}
};

class NullLog final : public Log {
 public:
  void vwrite(uint8_t, const char*, va_list) override {}
};

// Collects the text of every call.
class TextLog final : public Log {
 public:
  void vwrite(uint8_t, const char* fmt, va_list ap) override { text += vformat(fmt, ap); }
  std::string text;
};

class NullEntries final : public log::LogEntryWriter {
 public:
  int32_t WriteLogEntry(std::string_view, uint8_t) override { return 0; }
};

// Plain configuration text holds no control characters other than tab, CR, LF and ^Z; a
// ciphertext practically never is free of them.
bool looks_like_text(const std::vector<uint8_t>& data) {
  for (uint8_t b : data) {
    if ((b < 0x20 && b != '\t' && b != '\r' && b != '\n' && b != 0x1a) || b == 0x7f) return false;
  }
  return true;
}

std::filesystem::path make_run_directory() {
  std::random_device rd;
  const auto base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    const auto dir = base / ("antennactl-lab-" + std::to_string(rd()));
    std::error_code ec;
    if (std::filesystem::create_directory(dir, ec)) return dir;
  }
  return {};
}

bool write_whole_file(const std::filesystem::path& path, const std::vector<uint8_t>& data) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  return static_cast<bool>(out);
}

// Watches the worker's log calls and the firmware's switch writes, and tells measuring
// writes from the writes that put a mode in use (see lab_trace.h).
class Recorder final : public Log {
 public:
  static constexpr int64_t kBurstMs = 10;

  explicit Recorder(platform::Clock& clock) : clock_(clock) {}

  void vwrite(uint8_t, const char* fmt, va_list ap) override {
    const std::string text = vformat(fmt, ap);
    const int64_t now = clock_.now_ms();
    std::lock_guard<std::mutex> g(m_);
    if (keep_log_) log_ += text;
    if (text.find("Using Config Set: ") != std::string::npos) {
      trace_.passes.push_back({now, -1, 0, false, {}});
      in_pass_ = true;
      in_averages_ = false;
      decided_ = false;
      return;
    }
    if (!in_pass_ || trace_.passes.empty()) return;
    PassRecord& pass = trace_.passes.back();
    // The averages follow "Avg RSSI: " one mode per call; the weighted list that comes
    // next has the same shape and is not taken.
    if (text.rfind("Avg RSSI: ", 0) == 0) {
      in_averages_ = true;
      return;
    }
    if (in_averages_) {
      Measured m;
      if (std::sscanf(text.c_str(), "#%d)%lf (%lf), ", &m.mode, &m.rssi, &m.rate) == 3) {
        pass.measured.push_back(m);
        return;
      }
      if (text.rfind("#", 0) != 0) in_averages_ = false;
    }
    const char* decision = nullptr;
    if (text.rfind("Determined mode: ", 0) == 0) decision = "Determined mode: ";
    if (text.rfind("Determined mode[B]: ", 0) == 0) decision = "Determined mode[B]: ";
    if (decision != nullptr) {
      decided_ = true;
      pass.chosen = std::atoi(text.c_str() + std::strlen(decision));
      if (text.find("(Fallback)") != std::string::npos) pass.fallback = true;
    }
  }

  void on_switch(int64_t at_ms, int mode) {
    std::lock_guard<std::mutex> g(m_);
    const bool measuring = in_pass_ && !decided_;
    if (in_pass_ && decided_) {
      in_pass_ = false;
      if (!trace_.passes.empty()) trace_.passes.back().end_ms = at_ms;
    }
    // One change of mode drives each switch's lines in turn: writes a few milliseconds
    // apart with the same role are one change, to the mode the last of them forms.
    if (!trace_.switches.empty()) {
      SwitchEvent& last = trace_.switches.back();
      if (last.measuring == measuring && at_ms - last.at_ms <= kBurstMs) {
        last.mode = mode;
        return;
      }
    }
    trace_.switches.push_back({at_ms, mode, measuring});
  }

  void keep_log(std::string initial) {
    std::lock_guard<std::mutex> g(m_);
    keep_log_ = true;
    log_ = std::move(initial);
  }
  std::string take_log() {
    std::lock_guard<std::mutex> g(m_);
    return log_;
  }

  Trace take() {
    std::lock_guard<std::mutex> g(m_);
    return trace_;
  }

 private:
  platform::Clock& clock_;
  std::mutex m_;
  Trace trace_;
  bool in_pass_ = false;
  bool decided_ = false;
  bool in_averages_ = false;
  bool keep_log_ = false;
  std::string log_;
};

}  // namespace

bool prepare_scenario(const std::string& text, const std::string& model, std::string& prepared,
                      std::string& error) {
  json doc = json::parse(text, nullptr, false);
  if (doc.is_discarded() || !doc.is_object()) {
    error = "not a JSON object";
    return false;
  }
  if (!doc.contains("stopAfter") || !doc["stopAfter"].is_number() ||
      doc["stopAfter"].get<double>() <= 0) {
    error = "stopAfter: a lab run needs the scenario's end in seconds";
    return false;
  }
  doc["clock"] = {{"mode", "virtual"}};
  if (!model.empty()) doc["board"]["products"] = json::array({model});
  prepared = doc.dump();
  return true;
}

bool load_truth_for_run(const std::string& text, const std::string& model, Truth& truth,
                        std::string& error) {
  std::string prepared;
  return prepare_scenario(text, model, prepared, error) && truth.load(prepared, error);
}

bool read_whole_file(const std::string& path, std::vector<uint8_t>& data) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return false;
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

RunResult run_one(const RunRequest& request) {
  RunResult r;
  std::vector<uint8_t> scenario;
  std::vector<uint8_t> config;
  if (!read_whole_file(request.scenario_path, scenario)) {
    r.error = "scenario " + request.scenario_path + ": cannot be read";
    return r;
  }
  if (!read_whole_file(request.config_path, config)) {
    r.error = "configuration " + request.config_path + ": cannot be read";
    return r;
  }
  return run_one_text(std::string(scenario.begin(), scenario.end()), request.scenario_path, config,
                      request.config_path, request.model, request.figures);
}

RunResult run_one_text(const std::string& scenario_text, const std::string& scenario_name,
                       const std::vector<uint8_t>& config_bytes, const std::string& config_name,
                       const std::string& model, bool figures, bool keep_log) {
  RunResult r;
  const std::string scenario_what = "scenario " + scenario_name + ": ";
  const std::string config_what = "configuration " + config_name + ": ";

  std::string text;
  std::string error;
  if (!prepare_scenario(scenario_text, model, text, error)) {
    r.error = scenario_what + error;
    return r;
  }
  Truth truth;
  if (!truth.load(text, error)) {
    r.error = scenario_what + error;
    return r;
  }
  auto notebook = platform::sim::make_sim_notebook_from_text(text, error);
  if (!notebook) {
    r.error = scenario_what + error;
    return r;
  }
  const platform::sim::Scenario sc = notebook->scenario();
  const int64_t end_ms = static_cast<int64_t>(std::llround(*sc.stop_after_s * 1000.0));

  // The configuration, checked first so that a refusal names it.
  const std::filesystem::path dir = make_run_directory();
  if (dir.empty()) {
    r.error = "cannot create a run directory";
    return r;
  }
  struct RemoveDir {
    std::filesystem::path p;
    ~RemoveDir() {
      std::error_code ec;
      std::filesystem::remove_all(p, ec);
    }
  } remove_dir{dir};
  const bool plain = looks_like_text(config_bytes);
  if (!write_whole_file(dir / (plain ? config::kPlainFileName : config::kCipherFileName),
                        config_bytes)) {
    r.error = config_what + "cannot be copied to the run directory";
    return r;
  }
  auto real_files = platform::make_posix_file_system();
  // The loader finds the configuration in the run's own directory, as the service finds
  // its own in its program directory, and writes the decrypted copy of an encrypted one
  // there; no log file: the lab reads the worker's log calls themselves.
  platform::ProgramDirectoryFiles files(*real_files, dir.string(), /*keep_appends=*/false);
  auto profiles = platform::make_ini_profile_reader();
  auto crypto = platform::make_openssl_crypto();
  NullConsole console;
  rig::NoKeysRegistry registry;
  std::string config_report;
  {
    NullLog quiet;
    config::LoadContext ctx;
    ctx.files = &files;
    ctx.profiles = profiles.get();
    ctx.crypto = crypto.get();
    ctx.log = &quiet;
    ctx.console = &console;
    config::Configuration cfg;
    const std::string product = sc.products.empty() ? std::string() : sc.products.front();
    const auto switches = static_cast<int32_t>(std::min<uint32_t>(sc.firmware.switch_count, 4));
    const Status st = config::load_configuration(ctx, product, switches, cfg);
    if (st != SWITCH_OK) {
      r.error = config_what + "refused for model " + product + " (result " +
                std::to_string(static_cast<unsigned>(st)) + ")";
      return r;
    }
    if (keep_log) {
      // The report the worker writes at its start, which its log file would begin with.
      TextLog report;
      config::write_config_report(report, cfg, 1u << switches, switches);
      config_report = report.text;
    }
  }

  platform::Platform p;
  p.clock = &notebook->clock();
  p.console = &console;
  p.control_device = &notebook->control_device();
  p.board = &notebook->board();
  p.devices = &notebook->devices();
  p.wlan = &notebook->wlan();
  p.counters = &notebook->counters();
  p.system_events = &notebook->system_events();
  p.files = &files;
  p.profiles = profiles.get();
  p.crypto = crypto.get();
  p.registry = &registry;

  Recorder recorder(notebook->clock());
  if (keep_log) recorder.keep_log(config_report);
  notebook->set_switch_observer(
      [&recorder](int64_t at_ms, int mode) { recorder.on_switch(at_ms, mode); });
  const int initial_mode = notebook->mode();

  log::LineBuffer lines;
  NullEntries entries;
  log::LogContext context;
  context.lines = &lines;
  context.writer = &entries;
  {
    platform::ClockAttachment attached(notebook->clock());
    notebook->start();
    auto worker = std::make_unique<engine::AntennaSwitchWorkerObj>(p);
    const int32_t init = worker->Init(context, "");
    if (init != 0) {
      r.error = scenario_what + "the service did not start on it with " + config_name +
                " (result " + std::to_string(init) + ")";
    } else {
      // From here on the lab reads the worker's log calls as they are made.
      worker->redirect_log(&recorder);
      worker->SetUserMode(0);
      const int64_t now = notebook->clock().now_ms();
      if (end_ms > now) notebook->clock().sleep_ms(end_ms - now);
      r.ok = true;
    }
    worker->stop_and_join_auto_threads();
    notebook->close_windows();
    for (int i = 0; i < 1000 && engine::event_window_threads_running() > 0; ++i) {
      notebook->clock().sleep_ms(10);
    }
    // Let a WLAN notification being handled (with its Bluetooth settle) finish.
    notebook->clock().sleep_ms(5000);
    engine::forget_remembered_worker();
    worker->detach_log();
    worker->teardown();
    worker.reset();
  }
  notebook->set_switch_observer(nullptr);
  if (!r.ok) return r;

  r.trace = recorder.take();
  if (keep_log) r.log_text = recorder.take_log();
  r.trace.end_ms = end_ms;
  r.trace.initial_mode = initial_mode;
  // Writes during the teardown lie beyond the run.
  while (!r.trace.switches.empty() && r.trace.switches.back().at_ms > end_ms) {
    r.trace.switches.pop_back();
  }
  if (figures) r.figures = compute_figures(truth, r.trace);
  return r;
}

}  // namespace zaltor::lab
