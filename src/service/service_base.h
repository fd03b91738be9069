#pragma once
// A small service framework: the service's identity and status record, the fixed sequence
// of status reports around overridable handlers, and the catching of what they throw (a
// thrown uint32_t is a Win32 error code, anything else an unknown failure).
//
// Exactly one service object exists per process. The service entry point and the control
// handler are static and reach it through the process-wide instance that Run publishes.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "log/log_entry_writer.h"
#include "platform/event_trace.h"
#include "platform/platform.h"
#include "platform/service_manager.h"

namespace zaltor::service {

class CServiceBase : public log::LogEntryWriter {
 public:
  // The name is always "ZaltorMultiAntennaSvc", whatever `name` says. Registers the log's
  // event provider; a failure is printed to standard output and later events are dropped.
  CServiceBase(const std::string& name, platform::Platform& platform);
  ~CServiceBase() override;
  CServiceBase(const CServiceBase&) = delete;
  CServiceBase& operator=(const CServiceBase&) = delete;

  // Publishes `service` as the process's instance and runs the dispatcher with the
  // service entry point. 0 once the service has stopped, or the dispatcher's error.
  static uint32_t Run(CServiceBase& service);
  // The service entry point: registers the control handler (throwing its error as a
  // uint32_t, which nothing catches) and starts the service.
  static void ServiceMain(uint32_t argc, char** argv);
  // Stop, pause, continue and shutdown go to their transitions; every other control
  // (interrogate included) is ignored without a report.
  static void ServiceCtrlHandler(uint32_t control);

  void Start(uint32_t argc, char** argv);
  void Stop();
  void Pause();
  void Continue();
  void Shutdown();

  // The event write of the log: nothing for a lone line end or without a provider.
  int32_t WriteLogEntry(std::string_view line, uint8_t level) override;

  const std::string& service_name() const { return service_name_; }
  platform::Platform& platform() { return platform_; }
  // A copy of the status record as last set.
  platform::ServiceStatus status() const;

 protected:
  virtual void OnStart(uint32_t argc, char** argv);
  virtual void OnStop();
  virtual void OnPause();
  virtual void OnContinue();
  virtual void OnShutdown();

  // Reports `state` with exit code `exit_code`; the checkpoint is 0 for running and
  // stopped, else the next one.
  void SetStatus(uint32_t state, uint32_t exit_code);
  // Logs "<function> failed w/err 0x<error>" at level 2 (cut to 259 characters).
  void WriteErrorEntry(const char* function, uint32_t error);

 private:
  // Sets the state, the exit code, wait hint 0 and the check point `point`, then reports.
  void report(uint32_t state, uint32_t exit_code, uint32_t point);
  static uint32_t next_check_point();

  std::string service_name_;
  mutable std::mutex status_lock_;
  platform::ServiceStatus status_;
  std::atomic<platform::ServiceManager::StatusHandle> status_handle_{0};
  platform::EventTrace::Handle event_handle_ = 0;
  platform::Platform& platform_;

  static std::atomic<CServiceBase*> instance;
  // Shared by every transition of every handler, from 1, never reset.
  static std::atomic<uint32_t> check_point;
};

}  // namespace zaltor::service
