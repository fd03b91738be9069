#include "service/multi_antenna_svc.h"

#include "log/text_limits.h"
#include "platform/log.h"
#include "platform/status.h"

namespace zaltor::service {

ServiceHooks default_service_hooks() {
  ServiceHooks hooks;
  hooks.run_body = [](CMultiAntennaSvc& svc) -> uint32_t {
    svc.log().write(kLogInfo, "Worker obj init() Failed!\n");
    return kStatusWorkerStartFailed;
  };
  hooks.withdraw_control_interface = [](CMultiAntennaSvc&) {};
  hooks.set_default_mode = [](CMultiAntennaSvc&) -> uint32_t { return SWITCH_ERR_NOT_READY; };
  return hooks;
}

CMultiAntennaSvc::CMultiAntennaSvc(const std::string& name, const std::string& console_name,
                                   platform::Platform& platform, ServiceHooks hooks)
    : CServiceBase(name, platform),
      console_name_(log::truncate_utf16(console_name, 259)),
      hooks_(std::move(hooks)),
      log_(log::LogContext{&lines_, this, &console_}) {
  const ServiceHooks defaults = default_service_hooks();
  if (!hooks_.run_body) hooks_.run_body = defaults.run_body;
  if (!hooks_.withdraw_control_interface) {
    hooks_.withdraw_control_interface = defaults.withdraw_control_interface;
  }
  if (!hooks_.set_default_mode) hooks_.set_default_mode = defaults.set_default_mode;
}

CMultiAntennaSvc::~CMultiAntennaSvc() {
  if (hooks_.service_ending) hooks_.service_ending(*this);
}

int32_t CMultiAntennaSvc::WriteLogEntry(std::string_view line, uint8_t level) {
  if (console() && platform().console != nullptr) {
    // "%.*s" stops at an embedded terminator as "%s" would: the echo shows what it always did.
    platform().console->print("%d: %.*s", static_cast<int>(level), static_cast<int>(line.size()),
                              line.data());
  }
  return CServiceBase::WriteLogEntry(line, level);
}

uint32_t CMultiAntennaSvc::run_body() {
  return hooks_.run_body(*this);
}

void CMultiAntennaSvc::work_callback(void* context) {
  auto* svc = static_cast<CMultiAntennaSvc*>(context);
  // The run body's error code is not reported to the manager: the service just stops.
  if (svc->run_body() != 0) svc->Stop();
}

void CMultiAntennaSvc::OnStart(uint32_t, char**) {
  WriteLogEntry("MultiAntennaSvc in OnStart", kLogInfo);
  platform::ThreadPool* pool = platform().thread_pool;
  platform::ThreadPool::Work* work = pool->create_work(&work_callback, this);
  work_.store(work);
  if (work == nullptr) WriteLogEntry("CreateThreadpoolWork failed", kLogError);
  // Submitted without a further test: without an item nothing runs and the service stays
  // running, doing nothing.
  pool->submit(work_.load());
}

void CMultiAntennaSvc::OnStop() {
  WriteLogEntry("MultiAntennaSvc in OnStop", kLogInfo);
  hooks_.withdraw_control_interface(*this);
  log().write(kLogInfo, "Trying to set antenna to default mode...\n");
  // The worker's answer is the result of the stop and otherwise ignored.
  hooks_.set_default_mode(*this);
}

}  // namespace zaltor::service
