#include "platform/posix/notify_dispatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace zaltor::platform {
namespace {

// The write end of the pipe through which SIGTERM reaches the dispatcher's loop; any thread
// may take the signal.
std::atomic<int> g_term_pipe{-1};

void on_term(int) {
  const int saved = errno;
  const int fd = g_term_pipe.load();
  if (fd >= 0) {
    const char c = 'T';
    [[maybe_unused]] ssize_t n = ::write(fd, &c, 1);
  }
  errno = saved;
}

const char* state_name(uint32_t state) {
  switch (state) {
    case kServiceStopped:
      return "Stopped";
    case kServiceStartPending:
      return "Start pending";
    case kServiceStopPending:
      return "Stop pending";
    case kServiceRunning:
      return "Running";
    case kServiceContinuePending:
      return "Continue pending";
    case kServicePausePending:
      return "Pause pending";
    case kServicePaused:
      return "Paused";
    default:
      return "Unknown";
  }
}

int connect_notify_socket(const std::string& path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof addr.sun_path) return -1;
  std::memcpy(addr.sun_path, path.data(), path.size());
  socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  if (path[0] == '@') {
    addr.sun_path[0] = '\0';  // abstract namespace
  } else {
    length += 1;
  }
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), length) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

void drain(int fd) {
  char buf[64];
  while (::read(fd, buf, sizeof buf) > 0) {
  }
}

}  // namespace

std::string NotifyDispatcher::notify_message(const ServiceStatus& status) {
  std::string message;
  if (status.current_state == kServiceRunning) message += "READY=1\n";
  if (status.current_state == kServiceStopPending) message += "STOPPING=1\n";
  message += "STATUS=";
  message += state_name(status.current_state);
  message += ", checkpoint " + std::to_string(status.check_point);
  message += ", exit code " + std::to_string(status.win32_exit_code);
  return message;
}

uint32_t NotifyDispatcher::run(const std::string& service_name,
                               ServiceManager::ServiceEntry entry) {
  if (notify_socket_.empty()) return kErrorFailedServiceControllerConnect;
  bool expected = false;
  if (!dispatching_.compare_exchange_strong(expected, true)) return kErrorServiceAlreadyRunning;
  const int notify_fd = connect_notify_socket(notify_socket_);
  int term_pipe[2] = {-1, -1};
  int stop_pipe[2] = {-1, -1};
  if (notify_fd < 0 || ::pipe2(term_pipe, O_CLOEXEC | O_NONBLOCK) != 0 ||
      ::pipe2(stop_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    for (int fd : {notify_fd, term_pipe[0], term_pipe[1], stop_pipe[0], stop_pipe[1]}) {
      if (fd >= 0) ::close(fd);
    }
    dispatching_ = false;
    return kErrorFailedServiceControllerConnect;
  }
  service_name_ = service_name;
  {
    std::lock_guard<std::mutex> hold(report_lock_);
    stopped_ = false;
  }
  handler_ = nullptr;
  notify_fd_ = notify_fd;
  stopped_fd_ = stop_pipe[1];
  g_term_pipe = term_pipe[1];
  struct sigaction action {};
  struct sigaction previous {};
  action.sa_handler = &on_term;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGTERM, &action, &previous);

  std::string name = service_name;
  auto service_thread = clock_.start_thread("service main", [entry, name]() mutable {
    char* argv[] = {name.data(), nullptr};
    entry(1, argv);
  });

  // Controls are delivered here, on the dispatcher's (the calling) thread.
  for (;;) {
    pollfd fds[2] = {{term_pipe[0], POLLIN, 0}, {stop_pipe[0], POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[1].revents != 0) break;
    if (fds[0].revents != 0) {
      drain(term_pipe[0]);
      if (auto handler = handler_.load()) handler(kControlStop);
    }
  }
  service_thread->join();

  ::sigaction(SIGTERM, &previous, nullptr);
  g_term_pipe = -1;
  stopped_fd_ = -1;
  notify_fd_ = -1;
  handler_ = nullptr;
  for (int fd : {notify_fd, term_pipe[0], term_pipe[1], stop_pipe[0], stop_pipe[1]}) ::close(fd);
  dispatching_ = false;
  return 0;
}

uint32_t NotifyDispatcher::register_control_handler(const std::string& service_name,
                                                    ServiceManager::ControlHandler handler,
                                                    ServiceManager::StatusHandle& handle) {
  handle = 0;
  if (!dispatching_.load()) return kErrorFailedServiceControllerConnect;
  if (service_name != service_name_) return kErrorServiceDoesNotExist;
  handler_ = handler;
  handle = kStatusHandle;
  return 0;
}

uint32_t NotifyDispatcher::set_status(ServiceManager::StatusHandle handle,
                                      const ServiceStatus& status) {
  if (handle != kStatusHandle || !dispatching_.load()) return kErrorInvalidHandle;
  std::lock_guard<std::mutex> hold(report_lock_);
  if (stopped_) return kErrorInvalidHandle;
  const std::string message = notify_message(status);
  const int fd = notify_fd_.load();
  uint32_t result = 0;
  if (fd < 0 || ::send(fd, message.data(), message.size(), MSG_NOSIGNAL) < 0) {
    result = kErrorInvalidHandle;
  }
  if (status.current_state == kServiceStopped) {
    stopped_ = true;
    const int stopped = stopped_fd_.load();
    const char c = 'S';
    if (stopped >= 0) {
      [[maybe_unused]] ssize_t n = ::write(stopped, &c, 1);
    }
  }
  return result;
}

}  // namespace zaltor::platform
