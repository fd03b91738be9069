// The service control manager. Handles cross the seam as integers holding the SC_HANDLE or
// SERVICE_STATUS_HANDLE; 0 is none, as the manager's own null handle.
//
// The dispatcher and the control handler are static trampolines: the manager calls them
// with Win32 signatures and wide text, they call the portable service entry point and
// control handler. One service runs per process, so one pair of them is kept.
#include <windows.h>

#include <atomic>
#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

constexpr DWORD kPathChars = 260;

std::atomic<ServiceManager::ServiceEntry> g_entry{nullptr};
std::atomic<ServiceManager::ControlHandler> g_handler{nullptr};
// The thread that called the control handler last.
std::atomic<DWORD> g_handler_thread{0};

// How long a service process waits, once its service has stopped, for the control thread
// that delivered the stop to finish.
constexpr DWORD kControlAnswerWaitMs = 1000;

SC_HANDLE sc(ServiceManager::Handle h) {
  return reinterpret_cast<SC_HANDLE>(static_cast<uintptr_t>(h));
}

ServiceManager::Handle handle_of(SC_HANDLE h) {
  return static_cast<ServiceManager::Handle>(reinterpret_cast<uintptr_t>(h));
}

ServiceStatus from_win32(const SERVICE_STATUS& s) {
  ServiceStatus out;
  out.service_type = s.dwServiceType;
  out.current_state = s.dwCurrentState;
  out.controls_accepted = s.dwControlsAccepted;
  out.win32_exit_code = s.dwWin32ExitCode;
  out.service_specific_exit_code = s.dwServiceSpecificExitCode;
  out.check_point = s.dwCheckPoint;
  out.wait_hint = s.dwWaitHint;
  return out;
}

SERVICE_STATUS to_win32(const ServiceStatus& s) {
  SERVICE_STATUS out{};
  out.dwServiceType = s.service_type;
  out.dwCurrentState = s.current_state;
  out.dwControlsAccepted = s.controls_accepted;
  out.dwWin32ExitCode = s.win32_exit_code;
  out.dwServiceSpecificExitCode = s.service_specific_exit_code;
  out.dwCheckPoint = s.check_point;
  out.dwWaitHint = s.wait_hint;
  return out;
}

void WINAPI service_main_trampoline(DWORD argc, LPWSTR* argv) {
  std::vector<std::string> args;
  for (DWORD i = 0; i < argc; ++i) args.push_back(argv[i] != nullptr ? win32::narrow(argv[i]) : "");
  std::vector<char*> pointers;
  for (auto& a : args) pointers.push_back(a.data());
  pointers.push_back(nullptr);
  ServiceManager::ServiceEntry entry = g_entry.load();
  if (entry == nullptr) return;
  try {
    entry(argc, pointers.data());
  } catch (uint32_t error) {
    // The entry point throws the error of a failed handler registration, and nothing is
    // meant to handle it: the process ends with that error, without unwinding through the
    // dispatcher's frames.
    ExitProcess(error);
  } catch (...) {
    ExitProcess(ERROR_SERVICE_SPECIFIC_ERROR);
  }
}

void WINAPI control_handler_trampoline(DWORD control) {
  g_handler_thread.store(GetCurrentThreadId());
  ServiceManager::ControlHandler handler = g_handler.load();
  if (handler != nullptr) handler(control);
}

// The service stops inside the stop control's handler, and the process ends as soon as the
// dispatcher returns. Windows calls control handlers on the dispatcher's own thread, so the
// stop's answer has reached the manager by then. Wine calls them on a thread of its own,
// which answers the manager only after the handler returned: ending the process first makes
// the manager's ControlService fail although the service stopped. So where the last
// handler ran on another thread, wait (bounded) for that thread to be done.
void let_control_answer_out() {
  const DWORD id = g_handler_thread.load();
  if (id == 0 || id == GetCurrentThreadId()) return;
  HANDLE thread = OpenThread(SYNCHRONIZE, FALSE, id);
  if (thread == nullptr) return;  // already gone
  WaitForSingleObject(thread, kControlAnswerWaitMs);
  CloseHandle(thread);
}

class ScmServiceManager final : public ServiceManager {
 public:
  uint32_t module_file_name(std::string& path) override {
    wchar_t buf[kPathChars] = {};
    const DWORD n = GetModuleFileNameW(nullptr, buf, kPathChars);
    if (n == 0) return GetLastError();
    if (n >= kPathChars) return ERROR_INSUFFICIENT_BUFFER;
    path = win32::narrow(buf, n);
    return 0;
  }

  uint32_t open_manager(uint32_t access, Handle& manager) override {
    SC_HANDLE h = OpenSCManagerW(nullptr, nullptr, access);
    manager = handle_of(h);
    return h != nullptr ? 0 : GetLastError();
  }

  uint32_t create_service(Handle manager, const ServiceConfig& config, Handle& service) override {
    const std::wstring name = win32::wide(config.name);
    const std::wstring display = win32::wide(config.display_name);
    const std::wstring binary = win32::wide(config.binary_path);
    // An empty dependency list: one empty string, that is two zero characters.
    static const wchar_t kNoDependencies[] = L"\0";
    SC_HANDLE h =
        CreateServiceW(sc(manager), name.c_str(), display.c_str(), config.desired_access,
                       config.service_type, config.start_type, config.error_control, binary.c_str(),
                       nullptr, nullptr, kNoDependencies, nullptr, nullptr);
    if (h == nullptr) {
      service = 0;
      return GetLastError();
    }
    if (!config.environment.empty()) {
      // A service that would start without its settings is not installed at all.
      if (const uint32_t error = write_service_environment(config.name, config.environment);
          error != 0) {
        DeleteService(h);
        CloseServiceHandle(h);
        service = 0;
        return error;
      }
    }
    service = handle_of(h);
    return 0;
  }

  uint32_t change_description(Handle service, const std::string& description) override {
    std::wstring text = win32::wide(description);
    SERVICE_DESCRIPTIONW d{};
    d.lpDescription = text.data();
    return ChangeServiceConfig2W(sc(service), SERVICE_CONFIG_DESCRIPTION, &d) ? 0 : GetLastError();
  }

  uint32_t start_service(Handle service) override {
    return StartServiceW(sc(service), 0, nullptr) ? 0 : GetLastError();
  }

  uint32_t open_service(Handle manager, const std::string& name, uint32_t access,
                        Handle& service) override {
    SC_HANDLE h = OpenServiceW(sc(manager), win32::wide(name).c_str(), access);
    service = handle_of(h);
    return h != nullptr ? 0 : GetLastError();
  }

  uint32_t control_stop(Handle service, ServiceStatus& status) override {
    SERVICE_STATUS s{};
    const BOOL ok = ControlService(sc(service), SERVICE_CONTROL_STOP, &s);
    const DWORD error = ok ? 0 : GetLastError();
    status = from_win32(s);
    return error;
  }

  uint32_t query_status(Handle service, ServiceStatus& status) override {
    SERVICE_STATUS s{};
    if (!QueryServiceStatus(sc(service), &s)) return GetLastError();
    status = from_win32(s);
    return 0;
  }

  uint32_t delete_service(Handle service) override {
    return DeleteService(sc(service)) ? 0 : GetLastError();
  }

  uint32_t close(Handle handle) override {
    return CloseServiceHandle(sc(handle)) ? 0 : GetLastError();
  }

  uint32_t run_dispatcher(const std::string& service_name, ServiceEntry entry) override {
    std::wstring name = win32::wide(service_name);
    g_entry.store(entry);
    SERVICE_TABLE_ENTRYW table[] = {{name.data(), &service_main_trampoline}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(table)) return GetLastError();
    let_control_answer_out();
    return 0;
  }

  uint32_t register_control_handler(const std::string& service_name, ControlHandler handler,
                                    StatusHandle& handle) override {
    g_handler.store(handler);
    SERVICE_STATUS_HANDLE h =
        RegisterServiceCtrlHandlerW(win32::wide(service_name).c_str(), &control_handler_trampoline);
    handle = static_cast<StatusHandle>(reinterpret_cast<uintptr_t>(h));
    return h != nullptr ? 0 : GetLastError();
  }

  uint32_t set_status(StatusHandle handle, const ServiceStatus& status) override {
    SERVICE_STATUS s = to_win32(status);
    return SetServiceStatus(reinterpret_cast<SERVICE_STATUS_HANDLE>(static_cast<uintptr_t>(handle)),
                            &s)
               ? 0
               : GetLastError();
  }
};

}  // namespace

std::unique_ptr<ServiceManager> make_scm_service_manager() {
  return std::make_unique<ScmServiceManager>();
}

}  // namespace zaltor::platform
