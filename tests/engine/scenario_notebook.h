#pragma once
// The whole worker on the simulated notebook in virtual time, with the log and the
// console captured. The test's thread takes part in the notebook's clock for the whole
// test: its sleeps advance simulated time, and while it runs no other thread of the
// notebook or the worker does.
//
//   EngineOnNotebook nb(R"({"lid": {"open": false}})");  // a patch of the test scenario
//   ASSERT_EQ(nb.Init(), 0);
//   nb.SleepUntil(5000);
//   EXPECT_TRUE(nb.LogContains("CONFIG changed! 0 -> 3\n"));

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/worker.h"
#include "log/line_buffer.h"
#include "log/log_entry_writer.h"
#include "platform/sim/sim_notebook.h"
#include "platform/system_events.h"

namespace zaltor::engine::testing {

// The configuration the tests run with (model AB12XY, two switches): every set measures
// three samples except the lid-closed set (two), and each set has its own stabilisation
// wait so that a pass shows which set it ran with.
extern const char* const kTestConfig;
// The scenario the tests start from: a two-switch AB12XY notebook on channel 36 with a
// connected headset, lid open, mains power, both antennas at -50 dBm in every position,
// 866.7 Mbps in every mode, no timeline.
extern const char* const kTestScenario;

struct LogEntry {
  int64_t at_ms;
  uint8_t level;
  std::string line;
};

class CapturedLog final : public log::LogEntryWriter {
 public:
  explicit CapturedLog(platform::Clock& clock) : clock_(clock) {}
  int32_t WriteLogEntry(std::string_view line, uint8_t level) override;
  std::vector<LogEntry> entries();

 private:
  platform::Clock& clock_;
  std::mutex m_;
  std::vector<LogEntry> entries_;
};

class CapturedConsole final : public Console {
 public:
  void write(std::string_view text) override;
  std::string text();

 private:
  std::mutex m_;
  std::string text_;
};

class EngineOnNotebook {
 public:
  // `scenarioPatch`: a JSON Merge Patch applied to kTestScenario (empty: none).
  explicit EngineOnNotebook(const std::string& scenarioPatch = "",
                            const std::string& config = kTestConfig);
  ~EngineOnNotebook();
  EngineOnNotebook(const EngineOnNotebook&) = delete;
  EngineOnNotebook& operator=(const EngineOnNotebook&) = delete;

  // Replaces the system events seam before Init (for fakes).
  void UseSystemEvents(platform::SystemEvents* events) { platform_.system_events = events; }

  // Initialises the worker and lets the event window deliver its first messages (the
  // current lid and power values) so that the test starts from a settled worker.
  int32_t Init();

  AntennaSwitchWorkerObj& worker() { return *worker_; }
  platform::sim::SimNotebook& notebook() { return *notebook_; }
  platform::Clock& clock() { return notebook_->clock(); }
  int64_t Now() { return clock().now_ms(); }
  void SleepUntil(int64_t ms);
  void Sleep(int64_t ms) { clock().sleep_ms(ms); }
  // Applies a JSON Merge Patch to the notebook now; fails the test when it is invalid.
  void Patch(const std::string& json);

  std::vector<LogEntry> Log() { return log_->entries(); }
  // Every logged line, in order, as one text.
  std::string LogText();
  bool LogContains(const std::string& text) { return LogText().find(text) != std::string::npos; }
  size_t LogCount(const std::string& text);
  // The time of the first entry at or after `from_ms` that contains `text`; -1 if none.
  int64_t FirstAt(const std::string& text, int64_t from_ms = 0);
  std::string ConsoleText() { return console_.text(); }
  // The detail text that waits for the rest of its entry.
  std::string Pending() { return lines_.pending(); }
  // How many decision passes have begun (their "Using Config Set: %d" text).
  size_t Passes();
  // Lets the worker run in 100 ms steps until more than `passes` passes have begun or
  // `limitMs` passed. The time the (passes+1)th pass was seen (to within 100 ms) and its
  // config set, or -1 for both when it did not begin.
  struct Pass {
    int64_t at_ms = -1;
    int set = -1;
  };
  Pass WaitForPass(size_t passes, int64_t limitMs);
  // Lets the worker run in 100 ms steps until the log contains `text` (counting only
  // occurrences after the `skip` first) or `limitMs` passed; the time it was seen, or -1.
  int64_t WaitForLog(const std::string& text, int64_t limitMs, size_t skip = 0);

  // Ends the event window thread (if it runs) and waits for it.
  void CloseEventWindow();

 private:
  std::string dir_;
  std::unique_ptr<platform::sim::SimNotebook> notebook_;
  std::unique_ptr<platform::ClockAttachment> attached_;
  std::unique_ptr<CapturedLog> log_;
  CapturedConsole console_;
  log::LineBuffer lines_;
  std::vector<std::shared_ptr<void>> owned_;
  platform::Platform platform_;
  std::unique_ptr<AntennaSwitchWorkerObj> worker_;
};

// A Merge Patch of the notebook's antennas: every antenna at `dbm` in both positions.
std::string AllAntennas(int dbm);
// The same with per-antenna values (ports 0 and 1).
std::string Antennas(int port0, int port1);
// Every mode's link rate.
std::string AllRates(double mbps);

}  // namespace zaltor::engine::testing
