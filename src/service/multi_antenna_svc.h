#pragma once
// The service object of this system: the framework's handlers for start and stop, and the
// log state (line buffer, console flag) through which every subsystem writes.
//
// The run body and the two parts of the stop sequence that belong to the engine and the
// control interface are hooks given at construction, so that the service host does not
// depend on how they are built.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "log/line_buffer.h"
#include "log/log_context.h"
#include "log/service_log.h"
#include "platform/thread_pool.h"
#include "service/service_base.h"

namespace zaltor::service {

class CMultiAntennaSvc;

struct ServiceHooks {
  // The run body: brings up the worker and serves the control interface until listening
  // ends. Returns 0 or an error code (110 when the worker did not start).
  std::function<uint32_t(CMultiAntennaSvc&)> run_body;
  // Withdraws the control interface and its endpoint registration; failures are ignored.
  std::function<void(CMultiAntennaSvc&)> withdraw_control_interface;
  // Puts the antenna into the default mode of the config set in force; the worker's answer.
  std::function<uint32_t(CMultiAntennaSvc&)> set_default_mode;
  // The service object is being destroyed while the worker's threads may still log through
  // it (a service ends while its loops sleep). May be empty.
  std::function<void(CMultiAntennaSvc&)> service_ending;
};

// The hooks of a service without a worker: the run body logs that the worker did not start
// and returns 110; there is no control interface to withdraw; setting the default mode
// answers 2 (worker not initialised).
ServiceHooks default_service_hooks();

class CMultiAntennaSvc final : public CServiceBase {
 public:
  // `console_name` is cut to 259 characters. Hooks left empty take the defaults above.
  CMultiAntennaSvc(const std::string& name, const std::string& console_name,
                   platform::Platform& platform, ServiceHooks hooks = {});
  ~CMultiAntennaSvc() override;

  // Console mode: every log entry is also printed to standard output.
  void set_console(bool on) { console_.store(on, std::memory_order_relaxed); }
  bool console() const { return console_.load(std::memory_order_relaxed); }
  // The plain configuration file named on the console command line, or empty.
  const std::string& console_name() const { return console_name_; }

  // The service log call.
  Log& log() { return log_; }
  // What the worker keeps to build its own log call.
  log::LogContext log_context() { return {&lines_, this, &console_}; }

  // In console mode "<level>: <line>" goes to standard output first (a lone line end
  // included), then the line is written as an event.
  int32_t WriteLogEntry(std::string_view line, uint8_t level) override;

  // Runs the run body (console mode calls it on the main thread).
  uint32_t run_body();
  // The thread-pool callback: runs the run body and stops the service when it fails.
  static void work_callback(void* context);

 protected:
  void OnStart(uint32_t argc, char** argv) override;
  void OnStop() override;

 private:
  std::atomic<platform::ThreadPool::Work*> work_{nullptr};
  std::atomic<bool> console_{false};
  log::LineBuffer lines_;
  std::string console_name_;
  ServiceHooks hooks_;
  log::ServiceLog log_;
};

}  // namespace zaltor::service
