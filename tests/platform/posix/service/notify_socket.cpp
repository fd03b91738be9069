#include "notify_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace zaltor::host_test {

NotifySocket::NotifySocket(const std::string& path) : path_(path) {
  fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (fd_ < 0 || path.size() >= sizeof addr.sun_path) throw std::runtime_error("notify socket");
  std::memcpy(addr.sun_path, path.data(), path.size());
  if (::bind(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
    throw std::runtime_error("notify socket bind");
  }
}

NotifySocket::~NotifySocket() {
  if (fd_ >= 0) ::close(fd_);
  ::unlink(path_.c_str());
}

std::string NotifySocket::receive(int timeout_ms) {
  pollfd p{fd_, POLLIN, 0};
  if (::poll(&p, 1, timeout_ms) <= 0) return {};
  char buf[4096];
  const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
}

std::vector<std::string> NotifySocket::drain() {
  std::vector<std::string> all;
  for (std::string m = receive(0); !m.empty(); m = receive(0)) all.push_back(m);
  return all;
}

}  // namespace zaltor::host_test
