#include "platform/sim/sim_notebook.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/file_system.h"
#include "platform/sim/notebook_core.h"
#include "platform/sim/sim_clocks.h"
#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {

SimNotebook::SimNotebook(std::unique_ptr<Clock> clock, nlohmann::json doc, Scenario scenario)
    : clock_(std::move(clock)),
      core_(std::make_shared<NotebookCore>(*clock_, std::move(doc), std::move(scenario))),
      control_device_(make_sim_control_device(*core_)),
      board_(make_sim_board(*core_)),
      devices_(make_sim_device_lists(*core_)),
      wlan_(make_sim_wlan(*core_)),
      counters_(make_sim_counters(*core_)),
      system_events_(make_sim_system_events(*core_)),
      stop_(clock_->make_event(true)) {}

SimNotebook::~SimNotebook() {
  stop_->set();
  core_->stop_wlan_service();
  if (timeline_thread_) timeline_thread_->join();
  if (wlan_thread_) wlan_thread_->join();
  close_windows();
}

void SimNotebook::start() {
  if (timeline_thread_) return;
  timeline_thread_ = clock_->start_thread("sim timeline", [this] { run_timeline(); });
  wlan_thread_ = clock_->start_thread("sim wlan service", [this] { core_->run_wlan_service(); });
}

void SimNotebook::set_stop_hook(std::function<void()> hook) {
  std::lock_guard<std::mutex> g(core_->mutex);
  stop_hook_ = std::move(hook);
}

void SimNotebook::run_timeline() {
  std::vector<TimelineEntry> entries;
  std::optional<double> stop_after;
  {
    std::lock_guard<std::mutex> g(core_->mutex);
    entries = core_->scenario.timeline;
    stop_after = core_->scenario.stop_after_s;
  }
  size_t next = 0;
  for (;;) {
    // The next thing due: a timeline entry, or the end of the run (after the entries
    // due at the same moment).
    const bool entry_due =
        next < entries.size() && (!stop_after || entries[next].at_s <= *stop_after);
    if (!entry_due && !stop_after) return;
    const double at_s = entry_due ? entries[next].at_s : *stop_after;
    const auto at_ms = static_cast<int64_t>(std::llround(at_s * 1000.0));
    const int64_t wait = at_ms - clock_->now_ms();
    if (wait > 0 && stop_->wait(wait)) return;
    if (stop_->wait(0)) return;
    if (entry_due) {
      std::string error;
      // Every patch was checked at load against the same sequence; a failure here can
      // only come from a patch applied by hand in between, and leaves the state as it was.
      core_->apply_patch(entries[next].patch, error);
      ++next;
      continue;
    }
    std::function<void()> hook;
    {
      std::lock_guard<std::mutex> g(core_->mutex);
      hook = stop_hook_;
    }
    if (hook) hook();
    return;
  }
}

void SimNotebook::set_switch_observer(std::function<void(int64_t at_ms, int mode)> observer) {
  std::lock_guard<std::mutex> g(core_->mutex);
  core_->switch_observer = std::move(observer);
}

void SimNotebook::set_hardware_call_ms(int64_t ms) {
  core_->set_call_ms(ms);
}

Scenario SimNotebook::scenario() {
  std::lock_guard<std::mutex> g(core_->mutex);
  return core_->scenario;
}

uint32_t SimNotebook::lines() {
  std::lock_guard<std::mutex> g(core_->mutex);
  return core_->scenario.firmware.lines;
}

int SimNotebook::position(int id) {
  std::lock_guard<std::mutex> g(core_->mutex);
  return core_->position_locked(id);
}

int SimNotebook::mode() {
  std::lock_guard<std::mutex> g(core_->mutex);
  return core_->mode_locked();
}

bool SimNotebook::apply_patch(const nlohmann::json& patch, std::string& error) {
  return core_->apply_patch(patch, error);
}

void SimNotebook::close_windows() {
  std::lock_guard<std::mutex> g(core_->mutex);
  core_->windows_closed = true;
  WindowMessage destroy;
  destroy.kind = WindowMessage::kDestroy;
  core_->post_window_locked(destroy, false, false);
}

std::unique_ptr<SimNotebook> make_sim_notebook_from_text(const std::string& text,
                                                         std::string& error) {
  nlohmann::json doc;
  Scenario scenario;
  if (!load_scenario(text, doc, scenario, error)) return nullptr;
  auto clock = make_sim_clock(scenario.clock_mode, scenario.speed);
  if (!clock) {
    error = "scenario: clock: cannot be made";
    return nullptr;
  }
  return std::make_unique<SimNotebook>(std::move(clock), std::move(doc), std::move(scenario));
}

std::unique_ptr<SimNotebook> make_sim_notebook(const std::string& scenario_path_or_empty,
                                               std::string& error) {
  if (scenario_path_or_empty.empty()) return make_sim_notebook_from_text("", error);
  const std::u8string u8(scenario_path_or_empty.begin(), scenario_path_or_empty.end());
  const std::filesystem::path path(u8);
  const std::string cannot_read = "scenario: cannot read " + scenario_path_or_empty;
  // A directory opens as a stream on Linux and reads as nothing: refuse it as unreadable
  // rather than run the default. A file far beyond any scenario is refused unread.
  std::error_code ec;
  const auto status = std::filesystem::status(path, ec);
  if (!ec && std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    error = cannot_read;
    return nullptr;
  }
  if (!ec && std::filesystem::is_regular_file(status)) {
    const uintmax_t size = std::filesystem::file_size(path, ec);
    if (!ec && size > kMaxInputFileBytes) {
      error = cannot_read + ": larger than " + std::to_string(kMaxInputFileBytes) + " bytes";
      return nullptr;
    }
  }
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  if (in) text << in.rdbuf();
  if (!in) {
    error = cannot_read;
    return nullptr;
  }
  // An empty file still means a scenario: an empty object takes every default.
  std::string body = text.str();
  if (body.find_first_not_of(" \t\r\n") == std::string::npos) body = "{}";
  auto notebook = make_sim_notebook_from_text(body, error);
  // The message names the member at fault; the file it is in goes at the end.
  if (!notebook) error += " (in " + scenario_path_or_empty + ")";
  return notebook;
}

}  // namespace zaltor::platform::sim
