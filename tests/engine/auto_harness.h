#pragma once
// The worker on the simulated notebook in virtual time, for the tests of the auto loop and
// the measurement: a scenario over the built-in notebook (virtual clock, no timeline, no
// noise), a configuration file written for the test, the platform's own file, profile and
// crypto backends confined to a temporary directory (on Linux also the registry directory;
// on Windows a registry without keys, see auto_harness.cpp), and a log-entry writer that
// records every finished line as the console shows it.
//
// The test thread takes part in the virtual clock's schedule for the harness's life: the
// worker's threads run only while it waits (RunFor, RunUntil).

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
#include "platform/sim/sim_notebook.h"

namespace zaltor::engine {

// The worker's private bookkeeping, for tests.
class WorkerTestAccess {
 public:
  static size_t ThreadsStarted(AntennaSwitchWorkerObj& w) {
    std::lock_guard<std::mutex> g(w.autoLock_);
    return w.threads_.size();
  }
  static std::shared_ptr<AutoSwitchingWorkerArg> AutoArg(AntennaSwitchWorkerObj& w) {
    std::lock_guard<std::mutex> g(w.autoLock_);
    return w.autoArg_;
  }
};

namespace autotest {

struct LogEntry {
  uint8_t level;
  std::string line;
  int64_t atMs;  // virtual time of the entry
};

class RecordingWriter final : public log::LogEntryWriter {
 public:
  RecordingWriter(platform::Clock& clock, bool keep) : clock_(clock), keep_(keep) {}
  int32_t WriteLogEntry(std::string_view line, uint8_t level) override;
  std::vector<LogEntry> Entries() const;
  // Lines that begin with "Sleep: ", kept or not.
  int SleepLines() const { return sleepLines_.load(); }

 private:
  platform::Clock& clock_;
  const bool keep_;
  std::atomic<int> sleepLines_{0};
  mutable std::mutex lock_;
  std::vector<LogEntry> entries_;
};

// Keys of the settings section, by name; the values are the file's text.
using Keys = std::map<std::string, std::string>;

// A fast, complete settings section: two samples a second apart, a one-second
// stabilisation wait, ten seconds between evaluations, growth after two stable passes.
Keys BaseKeys();

// The switch mapping of the notebook's two switches: ports "Main" and "Aux" with counter
// letters A and B, switch IDs 0 and 1, "Main" on lines X 1 / Y 1, "Div" on 0 / 0 and "Off"
// on 1 / 0.
std::string TwoSwitchGpio();
// The same for four switches: ports "Main", "Aux", "Aux2", "Aux3" with letters A to D and
// switch IDs 0 to 3.
std::string FourSwitchGpio();

// The configuration file: "Version", "Settings.AB12" with `keys` (over BaseKeys), the
// switch mapping `gpio` (empty: TwoSwitchGpio), and `extraSections` verbatim.
std::string ConfIni(const Keys& keys, const std::string& extraSections = "",
                    const std::string& gpio = "");

// Counters that pass everything to the notebook's but can hold the link speed at 0 and
// call a hook on every collection (to stop or interrupt a measurement from inside).
class ScriptedCounters final : public platform::Counters {
 public:
  explicit ScriptedCounters(platform::Counters& inner) : inner_(inner) {}
  std::unique_ptr<platform::CounterQuery> open_query(uint32_t& error) override;

  std::atomic<bool> zeroRate{false};
  std::atomic<int64_t> fixedRateBps{-1};  // >= 0: the link speed reads this value
  std::atomic<int> collections{0};
  std::function<void(int collection)> onCollect;  // set before the worker starts

 private:
  platform::Counters& inner_;
};

// A control device that passes every request to the notebook's. It counts the control
// writes and those whose read-back by the same thread differs from the value written
// (another writer came between the write and its check: the write ends in 7), and can call
// a hook before each control write (to act while a write sequence is under way).
class ScriptedDevice final : public platform::ControlDevice {
 public:
  explicit ScriptedDevice(platform::ControlDevice& inner) : inner_(inner) {}
  std::unique_ptr<platform::ControlDeviceHandle> open(const std::string& path,
                                                      uint32_t& error) override;

  std::atomic<int> writes{0};
  std::atomic<int> verifyMismatches{0};
  std::function<void()> beforeWrite;  // set before the worker starts

 private:
  platform::ControlDevice& inner_;
};

struct HarnessOptions {
  Keys keys;                         // over BaseKeys
  std::string extraSections;         // appended to the configuration file
  std::string scenarioPatch = "{}";  // JSON merge patch over the test notebook
  bool consoleMode = false;
  bool scriptedCounters = false;  // put ScriptedCounters between the worker and the notebook
  bool scriptedDevice = false;    // put ScriptedDevice between the worker and the notebook
  std::string gpio;               // the switch mapping section; empty: TwoSwitchGpio()
  bool keepLog = true;            // false: only the "Sleep: " lines are counted
  bool startNotebook = false;     // run the notebook's timeline and WLAN service
  // What one hardware call costs: 0, hardware that answers at once, so that the tests count
  // the loop's own waits to the millisecond.
  int64_t hardwareCallMs = 0;
};

class AutoHarness {
 public:
  explicit AutoHarness(HarnessOptions options = {});
  ~AutoHarness();
  AutoHarness(const AutoHarness&) = delete;
  AutoHarness& operator=(const AutoHarness&) = delete;

  int32_t Init();

  AntennaSwitchWorkerObj& worker() { return *worker_; }
  platform::sim::SimNotebook& notebook() { return *notebook_; }
  platform::Clock& clock() { return notebook_->clock(); }
  ScriptedCounters& scripted() { return *scripted_; }
  ScriptedDevice& device() { return *device_; }
  const std::string& dir() const { return dir_; }

  // Lets the worker's threads run for `ms` of virtual time.
  void RunFor(int64_t ms);
  // Lets them run in one-second steps until `done` holds or `limitMs` passed; the result
  // of `done` at the end.
  bool RunUntil(const std::function<bool()>& done, int64_t limitMs);

  // Starts a thread of the virtual clock that runs `action` after `ms` of virtual time.
  std::unique_ptr<platform::Thread> After(int64_t ms, std::function<void()> action);

  // The log text that waits for the rest of its line (detail text before an empty line).
  std::string Pending() const { return lines_.pending(); }

  // Every finished log line so far, and their text run together.
  std::vector<LogEntry> Entries() const { return writer_->Entries(); }
  std::string Text() const;
  // The entries as the console shows them: "<level>: <line>" each.
  std::string ConsoleText() const;
  // How many entries at `level` end with `text`: a line takes the level of the call that
  // finished it, and detail text pending before that call begins the same entry.
  int Count(uint8_t level, const std::string& text) const;
  // The values of the "Sleep: %d" lines, in order.
  std::vector<int> Sleeps() const;
  // How many "Sleep: " lines were written (also without keepLog).
  int SleepLines() const { return writer_->SleepLines(); }
  // Virtual time of the first entry at or after `fromMs` that contains `text`; -1 when
  // none. (Detail text gathers into one entry until an empty line ends it.)
  int64_t TimeOf(const std::string& text, int64_t fromMs = 0) const;

 private:
  std::string dir_;
  std::unique_ptr<platform::FileSystem> files_;
  std::unique_ptr<platform::ProfileReader> profiles_;
  std::unique_ptr<platform::Crypto> crypto_;
  std::unique_ptr<platform::Registry> registry_;
  std::unique_ptr<Console> console_;
  std::unique_ptr<platform::sim::SimNotebook> notebook_;
  std::unique_ptr<ScriptedCounters> scripted_;
  std::unique_ptr<ScriptedDevice> device_;
  std::unique_ptr<RecordingWriter> writer_;
  log::LineBuffer lines_;
  std::atomic<bool> consoleFlag_{false};
  platform::Platform platform_;
  std::unique_ptr<AntennaSwitchWorkerObj> worker_;
};

}  // namespace autotest
}  // namespace zaltor::engine
