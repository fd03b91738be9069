#pragma once
// The one place where the service's backends are chosen at start-up.
//
// ZALTOR_PLATFORM=sim   the simulated notebook (hardware and clock) with the operating
//                       system's real facilities (Linux: the only choice);
// ZALTOR_PLATFORM=native the real hardware backends (Windows only).

#include <functional>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace zaltor::platform {

class Backends {
 public:
  virtual ~Backends() = default;
  virtual Platform& platform() = 0;
  // What runs when the simulated notebook reaches the end of its run (its scenario's
  // stopAfter), on one of the notebook's threads. Without a simulated notebook it never
  // runs.
  virtual void set_simulation_end_hook(std::function<void()> hook) { (void)hook; }
};

// Builds the backends from the environment. Null with `error` set (a message naming
// what is wrong, for instance a scenario file member) when they cannot be built.
//
// `service_process`: the process is the service that the service manager started. On
// Windows its registered settings (the service key's "Environment" value) are then applied
// first where the process lacks them, as Windows' manager does and Wine's does not. Other
// runs (install, remove, console) keep the environment they were given.
std::unique_ptr<Backends> make_backends(std::string& error, bool service_process = false);

}  // namespace zaltor::platform
