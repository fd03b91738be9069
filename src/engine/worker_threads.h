#pragma once
// The bodies of the threads the worker starts, and the entry points through which other
// threads ask it to decide again.

#include <cstdint>
#include <memory>

#include "engine/worker.h"

namespace zaltor::engine {

// The auto loop: measure every mode, decide, set, sleep; until keepRunning is cleared or
// AutoModeRunCount runs out.
void AutoModeThread(std::shared_ptr<AutoSwitchingWorkerArg> arg);

// Watches RSSI and link rate between the auto loop's evaluations and asks for a new one
// when either drops by more than its trigger delta.
void MonitorThread(std::shared_ptr<AutoSwitchingWorkerArg> arg);

// Owns the event window: lid switch, power source and device-change messages.
void EventWindowThread(AntennaSwitchWorkerObj* worker);

// The WLAN notification callback (MSM source only); it acts on the remembered worker.
void WlanNotificationCallback(uint32_t source, uint32_t code);

// Asks the auto loop to decide again; with `recompute` the config set is computed anew
// and made pending when it differs from the active one. The first call remembers the
// worker for the WLAN callback.
void RequestReevaluation(AntennaSwitchWorkerObj* worker, bool recompute, Trigger cause);

}  // namespace zaltor::engine
