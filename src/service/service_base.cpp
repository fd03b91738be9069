#include "service/service_base.h"

#include "log/log_event.h"
#include "log/text_limits.h"
#include "platform/log.h"
#include "service/service_names.h"

namespace zaltor::service {

std::atomic<CServiceBase*> CServiceBase::instance{nullptr};
std::atomic<uint32_t> CServiceBase::check_point{1};

CServiceBase::CServiceBase(const std::string& /*name*/, platform::Platform& platform)
    : service_name_(kServiceName), platform_(platform) {
  status_.service_type = platform::kServiceWin32OwnProcess;
  status_.current_state = platform::kServiceStartPending;
  status_.controls_accepted = platform::kAcceptStop | platform::kAcceptShutdown;
  if (platform_.event_trace != nullptr) {
    const uint32_t error =
        platform_.event_trace->register_provider(log::kLogProviderId, event_handle_);
    if (error != 0) {
      event_handle_ = 0;
      if (platform_.console != nullptr) {
        platform_.console->print("Provider not registered. EventRegister failed with %d\n",
                                 static_cast<int>(error));
      }
    }
  }
}

CServiceBase::~CServiceBase() {
  // The last report of a stop that ran on another thread may still be leaving Report.
  { std::lock_guard<std::mutex> hold(status_lock_); }
  CServiceBase* self = this;
  instance.compare_exchange_strong(self, nullptr);
  if (event_handle_ != 0) platform_.event_trace->unregister(event_handle_);
}

uint32_t CServiceBase::Run(CServiceBase& service) {
  instance.store(&service);
  return service.platform_.services->run_dispatcher(service.service_name_, &ServiceMain);
}

void CServiceBase::ServiceMain(uint32_t argc, char** argv) {
  CServiceBase* service = instance.load();
  platform::ServiceManager::StatusHandle handle = 0;
  const uint32_t error = service->platform_.services->register_control_handler(
      service->service_name_, &ServiceCtrlHandler, handle);
  service->status_handle_.store(handle);
  if (error != 0 || handle == 0) throw error;
  service->Start(argc, argv);
}

void CServiceBase::ServiceCtrlHandler(uint32_t control) {
  CServiceBase* service = instance.load();
  if (service == nullptr) return;
  switch (control) {
    case platform::kControlStop:
      service->Stop();
      break;
    case platform::kControlPause:
      service->Pause();
      break;
    case platform::kControlContinue:
      service->Continue();
      break;
    case platform::kControlShutdown:
      service->Shutdown();
      break;
    default:
      break;
  }
}

uint32_t CServiceBase::next_check_point() {
  return check_point.fetch_add(1, std::memory_order_relaxed);
}

void CServiceBase::report(uint32_t state, uint32_t exit_code, uint32_t point) {
  std::lock_guard<std::mutex> hold(status_lock_);
  status_.current_state = state;
  status_.win32_exit_code = exit_code;
  status_.wait_hint = 0;
  status_.check_point = point;
  // A failed report changes nothing for the service.
  platform_.services->set_status(status_handle_.load(), status_);
}

void CServiceBase::SetStatus(uint32_t state, uint32_t exit_code) {
  const bool settled = state == platform::kServiceRunning || state == platform::kServiceStopped;
  report(state, exit_code, settled ? 0 : next_check_point());
}

platform::ServiceStatus CServiceBase::status() const {
  std::lock_guard<std::mutex> hold(status_lock_);
  return status_;
}

void CServiceBase::WriteErrorEntry(const char* function, uint32_t error) {
  const std::string text = format("%s failed w/err 0x%08x", function, error);
  WriteLogEntry(log::truncate_utf16(text, 259), kLogError);
}

int32_t CServiceBase::WriteLogEntry(std::string_view line, uint8_t level) {
  return log::write_log_event(platform_.event_trace, event_handle_, line, level);
}

void CServiceBase::Start(uint32_t argc, char** argv) {
  try {
    WriteLogEntry("Service trying to start.", kLogError);
    report(platform::kServiceStartPending, 0, next_check_point());
    OnStart(argc, argv);
    report(platform::kServiceRunning, 0, 0);
  } catch (uint32_t error) {
    WriteErrorEntry("Service Start", error);
    report(platform::kServiceStopped, error, 0);
  } catch (...) {
    WriteLogEntry("Service failed to start.", kLogError);
    report(platform::kServiceStopped, 0, 0);
  }
}

void CServiceBase::Stop() {
  const uint32_t original_state = status().current_state;
  try {
    report(platform::kServiceStopPending, 0, next_check_point());
    OnStop();
    report(platform::kServiceStopped, 0, 0);
  } catch (uint32_t error) {
    WriteErrorEntry("Service Stop", error);
    SetStatus(original_state, 0);
  } catch (...) {
    WriteLogEntry("Service failed to stop.", kLogError);
    SetStatus(original_state, 0);
  }
}

void CServiceBase::Pause() {
  try {
    report(platform::kServicePausePending, 0, next_check_point());
    OnPause();
    // Deliberately a fresh checkpoint although paused is not a pending state.
    report(platform::kServicePaused, 0, next_check_point());
  } catch (uint32_t error) {
    WriteErrorEntry("Service Pause", error);
    report(platform::kServiceRunning, 0, 0);
  } catch (...) {
    WriteLogEntry("Service failed to pause.", kLogError);
    report(platform::kServiceRunning, 0, 0);
  }
}

void CServiceBase::Continue() {
  try {
    report(platform::kServiceContinuePending, 0, next_check_point());
    OnContinue();
    report(platform::kServiceRunning, 0, 0);
  } catch (uint32_t error) {
    WriteErrorEntry("Service Continue", error);
    report(platform::kServicePaused, 0, next_check_point());
  } catch (...) {
    WriteLogEntry("Service failed to resume.", kLogError);
    report(platform::kServicePaused, 0, next_check_point());
  }
}

void CServiceBase::Shutdown() {
  try {
    OnShutdown();
    report(platform::kServiceStopped, 0, 0);
  } catch (uint32_t error) {
    WriteErrorEntry("Service Shutdown", error);
  } catch (...) {
    WriteLogEntry("Service failed to shut down.", kLogError);
  }
}

void CServiceBase::OnStart(uint32_t, char**) {}
void CServiceBase::OnStop() {}
void CServiceBase::OnPause() {}
void CServiceBase::OnContinue() {}
void CServiceBase::OnShutdown() {}

}  // namespace zaltor::service
