// The service control manager on systemd: a service is a unit file in the unit directory,
// started, stopped and queried through systemctl.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>

#include "platform/posix/notify_dispatcher.h"
#include "platform/posix/posix_backends.h"
#include "platform/posix/run_process.h"

namespace zaltor::platform {
namespace {

bool contains(const std::string& text, const char* what) {
  return text.find(what) != std::string::npos;
}

uint32_t error_of(const ProcessResult& r) {
  if (!r.started) return kErrorRpcServerUnavailable;
  if (r.exit_code == 0) return 0;
  const std::string& e = r.err;
  if (contains(e, "Access denied") || contains(e, "Permission denied") ||
      contains(e, "authentication required") || contains(e, "Authentication is required")) {
    return kErrorAccessDenied;
  }
  if (contains(e, "not found") || contains(e, "could not be found") || contains(e, "not loaded") ||
      contains(e, "does not exist")) {
    return kErrorServiceDoesNotExist;
  }
  return kErrorFunctionFailed;
}

uint32_t state_of(const std::string& active_state) {
  std::string s = active_state;
  while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
  if (s == "activating") return kServiceStartPending;
  if (s == "active" || s == "reloading") return kServiceRunning;
  if (s == "deactivating") return kServiceStopPending;
  return kServiceStopped;  // inactive, failed and anything unknown
}

// ExecStart= takes a command line: quote the path and escape what systemd would expand.
std::string exec_start_of(const std::string& path) {
  std::string out = "\"";
  for (char c : path) {
    if (c == '%') {
      out += "%%";
    } else if (c == '\\' || c == '"') {
      out += '\\';
      out += c;
    } else if (c == '$') {
      out += "$$";
    } else {
      out += c;
    }
  }
  return out + "\"";
}

// One Environment= assignment, quoted: specifiers (%) doubled, backslashes and quotes
// escaped. systemd does not expand $ there.
std::string environment_line(const std::string& entry) {
  std::string out = "Environment=\"";
  for (char c : entry) {
    if (c == '%') {
      out += "%%";
    } else if (c == '\\' || c == '"') {
      out += '\\';
      out += c;
    } else {
      out += c;
    }
  }
  return out + "\"\n";
}

uint32_t errno_error(int e) {
  if (e == EACCES || e == EPERM || e == EROFS) return kErrorAccessDenied;
  if (e == ENOENT) return kErrorServiceDoesNotExist;
  return kErrorFunctionFailed;
}

class SystemdServiceManager final : public ServiceManager {
 public:
  SystemdServiceManager(Clock& clock, SystemdOptions options)
      : options_(std::move(options)), dispatcher_(clock, options_.notify_socket) {}

  uint32_t module_file_name(std::string& path) override {
    char buf[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf);
    if (n < 0 || static_cast<size_t>(n) >= sizeof buf) return errno_error(errno);
    path.assign(buf, static_cast<size_t>(n));
    return 0;
  }

  uint32_t open_manager(uint32_t access, Handle& manager) override {
    manager = 0;
    if (::access(options_.unit_dir.c_str(), F_OK) != 0) return kErrorRpcServerUnavailable;
    if ((access & kManagerCreateService) != 0 && !unit_dir_writable()) return kErrorAccessDenied;
    manager = add({true, access, {}});
    return 0;
  }

  uint32_t create_service(Handle manager, const ServiceConfig& config, Handle& service) override {
    service = 0;
    Entry m;
    if (!find(manager, m) || !m.is_manager) return kErrorInvalidHandle;
    if ((m.access & kManagerCreateService) == 0) return kErrorAccessDenied;
    if (config.name.empty() || config.name.find('/') != std::string::npos) {
      return kErrorInvalidParameter;
    }
    const std::string path = unit_path(config.name);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return errno == EEXIST ? kErrorServiceExists : errno_error(errno);
    std::ostringstream unit;
    unit << "# " << config.display_name << "\n"
         << "[Unit]\n"
         << "Description=" << config.display_name << "\n"
         << "\n[Service]\n"
         << "Type=notify\n";
    for (const auto& entry : config.environment) unit << environment_line(entry);
    unit << "ExecStart=" << exec_start_of(config.binary_path) << "\n"
         << "\n[Install]\n"
         << "WantedBy=multi-user.target\n";
    const std::string text = unit.str();
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    uint32_t error = written ? 0 : kErrorFunctionFailed;
    if (error == 0) error = systemctl({"daemon-reload"});
    if (error == 0 && config.start_type == kServiceAutoStart) {
      error = systemctl({"enable", unit_name(config.name)});
    }
    if (error != 0) {
      ::unlink(path.c_str());
      return error;
    }
    service = add({false, config.desired_access, config.name});
    return 0;
  }

  uint32_t change_description(Handle service, const std::string& description) override {
    Entry s;
    if (!find(service, s) || s.is_manager) return kErrorInvalidHandle;
    if ((s.access & kServiceChangeConfig) == 0) return kErrorAccessDenied;
    std::ifstream in(unit_path(s.name));
    if (!in) return kErrorServiceDoesNotExist;
    std::string text;
    std::string line;
    while (std::getline(in, line)) {
      if (line.rfind("Description=", 0) == 0) line = "Description=" + description;
      text += line + "\n";
    }
    in.close();
    std::ofstream out(unit_path(s.name), std::ios::trunc);
    if (!out) return kErrorAccessDenied;
    out << text;
    out.close();
    if (!out) return kErrorFunctionFailed;
    return systemctl({"daemon-reload"});
  }

  uint32_t start_service(Handle service) override {
    Entry s;
    if (!find(service, s) || s.is_manager) return kErrorInvalidHandle;
    if ((s.access & kServiceStart) == 0) return kErrorAccessDenied;
    ServiceStatus status;
    if (uint32_t error = query(s.name, status); error != 0) return error;
    if (status.current_state != kServiceStopped) return kErrorServiceAlreadyRunning;
    return systemctl({"start", "--no-block", unit_name(s.name)});
  }

  uint32_t open_service(Handle manager, const std::string& name, uint32_t access,
                        Handle& service) override {
    service = 0;
    Entry m;
    if (!find(manager, m) || !m.is_manager) return kErrorInvalidHandle;
    if (name.empty() || name.find('/') != std::string::npos ||
        ::access(unit_path(name).c_str(), F_OK) != 0) {
      return kErrorServiceDoesNotExist;
    }
    if ((access & kServiceDelete) != 0 && !unit_dir_writable()) return kErrorAccessDenied;
    service = add({false, access, name});
    return 0;
  }

  uint32_t control_stop(Handle service, ServiceStatus& status) override {
    Entry s;
    if (!find(service, s) || s.is_manager) return kErrorInvalidHandle;
    if ((s.access & kServiceStop) == 0) return kErrorAccessDenied;
    if (uint32_t error = query(s.name, status); error != 0) return error;
    if (status.current_state == kServiceStopped) return kErrorServiceNotActive;
    if (uint32_t error = systemctl({"stop", "--no-block", unit_name(s.name)}); error != 0) {
      return error;
    }
    return query(s.name, status);
  }

  uint32_t query_status(Handle service, ServiceStatus& status) override {
    Entry s;
    if (!find(service, s) || s.is_manager) return kErrorInvalidHandle;
    if ((s.access & kServiceQueryStatus) == 0) return kErrorAccessDenied;
    return query(s.name, status);
  }

  uint32_t delete_service(Handle service) override {
    Entry s;
    if (!find(service, s) || s.is_manager) return kErrorInvalidHandle;
    if ((s.access & kServiceDelete) == 0) return kErrorAccessDenied;
    if (::access(unit_path(s.name).c_str(), F_OK) != 0) return kErrorServiceDoesNotExist;
    if (uint32_t error = systemctl({"disable", unit_name(s.name)}); error != 0) return error;
    if (::unlink(unit_path(s.name).c_str()) != 0) return errno_error(errno);
    return systemctl({"daemon-reload"});
  }

  uint32_t close(Handle handle) override {
    std::lock_guard<std::mutex> hold(lock_);
    return handles_.erase(handle) == 1 ? 0 : kErrorInvalidHandle;
  }

  uint32_t run_dispatcher(const std::string& service_name, ServiceEntry entry) override {
    return dispatcher_.run(service_name, entry);
  }
  uint32_t register_control_handler(const std::string& service_name, ControlHandler handler,
                                    StatusHandle& handle) override {
    return dispatcher_.register_control_handler(service_name, handler, handle);
  }
  uint32_t set_status(StatusHandle handle, const ServiceStatus& status) override {
    return dispatcher_.set_status(handle, status);
  }

 private:
  struct Entry {
    bool is_manager = false;
    uint32_t access = 0;
    std::string name;
  };

  static std::string unit_name(const std::string& name) { return name + ".service"; }
  std::string unit_path(const std::string& name) const {
    return options_.unit_dir + "/" + unit_name(name);
  }
  bool unit_dir_writable() const { return ::access(options_.unit_dir.c_str(), W_OK) == 0; }

  static uint32_t systemctl(std::vector<std::string> args) {
    args.insert(args.begin(), "systemctl");
    return error_of(run_process(args));
  }

  uint32_t query(const std::string& name, ServiceStatus& status) {
    const ProcessResult r =
        run_process({"systemctl", "show", "--property=ActiveState", "--value", unit_name(name)});
    if (uint32_t error = error_of(r); error != 0) return error;
    status = ServiceStatus{};
    status.service_type = kServiceWin32OwnProcess;
    status.current_state = state_of(r.out);
    if (status.current_state == kServiceRunning) {
      status.controls_accepted = kAcceptStop | kAcceptShutdown;
    }
    return 0;
  }

  Handle add(Entry e) {
    std::lock_guard<std::mutex> hold(lock_);
    const Handle h = next_handle_++;
    handles_[h] = std::move(e);
    return h;
  }
  bool find(Handle h, Entry& e) {
    std::lock_guard<std::mutex> hold(lock_);
    auto it = handles_.find(h);
    if (it == handles_.end()) return false;
    e = it->second;
    return true;
  }

  SystemdOptions options_;
  NotifyDispatcher dispatcher_;
  std::mutex lock_;
  std::map<Handle, Entry> handles_;
  Handle next_handle_ = 1;
};

}  // namespace

SystemdOptions systemd_options_from_environment() {
  SystemdOptions options;
  if (const char* dir = std::getenv("ZALTOR_SYSTEMD_UNIT_DIR"); dir != nullptr && *dir != '\0') {
    options.unit_dir = dir;
  }
  if (const char* socket = std::getenv("NOTIFY_SOCKET"); socket != nullptr) {
    options.notify_socket = socket;
  }
  return options;
}

std::unique_ptr<ServiceManager> make_systemd_service_manager(Clock& clock, SystemdOptions options) {
  return std::make_unique<SystemdServiceManager>(clock, std::move(options));
}

}  // namespace zaltor::platform
