#pragma once
// The service dispatcher under systemd: the notify protocol carries the status reports,
// SIGTERM brings the stop control.

#include <atomic>
#include <mutex>
#include <string>

#include "platform/clock.h"
#include "platform/service_manager.h"

namespace zaltor::platform {

class NotifyDispatcher {
 public:
  NotifyDispatcher(Clock& clock, std::string notify_socket)
      : clock_(clock), notify_socket_(std::move(notify_socket)) {}

  uint32_t run(const std::string& service_name, ServiceManager::ServiceEntry entry);
  uint32_t register_control_handler(const std::string& service_name,
                                    ServiceManager::ControlHandler handler,
                                    ServiceManager::StatusHandle& handle);
  // Reports after the one that said stopped are refused (invalid handle) and not sent: the
  // service has ended for the manager, whatever a slower thread still reports.
  uint32_t set_status(ServiceManager::StatusHandle handle, const ServiceStatus& status);

  // The notify message of one report: "READY=1" for running, "STOPPING=1" for stop pending,
  // and always "STATUS=<state>, checkpoint <n>, exit code <e>".
  static std::string notify_message(const ServiceStatus& status);

 private:
  static constexpr ServiceManager::StatusHandle kStatusHandle = 1;

  Clock& clock_;
  std::string notify_socket_;
  std::string service_name_;
  std::atomic<bool> dispatching_{false};
  std::atomic<ServiceManager::ControlHandler> handler_{nullptr};
  std::atomic<int> notify_fd_{-1};
  std::atomic<int> stopped_fd_{-1};  // written when the service reports stopped
  std::mutex report_lock_;
  bool stopped_ = false;  // under report_lock_
};

}  // namespace zaltor::platform
