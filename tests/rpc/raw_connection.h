#pragma once
// A bare connection to a control endpoint, for frames that the client would never send.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/posix/abstract_address.h"
#include "platform/posix/control_wire.h"

namespace zaltor::rpc::test {

struct ReplyFrame {
  uint32_t call_id = 0;
  uint32_t fault = 0;
  std::vector<uint8_t> out;  // out parameters
};

class RawConnection {
 public:
  explicit RawConnection(const std::string& endpoint) {
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    const socklen_t len = platform::abstract_address(endpoint, addr);
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&addr), len) != 0) {
      ::close(fd_);
      fd_ = -1;
    }
  }
  ~RawConnection() {
    if (fd_ >= 0) ::close(fd_);
  }
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  bool connected() const { return fd_ >= 0; }
  bool send(const std::vector<uint8_t>& bytes) {
    size_t off = 0;
    while (off < bytes.size()) {
      const ssize_t n = ::send(fd_, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
      if (n <= 0) return false;
      off += static_cast<size_t>(n);
    }
    return true;
  }
  // The next reply, or nullopt when the server hung up or nothing came within timeout_ms.
  std::optional<ReplyFrame> read_reply(int timeout_ms = 5000) {
    uint8_t head[4];
    if (!read_exact(head, 4, timeout_ms)) return std::nullopt;
    const uint32_t len = platform::wire::load_u32(head);
    if (len < 8 || len > platform::wire::kMaxReplyBody) return std::nullopt;
    std::vector<uint8_t> body(len);
    if (!read_exact(body.data(), len, timeout_ms)) return std::nullopt;
    ReplyFrame r;
    r.call_id = platform::wire::load_u32(body.data());
    r.fault = platform::wire::load_u32(body.data() + 4);
    r.out.assign(body.begin() + 8, body.end());
    return r;
  }
  // True when the server closed the connection (within timeout_ms).
  bool closed_by_server(int timeout_ms = 5000) {
    uint8_t b;
    pollfd p{fd_, POLLIN, 0};
    while (::poll(&p, 1, timeout_ms) > 0) {
      const ssize_t n = ::recv(fd_, &b, 1, 0);
      if (n <= 0) return true;
    }
    return false;
  }
  void finish_sending() { ::shutdown(fd_, SHUT_WR); }
  void close_now() {
    ::close(fd_);
    fd_ = -1;
  }

 private:
  bool read_exact(uint8_t* p, size_t n, int timeout_ms) {
    size_t got = 0;
    while (got < n) {
      pollfd pf{fd_, POLLIN, 0};
      if (::poll(&pf, 1, timeout_ms) <= 0) return false;
      const ssize_t k = ::recv(fd_, p + got, n - got, 0);
      if (k <= 0) return false;
      got += static_cast<size_t>(k);
    }
    return true;
  }
  int fd_ = -1;
};

// A request frame built by hand: length, call id, procedure, then the given longs.
inline std::vector<uint8_t> raw_frame(uint32_t call_id, uint32_t procedure,
                                      const std::vector<uint32_t>& words) {
  platform::wire::Writer w;
  w.u32(call_id);
  w.u32(procedure);
  for (uint32_t v : words) w.u32(v);
  return w.frame();
}

// The five words of the context handle that an open's reply carries.
inline std::vector<uint32_t> handle_words(const ReplyFrame& opened) {
  std::vector<uint32_t> words;
  for (size_t i = 0; i + 4 <= opened.out.size() && i < 20; i += 4) {
    words.push_back(platform::wire::load_u32(&opened.out[i]));
  }
  return words;
}

// Opens a context on a raw connection: the handle's words, or empty when refused.
inline std::vector<uint32_t> open_raw_context(RawConnection& raw, uint32_t call_id) {
  if (!raw.send(raw_frame(call_id, 0, {}))) return {};
  auto opened = raw.read_reply();
  if (!opened || opened->fault != 0) return {};
  return handle_words(*opened);
}

}  // namespace zaltor::rpc::test
