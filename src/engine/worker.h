#pragma once
// AntennaSwitchWorkerObj: the one object that owns everything antenna selection needs —
// the control device, the WLAN client, the loaded configuration, the switch and mode
// counts, the user's mode, the config set in force, the flags by which other threads ask
// the auto loop to decide again, and the threads.
//
// Threads that touch it: the service thread (Init, teardown), the control interface's
// threads (SetUserMode and reads), the auto-mode and monitor threads, the event window
// thread and the WLAN notification thread. What they share without a lock is in `shared`
// (see shared_state.h); the journal, the port health and the re-evaluation request guard
// themselves.
//
// Locks, in the order in which they may be taken:
// - the mode lock: held across the whole of SetUserMode, so that mode changes from the
//   control interface and from the auto thread (leaving Auto when its run count runs out)
//   happen one after the other, start and stop of an Auto period included;
// - the loop mutex (see reevaluation.h): the re-evaluation request, the pending config set
//   and the active config set index;
// - the device lock of the switch (see antenna_switch.h): each write sequence on the lines.
// The mode lock is never held while waiting for a thread that might want it: only threads
// that have ended are joined under it. All three are mutexes of the platform's clock.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "engine/adapter_discovery.h"
#include "engine/antenna_switch.h"
#include "engine/board_identification.h"
#include "engine/port_health.h"
#include "engine/reevaluation.h"
#include "engine/rssi_history.h"
#include "engine/shared_state.h"
#include "engine/signal_counters.h"
#include "engine/switch_labels.h"
#include "log/log_context.h"
#include "log/worker_log.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "platform/status.h"

namespace zaltor::engine {

class AntennaSwitchWorkerObj;

// The record shared by the auto-mode and the monitor thread of one Auto period. Both hold
// it by shared ownership, so it lives as long as either thread reads it; clearing
// keepRunning is the stop signal.
struct AutoSwitchingWorkerArg {
  std::atomic<bool> keep_running{true};
  AntennaSwitchWorkerObj* worker = nullptr;
  Trigger first_trigger = Trigger::kStart;  // what the period's first pass records
};

class AntennaSwitchWorkerObj {
 public:
  explicit AntennaSwitchWorkerObj(platform::Platform& platform);
  ~AntennaSwitchWorkerObj();
  AntennaSwitchWorkerObj(const AntennaSwitchWorkerObj&) = delete;
  AntennaSwitchWorkerObj& operator=(const AntennaSwitchWorkerObj&) = delete;

  // The seventeen steps of the start-up, in order; 0 on success, else the failing step's
  // result (3, 4, the configuration load's code, 8, 11, 31). `logContext` is the service
  // object's log state; `console_config_name` the plain file named on the console command
  // line (empty otherwise).
  int32_t Init(log::LogContext logContext, const std::string& console_config_name);

  // 0 Auto, 1..modeCount a fixed mode. Results: 0, 2 not initialised, 28 out of range,
  // 41 Auto on a build that needs per-antenna RSSI, or the first failing switch's status.
  // Auto chosen while the loop of a stopped period is still ending waits for it to end
  // (about a second at most) and then starts a new period.
  Status SetUserMode(int32_t mode);

  // The auto thread of the period `arg` leaves Auto for `mode` (its run count ran out, or
  // its buffers could not be had): SetUserMode(mode), unless the period was stopped already
  // (the user's later choice stands), under the same mode lock.
  Status leave_auto(const AutoSwitchingWorkerArg& arg, int32_t mode);

  // The re-evaluation request (see reevaluation.h): consume, peek, raise.
  bool consume_reevaluation(Trigger* cause = nullptr) { return reevaluation.consume(cause); }
  bool reevaluation_requested() { return reevaluation.peek(); }
  void raise_reevaluation(Trigger cause) { reevaluation.raise(cause); }

  // Writes one finished line straight to the service's log-entry operation (the event
  // log), without line assembly and without the log file. Dropped before Init.
  void write_event(uint8_t level, const char* line);

  // The service object behind the log goes away: later log calls are dropped.
  void detach_log() { worker_log_.detach(); }

  // The process teardown's share of the worker: the counter query, the mutexes and the
  // WLAN client. Only when no worker thread runs any more.
  void teardown();

  // Stops the Auto threads of the current period and waits for every thread the worker
  // started except the detached event window thread (tests and orderly shutdown).
  void stop_and_join_auto_threads();

  // How many Auto threads the worker holds (running, or ended and not yet joined). Ended
  // threads are joined at the next start of Auto mode and by stop_and_join_auto_threads, so
  // that switching between fixed modes and Auto does not pile them up.
  size_t held_threads();

  // --- Read access (control interface, loops).
  bool initialised() const { return shared.initialised(); }
  uint32_t user_mode() const { return shared.user_mode(); }
  int32_t switchCount() const { return shared.switch_count(); }
  int32_t mode_count() const { return static_cast<int32_t>(shared.mode_count()); }
  uint64_t active_config_set() const { return shared.active_config_set(); }
  // Settings of the active config set.
  const config::ConfigSettings& settings() const { return config.settings; }
  size_t active_set() const;
  Log& log() { return worker_log_; }
  // Every later log call of the worker goes to `calls` as it was made (see
  // WorkerLog::redirect); the lab reads the worker's calls this way.
  void redirect_log(Log* calls) { worker_log_.redirect(calls); }
  platform::Clock& clock() { return *platform_.clock; }
  platform::Platform& platform() { return platform_; }

  // Declared first: the device logic below holds the log. Detached until Init.
 private:
  log::LogFile log_file_;
  log::WorkerLog worker_log_{log_file_};

 public:
  // --- Fields (names as the rest of the engine speaks of them).
  // What the threads share (see shared_state.h); the device logic below holds its part.
  SharedState shared;
  config::Configuration config;
  RssiHistory rssi_history;  // the auto-mode thread's only
  SwitchLabels labels = default_switch_labels();
  std::string model_name;

  // The device logic over the worker's state.
  AntennaSwitch sw;
  SignalCounters counters;
  AdapterDiscovery adapters;

  // One record per decision pass of the auto loop (see decision_journal.h).
  DecisionJournal journal;
  // Per antenna port, what the measurements and line writes say of it (see port_health.h).
  PortHealth health;

  // The request flag, the pending config set, the loop mutex of the current Auto period.
  Reevaluation reevaluation;
  std::shared_ptr<platform::Mutex> loop_mutex() const { return reevaluation.loop_mutex(); }

  // The auto-mode thread: non-null while it runs (autoThread); it clears it when it ends.
  bool auto_thread_running() const { return auto_thread_.load(std::memory_order_acquire); }
  void clear_auto_thread() { auto_thread_.store(false, std::memory_order_release); }

 private:
  friend class WorkerTestAccess;
  // A thread of an Auto period and whether its body has returned.
  struct HeldThread {
    std::unique_ptr<platform::Thread> thread;
    std::shared_ptr<std::atomic<bool>> ended;
  };
  Status set_user_mode_locked(int32_t mode);
  // A fixed mode (or the run count) stopped the Auto period whose thread has not ended yet.
  bool stopped_loop_still_ending();
  Status start_auto(Trigger first);
  void start_held_thread(const char* name, std::function<void()> body);
  // Joins the held threads whose bodies have returned (no wait on a running one).
  void reap_ended_threads();

  platform::Platform& platform_;
  std::unique_ptr<platform::Mutex> log_mutex_;
  std::unique_ptr<BoardIdentification> board_;

  std::unique_ptr<platform::Mutex> mode_lock_;

  // Guards auto_arg_ and threads_: plain bookkeeping, never held across a wait.
  std::mutex auto_lock_;
  std::shared_ptr<AutoSwitchingWorkerArg> auto_arg_;
  std::atomic<bool> auto_thread_{false};
  std::vector<HeldThread> threads_;
};

}  // namespace zaltor::engine
