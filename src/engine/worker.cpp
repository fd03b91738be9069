#include "engine/worker.h"

#include <array>

#include "config/config_loader.h"
#include "config/config_report.h"
#include "config/version_registration.h"
#include "engine/loop_hold.h"
#include "engine/worker_threads.h"
#include "platform/wlan.h"

namespace zaltor::engine {

namespace {
constexpr uint32_t kWlanClientVersion = 2;
constexpr const char* kLogFileName = "rflog.txt";
// How often Auto looks again whether the loop of a stopped period has ended.
constexpr int64_t kStoppedLoopPollMs = 10;
}  // namespace

AntennaSwitchWorkerObj::AntennaSwitchWorkerObj(platform::Platform& platform)
    : sw(shared.device(), worker_log_, platform.clock->make_mutex()),
      counters(shared.device(), sw, *platform.counters, *platform.clock, worker_log_),
      adapters(shared.device(), *platform.devices, *platform.clock, worker_log_),
      reevaluation(*platform.clock, shared.active_config_set_field(), worker_log_),
      platform_(platform),
      mode_lock_(platform.clock->make_mutex()) {}

AntennaSwitchWorkerObj::~AntennaSwitchWorkerObj() {
  stop_and_join_auto_threads();
  worker_log_.detach();
}

size_t AntennaSwitchWorkerObj::active_set() const {
  const uint64_t set = active_config_set();
  return set < static_cast<uint64_t>(config::kConfigSets) ? static_cast<size_t>(set) : 0;
}

int32_t AntennaSwitchWorkerObj::Init(log::LogContext logContext,
                                     const std::string& console_config_name) {
  // 1. The log context, an empty model name.
  worker_log_.attach(logContext);
  model_name.clear();

  // 2. The control device.
  if (Status s = open_control_device(*platform_.control_device, shared.device(), worker_log_);
      s != 0) {
    return static_cast<int32_t>(s);
  }

  // 3-5. The board, the support flags and the antenna switch number. (The dormant WMI
  // method names of the firmware's management class are not needed: the control device is
  // the only switch channel.)
  board_ = std::make_unique<BoardIdentification>(*platform_.board, *platform_.console);
  const Status identified =
      identify_model(*board_, sw, shared.device(), worker_log_, *platform_.console, model_name);
  board_.reset();  // the WMI session is released at the end of initialisation
  if (identified != 0) return static_cast<int32_t>(identified);

  // 6. The configuration.
  config::LoadContext load;
  load.files = platform_.files;
  load.profiles = platform_.profiles;
  load.crypto = platform_.crypto;
  load.log = &worker_log_;
  load.console = platform_.console;
  load.console_config_name = console_config_name;
  if (Status s = config::load_configuration(load, model_name, switchCount(), config); s != 0) {
    return static_cast<int32_t>(s);
  }
  DeviceState& device = shared.device();
  device.set_switches(config.switches);
  device.set_settings(&config.settings);

  // 7. The configuration version; its outcome is only logged.
  config::register_config_version(*platform_.files, *platform_.registry, worker_log_);

  // 8-9. The WLAN client and its notifications.
  uint32_t error = 0;
  device.set_wlan(platform_.wlan->open(kWlanClientVersion, error));
  if (device.wlan() == nullptr) {
    worker_log_.write(kLogError, "WlanOpenHandle failed with error: %u\n", error);
    return kStatusWlanNotOpened;
  }
  device.wlan()->register_notification(platform::kWlanSourceMsm, WlanNotificationCallback);

  // 10. The Wi-Fi adapter and its interface.
  std::string instance_name;
  if (adapters.FindWifiInterface(instance_name) != 0) return kStatusNoWifiInterface;

  // 11. The counters, once per process.
  if (device.counter_query() == nullptr) counters.SetUpCounters(instance_name);

  // 12-13. The log file's mutex and name.
  log_mutex_ = platform_.clock->make_mutex();
  log_file_.mutex = log_mutex_.get();
  log_file_.name = kLogFileName;
  log_file_.files = platform_.files;

  // 14. The configuration report.
  config::write_config_report(worker_log_, config, shared.mode_count(), switchCount());

  // 15. Mode switching only.
  worker_log_.write(kLogInfo, "This build is forced to use mode switching.\n");
  shared.set_rssi_pa_requested(false);

  // 16. The event window thread, detached.
  platform_.clock->start_thread("event window", [this] { EventWindowThread(this); })->detach();

  // 17. Ready.
  shared.mark_initialised();
  return 0;
}

Status AntennaSwitchWorkerObj::SetUserMode(int32_t mode) {
  for (;;) {
    {
      platform::MutexHold hold(*mode_lock_);
      if (mode != 0 || !stopped_loop_still_ending()) return set_user_mode_locked(mode);
    }
    // Auto asked for while the loop of a stopped period is still on its way out (it sees
    // its stop within a step): that loop does not count as running, so Auto waits for it to
    // end and then starts a period of its own, rather than answering 0 with no loop left.
    // Not under the mode lock: the ending thread may want it (leave_auto).
    platform_.clock->sleep_ms(kStoppedLoopPollMs);
  }
}

bool AntennaSwitchWorkerObj::stopped_loop_still_ending() {
  if (user_mode() == 0 || !auto_thread_running()) return false;
  std::lock_guard<std::mutex> g(auto_lock_);
  return !auto_arg_ || !auto_arg_->keep_running.load(std::memory_order_relaxed);
}

Status AntennaSwitchWorkerObj::leave_auto(const AutoSwitchingWorkerArg& arg, int32_t mode) {
  platform::MutexHold hold(*mode_lock_);
  // Only the mode lock's holders clear keepRunning: cleared, the user has chosen since.
  if (!arg.keep_running.load(std::memory_order_relaxed)) return SWITCH_OK;
  return set_user_mode_locked(mode);
}

Status AntennaSwitchWorkerObj::set_user_mode_locked(int32_t mode) {
  if (!initialised()) return SWITCH_ERR_NOT_READY;
  if (mode < 0 || mode > mode_count()) return SWITCH_ERR_INVALID_MODE;
  if (static_cast<uint32_t>(mode) == user_mode()) return SWITCH_OK;
  // Auto after a fixed mode is the user's choice; the first Auto of the process (userMode
  // still at its start value) is the service's start.
  const bool from_fixed = user_mode() >= 1 && static_cast<int32_t>(user_mode()) <= mode_count();
  shared.set_user_mode(static_cast<uint32_t>(mode));

  if (mode >= 1) {
    // The stop comes first: a loop that tests keepRunning under the device lock before it
    // writes then cannot put its mode on the lines after this one.
    {
      std::lock_guard<std::mutex> g(auto_lock_);
      if (auto_arg_) {
        auto_arg_->keep_running.store(false, std::memory_order_relaxed);
        auto_arg_.reset();
      }
    }
    std::array<Status, platform::kMaxPorts> results{};
    sw.SetMode(mode, results);
    health.write(switchCount(), results);
    for (Status s : results) {
      if (s != 0) return s;
    }
    return SWITCH_OK;
  }
  return start_auto(from_fixed ? Trigger::kUser : Trigger::kStart);
}

Status AntennaSwitchWorkerObj::start_auto(Trigger first) {
  reap_ended_threads();
  if (auto_thread_running()) return SWITCH_OK;

  // A new loop mutex per Auto period; an earlier one goes with its last hold.
  reevaluation.new_period();
  reevaluation.set_in_force(adapters.SelectConfigSet());

  auto arg = std::make_shared<AutoSwitchingWorkerArg>();
  arg->worker = this;
  arg->first_trigger = first;
  {
    std::lock_guard<std::mutex> g(auto_lock_);
    auto_arg_ = arg;
  }

  if (shared.rssi_pa_requested() && config.settings.ForceUseModeSwitching == 0) {
    worker_log_.write(kLogCritical, "This build doesn't support RSSI PA.\n");
    return SWITCH_ERR_RSSI_PA;
  }

  auto_thread_.store(true, std::memory_order_release);
  start_held_thread("auto mode", [arg] { AutoModeThread(arg); });
  start_held_thread("monitor", [arg] { MonitorThread(arg); });
  return SWITCH_OK;
}

void AntennaSwitchWorkerObj::start_held_thread(const char* name, std::function<void()> body) {
  auto ended = std::make_shared<std::atomic<bool>>(false);
  auto thread = platform_.clock->start_thread(name, [body = std::move(body), ended] {
    body();
    ended->store(true, std::memory_order_release);
  });
  std::lock_guard<std::mutex> g(auto_lock_);
  threads_.push_back({std::move(thread), std::move(ended)});
}

void AntennaSwitchWorkerObj::reap_ended_threads() {
  std::vector<HeldThread> ended;
  {
    std::lock_guard<std::mutex> g(auto_lock_);
    std::vector<HeldThread> running;
    for (auto& t : threads_) {
      (t.ended->load(std::memory_order_acquire) ? ended : running).push_back(std::move(t));
    }
    threads_.swap(running);
  }
  // Their bodies have returned: each join waits for no more than the thread's exit.
  for (auto& t : ended) t.thread->join();
}

size_t AntennaSwitchWorkerObj::held_threads() {
  std::lock_guard<std::mutex> g(auto_lock_);
  return threads_.size();
}

void AntennaSwitchWorkerObj::write_event(uint8_t level, const char* line) {
  worker_log_.write_entry(level, line);
}

void AntennaSwitchWorkerObj::stop_and_join_auto_threads() {
  std::vector<HeldThread> threads;
  {
    // Not across the joins: an auto thread that leaves Auto takes the mode lock.
    platform::MutexHold hold(*mode_lock_);
    std::lock_guard<std::mutex> g(auto_lock_);
    if (auto_arg_) {
      auto_arg_->keep_running.store(false, std::memory_order_relaxed);
      auto_arg_.reset();
    }
    threads.swap(threads_);
  }
  for (auto& t : threads) t.thread->join();
}

void AntennaSwitchWorkerObj::teardown() {
  shared.device().set_counter_query(nullptr);
  log_file_.mutex = nullptr;
  log_mutex_.reset();
  reevaluation.clear();
  if (DeviceState& device = shared.device(); device.wlan() != nullptr) {
    device.wlan()->register_notification(platform::kWlanSourceNone, nullptr);
    device.set_wlan(nullptr);
  }
}

}  // namespace zaltor::engine
