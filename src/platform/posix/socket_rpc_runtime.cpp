#include "platform/posix/socket_rpc_runtime.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/control_protocol.h"
#include "platform/posix/control_wire.h"

namespace zaltor::platform {

namespace {

constexpr uint32_t kNoProtseqsRegistered = 1714;   // RPC_S_NO_PROTSEQS_REGISTERED
constexpr uint32_t kInvalidEndpointFormat = 1706;  // RPC_S_INVALID_ENDPOINT_FORMAT
constexpr uint32_t kCantCreateEndpoint = 1720;     // RPC_S_CANT_CREATE_ENDPOINT
// Reads of one connection per poll event (of 4096 bytes each) before the others get a turn.
constexpr int kReadsPerEvent = 16;
// Connections taken per event of the listening socket before the others get a turn.
constexpr int kAcceptsPerEvent = 64;
// How long the listener rests when no descriptor is left even to refuse a connection.
constexpr long kListenerRestNs = 100'000'000;

using Uuid = std::array<uint8_t, 16>;

// The poll registration of a connection: edge-triggered, so that a call costs no system
// call to re-arm it (one thread at a time still reads: see Connection::read_claims), and
// writing is asked for only while replies wait for the socket.
constexpr uint32_t kReadEvents = EPOLLIN | EPOLLRDHUP | EPOLLET;

struct Connection {
  Connection(int f, int epoll, size_t max_pending, std::atomic<size_t>& live_count)
      : fd(f), epoll_fd(epoll), max_out(max_pending), live(live_count) {
    live.fetch_add(1, std::memory_order_relaxed);
  }
  ~Connection() {
    // The client went away (or the runtime stopped): run down what it left open.
    for (auto& [uuid, entry] : contexts) entry.second->rundown(entry.first);
    ::close(fd);
    live.fetch_sub(1, std::memory_order_relaxed);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Queues a reply without ever blocking: what the socket does not take now waits in the
  // connection's buffer, which the poll threads send as the socket drains. A client that lets
  // more than max_out bytes pile up is dropped.
  void send_reply(wire::FrameWriter& reply) {
    const uint8_t* frame = reply.data();
    const size_t size = reply.size();
    std::lock_guard<std::mutex> g(write_m);
    if (dropped) return;
    size_t off = 0;
    if (outbuf.empty()) {
      if (!send_some(frame, size, off)) return drop_locked();
    }
    if (off == size) return;
    if (outbuf.size() + (size - off) > max_out) return drop_locked();
    const bool was_empty = outbuf.empty();
    outbuf.insert(outbuf.end(), frame + off, frame + size);
    if (was_empty) arm_locked();  // now asks for write events too
  }

  // Sends what waits in the buffer (on a write event); drops the connection when it broke.
  void flush() {
    std::lock_guard<std::mutex> g(write_m);
    if (dropped || outbuf.empty()) return;
    size_t off = 0;
    if (!send_some(outbuf.data(), outbuf.size(), off)) return drop_locked();
    outbuf.erase(outbuf.begin(), outbuf.begin() + static_cast<std::ptrdiff_t>(off));
    // Drained: write events would now come each time the client reads a reply.
    if (outbuf.empty()) arm_locked();
  }

  // Re-arms the registration: the poll set then reports the socket again if it is readable
  // (after a read that stopped before the socket was drained).
  void rearm() {
    std::lock_guard<std::mutex> g(write_m);
    if (!dropped) arm_locked();
  }

  // The connection leaves the poll set; replies of calls still running are dropped.
  void remove() {
    std::lock_guard<std::mutex> g(write_m);
    dropped = true;
    outbuf.clear();
    ::epoll_ctl(epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
  }

  const int fd;
  const int epoll_fd;
  const size_t max_out;
  // Connections whose socket is still open (also those that ended but whose calls still
  // run or wait): what the connection bound counts, since each holds a descriptor.
  std::atomic<size_t>& live;
  std::mutex write_m;
  std::vector<uint8_t> outbuf;  // under write_m: reply bytes the socket has not taken yet
  bool dropped = false;         // under write_m: removed from the poll set, or being dropped
  std::mutex ctx_m;
  std::map<Uuid, std::pair<ContextObject, RpcDispatch*>> contexts;
  size_t contexts_opening = 0;  // under ctx_m: opens that passed the bound and are running
  std::atomic<int> in_flight{0};
  // Read events not yet served (kClaimCount), and kPeerGone once an event said that the
  // client shut its side. The thread that raises the count from 0 reads, and goes on reading
  // until it brings it back to 0; a thread that finds it above 0 leaves the event to that
  // reader. So one thread at a time reads, without re-arming the registration per event.
  // Both live in one word so that the reader's own updates see every event's news.
  std::atomic<uint32_t> read_claims{0};
  // Held while reading, for the hand-over of inbuf between threads.
  std::mutex read_m;
  std::vector<uint8_t> inbuf;  // under read_m: the start of a request not read whole yet

 private:
  // Writes as much as the socket takes now; false when the connection broke.
  bool send_some(const uint8_t* p, size_t n, size_t& off) {
    while (off < n) {
      const ssize_t k = ::send(fd, p + off, n - off, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (k > 0) {
        off += static_cast<size_t>(k);
      } else if (k < 0 && errno == EINTR) {
        continue;
      } else if (k < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        return true;
      } else {
        return false;
      }
    }
    return true;
  }
  void arm_locked() {
    epoll_event ev{};
    ev.events = kReadEvents | (outbuf.empty() ? 0u : uint32_t{EPOLLOUT});
    ev.data.fd = fd;
    ::epoll_ctl(epoll_fd, EPOLL_CTL_MOD, fd, &ev);
  }
  // Gone or not reading: shut the socket so that a poll thread sees the end (at once: the
  // shut socket reads as ended) and drops the connection.
  void drop_locked() {
    outbuf.clear();
    ::shutdown(fd, SHUT_RDWR);
    arm_locked();
  }
};

// A request read whole and not yet answered; its body is kept inline (requests are small).
struct Call {
  std::shared_ptr<Connection> conn;
  uint32_t size = 0;
  std::array<uint8_t, wire::kMaxRequestBody> body{};
};

// Writes the frame of a call that failed as a whole.
void write_fault(wire::FrameWriter& w, uint32_t call_id, uint32_t fault) {
  w.u32(call_id);
  w.u32(fault);
}

// The same, in place of whatever the reply held.
void fail_call(wire::FrameWriter& w, uint32_t call_id, uint32_t fault) {
  w.reset();
  write_fault(w, call_id, fault);
}

constexpr uint32_t kPeerGone = 1u << 31;
constexpr uint32_t kClaimCount = kPeerGone - 1;

// How reading a connection ended.
enum class ReadEnd {
  kDrained,  // the socket is empty: its next bytes raise a new event
  kMore,     // the share of one event was read: bytes may still wait
  kEnded,    // the client went or broke the stream
};

class SocketRpcRuntime final : public RpcRuntime {
 public:
  SocketRpcRuntime(Clock& clock, SocketRuntimeLimits limits)
      : clock_(clock),
        limits_(std::move(limits)),
        max_calls_(limits_.max_calls > 0 ? limits_.max_calls : kMaxConcurrentCalls),
        rng_(std::random_device{}()) {
    if (!limits_.start_thread) {
      limits_.start_thread = [](std::function<void()> body) {
        return std::thread(std::move(body));
      };
    }
  }
  ~SocketRpcRuntime() override {
    stop_listening();
    if (listen_fd_ >= 0) ::close(listen_fd_);
  }

  // Every local process may reach an abstract local socket, the companion app's as well:
  // that is the access the Windows runtime grants to everyone and the package, so there is
  // nothing to build or enforce here.
  RpcStep admit_everyone_and(const std::string&) override { return RpcStep::done(); }

  RpcStep open_endpoint(const std::string& endpoint) override {
    sockaddr_un addr{};
    if (endpoint.empty() || endpoint.size() + 1 > sizeof addr.sun_path) {
      return RpcStep::failed(kInvalidEndpointFormat, rpc_call::kUseProtseqEp);
    }
    std::lock_guard<std::mutex> g(m_);
    if (listen_fd_ >= 0) {
      return endpoint == endpoint_
                 ? RpcStep::done()
                 : RpcStep::failed(kRpcDuplicateEndpoint, rpc_call::kUseProtseqEp);
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return RpcStep::failed(kCantCreateEndpoint, rpc_call::kUseProtseqEp);
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path + 1, endpoint.data(), endpoint.size());  // abstract name
    const auto len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + endpoint.size());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0) {
      const int err = errno;
      ::close(fd);
      return RpcStep::failed(err == EADDRINUSE ? kRpcDuplicateEndpoint : kCantCreateEndpoint,
                             rpc_call::kUseProtseqEp);
    }
    if (::listen(fd, SOMAXCONN) != 0) {
      ::close(fd);
      return RpcStep::failed(kCantCreateEndpoint, rpc_call::kUseProtseqEp);
    }
    listen_fd_ = fd;
    endpoint_ = endpoint;
    return RpcStep::done();
  }

  // Every caller of an abstract local socket is on this machine, so serving local callers
  // only holds by construction; serving starts with the registration, as it does on Windows.
  RpcStep serve_control(RpcDispatch& dispatch) override {
    std::lock_guard<std::mutex> g(m_);
    if (dispatch_ != nullptr) return RpcStep::failed(kRpcAlreadyRegistered, rpc_call::kRegisterIf);
    dispatch_ = &dispatch;
    if (listen_fd_ >= 0 && !serving_ && !start_serving_locked()) {
      dispatch_ = nullptr;
      return RpcStep::failed(kRpcOutOfResources, rpc_call::kRegisterIf);
    }
    return RpcStep::done();
  }

  RpcStep serve_diagnostics(DiagnosticsDispatch& dispatch) override {
    std::lock_guard<std::mutex> g(m_);
    if (diag_dispatch_ != nullptr) {
      return RpcStep::failed(kRpcAlreadyRegistered, rpc_call::kRegisterIf);
    }
    diag_dispatch_ = &dispatch;
    if (listen_fd_ >= 0 && !serving_ && !start_serving_locked()) {
      diag_dispatch_ = nullptr;
      return RpcStep::failed(kRpcOutOfResources, rpc_call::kRegisterIf);
    }
    return RpcStep::done();
  }

  // There is no endpoint mapper here (clients find the socket by its name); the entry is kept
  // so that publishing before the endpoint exists answers as it would on Windows.
  RpcStep publish_control() override {
    std::lock_guard<std::mutex> g(m_);
    if (listen_fd_ < 0) return RpcStep::failed(kRpcNoBindings, rpc_call::kInqBindings);
    published_ = true;
    return RpcStep::done();
  }

  RpcStep listen() override {
    std::unique_lock<std::mutex> lk(m_);
    if (stopped_) return RpcStep::done();  // listening has already ended
    if (listen_fd_ < 0 && !serving_) {
      return RpcStep::failed(kNoProtseqsRegistered, rpc_call::kListen);
    }
    if (listening_call_) return RpcStep::failed(kRpcAlreadyListening, rpc_call::kListen);
    if (!serving_ && !start_serving_locked()) {
      return RpcStep::failed(kRpcOutOfResources, rpc_call::kListen);
    }
    listening_call_ = true;
    state_cv_.wait(lk, [&] { return stopped_; });
    return RpcStep::done();
  }

  uint32_t stop_listening() override {
    std::lock_guard<std::mutex> stop_guard(stop_m_);
    std::vector<std::thread> threads;
    {
      std::lock_guard<std::mutex> g(m_);
      if (!serving_) return kRpcNotListening;
      // No thread is started from here on, so the list is complete.
      stopping_ = true;
      threads.swap(threads_);
    }
    // The stop event stays readable: every thread that polls sees it and ends; a thread in a
    // call finishes the call first.
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t w = ::write(wake_fd_, &one, sizeof one);
    for (std::thread& t : threads) t.join();
    std::deque<Call> dropped;
    std::unordered_map<int, std::shared_ptr<Connection>> conns;
    {
      std::lock_guard<std::mutex> g(m_);
      dropped.swap(queue_);
    }
    {
      std::lock_guard<std::mutex> g(conns_m_);
      conns.swap(conns_);
    }
    dropped.clear();  // releases the last connections: their contexts are run down
    conns.clear();
    ::close(epoll_fd_);
    ::close(wake_fd_);
    ::close(work_fd_);
    ::close(rest_fd_);
    if (spare_fd_ >= 0) ::close(spare_fd_);
    spare_fd_ = -1;
    {
      std::lock_guard<std::mutex> g(m_);
      if (listen_fd_ >= 0) ::close(listen_fd_);  // frees the name
      listen_fd_ = -1;
      serving_ = false;
      stopped_ = true;
    }
    state_cv_.notify_all();
    return 0;
  }

  // Calls already running finish; new ones find no interface (kRpcUnknownIf).
  void withdraw() override {
    std::lock_guard<std::mutex> g(m_);
    dispatch_ = nullptr;
    diag_dispatch_ = nullptr;
    published_ = false;
  }

  bool published() const override {
    std::lock_guard<std::mutex> g(m_);
    return published_;
  }

 private:
  // False when the first thread could not be started (nothing is left serving).
  bool start_serving_locked() {
    epoll_fd_ = ::epoll_create1(EPOLL_CLOEXEC);
    wake_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    work_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    rest_fd_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    // Held back for the moment the process runs out of descriptors (see accept_all).
    spare_fd_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    // The stop and work events are level-triggered: every poller may see them. The listening
    // socket, the rest timer and the connections are one-shot: one thread at a time takes
    // each of them.
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = wake_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, wake_fd_, &ev);
    ev.data.fd = work_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, work_fd_, &ev);
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.fd = rest_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, rest_fd_, &ev);
    ev.data.fd = listen_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, listen_fd_, &ev);
    serving_ = true;
    if (start_thread_locked()) return true;
    serving_ = false;
    for (int* fd : {&epoll_fd_, &wake_fd_, &work_fd_, &rest_fd_, &spare_fd_}) {
      if (*fd >= 0) ::close(*fd);
      *fd = -1;
    }
    return false;
  }

  // Every runtime thread runs this loop (see "Threads" in socket_rpc_runtime.h): it runs a
  // waiting call when one may start, else it polls the sockets, and a request it reads it
  // then runs itself.
  void serve_loop() {
    // The requests one event brought, kept from event to event so that reading allocates
    // nothing once warm.
    std::vector<Call> calls;
    std::unique_lock<std::mutex> lk(m_);
    for (;;) {
      if (stopping_) return;
      if (!queue_.empty() && running_ < max_calls_) {
        Call call = std::move(queue_.front());
        queue_.pop_front();
        run_locked(call, lk);
        continue;
      }
      lk.unlock();
      poll_once(calls);
      lk.lock();
      if (calls.empty()) continue;
      // The first request read runs here at once unless older ones wait (or no call may
      // start): the common lone call never passes through the queue.
      size_t first = 0;
      if (queue_.empty() && running_ < max_calls_ && !stopping_) first = 1;
      for (size_t i = first; i < calls.size(); ++i) queue_.push_back(std::move(calls[i]));
      if (first == 1) {
        Call call = std::move(calls[0]);
        calls.clear();
        run_locked(call, lk);
      } else {
        calls.clear();
      }
    }
  }

  // Runs `call` on this thread (m_ held by `lk`, released during the call).
  void run_locked(Call& call, std::unique_lock<std::mutex>& lk) {
    // Someone must keep polling while this thread is in the call. Without a thread for
    // that the call is refused: this thread goes on polling.
    if (idle_ == 1 && !start_thread_locked()) {
      lk.unlock();
      refuse_call(call, kRpcServerTooBusy);
      lk.lock();
      return;
    }
    --idle_;
    ++running_;
    // The next waiting call goes to another thread.
    if (!queue_.empty() && running_ < max_calls_) signal_work();
    RpcDispatch* dispatch = dispatch_;
    DiagnosticsDispatch* diagnostics = diag_dispatch_;
    lk.unlock();
    run_call(call, dispatch, diagnostics);
    lk.lock();
    --running_;
    ++idle_;
  }

  // False when a thread was needed and none could be started.
  bool start_thread_locked() {
    // One thread more than the calls that may run, so that one always polls.
    if (stopping_ || threads_.size() > max_calls_) return true;
    try {
      // Room first: a started thread must never be dropped while it runs (that ends the
      // process), and the push of a moved thread into reserved room cannot throw.
      if (threads_.size() == threads_.capacity()) threads_.reserve(2 * threads_.size() + 16);
      threads_.push_back(limits_.start_thread([this] { serve_loop(); }));
    } catch (...) {
      return false;  // out of threads (or of memory): the caller refuses what needed it
    }
    ++idle_;
    return true;
  }

  // Wakes one polling thread to take a waiting call.
  void signal_work() {
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t w = ::write(work_fd_, &one, sizeof one);
  }

  void rearm(int fd, uint32_t events) {
    epoll_event ev{};
    ev.events = events | EPOLLONESHOT;
    ev.data.fd = fd;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, fd, &ev);
  }

  // Waits for one event and handles it; the complete requests it read go to `calls` for
  // serve_loop.
  void poll_once(std::vector<Call>& calls) {
    epoll_event event{};
    if (::epoll_wait(epoll_fd_, &event, 1, -1) != 1) return;  // interrupted
    const int fd = event.data.fd;
    if (fd == wake_fd_) return;  // stopping_ is already set
    if (fd == work_fd_) {
      uint64_t count = 0;
      [[maybe_unused]] ssize_t r = ::read(work_fd_, &count, sizeof count);
      return;
    }
    if (fd == rest_fd_) {
      uint64_t expirations = 0;
      [[maybe_unused]] ssize_t r = ::read(rest_fd_, &expirations, sizeof expirations);
      rearm(rest_fd_, EPOLLIN);
      wake_listener();
      return;
    }
    if (fd == listen_fd_) {
      if (accept_all()) {
        rearm(listen_fd_, EPOLLIN);
      } else {
        rest_listener();
      }
      return;
    }
    std::shared_ptr<Connection> conn;
    {
      std::lock_guard<std::mutex> g(conns_m_);
      if (auto it = conns_.find(fd); it != conns_.end()) conn = it->second;
    }
    if (!conn) return;
    if ((event.events & EPOLLOUT) != 0) conn->flush();
    if ((event.events & ~static_cast<uint32_t>(EPOLLOUT)) == 0) return;  // nothing to read
    std::atomic<uint32_t>& word = conn->read_claims;
    // An end the client announced is noted before the claim: after a short read the reader
    // still reads on to see it (the edge it raised may already have been taken).
    if ((event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
      word.fetch_or(kPeerGone, std::memory_order_relaxed);
    }
    // Another thread reads this connection now: it sees the claim and reads again.
    uint32_t seen = word.fetch_add(1, std::memory_order_relaxed) + 1;
    if ((seen & kClaimCount) != 1) return;
    ReadEnd end = ReadEnd::kDrained;
    for (;;) {
      {
        std::lock_guard<std::mutex> g(conn->read_m);
        end = read_connection(*conn, conn, calls, (seen & kPeerGone) != 0);
      }
      if (end == ReadEnd::kEnded) break;  // the claim is never given back: nobody reads it
      if (end == ReadEnd::kMore) {
        // Its share read: the others get a turn, and the re-armed registration reports what
        // is left (along with anything that came meanwhile).
        word.fetch_and(kPeerGone, std::memory_order_relaxed);
        conn->rearm();
        break;
      }
      const uint32_t claims = seen & kClaimCount;
      const uint32_t before = word.fetch_sub(claims, std::memory_order_relaxed);
      if ((before & kClaimCount) == claims) break;  // no event came while reading
      seen = before - claims;
    }
    if (end == ReadEnd::kEnded) {
      conn->remove();
      {
        std::lock_guard<std::mutex> g(conns_m_);
        conns_.erase(fd);
      }
      wake_listener();  // a descriptor and a connection slot may be free again
    }
    // The last reference to a connection that ended may go here, outside every lock: its
    // contexts are run down.
  }

  // The connections the runtime takes at most: the configured bound, and never more than half
  // the descriptor limit, so that clients cannot starve the service's own files.
  size_t connection_bound() const {
    rlimit lim{};
    size_t bound = limits_.max_connections;
    if (::getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur != RLIM_INFINITY) {
      bound = std::min(bound, static_cast<size_t>(lim.rlim_cur / 2));
    }
    return std::max<size_t>(bound, 1);
  }

  // A connection that is refused as a whole: the refusal (call id 0) fits in the new socket's
  // empty buffer, so it is sent without waiting, and the connection is closed.
  static void refuse_connection(int fd) {
    wire::FrameWriter frame;
    write_fault(frame, 0, kRpcServerTooBusy);
    [[maybe_unused]] ssize_t n =
        ::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::close(fd);
  }

  // Takes the waiting connections (a bounded number per event). False when the process is
  // out of descriptors and the listener must rest (re-arming it would spin: the connection
  // stays queued and the socket stays readable).
  bool accept_all() {
    const size_t bound = connection_bound();
    for (int i = 0; i < kAcceptsPerEvent; ++i) {
      const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (fd < 0) {
        if (errno == EINTR || errno == ECONNABORTED) continue;
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
          return refuse_with_spare();
        }
        return true;  // EAGAIN: nothing waits
      }
      std::shared_ptr<Connection> conn;
      {
        std::lock_guard<std::mutex> g(conns_m_);
        if (live_connections_.load(std::memory_order_relaxed) < bound) {
          conn = std::make_shared<Connection>(fd, epoll_fd_, limits_.max_pending_reply_bytes,
                                              live_connections_);
          conns_[fd] = conn;
        }
      }
      if (!conn) {
        refuse_connection(fd);
        continue;
      }
      epoll_event ev{};
      ev.events = kReadEvents;
      ev.data.fd = fd;
      ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &ev);
    }
    return true;
  }

  // Out of descriptors: the spare one is given up to take the waiting connection and refuse
  // it, then held back again. False when that is not possible either.
  bool refuse_with_spare() {
    std::lock_guard<std::mutex> g(spare_m_);
    if (spare_fd_ < 0) return false;
    ::close(spare_fd_);
    spare_fd_ = -1;
    const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    const bool taken = fd >= 0 || errno == EAGAIN || errno == EWOULDBLOCK;
    if (fd >= 0) refuse_connection(fd);
    spare_fd_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    return taken && spare_fd_ >= 0;
  }

  // The listener waits for a connection to end or for the rest timer, whichever comes first.
  void rest_listener() {
    listener_resting_.store(true, std::memory_order_relaxed);
    itimerspec t{};
    t.it_value.tv_nsec = kListenerRestNs;
    ::timerfd_settime(rest_fd_, 0, &t, nullptr);
  }

  void wake_listener() {
    if (!listener_resting_.exchange(false, std::memory_order_relaxed)) return;
    {
      std::lock_guard<std::mutex> g(spare_m_);
      if (spare_fd_ < 0) spare_fd_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    rearm(listen_fd_, EPOLLIN);
  }

  // Reads what is there (a bounded amount, so that one busy client cannot keep a thread
  // from the others) and takes every complete request. The requests of one read are taken
  // straight from the stack buffer; only the start of a request that has not come whole is
  // kept in the connection's buffer.
  ReadEnd read_connection(Connection& c, const std::shared_ptr<Connection>& ref,
                          std::vector<Call>& calls, bool peer_gone) {
    uint8_t buf[4096];
    for (int reads = 0; reads < kReadsPerEvent; ++reads) {
      const ssize_t n = ::recv(c.fd, buf, sizeof buf, MSG_DONTWAIT);
      if (n == 0) return ReadEnd::kEnded;
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return ReadEnd::kDrained;
        return ReadEnd::kEnded;
      }
      bool ok = false;
      if (c.inbuf.empty()) {
        const size_t used = take_frames(c, buf, static_cast<size_t>(n), ref, calls, ok);
        if (ok) c.inbuf.assign(buf + used, buf + n);
      } else {
        c.inbuf.insert(c.inbuf.end(), buf, buf + n);
        const size_t used = take_frames(c, c.inbuf.data(), c.inbuf.size(), ref, calls, ok);
        if (ok) c.inbuf.erase(c.inbuf.begin(), c.inbuf.begin() + static_cast<std::ptrdiff_t>(used));
      }
      if (!ok) return ReadEnd::kEnded;
      // A short read emptied the socket (a stream socket reads all it holds): with the
      // edge-triggered registration, what comes later raises a new event. An end already
      // announced raises none: it is read.
      if (static_cast<size_t>(n) < sizeof buf && !peer_gone) return ReadEnd::kDrained;
    }
    return ReadEnd::kMore;
  }

  // Takes the complete requests in [p, p + n); answers how many bytes they took. `ok` is
  // false when the stream broke.
  size_t take_frames(Connection& c, const uint8_t* p, size_t n,
                     const std::shared_ptr<Connection>& ref, std::vector<Call>& calls, bool& ok) {
    size_t off = 0;
    ok = true;
    while (n - off >= wire::kLengthBytes) {
      const uint32_t len = wire::load_u32(p + off);
      if (len < 8 || len > wire::kMaxRequestBody) {
        // The stream cannot be followed past a bad length: refuse and hang up.
        wire::FrameWriter refusal;
        write_fault(refusal, 0, kRpcProtocolError);
        c.send_reply(refusal);
        ok = false;
        return off;
      }
      if (n - off - wire::kLengthBytes < len) break;
      const uint8_t* body = p + off + wire::kLengthBytes;
      off += wire::kLengthBytes + len;
      if (c.in_flight.load(std::memory_order_relaxed) >= limits_.max_calls_per_connection) {
        wire::FrameWriter refusal;
        write_fault(refusal, wire::load_u32(body), kRpcServerTooBusy);
        c.send_reply(refusal);
        continue;
      }
      c.in_flight.fetch_add(1, std::memory_order_relaxed);
      Call& call = calls.emplace_back();
      call.conn = ref;
      call.size = len;
      std::memcpy(call.body.data(), body, len);
    }
    return off;
  }

  void run_call(Call& call, RpcDispatch* dispatch, DiagnosticsDispatch* diagnostics) {
    wire::FrameWriter reply(reply_body_bytes(call));
    handle(*call.conn, call.body.data(), call.size, dispatch, diagnostics, reply);
    // Counted out before the reply goes: a client that has its reply may send the next
    // call at once, and that one must find the room.
    call.conn->in_flight.fetch_sub(1, std::memory_order_relaxed);
    call.conn->send_reply(reply);
    call.conn.reset();  // may be the last reference: runs the connection's contexts down
  }

  // The largest reply body a call can have, so that its frame is sized once: only a
  // QueryArray's reply (and a diagnostics text, which is sized when known) may not fit inline.
  static size_t reply_body_bytes(const Call& call) {
    if (call.size < 8 || wire::load_u32(call.body.data() + 4) != kQueryArray ||
        call.size != wire::request_body_size(kQueryArray)) {
      return wire::FrameWriter::kInlineBody;
    }
    const auto count = static_cast<int32_t>(wire::load_u32(call.body.data() + call.size - 4));
    if (count < 0 || count > kMaxArrayCount) return wire::FrameWriter::kInlineBody;
    return 16 + 4 * static_cast<size_t>(count);
  }

  // A call that never reaches the procedures: it is answered with `fault`.
  void refuse_call(Call& call, uint32_t fault) {
    call.conn->in_flight.fetch_sub(1, std::memory_order_relaxed);
    wire::FrameWriter refusal;
    write_fault(refusal, wire::load_u32(call.body.data()), fault);
    call.conn->send_reply(refusal);
    call.conn.reset();
  }

  Uuid new_context_uuid() {
    std::lock_guard<std::mutex> g(m_);
    Uuid u{};
    for (;;) {
      for (size_t i = 0; i < u.size(); i += 8) {
        const uint64_t r = rng_();
        std::memcpy(u.data() + i, &r, 8);
      }
      for (uint8_t b : u) {
        if (b != 0) return u;
      }
    }
  }

  // A call of the diagnostics interface: no context, the text sized to the caller's room.
  void handle_diagnostics(uint32_t call_id, uint32_t proc, wire::Reader& in,
                          DiagnosticsDispatch* dispatch, wire::FrameWriter& out) {
    if (dispatch == nullptr) return fail_call(out, call_id, kRpcUnknownIf);
    int32_t count = 0, capacity = 0;
    const uint32_t op = proc & ~kDiagnosticsInterfaceBit;
    if (op == kReadHistory) in.i32(count);
    in.i32(capacity);
    if (capacity < 0 || capacity > kMaxDiagnosticsBytes) {
      return fail_call(out, call_id, kRpcInvalidBound);
    }
    int32_t status = 0, length = 0;
    std::string text;
    try {
      ClockAttachment attach(clock_);
      run_diagnostics(*dispatch, op, count, capacity, status, length, text);
    } catch (const RpcFault& f) {
      return fail_call(out, call_id, f.code());
    } catch (...) {
      return fail_call(out, call_id, kRpcCallFailed);
    }
    out.reset(20 + text.size());
    out.u32(call_id);
    out.u32(0);
    out.i32(status);
    out.i32(length);
    out.u32(static_cast<uint32_t>(text.size()));
    out.bytes(text.data(), text.size());
  }

  // Runs one request and writes its reply (sized for it by the caller) to `out`.
  void handle(Connection& c, const uint8_t* body, size_t size, RpcDispatch* dispatch,
              DiagnosticsDispatch* diagnostics, wire::FrameWriter& out) {
    wire::Reader in(body, size);
    uint32_t call_id = 0;
    uint32_t proc = 0;
    in.u32(call_id);
    in.u32(proc);
    const size_t expected = wire::request_body_size(proc);
    if (expected == 0) return fail_call(out, call_id, kRpcProcnumOutOfRange);
    if (size != expected) return fail_call(out, call_id, kRpcProtocolError);
    if ((proc & kDiagnosticsInterfaceBit) != 0) {
      return handle_diagnostics(call_id, proc, in, diagnostics, out);
    }
    if (dispatch == nullptr) return fail_call(out, call_id, kRpcUnknownIf);

    out.u32(call_id);
    out.u32(0);
    try {
      if (proc == kOpenControlContext) {
        {
          // A slot is taken before the procedure runs, so that opens running at once cannot
          // pass the bound together.
          std::lock_guard<std::mutex> g(c.ctx_m);
          if (c.contexts.size() + c.contexts_opening >= limits_.max_contexts_per_connection) {
            return fail_call(out, call_id, kRpcOutOfResources);
          }
          ++c.contexts_opening;
        }
        ContextObject object = nullptr;
        try {
          ClockAttachment attach(clock_);
          object = dispatch->open_context();
        } catch (...) {
          std::lock_guard<std::mutex> g(c.ctx_m);
          --c.contexts_opening;
          throw;
        }
        ContextHandleWire handle;
        handle.uuid = new_context_uuid();
        {
          std::lock_guard<std::mutex> g(c.ctx_m);
          --c.contexts_opening;
          c.contexts[handle.uuid] = {object, dispatch};
        }
        out.context(handle);
        return;
      }
      ContextHandleWire handle;
      in.context(handle);
      if (handle.is_null()) return fail_call(out, call_id, kRpcNullContext);
      std::pair<ContextObject, RpcDispatch*> entry{nullptr, nullptr};
      {
        std::lock_guard<std::mutex> g(c.ctx_m);
        auto it = c.contexts.find(handle.uuid);
        if (it == c.contexts.end() || handle.attributes != 0) {
          return fail_call(out, call_id, kErrorInvalidHandle);
        }
        entry = it->second;
        if (proc == kCloseControlContext) c.contexts.erase(it);
      }
      if (proc == kCloseControlContext) {
        {
          ClockAttachment attach(clock_);
          entry.second->close_context(entry.first);
        }
        out.context(ContextHandleWire{});
        return;
      }
      int32_t command = 0, a = 0, b = 0, status = 0, value = 0;
      const int longs = long_arguments(proc);
      in.i32(command);
      if (longs >= 2) in.i32(a);
      if (longs >= 3) in.i32(b);
      if (proc == kQueryArray && (a < 0 || a > kMaxArrayCount)) {
        return fail_call(out, call_id, kRpcInvalidBound);
      }
      std::vector<int32_t> values(proc == kQueryArray ? static_cast<size_t>(a) : 0, 0);
      {
        ClockAttachment attach(clock_);
        switch (proc) {
          case kQueryValue:
            dispatch->query_value(entry.first, command, status, value);
            break;
          case kQueryIndexedValue:
            dispatch->query_indexed_value(entry.first, command, status, a, value);
            break;
          case kSetValue:
            dispatch->set_value(entry.first, command, status, a);
            break;
          case kSetPairedValue:
            dispatch->set_paired_value(entry.first, command, status, a, b);
            break;
          default:
            dispatch->query_array(entry.first, command, status, a, values.data());
            break;
        }
      }
      out.i32(status);
      if (returns_value(proc)) out.i32(value);
      if (proc == kQueryArray) {
        out.u32(static_cast<uint32_t>(values.size()));
        for (int32_t v : values) out.i32(v);
      }
    } catch (const RpcFault& f) {
      return fail_call(out, call_id, f.code());
    } catch (...) {
      return fail_call(out, call_id, kRpcCallFailed);
    }
  }

  Clock& clock_;
  SocketRuntimeLimits limits_;
  std::mutex stop_m_;
  mutable std::mutex m_;
  std::condition_variable state_cv_;
  int listen_fd_ = -1;
  std::string endpoint_;
  RpcDispatch* dispatch_ = nullptr;
  DiagnosticsDispatch* diag_dispatch_ = nullptr;  // non-null while registered
  bool published_ = false;
  uint32_t max_calls_;  // calls that run at once (limits_.max_calls)
  bool serving_ = false;
  bool stopping_ = false;
  bool stopped_ = false;
  bool listening_call_ = false;
  int epoll_fd_ = -1;
  int wake_fd_ = -1;
  int work_fd_ = -1;
  int rest_fd_ = -1;  // timer that ends a rest of the listener
  std::mutex spare_m_;
  int spare_fd_ = -1;  // under spare_m_ (while serving): see refuse_with_spare
  std::atomic<bool> listener_resting_{false};
  std::atomic<size_t> live_connections_{0};
  // Under m_: calls read but not started, the runtime's threads, those not in a call (they
  // poll or are about to) and the calls running.
  std::deque<Call> queue_;
  std::vector<std::thread> threads_;
  size_t idle_ = 0;
  size_t running_ = 0;
  std::mutex conns_m_;
  std::unordered_map<int, std::shared_ptr<Connection>> conns_;
  std::mt19937_64 rng_;
};

}  // namespace

std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock) {
  return make_socket_rpc_runtime(clock, SocketRuntimeLimits{});
}

std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock, SocketRuntimeLimits limits) {
  return std::make_unique<SocketRpcRuntime>(clock, std::move(limits));
}

}  // namespace zaltor::platform
