#include "service/service_application.h"

#include <clocale>

#include "platform/rpc_runtime.h"
#include "platform/status.h"
#include "rpc/control_endpoint.h"
#include "rpc/control_interface.h"

namespace zaltor::service {

ServiceApplication::ServiceApplication(platform::Platform& platform)
    : platform_(platform),
      worker_(platform),
      target_(worker_),
      procedures_(target_),
      diagnostics_(worker_) {}

ServiceApplication::~ServiceApplication() = default;

ServiceHooks ServiceApplication::hooks() {
  ServiceHooks hooks;
  hooks.run_body = [this](CMultiAntennaSvc& svc) { return run_body(svc); };
  hooks.withdraw_control_interface = [this](CMultiAntennaSvc&) {
    if (platform_.rpc != nullptr) rpc::withdraw(*platform_.rpc);
  };
  hooks.set_default_mode = [this](CMultiAntennaSvc&) { return set_default_mode(); };
  hooks.service_ending = [this](CMultiAntennaSvc&) { worker_.detach_log(); };
  return hooks;
}

uint32_t ServiceApplication::run_body(CMultiAntennaSvc& svc) {
  // Character classification follows the user's locale, as the text of device names may
  // need it.
  std::setlocale(LC_CTYPE, "");

  if (worker_.Init(svc.log_context(), svc.console_name()) != 0) {
    svc.log().write(kLogInfo, "Worker obj init() Failed!\n");
    return kStatusWorkerStartFailed;
  }
  // A build without a control interface runtime cannot serve: the service stops as when the
  // runtime is not there to listen.
  if (platform_.rpc == nullptr) return platform::kRpcServerUnavailable;
  rpc::EndpointSetup setup{*platform_.rpc,
                           *platform_.clock,
                           svc.log(),
                           procedures_,
                           rpc::endpoint_name_from_environment(),
                           [this] {
                             if (worker_.initialised()) worker_.SetUserMode(kModeAuto);
                           },
                           &diagnostics_};
  return rpc::serve(setup);
}

uint32_t ServiceApplication::set_default_mode() {
  // A worker still starting has no settings to read yet; it answers 2 as SetUserMode would.
  if (!worker_.initialised()) return SWITCH_ERR_NOT_READY;
  const auto& settings = worker_.settings();
  return worker_.SetUserMode(settings.DefaultMode[worker_.active_set()]);
}

}  // namespace zaltor::service
