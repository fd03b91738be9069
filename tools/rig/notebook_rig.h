#pragma once
// The service's worker on the simulated notebook in virtual time, for the tools that drive
// the engine outside the service (the benchmarks) and for the engine's tests: a scenario
// over the built-in notebook, a configuration file written into a directory of the rig's
// own, the platform's own file, profile and crypto backends confined to that directory
// (on Linux also the registry directory; on Windows a registry without keys), and a
// log-entry writer that records every finished line.
//
// The constructing thread takes part in the virtual clock's schedule for the rig's life:
// the worker's threads run only while it waits (run_for, run_until).
//
//   RigOptions o;
//   o.config = conf_ini({{"RSSICollectCount", "3"}});
//   NotebookRig rig(o);
//   rig.Init();
//   rig.worker().SetUserMode(0);
//   rig.run_for(60000);

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/worker.h"
#include "log/line_buffer.h"
#include "log/log_entry_writer.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/sim/sim_notebook.h"

namespace zaltor::rig {

// The notebook the rig starts from unless told otherwise: the built-in one in virtual
// time, without the timeline and without noise, so that every run is the same, on a
// 2.4 GHz link (channel 6) so that the default config set is in force.
extern const char* const kQuietNotebook;

struct LogEntry {
  uint8_t level;
  std::string line;
  int64_t at_ms;  // virtual time of the entry
};

// Records every finished log line with its virtual time (or, without `keep`, only counts
// the "Sleep: " lines, which mark the end of each decision pass).
class RecordingWriter final : public log::LogEntryWriter {
 public:
  RecordingWriter(platform::Clock& clock, bool keep)
      : clock_(clock), keep_(keep), sleep_line_(clock.make_event(false)) {}
  int32_t WriteLogEntry(std::string_view line, uint8_t level) override;
  std::vector<LogEntry> entries() const;
  int sleep_lines() const { return sleep_lines_.load(); }
  // Set at every "Sleep: " line (auto-reset).
  platform::Event& sleep_line() { return *sleep_line_; }

 private:
  platform::Clock& clock_;
  const bool keep_;
  std::unique_ptr<platform::Event> sleep_line_;
  std::atomic<int> sleep_lines_{0};
  mutable std::mutex lock_;
  std::vector<LogEntry> entries_;
};

// A registry without keys: the configuration version's registration only logs. Also the
// rig's registry on Windows, where the machine's registry is shared with other processes.
class NoKeysRegistry final : public platform::Registry {
 public:
  std::unique_ptr<platform::RegistryKey> open_local_machine(const std::string&,
                                                            uint32_t& error) override {
    error = platform::kRegistryNotFound;
    return nullptr;
  }
};

// Keeps what is written to the console.
class RecordingConsole final : public Console {
 public:
  void write(std::string_view text) override;
  std::string text() const;

 private:
  mutable std::mutex lock_;
  std::string text_;
};

// Keys of the settings section, by name; the values are the file's text.
using Keys = std::map<std::string, std::string>;

// A fast, complete settings section: two samples a second apart, a one-second
// stabilisation wait, ten seconds between evaluations, growth after two stable passes.
Keys base_keys();

// The switch mapping of the notebook's two switches: ports "Main" and "Aux" with counter
// letters A and B, switch IDs 0 and 1, "Main" on lines X 1 / Y 1, "Div" on 0 / 0 and "Off"
// on 1 / 0.
std::string two_switch_gpio();
// The same for four switches: ports "Main", "Aux", "Aux2", "Aux3" with letters A to D and
// switch IDs 0 to 3.
std::string four_switch_gpio();

// The configuration file: "Version", "Settings.AB12" with `keys` (over base_keys), the
// switch mapping `gpio` (empty: two_switch_gpio), and `extra_sections` verbatim.
std::string conf_ini(const Keys& keys, const std::string& extra_sections = "",
                     const std::string& gpio = "");

struct RigOptions {
  std::string base_scenario = kQuietNotebook;
  std::string scenario_patch;  // a JSON Merge Patch over base_scenario (empty: none)
  std::string config;          // written as "Conf.ini" into the rig's directory
  bool console_mode = false;
  bool keep_log = true;         // false: only the "Sleep: " lines are counted
  bool start_notebook = false;  // run the notebook's timeline and WLAN service
  // What one hardware call costs: 0, hardware that answers at once.
  int64_t hardware_call_ms = 0;
  // Called once the platform is assembled and before the worker is made, to put other
  // seams in place (fakes, wrappers around the notebook's).
  std::function<void(platform::Platform&, platform::sim::SimNotebook&)> prepare;
};

// The four-switch notebook of the decision-pass benchmark and the allocation test: sixteen
// modes, three samples per mode, every mode enabled and unweighted, 300 + 37.5 Mbps per mode
// number, one radio situation, and `eval_interval_ms` between two passes, which grows while
// the choice stays the same only with `growth`. The log keeps only the "Sleep: " lines.
RigOptions four_switch_notebook(const std::string& eval_interval_ms, bool growth);

class NotebookRig {
 public:
  // Throws std::runtime_error when the scenario is refused or no directory can be made.
  explicit NotebookRig(RigOptions options);
  ~NotebookRig();
  NotebookRig(const NotebookRig&) = delete;
  NotebookRig& operator=(const NotebookRig&) = delete;

  // The worker's Init with the rig's log; `console_config_name` as on the console command
  // line (empty: the program directory's own files).
  int32_t Init(const std::string& console_config_name = "");

  // After Init: the event window registers for the lid and the power source and receives
  // their current values at once; the lid message asks for a decision. Lets them arrive
  // (yields, so that simulated time does not move) and takes that request, so that a first
  // decision pass is not restarted by it.
  void take_start_request();

  engine::AntennaSwitchWorkerObj& worker() { return *worker_; }
  platform::sim::SimNotebook& notebook() { return *notebook_; }
  platform::Clock& clock() { return notebook_->clock(); }
  const std::string& dir() const { return dir_; }
  // The seams the worker uses; a seam that it takes at Init may still be replaced before.
  platform::Platform& platform() { return platform_; }

  // Lets the worker's threads run for `ms` of virtual time.
  void run_for(int64_t ms) { clock().sleep_ms(ms); }
  // Lets them run in `step_ms` steps until `done` holds or `limit_ms` passed; the result of
  // `done` at the end.
  bool run_until(const std::function<bool()>& done, int64_t limit_ms, int64_t step_ms = 1000);
  // Lets them run until `count` decision passes have ended ("Sleep: " lines) or `limit_ms`
  // passed; whether they have. Unlike run_until, this thread sleeps until a pass ends
  // instead of looking every step, so that it takes no turn of the clock while a pass runs
  // (what a benchmark of the pass wants).
  bool run_until_sleep_lines(int count, int64_t limit_ms);

  // Ends the event window thread (if it runs) and waits up to ten seconds of virtual time
  // for it; false when it did not end.
  bool close_event_window();

  std::vector<LogEntry> entries() const { return writer_->entries(); }
  // Every finished log line so far, run together.
  std::string text() const;
  // The log text that waits for the rest of its line (detail text before an empty line).
  std::string pending() const { return lines_.pending(); }
  int sleep_lines() const { return writer_->sleep_lines(); }
  std::string console_text() const { return console_.text(); }

 private:
  std::string dir_;
  std::unique_ptr<platform::FileSystem> files_;
  std::unique_ptr<platform::ProfileReader> profiles_;
  std::unique_ptr<platform::Crypto> crypto_;
  std::unique_ptr<platform::Registry> registry_;
  RecordingConsole console_;
  std::unique_ptr<platform::sim::SimNotebook> notebook_;
  std::unique_ptr<platform::ClockAttachment> attached_;
  std::unique_ptr<RecordingWriter> writer_;
  log::LineBuffer lines_;
  std::atomic<bool> console_flag_{false};
  platform::Platform platform_;
  std::unique_ptr<engine::AntennaSwitchWorkerObj> worker_;
};

}  // namespace zaltor::rig
