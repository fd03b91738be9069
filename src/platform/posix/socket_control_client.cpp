// The control interface's client on Linux: one connection to the endpoint's abstract local
// socket, one call at a time (calls of several threads take turns).
// A call is one send and, when its reply arrives whole, one receive, into buffers the
// client keeps: nothing is allocated per call.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>

#include "platform/control_client.h"
#include "platform/control_protocol.h"
#include "platform/posix/abstract_address.h"
#include "platform/posix/control_wire.h"

namespace zaltor::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

class SocketControlClient final : public ControlClient {
 public:
  SocketControlClient(int fd, int timeout_ms) : fd_(fd), timeout_ms_(timeout_ms), in_(kInRoom) {}
  ~SocketControlClient() override { ::close(fd_); }
  SocketControlClient(const SocketControlClient&) = delete;
  SocketControlClient& operator=(const SocketControlClient&) = delete;

  uint32_t open_context(ContextHandleWire& context) override {
    wire::Request r;
    r.procedure = kOpenControlContext;
    return context_call(r, context);
  }

  uint32_t close_context(ContextHandleWire& context) override {
    wire::Request r;
    r.procedure = kCloseControlContext;
    r.context = context;
    return context_call(r, context);
  }

  uint32_t query_value(const ContextHandleWire& context, int32_t command, int32_t& status,
                       int32_t& value) override {
    return two_longs(kQueryValue, context, command, 0, status, value);
  }

  uint32_t query_indexed_value(const ContextHandleWire& context, int32_t command, int32_t argument,
                               int32_t& status, int32_t& value) override {
    return two_longs(kQueryIndexedValue, context, command, argument, status, value);
  }

  uint32_t set_value(const ContextHandleWire& context, int32_t command, int32_t argument,
                     int32_t& status) override {
    return one_long(kSetValue, context, command, argument, 0, status);
  }

  uint32_t set_paired_value(const ContextHandleWire& context, int32_t command, int32_t first,
                            int32_t second, int32_t& status) override {
    return one_long(kSetPairedValue, context, command, first, second, status);
  }

  uint32_t query_array(const ContextHandleWire& context, int32_t command, int32_t count,
                       int32_t& status, std::vector<int32_t>& values) override {
    std::lock_guard<std::mutex> g(m_);
    wire::Reader in(nullptr, 0);
    if (const uint32_t e = call({0, kQueryArray, context, command, count, 0}, in); e != 0) {
      return e;
    }
    int32_t s = 0;
    uint32_t n = 0;
    if (!in.i32(s) || !in.u32(n) || n != static_cast<uint32_t>(count) || in.left() != 4ull * n) {
      return kRpcProtocolError;
    }
    std::vector<int32_t> v(n);
    for (int32_t& x : v) in.i32(x);
    status = s;
    values = std::move(v);
    return 0;
  }

  uint32_t read_diagnostics(uint32_t procedure, int32_t count, int32_t capacity, int32_t& status,
                            int32_t& length, std::string& text) override {
    std::lock_guard<std::mutex> g(m_);
    wire::Reader in(nullptr, 0);
    const wire::Request r{0, kDiagnosticsInterfaceBit | procedure, {}, 0, count, capacity};
    if (const uint32_t e = call(r, in); e != 0) return e;
    int32_t s = 0, l = 0;
    uint32_t n = 0;
    if (!in.i32(s) || !in.i32(l) || !in.u32(n) || in.left() != n) return kRpcProtocolError;
    status = s;
    length = l;
    text.assign(reinterpret_cast<const char*>(in.position()), n);
    return 0;
  }

 private:
  // Room the replies are read into, kept from call to call: every reply but a large
  // QueryArray's or a diagnostics text fits, and a larger one grows it once.
  static constexpr size_t kInRoom = 4096;

  uint32_t context_call(const wire::Request& r, ContextHandleWire& context) {
    std::lock_guard<std::mutex> g(m_);
    wire::Reader in(nullptr, 0);
    if (const uint32_t e = call(r, in); e != 0) return e;
    ContextHandleWire c;
    if (!in.context(c) || !in.at_end()) return kRpcProtocolError;
    context = c;
    return 0;
  }

  uint32_t two_longs(uint32_t proc, const ContextHandleWire& context, int32_t command,
                     int32_t argument, int32_t& status, int32_t& value) {
    std::lock_guard<std::mutex> g(m_);
    wire::Reader in(nullptr, 0);
    if (const uint32_t e = call({0, proc, context, command, argument, 0}, in); e != 0) return e;
    int32_t s = 0, v = 0;
    if (!in.i32(s) || !in.i32(v) || !in.at_end()) return kRpcProtocolError;
    status = s;
    value = v;
    return 0;
  }

  uint32_t one_long(uint32_t proc, const ContextHandleWire& context, int32_t command, int32_t a,
                    int32_t b, int32_t& status) {
    std::lock_guard<std::mutex> g(m_);
    wire::Reader in(nullptr, 0);
    if (const uint32_t e = call({0, proc, context, command, a, b}, in); e != 0) return e;
    int32_t s = 0;
    if (!in.i32(s) || !in.at_end()) return kRpcProtocolError;
    status = s;
    return 0;
  }

  // Sends one request and waits for the reply with its call id (m_ held). Answers 0 with a
  // reader over the out parameters (valid until the next call), the fault code of a fault
  // reply, or the reason the call failed. A call costs one send and, when the reply comes
  // whole, one receive: the same system calls as a bare exchange.
  uint32_t call(wire::Request r, wire::Reader& out) {
    if (broken_) return kRpcCallFailed;
    r.call_id = next_call_id_ = wire::next_call_id(next_call_id_);
    const auto deadline = SteadyClock::now() + std::chrono::milliseconds(timeout_ms_);
    wire::FrameWriter frame;
    wire::encode_request(r, frame);
    const uint8_t* bytes = frame.data();
    // Each transfer is tried first and waited for only when the socket is not ready.
    bool waited = false;
    size_t off = 0;
    while (off < frame.size()) {
      const ssize_t n = ::send(fd_, bytes + off, frame.size() - off, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n > 0) {
        off += static_cast<size_t>(n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        if (!wait_for(POLLOUT, deadline)) return kErrorTimeout;
        waited = true;
      } else {
        return fail(refusal_waiting());
      }
    }
    for (;;) {
      if (const uint32_t e = take_frame(r.call_id, out); e != kNoFrame) return e;
      if (const uint32_t e = receive(deadline, waited); e != 0) return e;
      waited = true;  // the whole timeout is left to a blocking receive only once per call
    }
  }

  static constexpr uint32_t kNoFrame = 0xFFFFFFFF;

  // Takes the frames the buffer holds: the reply of `call_id` (0 or its fault), kNoFrame
  // when it has not come whole yet, or the failure of a broken stream. Late replies of
  // calls that timed out are passed over.
  uint32_t take_frame(uint32_t call_id, wire::Reader& out) {
    while (in_end_ - in_begin_ >= wire::kLengthBytes) {
      const uint8_t* head = in_.data() + in_begin_;
      const uint32_t len = wire::load_u32(head);
      if (len < 8 || len > wire::kMaxReplyBody) return fail(kRpcProtocolError);
      if (in_end_ - in_begin_ - wire::kLengthBytes < len) break;
      in_begin_ += wire::kLengthBytes + len;
      const uint8_t* body = head + wire::kLengthBytes;
      const uint32_t id = wire::load_u32(body);
      const uint32_t fault = wire::load_u32(body + 4);
      if (id == 0 && fault != 0) return fail(fault);  // the server refused the stream
      if (id != call_id) continue;                    // the late reply of a timed-out call
      if (fault != 0) return fault;
      out = wire::Reader(body + 8, len - 8);
      return 0;
    }
    return kNoFrame;
  }

  // Reads what comes next into the buffer. The first receive of a call blocks (bounded by
  // the socket's receive timeout, set to the call timeout at connect): one system call where
  // trying first and then polling would take three. Later ones wait for the deadline.
  uint32_t receive(SteadyClock::time_point deadline, bool waited) {
    make_room();
    for (;;) {
      const bool blocking = !waited && timeout_ms_ > 0;
      const ssize_t k =
          ::recv(fd_, in_.data() + in_end_, in_.size() - in_end_, blocking ? 0 : MSG_DONTWAIT);
      if (k > 0) {
        in_end_ += static_cast<size_t>(k);
        return 0;
      }
      if (k == 0) return fail(kRpcCallFailed);
      if (errno == EINTR) {
        waited = true;
        continue;
      }
      if (errno != EAGAIN && errno != EWOULDBLOCK) return fail(kRpcCallFailed);
      // A timeout mid-frame leaves the stream unusable; between frames it does not.
      if (blocking || !wait_for(POLLIN, deadline)) {
        return in_end_ == in_begin_ ? kErrorTimeout : fail(kErrorTimeout);
      }
      waited = true;
    }
  }

  // Moves a partial frame to the front of the buffer, and grows the buffer when the frame
  // is larger than it.
  void make_room() {
    if (in_begin_ == in_end_) {
      in_begin_ = in_end_ = 0;
    } else if (in_begin_ != 0) {
      std::memmove(in_.data(), in_.data() + in_begin_, in_end_ - in_begin_);
      in_end_ -= in_begin_;
      in_begin_ = 0;
    }
    if (in_end_ >= wire::kLengthBytes) {
      const size_t need = wire::kLengthBytes + wire::load_u32(in_.data());
      if (need > in_.size()) in_.resize(need);
    }
  }

  // After a failed send: a server with too many connections sends its refusal (call id 0)
  // and closes before reading anything, so the send fails while the refusal waits to be
  // read. Its fault, else RPC_S_CALL_FAILED.
  uint32_t refusal_waiting() {
    uint8_t frame[12];
    const ssize_t n = ::recv(fd_, frame, sizeof frame, MSG_DONTWAIT);
    if (n != static_cast<ssize_t>(sizeof frame) || wire::load_u32(frame) != 8 ||
        wire::load_u32(frame + 4) != 0 || wire::load_u32(frame + 8) == 0) {
      return kRpcCallFailed;
    }
    return wire::load_u32(frame + 8);
  }

  uint32_t fail(uint32_t code) {
    broken_ = true;
    return code;
  }

  bool wait_for(short events, SteadyClock::time_point deadline) {
    for (;;) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now())
              .count();
      if (left <= 0) return false;
      pollfd p{fd_, events, 0};
      const int n = ::poll(&p, 1, static_cast<int>(left));
      if (n > 0) return true;
      if (n < 0 && errno != EINTR) return true;  // let the I/O call report it
    }
  }

  std::mutex m_;
  const int fd_;
  const int timeout_ms_;
  uint32_t next_call_id_ = 0;
  bool broken_ = false;
  // Under m_: received bytes, [in_begin_, in_end_) not taken yet.
  std::vector<uint8_t> in_;
  size_t in_begin_ = 0;
  size_t in_end_ = 0;
};

}  // namespace

std::unique_ptr<ControlClient> connect_control_client(const std::string& endpoint, int timeout_ms,
                                                      uint32_t& error) {
  sockaddr_un addr{};
  const socklen_t len = abstract_address(endpoint, addr);
  if (len == 0) {
    error = kRpcServerUnavailable;
    return nullptr;
  }
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = kRpcServerUnavailable;
    return nullptr;
  }
  timeval tv{timeout_ms / 1000, (timeout_ms % 1000) * 1000};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);  // bounds a blocking connect
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);  // bounds a call's first receive
  int rc = 0;
  do {
    rc = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), len);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) {
    ::close(fd);
    error = kRpcServerUnavailable;
    return nullptr;
  }
  error = 0;
  return std::make_unique<SocketControlClient>(fd, timeout_ms);
}

}  // namespace zaltor::platform
