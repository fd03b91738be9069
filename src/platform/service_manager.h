#pragma once
// The service control manager: registration of the service, its start and stop, and the
// dispatcher through which a running service receives its controls and reports its state.
// Every operation answers 0 or the Win32 error code that the same failure gives on Windows
// (for instance 5 access denied, 1060 no such service, 1062 service not running,
// 1063 not started by the manager, 1073 service exists).

#include <cstdint>
#include <string>
#include <vector>

#include "platform/system_errors.h"

namespace zaltor::platform {

// Service states, as the manager numbers them.
enum ServiceState : uint32_t {
  kServiceStopped = 1,
  kServiceStartPending = 2,
  kServiceStopPending = 3,
  kServiceRunning = 4,
  kServiceContinuePending = 5,
  kServicePausePending = 6,
  kServicePaused = 7,
};

// Control codes delivered to the control handler.
enum ServiceControl : uint32_t {
  kControlStop = 1,
  kControlPause = 2,
  kControlContinue = 3,
  kControlInterrogate = 4,
  kControlShutdown = 5,
};

// Accepted controls (bit mask).
inline constexpr uint32_t kAcceptStop = 0x1;
inline constexpr uint32_t kAcceptPauseContinue = 0x2;
inline constexpr uint32_t kAcceptShutdown = 0x4;

// Access rights.
inline constexpr uint32_t kManagerConnect = 0x1;
inline constexpr uint32_t kManagerCreateService = 0x2;
inline constexpr uint32_t kServiceQueryStatus = 0x4;
inline constexpr uint32_t kServiceStart = 0x10;
inline constexpr uint32_t kServiceStop = 0x20;
inline constexpr uint32_t kServiceChangeConfig = 0x2;
inline constexpr uint32_t kServiceDelete = 0x10000;

// Service type, start type and error control of a registration.
inline constexpr uint32_t kServiceWin32OwnProcess = 0x10;
inline constexpr uint32_t kServiceAutoStart = 2;
inline constexpr uint32_t kServiceDemandStart = 3;
inline constexpr uint32_t kServiceErrorNormal = 1;

// Win32 error codes the manager answers with.
inline constexpr uint32_t kErrorServiceAlreadyRunning = 1056;
inline constexpr uint32_t kErrorServiceDoesNotExist = 1060;
inline constexpr uint32_t kErrorServiceCannotAcceptControl = 1061;
inline constexpr uint32_t kErrorServiceNotActive = 1062;
inline constexpr uint32_t kErrorFailedServiceControllerConnect = 1063;
inline constexpr uint32_t kErrorServiceExists = 1073;
inline constexpr uint32_t kErrorFunctionFailed = 1627;
inline constexpr uint32_t kErrorRpcServerUnavailable = 1722;

// The status record a service reports (SERVICE_STATUS).
struct ServiceStatus {
  uint32_t service_type = 0;
  uint32_t current_state = 0;
  uint32_t controls_accepted = 0;
  uint32_t win32_exit_code = 0;
  uint32_t service_specific_exit_code = 0;
  uint32_t check_point = 0;
  uint32_t wait_hint = 0;
};

// What CreateService registers.
struct ServiceConfig {
  std::string name;
  std::string display_name;
  uint32_t desired_access = 0;
  uint32_t service_type = kServiceWin32OwnProcess;
  uint32_t start_type = kServiceDemandStart;
  uint32_t error_control = kServiceErrorNormal;
  // The executable, exactly as it is to be started (no quoting, no arguments).
  std::string binary_path;
  // "NAME=value" entries the service process gets in its environment (Windows: the service
  // key's "Environment" value; systemd: Environment= lines). Empty: nothing is registered.
  std::vector<std::string> environment;
};

class ServiceManager {
 public:
  // Handles of the manager and of services; 0 is none.
  using Handle = uint64_t;
  // Status handle of a running service (SERVICE_STATUS_HANDLE); 0 is none.
  using StatusHandle = uint64_t;
  // The service entry point and the control handler, as the dispatcher calls them. The
  // argument vector is UTF-8; its first element is the service name.
  using ServiceEntry = void (*)(uint32_t argc, char** argv);
  using ControlHandler = void (*)(uint32_t control);

  virtual ~ServiceManager() = default;

  // The path of the running executable (GetModuleFileName of the process).
  virtual uint32_t module_file_name(std::string& path) = 0;

  virtual uint32_t open_manager(uint32_t access, Handle& manager) = 0;
  virtual uint32_t create_service(Handle manager, const ServiceConfig& config, Handle& service) = 0;
  // ChangeServiceConfig2 with SERVICE_CONFIG_DESCRIPTION.
  virtual uint32_t change_description(Handle service, const std::string& description) = 0;
  // StartService without arguments.
  virtual uint32_t start_service(Handle service) = 0;
  virtual uint32_t open_service(Handle manager, const std::string& name, uint32_t access,
                                Handle& service) = 0;
  // ControlService with the stop control; `status` receives the state after the request.
  virtual uint32_t control_stop(Handle service, ServiceStatus& status) = 0;
  virtual uint32_t query_status(Handle service, ServiceStatus& status) = 0;
  virtual uint32_t delete_service(Handle service) = 0;
  virtual uint32_t close(Handle handle) = 0;

  // StartServiceCtrlDispatcher with one service: returns when the service has reported
  // that it stopped, or at once with the error when the process was not started by the
  // manager.
  virtual uint32_t run_dispatcher(const std::string& service_name, ServiceEntry entry) = 0;
  // RegisterServiceCtrlHandler (the plain form): only from inside the service entry point.
  virtual uint32_t register_control_handler(const std::string& service_name, ControlHandler handler,
                                            StatusHandle& handle) = 0;
  virtual uint32_t set_status(StatusHandle handle, const ServiceStatus& status) = 0;
};

}  // namespace zaltor::platform
