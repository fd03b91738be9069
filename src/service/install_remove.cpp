// Installation and removal of the service through the service control manager. Failures
// are printed with the failing call's name; the exit code stays 0 either way.
#include <cstdlib>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/service_manager.h"
#include "service/command_line.h"
#include "service/service_environment.h"
#include "service/service_names.h"

namespace zaltor::service {

using platform::ServiceManager;

int install_service(platform::Platform& platform) {
  ServiceManager& scm = *platform.services;
  Console& out = *platform.console;
  std::string path;
  if (uint32_t error = scm.module_file_name(path); error != 0) {
    out.print("GetModuleFileName failed w/err 0x%08x\n", error);
    return 0;
  }
  ServiceManager::Handle manager = 0;
  if (uint32_t error =
          scm.open_manager(platform::kManagerConnect | platform::kManagerCreateService, manager);
      error != 0) {
    out.print("OpenSCManager failed w/err 0x%08x\n", error);
    return 0;
  }
  platform::ServiceConfig config;
  config.name = kServiceName;
  config.display_name = kDisplayName;
  config.desired_access = platform::kServiceStop | platform::kServiceStart |
                          platform::kServiceQueryStatus | platform::kServiceChangeConfig;
  config.service_type = platform::kServiceWin32OwnProcess;
  config.start_type = platform::kServiceAutoStart;
  config.error_control = platform::kServiceErrorNormal;
  config.binary_path = path;
  config.environment = service_environment([](const char* name) { return std::getenv(name); });
  ServiceManager::Handle service = 0;
  if (uint32_t error = scm.create_service(manager, config, service); error != 0) {
    out.print("CreateService failed w/err 0x%08x\n", error);
    scm.close(manager);
    return 0;
  }
  if (uint32_t error = scm.change_description(service, kDescription); error != 0) {
    out.print("ChangeServiceConfig2 failed w/err 0x%08x\n", error);
  }
  if (uint32_t error = scm.start_service(service); error != 0) {
    out.print("StartService failed w/err 0x%08x\n", error);
  }
  out.print("%s is installed.\n", kServiceName);
  scm.close(manager);
  scm.close(service);
  return 0;
}

int remove_service(platform::Platform& platform) {
  ServiceManager& scm = *platform.services;
  Console& out = *platform.console;
  ServiceManager::Handle manager = 0;
  if (uint32_t error = scm.open_manager(platform::kManagerConnect, manager); error != 0) {
    out.print("OpenSCManager failed w/err 0x%08x\n", error);
    return 0;
  }
  ServiceManager::Handle service = 0;
  if (uint32_t error = scm.open_service(
          manager, kServiceName,
          platform::kServiceDelete | platform::kServiceStop | platform::kServiceQueryStatus,
          service);
      error != 0) {
    out.print("OpenService failed w/err 0x%08x\n", error);
    scm.close(manager);
    return 0;
  }
  platform::ServiceStatus status;
  // A service that is not running refuses the stop: go straight to the deletion.
  if (scm.control_stop(service, status) == 0) {
    out.print("Stopping %s.", kServiceName);
    platform.clock->sleep_ms(1000);
    // Deliberately without an upper bound on the rounds.
    while (scm.query_status(service, status) == 0 &&
           status.current_state == platform::kServiceStopPending) {
      out.print(".");
      platform.clock->sleep_ms(1000);
    }
    if (status.current_state == platform::kServiceStopped) {
      out.print("\n%s is stopped.\n", kServiceName);
    } else {
      out.print("\n%s failed to stop.\n", kServiceName);
    }
  }
  if (uint32_t error = scm.delete_service(service); error == 0) {
    out.print("%s is removed.\n", kServiceName);
  } else {
    out.print("DeleteService failed w/err 0x%08x\n", error);
  }
  scm.close(manager);
  scm.close(service);
  return 0;
}

}  // namespace zaltor::service
