#pragma once
// The engine's test harness: the whole worker on the simulated notebook in virtual time
// (the rig of tools/rig), with the log, the console and, on request, the counters and the
// control device watched. The test's thread takes part in the notebook's clock for the
// harness's life: the worker's threads run only while it waits (run_for, run_until, the
// Wait... calls).
//
// Two notebooks to start from, one harness:
// - AutoHarness: the quiet built-in notebook on channel 6 with a configuration file built
//   from keys (base_keys), written into the rig's directory and read with the platform's
//   own file, INI and crypto backends;
//
//     AutoHarness h;                      // HarnessOptions: keys, scenario patch, fakes
//     ASSERT_EQ(h.Init(), 0);
//     h.worker().SetUserMode(0);
//     h.run_until([&] { return h.sleep_lines() >= 1; }, 60000);
//
// - EngineOnNotebook: the story notebook (kTestScenario: channel 36, a connected headset,
//   the lid open, mains power) with kTestConfig read from memory as the console's
//   "test.ini", each config set with its own stabilisation wait.
//
//     EngineOnNotebook nb(R"({"lid": {"open": false}})");  // a patch of kTestScenario
//     ASSERT_EQ(nb.Init(), 0);
//     nb.sleep_until(5000);
//     EXPECT_TRUE(nb.log_contains("CONFIG changed! 0 -> 3\n"));

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/worker.h"
#include "platform/platform.h"
#include "platform/sim/sim_notebook.h"
#include "platform/system_events.h"
#include "rig/notebook_rig.h"

namespace zaltor::engine {

// The worker's private bookkeeping, for tests.
class WorkerTestAccess {
 public:
  static size_t threads_started(AntennaSwitchWorkerObj& w) {
    std::lock_guard<std::mutex> g(w.auto_lock_);
    return w.threads_.size();
  }
  static std::shared_ptr<AutoSwitchingWorkerArg> auto_arg(AntennaSwitchWorkerObj& w) {
    std::lock_guard<std::mutex> g(w.auto_lock_);
    return w.auto_arg_;
  }
};

namespace testing {

using rig::base_keys;
using rig::conf_ini;
using rig::four_switch_gpio;
using rig::Keys;
using rig::LogEntry;
using rig::two_switch_gpio;

// The configuration of the story notebook (model AB12XY, two switches): every set measures
// three samples except the lid-closed set (two), and each set has its own stabilisation
// wait so that a pass shows which set it ran with.
extern const std::string kTestConfig;
// The story notebook: a two-switch AB12XY notebook on channel 36 with a connected headset,
// lid open, mains power, both antennas at -50 dBm in every position, 866.7 Mbps in every
// mode, no timeline.
extern const char* const kTestScenario;

// Counters that pass everything to the notebook's but can hold the link speed at 0 and
// call a hook on every collection (to stop or interrupt a measurement from inside).
class ScriptedCounters final : public platform::Counters {
 public:
  explicit ScriptedCounters(platform::Counters& inner) : inner_(inner) {}
  std::unique_ptr<platform::CounterQuery> open_query(uint32_t& error) override;

  std::atomic<bool> zero_rate{false};
  std::atomic<int64_t> fixed_rate_bps{-1};  // >= 0: the link speed reads this value
  std::atomic<int> collections{0};
  std::function<void(int collection)> on_collect;  // set before the worker starts

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
  std::atomic<int> verify_mismatches{0};
  std::function<void()> before_write;  // set before the worker starts

 private:
  platform::ControlDevice& inner_;
};

struct HarnessOptions {
  Keys keys;                          // over base_keys
  std::string extra_sections;         // appended to the configuration file
  std::string scenario_patch = "{}";  // JSON merge patch over the test notebook
  bool console_mode = false;
  bool scripted_counters = false;  // put ScriptedCounters between the worker and the notebook
  bool scripted_device = false;    // put ScriptedDevice between the worker and the notebook
  std::string gpio;                // the switch mapping section; empty: two_switch_gpio()
  bool keep_log = true;            // false: only the "Sleep: " lines are counted
  bool start_notebook = false;     // run the notebook's timeline and WLAN service
  // What one hardware call costs: 0, hardware that answers at once, so that the tests count
  // the loop's own waits to the millisecond.
  int64_t hardware_call_ms = 0;
  // The story notebook instead (see EngineOnNotebook): `story_config` read from memory.
  bool story = false;
  std::string story_config;
};

class EngineHarness {
 public:
  explicit EngineHarness(HarnessOptions options);
  ~EngineHarness();
  EngineHarness(const EngineHarness&) = delete;
  EngineHarness& operator=(const EngineHarness&) = delete;

  // Replaces the system events seam before Init (for fakes).
  void use_system_events(platform::SystemEvents* events) {
    rig_->platform().system_events = events;
  }

  // Initialises the worker and lets the event window take its first messages (the current
  // lid and power values). The quiet notebook then takes the decision request of the lid
  // message, so that a test's first pass is not restarted by it; the story notebook lets
  // 10 ms pass, so that the test starts from a settled worker.
  int32_t Init();

  AntennaSwitchWorkerObj& worker() { return rig_->worker(); }
  platform::sim::SimNotebook& notebook() { return rig_->notebook(); }
  platform::Clock& clock() { return rig_->clock(); }
  ScriptedCounters& scripted() { return *scripted_; }
  ScriptedDevice& device() { return *device_; }
  const std::string& dir() const { return rig_->dir(); }

  // --- Time.
  int64_t now() { return clock().now_ms(); }
  // Lets the worker's threads run for `ms` of virtual time.
  void run_for(int64_t ms) { rig_->run_for(ms); }
  void sleep_until(int64_t ms);
  // Lets them run in one-second steps until `done` holds or `limit_ms` passed; the result
  // of `done` at the end.
  bool run_until(const std::function<bool()>& done, int64_t limit_ms) {
    return rig_->run_until(done, limit_ms);
  }
  // Starts a thread of the virtual clock that runs `action` after `ms` of virtual time.
  std::unique_ptr<platform::Thread> after(int64_t ms, std::function<void()> action);

  // Applies a JSON Merge Patch to the notebook now; fails the test when it is invalid.
  void patch(const std::string& json);
  // Ends the event window thread (if it runs) and waits for it; fails the test when it
  // does not end.
  void close_event_window();

  // --- The log.
  // Every finished log line so far, and their text run together.
  std::vector<LogEntry> entries() const { return rig_->entries(); }
  std::string text() const { return rig_->text(); }
  // The log text that waits for the rest of its line (detail text before an empty line).
  std::string pending() const { return rig_->pending(); }
  bool log_contains(const std::string& text) const {
    return this->text().find(text) != std::string::npos;
  }
  // How many times `text` stands in the finished lines (within one line each).
  size_t log_count(const std::string& text) const;
  // The entries as the console shows them: "<level>: <line>" each.
  std::string levelled_text() const;
  // What the worker wrote to the console.
  std::string console_text() const { return rig_->console_text(); }
  // How many entries at `level` end with `text`: a line takes the level of the call that
  // finished it, and detail text pending before that call begins the same entry.
  int count(uint8_t level, const std::string& text) const;
  // The values of the "Sleep: %d" lines, in order.
  std::vector<int> sleeps() const;
  // How many "Sleep: " lines were written (also without keep_log).
  int sleep_lines() const { return rig_->sleep_lines(); }
  // Virtual time of the first entry at or after `from_ms` that contains `text`; -1 when
  // none. (Detail text gathers into one entry until an empty line ends it.)
  int64_t time_of(const std::string& text, int64_t from_ms = 0) const;

  // --- Decision passes.
  // How many decision passes have begun (their "Using Config Set: %d" text).
  size_t passes() const;
  // Lets the worker run in 100 ms steps until more than `passes` passes have begun or
  // `limit_ms` passed. The time the (passes+1)th pass was seen (to within 100 ms) and its
  // config set, or -1 for both when it did not begin.
  struct Pass {
    int64_t at_ms = -1;
    int set = -1;
  };
  Pass wait_for_pass(size_t passes, int64_t limit_ms);
  // Lets the worker run in 100 ms steps until the log contains `text` (counting only
  // occurrences after the `skip` first) or `limit_ms` passed; the time it was seen, or -1.
  int64_t wait_for_log(const std::string& text, int64_t limit_ms, size_t skip = 0);

 private:
  const bool story_;
  std::vector<std::shared_ptr<void>> owned_;  // the story notebook's in-memory seams
  std::unique_ptr<ScriptedCounters> scripted_;
  std::unique_ptr<ScriptedDevice> device_;
  std::unique_ptr<rig::NotebookRig> rig_;
};

// The quiet notebook with a configuration built from keys.
class AutoHarness : public EngineHarness {
 public:
  explicit AutoHarness(HarnessOptions options = {}) : EngineHarness(std::move(options)) {}
};

// The story notebook. `scenario_patch`: a JSON Merge Patch applied to kTestScenario (empty:
// none).
class EngineOnNotebook : public EngineHarness {
 public:
  explicit EngineOnNotebook(const std::string& scenario_patch = "",
                            const std::string& config = kTestConfig);
};

// A Merge Patch of the notebook's antennas: every antenna at `dbm` in both positions.
std::string all_antennas(int dbm);
// The same with per-antenna values (ports 0 and 1).
std::string antennas(int port0, int port1);
// Every mode's link rate.
std::string all_rates(double mbps);

}  // namespace testing

// The tests of the auto loop speak of the harness from here.
namespace autotest {
using namespace ::zaltor::engine::testing;  // NOLINT(google-build-using-namespace)
}  // namespace autotest

}  // namespace zaltor::engine
