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
    : sw(shared.device(), log_, platform.clock->make_mutex()),
      counters(shared.device(), sw, *platform.counters, *platform.clock, log_),
      adapters(shared.device(), *platform.devices, *platform.clock, log_),
      reevaluation(*platform.clock, shared.active_config_set_field(), log_),
      platform_(platform),
      modeLock_(platform.clock->make_mutex()) {}

AntennaSwitchWorkerObj::~AntennaSwitchWorkerObj() {
  StopAndJoinAutoThreads();
  log_.Detach();
}

size_t AntennaSwitchWorkerObj::activeSet() const {
  const uint64_t set = activeConfigSet();
  return set < static_cast<uint64_t>(config::kConfigSets) ? static_cast<size_t>(set) : 0;
}

int32_t AntennaSwitchWorkerObj::Init(log::LogContext logContext,
                                     const std::string& consoleConfigName) {
  // 1. The log context, an empty model name.
  log_.Attach(logContext);
  modelName.clear();

  // 2. The control device.
  if (Status s = platform::OpenControlDevice(*platform_.control_device, shared.device(), log_);
      s != 0) {
    return static_cast<int32_t>(s);
  }

  // 3-5. The board, the support flags and the antenna switch number. (The dormant WMI
  // method names of the firmware's management class are not needed: the control device is
  // the only switch channel.)
  board_ = std::make_unique<platform::BoardIdentification>(*platform_.board, *platform_.console);
  const Status identified =
      platform::IdentifyModel(*board_, sw, shared.device(), log_, *platform_.console, modelName);
  board_.reset();  // the WMI session is released at the end of initialisation
  if (identified != 0) return static_cast<int32_t>(identified);

  // 6. The configuration.
  config::LoadContext load;
  load.files = platform_.files;
  load.profiles = platform_.profiles;
  load.crypto = platform_.crypto;
  load.log = &log_;
  load.console = platform_.console;
  load.console_config_name = consoleConfigName;
  if (Status s = config::load_configuration(load, modelName, switchCount(), config); s != 0) {
    return static_cast<int32_t>(s);
  }
  platform::DeviceState& device = shared.device();
  device.switches = config.switches;
  device.settings = &config.settings;

  // 7. The configuration version; its outcome is only logged.
  config::register_config_version(*platform_.files, *platform_.registry, log_);

  // 8-9. The WLAN client and its notifications.
  uint32_t error = 0;
  device.wlan = platform_.wlan->open(kWlanClientVersion, error);
  if (!device.wlan) {
    log_.write(kLogError, "WlanOpenHandle failed with error: %u\n", error);
    return STATUS_WLAN_NOT_OPENED;
  }
  device.wlan->register_notification(platform::kWlanSourceMsm, WlanNotificationCallback);

  // 10. The Wi-Fi adapter and its interface.
  std::string instanceName;
  if (adapters.FindWifiInterface(instanceName) != 0) return STATUS_NO_WIFI_INTERFACE;

  // 11. The counters, once per process.
  if (!device.counters.query) counters.SetUpCounters(instanceName);

  // 12-13. The log file's mutex and name.
  logMutex_ = platform_.clock->make_mutex();
  logFile_.mutex = logMutex_.get();
  logFile_.name = kLogFileName;
  logFile_.files = platform_.files;

  // 14. The configuration report.
  config::write_config_report(log_, config, shared.mode_count(), switchCount());

  // 15. Mode switching only.
  log_.write(kLogInfo, "This build is forced to use mode switching.\n");
  shared.set_rssi_pa_requested(false);

  // 16. The event window thread, detached.
  platform_.clock->start_thread("event window", [this] { EventWindowThread(this); })->detach();

  // 17. Ready.
  shared.MarkInitialised();
  return 0;
}

Status AntennaSwitchWorkerObj::SetUserMode(int32_t mode) {
  for (;;) {
    {
      platform::MutexHold hold(*modeLock_);
      if (mode != 0 || !StoppedLoopStillEnding()) return SetUserModeLocked(mode);
    }
    // Auto asked for while the loop of a stopped period is still on its way out (it sees
    // its stop within a step): that loop does not count as running, so Auto waits for it to
    // end and then starts a period of its own, rather than answering 0 with no loop left.
    // Not under the mode lock: the ending thread may want it (LeaveAuto).
    platform_.clock->sleep_ms(kStoppedLoopPollMs);
  }
}

bool AntennaSwitchWorkerObj::StoppedLoopStillEnding() {
  if (userMode() == 0 || !autoThreadRunning()) return false;
  std::lock_guard<std::mutex> g(autoLock_);
  return !autoArg_ || !autoArg_->keepRunning.load(std::memory_order_relaxed);
}

Status AntennaSwitchWorkerObj::LeaveAuto(const AutoSwitchingWorkerArg& arg, int32_t mode) {
  platform::MutexHold hold(*modeLock_);
  // Only the mode lock's holders clear keepRunning: cleared, the user has chosen since.
  if (!arg.keepRunning.load(std::memory_order_relaxed)) return SWITCH_OK;
  return SetUserModeLocked(mode);
}

Status AntennaSwitchWorkerObj::SetUserModeLocked(int32_t mode) {
  if (!initialised()) return SWITCH_ERR_NOT_READY;
  if (mode < 0 || mode > modeCount()) return SWITCH_ERR_INVALID_MODE;
  if (static_cast<uint32_t>(mode) == userMode()) return SWITCH_OK;
  // Auto after a fixed mode is the user's choice; the first Auto of the process (userMode
  // still at its start value) is the service's start.
  const bool fromFixed = userMode() >= 1 && static_cast<int32_t>(userMode()) <= modeCount();
  shared.set_user_mode(static_cast<uint32_t>(mode));

  if (mode >= 1) {
    // The stop comes first: a loop that tests keepRunning under the device lock before it
    // writes then cannot put its mode on the lines after this one.
    {
      std::lock_guard<std::mutex> g(autoLock_);
      if (autoArg_) {
        autoArg_->keepRunning.store(false, std::memory_order_relaxed);
        autoArg_.reset();
      }
    }
    std::array<Status, platform::kMaxPorts> results{};
    sw.SetMode(mode, results);
    health.Write(switchCount(), results);
    for (Status s : results) {
      if (s != 0) return s;
    }
    return SWITCH_OK;
  }
  return StartAuto(fromFixed ? Trigger::kUser : Trigger::kStart);
}

Status AntennaSwitchWorkerObj::StartAuto(Trigger first) {
  ReapEndedThreads();
  if (autoThreadRunning()) return SWITCH_OK;

  // A new loop mutex per Auto period; an earlier one goes with its last hold.
  reevaluation.NewPeriod();
  reevaluation.SetInForce(adapters.SelectConfigSet());

  auto arg = std::make_shared<AutoSwitchingWorkerArg>();
  arg->worker = this;
  arg->firstTrigger = first;
  {
    std::lock_guard<std::mutex> g(autoLock_);
    autoArg_ = arg;
  }

  if (shared.rssi_pa_requested() && config.settings.ForceUseModeSwitching == 0) {
    log_.write(kLogCritical, "This build doesn't support RSSI PA.\n");
    return SWITCH_ERR_RSSI_PA;
  }

  autoThread_.store(true, std::memory_order_release);
  StartHeldThread("auto mode", [arg] { AutoModeThread(arg); });
  StartHeldThread("monitor", [arg] { MonitorThread(arg); });
  return SWITCH_OK;
}

void AntennaSwitchWorkerObj::StartHeldThread(const char* name, std::function<void()> body) {
  auto ended = std::make_shared<std::atomic<bool>>(false);
  auto thread = platform_.clock->start_thread(name, [body = std::move(body), ended] {
    body();
    ended->store(true, std::memory_order_release);
  });
  std::lock_guard<std::mutex> g(autoLock_);
  threads_.push_back({std::move(thread), std::move(ended)});
}

void AntennaSwitchWorkerObj::ReapEndedThreads() {
  std::vector<HeldThread> ended;
  {
    std::lock_guard<std::mutex> g(autoLock_);
    std::vector<HeldThread> running;
    for (auto& t : threads_) {
      (t.ended->load(std::memory_order_acquire) ? ended : running).push_back(std::move(t));
    }
    threads_.swap(running);
  }
  // Their bodies have returned: each join waits for no more than the thread's exit.
  for (auto& t : ended) t.thread->join();
}

size_t AntennaSwitchWorkerObj::heldThreads() {
  std::lock_guard<std::mutex> g(autoLock_);
  return threads_.size();
}

void AntennaSwitchWorkerObj::WriteEvent(uint8_t level, const char* line) {
  log_.WriteEntry(level, line);
}

void AntennaSwitchWorkerObj::StopAndJoinAutoThreads() {
  std::vector<HeldThread> threads;
  {
    // Not across the joins: an auto thread that leaves Auto takes the mode lock.
    platform::MutexHold hold(*modeLock_);
    std::lock_guard<std::mutex> g(autoLock_);
    if (autoArg_) {
      autoArg_->keepRunning.store(false, std::memory_order_relaxed);
      autoArg_.reset();
    }
    threads.swap(threads_);
  }
  for (auto& t : threads) t.thread->join();
}

void AntennaSwitchWorkerObj::Teardown() {
  shared.device().counters.query.reset();
  logFile_.mutex = nullptr;
  logMutex_.reset();
  reevaluation.Clear();
  if (platform::DeviceState& device = shared.device(); device.wlan) {
    device.wlan->register_notification(platform::kWlanSourceNone, nullptr);
    device.wlan.reset();
  }
}

}  // namespace zaltor::engine
