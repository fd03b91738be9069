// Chooses the backends at start-up from the environment, one line per seam.
//
// ZALTOR_PLATFORM=sim (the default, and the only choice on Linux) runs on the simulated
// notebook described by ZALTOR_SIM_SCENARIO (or the built-in scenario): its clock and its
// hardware; the operating system's own facilities stay real. With the simulated notebook
// the calling thread stays attached to the notebook's clock, so that in virtual time
// nothing of the notebook runs ahead while the service starts; the service steps out of
// the clock (ClockAbsence) while it blocks outside it.
//
// On Windows, ZALTOR_PLATFORM=sim keeps the service manager, registry, profile files,
// cryptography, event tracing, thread pool and RPC runtime real (the Win32 backends); only the
// notebook's hardware and its clock are simulated. ZALTOR_PLATFORM=native (the default there) runs
// on the machine itself: the real clock, the hardware backends (control device, WMI, setup API,
// native Wi-Fi, PDH, the event window) and the same operating-system backends.
//
// On Windows a service process applies the settings that the installation registered in
// the service's key (its "Environment" value) first, where it does not have them already:
// Windows' service manager gives them to the service process itself, Wine's does not.
#include "platform/select/backends.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/sim/sim_notebook.h"

#if defined(_WIN32)
#include "platform/win32/win32_backends.h"
#include "platform/win32/win32_hardware.h"
#else
#include "platform/posix/posix_backends.h"
#include "platform/posix/socket_rpc_runtime.h"
#endif

namespace zaltor::platform {
namespace {

// The service's name in the service manager, whose key holds its registered settings.
constexpr const char* kServiceName = "ZaltorMultiAntennaSvc";

std::string env(const char* name) {
  const char* v = std::getenv(name);
  return v != nullptr ? v : "";
}

class OwnedBackends final : public Backends {
 public:
  // Later backends use earlier ones (the notebook and its clock first): release them in
  // reverse order.
  ~OwnedBackends() override {
    while (!owned_.empty()) owned_.pop_back();
  }
  Platform& platform() override { return owned_platform; }
  void set_simulation_end_hook(std::function<void()> hook) override {
    if (notebook_ != nullptr) notebook_->set_stop_hook(std::move(hook));
  }

  // Keeps `backend` for the life of the process's backends and returns it.
  template <typename T>
  T* keep(std::unique_ptr<T> backend) {
    T* raw = backend.get();
    owned_.push_back(std::shared_ptr<void>(std::move(backend)));
    return raw;
  }

  void use_notebook(std::unique_ptr<sim::SimNotebook> notebook) {
    notebook_ = keep(std::move(notebook));
    Platform& p = owned_platform;
    p.clock = &notebook_->clock();
    p.control_device = &notebook_->control_device();
    p.board = &notebook_->board();
    p.devices = &notebook_->devices();
    p.wlan = &notebook_->wlan();
    p.counters = &notebook_->counters();
    p.system_events = &notebook_->system_events();
    // Until the service sets its own: end the process as a finished run does.
    notebook_->set_stop_hook([] {
      std::fflush(nullptr);
      std::_Exit(0);
    });
  }

  void start_notebook() {
    notebook_->clock().attach_current_thread();
    notebook_->start();
  }

  Platform owned_platform;

 private:
  std::vector<std::shared_ptr<void>> owned_;
  sim::SimNotebook* notebook_ = nullptr;
};

// The operating system's own facilities, the same under every notebook; the thread pool
// runs its callbacks on `p.clock`, which must be set.
void use_operating_system(OwnedBackends& b) {
  Platform& p = b.owned_platform;
#if defined(_WIN32)
  p.console = b.keep(make_win32_console());
  p.files = b.keep(make_win32_file_system());
  p.profiles = b.keep(make_private_profile_reader());
  p.crypto = b.keep(make_cng_crypto());
  p.registry = b.keep(make_win32_registry());
  p.services = b.keep(make_scm_service_manager());
  p.thread_pool = b.keep(make_win32_thread_pool(*p.clock));
  p.event_trace = b.keep(make_etw_event_trace());
  p.rpc = b.keep(make_win32_rpc_runtime(*p.clock));
#else
  p.console = b.keep(make_stdout_console());
  p.files = b.keep(make_posix_file_system());
  p.profiles = b.keep(make_ini_profile_reader());
  p.crypto = b.keep(make_openssl_crypto());
  p.registry = b.keep(make_state_dir_registry());
  p.services = b.keep(make_systemd_service_manager(*p.clock, systemd_options_from_environment()));
  p.thread_pool = b.keep(make_thread_pool(*p.clock));
  p.event_trace = b.keep(make_system_log_event_trace(kServiceName));
  p.rpc = b.keep(make_socket_rpc_runtime(*p.clock));
#endif
}

#if defined(_WIN32)
// The machine itself: its clock and its hardware.
std::unique_ptr<Backends> make_native_backends() {
  auto b = std::make_unique<OwnedBackends>();
  Platform& p = b->owned_platform;
  p.clock = b->keep(make_real_clock());
  p.control_device = b->keep(make_win32_control_device());
  p.board = b->keep(make_wmi_board_query());
  p.devices = b->keep(make_setupapi_device_lists());
  p.wlan = b->keep(make_native_wifi_wlan());
  p.counters = b->keep(make_pdh_counters());
  p.system_events = b->keep(make_win32_system_events());
  use_operating_system(*b);
  return b;
}
#endif

}  // namespace

std::unique_ptr<Backends> make_backends(std::string& error, bool service_process) {
#if defined(_WIN32)
  // A service process started by Wine's service manager does not get the settings that
  // the installation registered in the service's key (Windows' manager applies them):
  // take them from there where the process has none of its own. Without the value
  // (not installed) nothing changes.
  if (service_process) apply_service_environment(kServiceName);
  const std::string default_platform = "native";
#else
  (void)service_process;  // systemd applies the unit's Environment= lines itself
  const std::string default_platform = "sim";
#endif
  std::string name = env("ZALTOR_PLATFORM");
  if (name.empty()) name = default_platform;
#if defined(_WIN32)
  if (name == "native") return make_native_backends();
  const char* offered = "sim, native";
#else
  const char* offered = "sim";
#endif
  if (name != "sim") {
    error = "ZALTOR_PLATFORM=" + name + ": unknown platform (this build offers " + offered + ")";
    return nullptr;
  }

  auto b = std::make_unique<OwnedBackends>();
  auto notebook = sim::make_sim_notebook(env("ZALTOR_SIM_SCENARIO"), error);
  if (!notebook) return nullptr;
  b->use_notebook(std::move(notebook));
  use_operating_system(*b);
  b->start_notebook();
  return b;
}

}  // namespace zaltor::platform
