// The backends of this process, one line per seam.
#include "platform/select/backends.h"

#include <memory>
#include <vector>

#include "platform/clock.h"
#include "platform/log.h"

#ifndef _WIN32
#include "platform/posix/posix_backends.h"
#endif

namespace zaltor::platform {
namespace {

class OwnedBackends final : public Backends {
 public:
  // Later backends may use earlier ones (the clock first): release them in reverse.
  ~OwnedBackends() override {
    while (!owned_.empty()) owned_.pop_back();
  }
  Platform& platform() override { return platform_; }

  // Keeps `backend` for the life of the process's backends and returns it.
  template <typename T>
  T* keep(std::unique_ptr<T> backend) {
    T* raw = backend.get();
    owned_.push_back(std::shared_ptr<void>(std::move(backend)));
    return raw;
  }

  Platform platform_;

 private:
  std::vector<std::shared_ptr<void>> owned_;
};

}  // namespace

std::unique_ptr<Backends> make_backends(std::string& error) {
  auto b = std::make_unique<OwnedBackends>();
  Platform& p = b->platform_;
  p.clock = b->keep(make_real_clock());
#ifdef _WIN32
  error = "the Windows operating-system backends are not part of this build yet";
  return nullptr;
#else
  p.console = b->keep(make_stdout_console());
  p.files = b->keep(make_posix_file_system());
  p.services = b->keep(make_systemd_service_manager(*p.clock, systemd_options_from_environment()));
  p.thread_pool = b->keep(make_thread_pool(*p.clock));
  p.event_trace = b->keep(make_system_log_event_trace("ZaltorMultiAntennaSvc"));
  (void)error;
  return b;
#endif
}

}  // namespace zaltor::platform
