// Event tracing on Linux: every event goes to the system log, through journald's native
// protocol when its socket exists (so that the event id and the provider are fields of the
// entry), else through syslog(3).
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/posix/posix_backends.h"

namespace zaltor::platform {
namespace {

int priority_of(uint8_t event_level) {
  switch (event_level) {
    case 1:
      return LOG_CRIT;
    case 2:
      return LOG_ERR;
    case 3:
      return LOG_WARNING;
    case 5:
      return LOG_DEBUG;
    default:
      return LOG_INFO;
  }
}

void add_field(std::string& out, const char* name, const std::string& value) {
  out += name;
  out += '=';
  out += value;
  out += '\n';
}

// A value that may hold line ends: the name, a line end, the length as 64-bit little
// endian, the value and a line end.
void add_binary_field(std::string& out, const char* name, std::string_view value) {
  out += name;
  out += '\n';
  uint64_t n = value.size();
  for (int i = 0; i < 8; ++i) out += static_cast<char>((n >> (8 * i)) & 0xFF);
  out += value;
  out += '\n';
}

class SystemLogEventTrace final : public EventTrace {
 public:
  SystemLogEventTrace(std::string identifier, std::string journal_socket)
      : identifier_(std::move(identifier)), journal_socket_(std::move(journal_socket)) {
    struct stat st {};
    use_journal_ = ::stat(journal_socket_.c_str(), &st) == 0 && S_ISSOCK(st.st_mode) &&
                   journal_socket_.size() < sizeof(sockaddr_un{}.sun_path);
    if (use_journal_) {
      fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      if (fd_ < 0) use_journal_ = false;
    }
    if (!use_journal_) ::openlog(identifier_.c_str(), LOG_PID, LOG_DAEMON);
  }
  ~SystemLogEventTrace() override {
    if (fd_ >= 0) ::close(fd_);
    if (!use_journal_) ::closelog();
  }

  uint32_t register_provider(const Guid& provider, Handle& handle) override {
    std::lock_guard<std::mutex> hold(lock_);
    handle = next_handle_++;
    providers_[handle] = provider;
    return 0;
  }

  uint32_t write(Handle handle, const EventDescriptor& d, std::string_view line) override {
    Guid provider;
    {
      std::lock_guard<std::mutex> hold(lock_);
      auto it = providers_.find(handle);
      if (it == providers_.end()) return 6;  // ERROR_INVALID_HANDLE
      provider = it->second;
    }
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if (!use_journal_) {
      const std::string text(line);
      ::syslog(priority_of(d.level), "%s", text.c_str());
      return 0;
    }
    std::string entry;
    add_binary_field(entry, "MESSAGE", line);
    add_field(entry, "PRIORITY", std::to_string(priority_of(d.level)));
    add_field(entry, "SYSLOG_IDENTIFIER", identifier_);
    add_field(entry, "ZALTOR_EVENT_ID", std::to_string(d.id));
    add_field(entry, "ZALTOR_EVENT_LEVEL", std::to_string(d.level));
    add_field(entry, "ZALTOR_PROVIDER_ID", to_string(provider));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, journal_socket_.data(), journal_socket_.size());
    const ssize_t sent = ::sendto(fd_, entry.data(), entry.size(), MSG_NOSIGNAL,
                                  reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
    if (sent >= 0) return 0;
    // As EventWrite answers: too large an event, or no room in the session's buffers.
    return errno == EMSGSIZE ? 534u : 8u;
  }

  // The system log keeps every event of a registered provider: the journal, or syslog.
  bool enabled(Handle handle, const EventDescriptor&) override {
    std::lock_guard<std::mutex> hold(lock_);
    return providers_.count(handle) == 1;
  }

  uint32_t unregister(Handle handle) override {
    std::lock_guard<std::mutex> hold(lock_);
    return providers_.erase(handle) == 1 ? 0 : 6;
  }

 private:
  std::string identifier_;
  std::string journal_socket_;
  bool use_journal_ = false;
  int fd_ = -1;
  std::mutex lock_;
  std::map<Handle, Guid> providers_;
  Handle next_handle_ = 1;
};

}  // namespace

std::unique_ptr<EventTrace> make_system_log_event_trace(const std::string& identifier,
                                                        const std::string& journal_socket) {
  return std::make_unique<SystemLogEventTrace>(identifier, journal_socket);
}

}  // namespace zaltor::platform
