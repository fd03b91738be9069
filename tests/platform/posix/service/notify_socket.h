#pragma once
// A datagram socket that stands in for systemd's notify socket in tests.
#include <string>
#include <vector>

namespace zaltor::host_test {

class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path);
  ~NotifySocket();
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  // The next datagram, waiting at most `timeout_ms`; empty when none came.
  std::string receive(int timeout_ms);
  // Every datagram that has arrived so far.
  std::vector<std::string> drain();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int fd_ = -1;
};

}  // namespace zaltor::host_test
