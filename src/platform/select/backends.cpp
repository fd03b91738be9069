// Chooses the backends at start-up from the environment: the notebook's hardware and
// clock (simulated on Linux) and the operating system's facilities, one line per seam.
//
// With the simulated notebook the calling thread stays attached to the notebook's clock,
// so that in virtual time nothing of the notebook runs ahead while the service starts;
// the service steps out of the clock (ClockAbsence) while it blocks outside it.
#include "platform/select/backends.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/sim/sim_notebook.h"

#ifndef _WIN32
#include "platform/posix/posix_backends.h"
#endif

namespace zaltor::platform {
namespace {

std::string env(const char* name) {
  const char* v = std::getenv(name);
  return v != nullptr ? v : "";
}

class SimBackends final : public Backends {
 public:
  explicit SimBackends(std::unique_ptr<sim::SimNotebook> notebook)
      : notebook_(std::move(notebook)) {
    platform_.clock = &notebook_->clock();
    platform_.control_device = &notebook_->control_device();
    platform_.board = &notebook_->board();
    platform_.devices = &notebook_->devices();
    platform_.wlan = &notebook_->wlan();
    platform_.counters = &notebook_->counters();
    platform_.system_events = &notebook_->system_events();
    // Until the service sets its own: end the process as a finished run does.
    notebook_->set_stop_hook([] {
      std::fflush(nullptr);
      std::_Exit(0);
    });
  }
  // Later backends may use earlier ones (the clock first): release them in reverse.
  ~SimBackends() override {
    while (!owned_.empty()) owned_.pop_back();
  }
  Platform& platform() override { return platform_; }
  void set_simulation_end_hook(std::function<void()> hook) override {
    notebook_->set_stop_hook(std::move(hook));
  }

  // Keeps `backend` for the life of the process's backends and returns it.
  template <typename T>
  T* keep(std::unique_ptr<T> backend) {
    T* raw = backend.get();
    owned_.push_back(std::shared_ptr<void>(std::move(backend)));
    return raw;
  }

  void start() {
    notebook_->clock().attach_current_thread();
    notebook_->start();
  }

  Platform platform_;

 private:
  std::unique_ptr<sim::SimNotebook> notebook_;
  std::vector<std::shared_ptr<void>> owned_;
};

}  // namespace

std::unique_ptr<Backends> make_backends(std::string& error) {
#if defined(_WIN32)
  const std::string default_platform = "native";
#else
  const std::string default_platform = "sim";
#endif
  std::string name = env("ZALTOR_PLATFORM");
  if (name.empty()) name = default_platform;
  if (name != "sim") {
#if defined(_WIN32)
    if (name == "native") {
      error = "ZALTOR_PLATFORM=native: the native backends are not built into this program";
      return nullptr;
    }
#endif
    error = "ZALTOR_PLATFORM=" + name + ": unknown platform (this build offers sim)";
    return nullptr;
  }
  auto notebook = sim::make_sim_notebook(env("ZALTOR_SIM_SCENARIO"), error);
  if (!notebook) return nullptr;
  auto b = std::make_unique<SimBackends>(std::move(notebook));
#ifndef _WIN32
  Platform& p = b->platform_;
  p.console = b->keep(make_stdout_console());
  p.files = b->keep(make_posix_file_system());
  p.profiles = b->keep(make_ini_profile_reader());
  p.crypto = b->keep(make_openssl_crypto());
  p.registry = b->keep(make_state_dir_registry());
  p.services = b->keep(make_systemd_service_manager(*p.clock, systemd_options_from_environment()));
  p.thread_pool = b->keep(make_thread_pool(*p.clock));
  p.event_trace = b->keep(make_system_log_event_trace("ZaltorMultiAntennaSvc"));
#endif
  b->start();
  return b;
}

}  // namespace zaltor::platform
