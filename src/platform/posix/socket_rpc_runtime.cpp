#include "platform/posix/socket_rpc_runtime.h"
#include "platform/posix/abstract_address.h"

#include <fcntl.h>
#include <poll.h>
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
#include <chrono>
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
// Connections taken per event of the listening socket before the others get a turn.
constexpr int kAcceptsPerEvent = 64;
// How long the listener rests when no descriptor is left even to refuse a connection.
constexpr long kListenerRestNs = 100'000'000;
// While calls run on their readers' threads, the poll thread looks every tick for a
// connection whose reader has been in one call for a whole tick while the client sent more,
// and gives that connection another reader.
constexpr int kTakeoverTickMs = 1;

using Uuid = std::array<uint8_t, 16>;

// Who reads a connection (Connection::reader): the number of the reader it is on (each
// new reader takes the next), times two, plus 1 while that reader runs a call it read
// (nobody reads the connection until the call ends). The end of that call and a hand-over
// to a new reader race for it by compare-and-swap: exactly one wins.
constexpr uint64_t kInCall = 1;

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
  // connection's buffer, which the poll thread sends as the socket drains. A client that lets
  // more than max_out bytes pile up behind the reply it is taking is dropped.
  void send_reply(wire::FrameWriter& reply) {
    const uint8_t* frame = reply.data();
    const size_t size = reply.size();
    std::lock_guard<std::mutex> g(write_m);
    if (dropped) return;
    size_t off = 0;
    const bool was_empty = outbuf.empty();
    if (was_empty && !send_some(frame, size, off)) return drop_locked();
    if (off == size) return;
    // A reply that finds nothing waiting waits whole, however large (a diagnostics text may
    // be larger than the socket and the bound together, and its client reads it); the bound
    // is on what piles up behind it.
    if (!was_empty && outbuf.size() + (size - off) > max_out) return drop_locked();
    outbuf.insert(outbuf.end(), frame + off, frame + size);
    if (was_empty) arm_locked();
  }

  // Sends what waits in the buffer (on a write event); drops the connection when it broke.
  void flush() {
    std::lock_guard<std::mutex> g(write_m);
    if (dropped || outbuf.empty()) return;
    size_t off = 0;
    if (!send_some(outbuf.data(), outbuf.size(), off)) return drop_locked();
    outbuf.erase(outbuf.begin(), outbuf.begin() + static_cast<std::ptrdiff_t>(off));
    if (!outbuf.empty()) arm_locked();
  }

  // The connection is done: it leaves the poll set; replies of calls still running are
  // dropped.
  void remove() {
    std::lock_guard<std::mutex> g(write_m);
    dropped = true;
    outbuf.clear();
    if (registered) ::epoll_ctl(epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
    registered = false;
  }

  // Ends the connection from outside (the runtime stops): its reader sees the end.
  void shut() { ::shutdown(fd, SHUT_RDWR); }

  const int fd;
  const int epoll_fd;
  const size_t max_out;
  // Connections whose socket is still open (also those that ended but whose calls still
  // run or wait): what the connection bound counts, since each holds a descriptor.
  std::atomic<size_t>& live;
  std::mutex write_m;
  std::vector<uint8_t> outbuf;  // under write_m: reply bytes the socket has not taken yet
  bool dropped = false;         // under write_m: done, or being dropped
  bool registered = false;      // under write_m: in the poll set (only to send what waits)
  std::mutex ctx_m;
  std::map<Uuid, std::pair<ContextObject, RpcDispatch*>> contexts;
  size_t contexts_opening = 0;  // under ctx_m: opens that passed the bound and are running
  std::atomic<int> in_flight{0};
  // Who reads it (kInCall), and the number of calls its readers have started, which the poll thread
  // compares from tick to tick to see a call that does not end.
  std::atomic<uint64_t> reader{0};
  std::atomic<uint64_t> reader_calls{0};
  uint64_t seen_calls = ~uint64_t{0};  // the poll thread's own: reader_calls at the last tick
  // Held while reading, for the hand-over of inbuf from one reader to the next.
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
  // Asks the poll thread for one write event (replies wait for the socket).
  void arm_locked() {
    epoll_event ev{};
    ev.events = EPOLLOUT | EPOLLONESHOT;
    ev.data.fd = fd;
    ::epoll_ctl(epoll_fd, registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &ev);
    registered = true;
  }
  // Gone or not reading: shut the socket, so that its reader sees the end (at once: the shut
  // socket reads as ended) and drops the connection.
  void drop_locked() {
    outbuf.clear();
    ::shutdown(fd, SHUT_RDWR);
  }
};

// A request read whole and not yet answered; its body is kept inline (requests are small).
struct Call {
  std::shared_ptr<Connection> conn;
  uint32_t size = 0;
  std::array<uint8_t, wire::kMaxRequestBody> body{};
};

// Work for a worker thread: read a connection (conn set, no call) or run a call.
struct Task {
  std::shared_ptr<Connection> conn;  // to read, as its reader number `reader`
  uint64_t reader = 0;
  Call call;  // to run, when call.conn is set
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
    const socklen_t len = abstract_address(endpoint, addr);
    if (len == 0) {
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
    stop_seen_.store(true, std::memory_order_relaxed);
    work_cv_.notify_all();
    // The stop event stays readable: the poll thread (the first one) sees it and ends.
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t w = ::write(wake_fd_, &one, sizeof one);
    if (!threads.empty()) threads.front().join();
    // No connection is taken any more: the readers waiting in their sockets see the end.
    // Threads in calls finish them first.
    {
      std::lock_guard<std::mutex> g(conns_m_);
      for (auto& [fd, conn] : conns_) conn->shut();
    }
    for (size_t i = 1; i < threads.size(); ++i) threads[i].join();
    std::deque<Call> dropped;
    std::deque<Task> tasks;
    std::unordered_map<int, std::shared_ptr<Connection>> conns;
    {
      std::lock_guard<std::mutex> g(m_);
      dropped.swap(queue_);
      tasks.swap(tasks_);
    }
    {
      std::lock_guard<std::mutex> g(conns_m_);
      conns.swap(conns_);
    }
    dropped.clear();  // releases the last connections: their contexts are run down
    tasks.clear();
    conns.clear();
    ::close(epoll_fd_);
    ::close(wake_fd_);
    ::close(tick_fd_);
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
  // False when the poll thread could not be started (nothing is left serving).
  bool start_serving_locked() {
    epoll_fd_ = ::epoll_create1(EPOLL_CLOEXEC);
    wake_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    tick_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    rest_fd_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    // Held back for the moment the process runs out of descriptors (see accept_all).
    spare_fd_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    // The stop event is level-triggered; the tick event, the listening socket and the rest
    // timer are one-shot, re-armed once handled.
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = wake_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, wake_fd_, &ev);
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.fd = tick_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, tick_fd_, &ev);
    ev.data.fd = rest_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, rest_fd_, &ev);
    ev.data.fd = listen_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, listen_fd_, &ev);
    serving_ = true;
    if (start_thread_locked([this] { poll_loop(); })) return true;
    serving_ = false;
    for (int* fd : {&epoll_fd_, &wake_fd_, &tick_fd_, &rest_fd_, &spare_fd_}) {
      if (*fd >= 0) ::close(*fd);
      *fd = -1;
    }
    return false;
  }

  // False when the thread could not be started (or the runtime stops).
  bool start_thread_locked(std::function<void()> body) {
    if (stopping_) return false;
    try {
      // Room first: a started thread must never be dropped while it runs (that ends the
      // process), and the push of a moved thread into reserved room cannot throw.
      if (threads_.size() == threads_.capacity()) threads_.reserve(2 * threads_.size() + 16);
      threads_.push_back(limits_.start_thread(std::move(body)));
    } catch (...) {
      return false;  // out of threads (or of memory): the caller refuses what needed it
    }
    return true;
  }

  // Hands `task` to a waiting worker, or to a new one. False when no thread is to be had:
  // the caller refuses what the task was for.
  bool post_locked(Task&& task) {
    tasks_.push_back(std::move(task));
    if (tasks_.size() <= idle_workers_) {
      work_cv_.notify_one();
      return true;
    }
    if (start_thread_locked([this] { work_loop(); })) {
      ++idle_workers_;
      return true;
    }
    task = std::move(tasks_.back());
    tasks_.pop_back();
    return false;
  }

  // A worker thread: reads a connection for as long as it is that connection's reader, or
  // runs a call that could not run on its reader's thread; then waits for the next task.
  void work_loop() {
    // The requests one read brought, kept from read to read so that reading allocates
    // nothing once warm.
    std::vector<Call> calls;
    std::unique_lock<std::mutex> lk(m_);
    for (;;) {
      if (!work_cv_.wait_for(lk, limits_.idle_thread_time,
                             [&] { return stopping_ || !tasks_.empty(); }) &&
          retire_locked()) {
        return;
      }
      if (stopping_) return;
      if (tasks_.empty()) continue;
      Task task = std::move(tasks_.front());
      tasks_.pop_front();
      --idle_workers_;
      lk.unlock();
      if (task.call.conn) {
        run_call(*task.call.conn, task.call, dispatch_.load(std::memory_order_acquire),
                 diag_dispatch_.load(std::memory_order_acquire));
        release_room();
      } else {
        read_loop(task.conn, task.reader, calls);
      }
      task = Task{};  // may be the last reference: runs the connection's contexts down
      lk.lock();
      ++idle_workers_;
    }
  }

  // A worker that waited idle_thread_time for work leaves the runtime's threads (m_ held):
  // it is let go (no one joins it), having touched the runtime for the last time when its
  // caller lets go of m_. False when it is not among them (it then waits on).
  bool retire_locked() {
    const std::thread::id self = std::this_thread::get_id();
    // The first thread is the poll thread, which stays.
    for (size_t i = 1; i < threads_.size(); ++i) {
      if (threads_[i].get_id() != self) continue;
      threads_[i].detach();
      if (i + 1 != threads_.size()) threads_[i] = std::move(threads_.back());
      threads_.pop_back();
      --idle_workers_;
      return true;
    }
    return false;
  }

  // The reader of one connection: it waits in the socket itself (a request wakes this very
  // thread, as in a bare exchange), takes the requests, and runs the first on this thread
  // and any others read with it on workers. While it runs a call the poll thread watches
  // the connection, and gives it another reader should the call last while the client sends
  // more; the old reader then leaves when its call ends.
  void read_loop(const std::shared_ptr<Connection>& conn, uint64_t reader,
                 std::vector<Call>& calls) {
    const uint64_t reading = 2 * reader;
    for (;;) {
      if (stop_seen_.load(std::memory_order_relaxed)) return;
      bool open = false;
      {
        std::lock_guard<std::mutex> g(conn->read_m);
        open = read_once(*conn, calls);
      }
      if (!open) {
        // Requests read before the stream broke are not run; this thread's list must not
        // carry them to the next connection it reads.
        calls.clear();
        break;
      }
      if (calls.empty()) continue;
      const bool room = take_room(true);
      if (calls.size() > 1 || !room) {
        std::unique_lock<std::mutex> lk(m_);
        // Requests read together run side by side, on workers.
        for (size_t i = 1; i < calls.size(); ++i) {
          calls[i].conn = conn;
          submit_locked(std::move(calls[i]), lk);
        }
        // With no room under max_calls the first waits its turn, oldest first, and this
        // thread reads on.
        if (!room) {
          calls[0].conn = conn;
          wait_for_room_locked(std::move(calls[0]), lk);
        }
      }
      if (!room) {
        calls.clear();
        continue;
      }
      // The call runs here, on the connection this thread holds: it takes no reference.
      Call call = std::move(calls[0]);
      calls.clear();
      watch_call(*conn, reading | kInCall);
      run_call(*conn, call, dispatch_.load(std::memory_order_acquire),
               diag_dispatch_.load(std::memory_order_acquire));
      release_room();
      // Unless the poll thread gave the connection another reader during the call.
      uint64_t in_call = reading | kInCall;
      if (!conn->reader.compare_exchange_strong(in_call, reading, std::memory_order_relaxed)) {
        return;
      }
    }
    conn->remove();
    {
      std::lock_guard<std::mutex> g(conns_m_);
      if (auto it = conns_.find(conn->fd); it != conns_.end() && it->second == conn) {
        conns_.erase(it);
      }
    }
    wake_listener();  // a descriptor and a connection slot may be free again
  }

  // Reads what comes next (waiting for it) and takes every complete request. The requests
  // of one read are taken straight from the stack buffer; only the start of a request that
  // has not come whole is kept in the connection's buffer. False when the connection ends.
  bool read_once(Connection& c, std::vector<Call>& calls) {
    uint8_t buf[4096];
    ssize_t n = 0;
    do {
      n = ::recv(c.fd, buf, sizeof buf, 0);
    } while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
    bool ok = false;
    if (c.inbuf.empty()) {
      const size_t used = take_frames(c, buf, static_cast<size_t>(n), calls, ok);
      if (ok) c.inbuf.assign(buf + used, buf + n);
    } else {
      c.inbuf.insert(c.inbuf.end(), buf, buf + n);
      const size_t used = take_frames(c, c.inbuf.data(), c.inbuf.size(), calls, ok);
      if (ok) c.inbuf.erase(c.inbuf.begin(), c.inbuf.begin() + static_cast<std::ptrdiff_t>(used));
    }
    return ok;
  }

  // Takes room for a call under max_calls, without a lock; with `in_turn`, only when no call
  // waits before it.
  bool take_room(bool in_turn) {
    if (in_turn && waiting_.load(std::memory_order_seq_cst) != 0) return false;
    uint32_t r = running_.load(std::memory_order_relaxed);
    while (r < max_calls_) {
      if (running_.compare_exchange_weak(r, r + 1, std::memory_order_seq_cst)) return true;
    }
    return false;
  }

  // A call ended: its room goes to the oldest waiting call, if any. The count drops before
  // the look at the waiting calls, and a call that starts to wait looks at the count after
  // it is counted (wait_for_room_locked): one of the two sees the other.
  void release_room() {
    running_.fetch_sub(1, std::memory_order_seq_cst);
    if (waiting_.load(std::memory_order_seq_cst) == 0) return;
    std::unique_lock<std::mutex> lk(m_);
    start_waiting_locked(lk);
  }

  // Starts `call` on a worker, or has it wait when max_calls run (m_ held by `lk`).
  void submit_locked(Call&& call, std::unique_lock<std::mutex>& lk) {
    if (take_room(true)) {
      run_on_worker_locked(std::move(call), lk);
    } else {
      wait_for_room_locked(std::move(call), lk);
    }
  }

  void wait_for_room_locked(Call&& call, std::unique_lock<std::mutex>& lk) {
    queue_.push_back(std::move(call));
    waiting_.fetch_add(1, std::memory_order_seq_cst);
    start_waiting_locked(lk);  // room may have come free meanwhile
  }

  // Starts the oldest waiting calls on workers while there is room (m_ held by `lk`).
  void start_waiting_locked(std::unique_lock<std::mutex>& lk) {
    while (!stopping_ && !queue_.empty() && take_room(false)) {
      Call call = std::move(queue_.front());
      queue_.pop_front();
      waiting_.fetch_sub(1, std::memory_order_seq_cst);
      run_on_worker_locked(std::move(call), lk);
    }
  }

  // Runs `call`, which has its room under max_calls, on a worker (m_ held by `lk`); refused
  // when no thread is to be had.
  void run_on_worker_locked(Call&& call, std::unique_lock<std::mutex>& lk) {
    Task task;
    task.call = std::move(call);
    if (post_locked(std::move(task))) return;
    running_.fetch_sub(1, std::memory_order_seq_cst);
    lk.unlock();
    refuse_call(task.call, kRpcServerTooBusy);
    lk.lock();
  }

  // A reader starts a call on its own thread: the poll thread must be watching. It keeps
  // watching while calls run or start, so that a steady client costs it one wake-up per
  // tick and its calls none. The call is marked before the look at the flag, and the poll
  // thread raises the flag before its last look at the calls: one of the two sees the
  // other (both sequentially consistent).
  void watch_call(Connection& conn, uint64_t in_call) {
    conn.reader.store(in_call, std::memory_order_seq_cst);
    // Only the reader writes the count: no read-modify-write needed.
    conn.reader_calls.store(conn.reader_calls.load(std::memory_order_relaxed) + 1,
                            std::memory_order_relaxed);
    if (!watcher_asleep_.load(std::memory_order_seq_cst)) return;
    if (!watcher_asleep_.exchange(false, std::memory_order_seq_cst)) return;
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t w = ::write(tick_fd_, &one, sizeof one);
  }

  // The poll thread: takes connections, sends replies that waited for their sockets, rests
  // the listener when descriptors run out, and watches the calls that run on their readers'
  // threads.
  void poll_loop() {
    bool watching = false;
    auto last_look = std::chrono::steady_clock::now();
    for (;;) {
      epoll_event event{};
      const int n = ::epoll_wait(epoll_fd_, &event, 1, watching ? kTakeoverTickMs : -1);
      if (n < 0 && errno != EINTR) return;
      if (n == 1) {
        if (event.data.fd == wake_fd_) return;  // stopping
        handle_event(event);
      }
      if (!watching) {
        // Asleep, woken by something else than a call: sleep on.
        if (watcher_asleep_.load(std::memory_order_seq_cst)) continue;
        watching = true;
        last_look = std::chrono::steady_clock::now();
        continue;
      }
      const auto now = std::chrono::steady_clock::now();
      if (now - last_look < std::chrono::milliseconds(kTakeoverTickMs)) continue;
      last_look = now;
      if (look_at_calls()) continue;
      // A whole tick without a call: sleep, unless one started meanwhile.
      watcher_asleep_.store(true, std::memory_order_seq_cst);
      if (any_call_running()) {
        watcher_asleep_.store(false, std::memory_order_seq_cst);
      } else {
        watching = false;
      }
    }
  }

  // Whether a reader runs a call now.
  bool any_call_running() {
    std::lock_guard<std::mutex> g(conns_m_);
    for (auto& [fd, conn] : conns_) {
      if ((conn->reader.load(std::memory_order_seq_cst) & kInCall) != 0) return true;
    }
    return false;
  }

  void handle_event(const epoll_event& event) {
    const int fd = event.data.fd;
    if (fd == tick_fd_) {
      uint64_t count = 0;
      [[maybe_unused]] ssize_t r = ::read(tick_fd_, &count, sizeof count);
      rearm(tick_fd_, EPOLLIN);
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
    if (conn) conn->flush();  // a write event: the socket takes replies again
  }

  // A connection whose reader has been in the same call since the last tick, and whose
  // client has sent more (or left), gets a new reader: a call that blocks holds up neither
  // the next calls of its connection nor the news that the client went.
  // Answers whether calls ran or started since the last look.
  bool look_at_calls() {
    std::vector<std::shared_ptr<Connection>>& stuck = stuck_;  // the poll thread's own
    stuck.clear();
    bool active = false;
    {
      std::lock_guard<std::mutex> g(conns_m_);
      for (auto& [fd, conn] : conns_) {
        const uint64_t calls = conn->reader_calls.load(std::memory_order_relaxed);
        const bool in_call = (conn->reader.load(std::memory_order_relaxed) & kInCall) != 0;
        if (in_call && calls == conn->seen_calls) stuck.push_back(conn);
        active = active || in_call || calls != conn->seen_calls;
        conn->seen_calls = calls;
      }
    }
    if (stuck.empty()) return active;
    std::vector<pollfd>& fds = stuck_fds_;
    fds.clear();
    for (auto& conn : stuck) fds.push_back(pollfd{conn->fd, POLLIN, 0});
    if (::poll(fds.data(), fds.size(), 0) <= 0) {
      stuck.clear();
      return active;
    }
    for (size_t i = 0; i < stuck.size(); ++i) {
      if (fds[i].revents == 0) continue;
      // Under the lock under which a reader ends its call: either the call ended and its
      // reader reads on, or the new reader has the connection and the old one will leave.
      uint64_t state = stuck[i]->reader.load(std::memory_order_relaxed);
      if ((state & kInCall) == 0) continue;
      // The new reader's thread is had first: without one the old reader keeps the
      // connection, and a later tick tries again. The connection is then handed over only if
      // the call has not ended meanwhile (else its reader reads on and the task goes).
      std::lock_guard<std::mutex> g(m_);
      Task task;
      task.conn = stuck[i];
      task.reader = state / 2 + 1;
      if (!post_locked(std::move(task))) continue;
      if (!stuck[i]->reader.compare_exchange_strong(state, 2 * (state / 2 + 1),
                                                    std::memory_order_relaxed)) {
        tasks_.pop_back();  // still ours: no worker takes a task while m_ is held
      }
    }
    stuck.clear();
    return active;
  }

  void rearm(int fd, uint32_t events) {
    epoll_event ev{};
    ev.events = events | EPOLLONESHOT;
    ev.data.fd = fd;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, fd, &ev);
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
      // Blocking: the connection's reader waits in it. Replies are sent without waiting.
      const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
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
      bool reader = false;
      {
        std::lock_guard<std::mutex> g(m_);
        Task task;
        task.conn = conn;
        reader = post_locked(std::move(task));
      }
      if (!reader) {
        // No thread to read it: refused as a whole.
        wire::FrameWriter frame;
        write_fault(frame, 0, kRpcServerTooBusy);
        [[maybe_unused]] ssize_t n =
            ::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        std::lock_guard<std::mutex> g(conns_m_);
        conns_.erase(fd);  // the last reference: the socket is closed
      }
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

  // Takes the complete requests in [p, p + n); answers how many bytes they took. `ok` is
  // false when the stream broke.
  size_t take_frames(Connection& c, const uint8_t* p, size_t n, std::vector<Call>& calls,
                     bool& ok) {
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
      // The connection is named (a reference taken) only for a call that leaves its reader.
      Call& call = calls.emplace_back();
      call.size = len;
      std::memcpy(call.body.data(), body, len);
    }
    return off;
  }

  void run_call(Connection& conn, Call& call, RpcDispatch* dispatch,
                DiagnosticsDispatch* diagnostics) {
    wire::FrameWriter reply(reply_body_bytes(call));
    handle(conn, call.body.data(), call.size, dispatch, diagnostics, reply);
    // Counted out before the reply goes: a client that has its reply may send the next
    // call at once, and that one must find the room.
    conn.in_flight.fetch_sub(1, std::memory_order_relaxed);
    conn.send_reply(reply);
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
  // Set under m_, read by calls without it (acquire: what they point to is complete).
  std::atomic<RpcDispatch*> dispatch_{nullptr};
  std::atomic<DiagnosticsDispatch*> diag_dispatch_{nullptr};  // non-null while registered
  bool published_ = false;
  uint32_t max_calls_;  // calls that run at once (limits_.max_calls)
  bool serving_ = false;
  bool stopping_ = false;
  std::atomic<bool> stop_seen_{false};  // stopping_, for readers between two reads
  bool stopped_ = false;
  bool listening_call_ = false;
  int epoll_fd_ = -1;
  int wake_fd_ = -1;
  int tick_fd_ = -1;  // wakes the poll thread to watch the calls that run on their readers
  int rest_fd_ = -1;  // timer that ends a rest of the listener
  std::mutex spare_m_;
  int spare_fd_ = -1;  // under spare_m_ (while serving): see refuse_with_spare
  std::atomic<bool> listener_resting_{false};
  std::atomic<size_t> live_connections_{0};
  // Under m_: calls read but not started (they wait for room under max_calls), work for the
  // workers, the runtime's threads, the workers waiting for work and the calls running.
  std::deque<Call> queue_;
  std::deque<Task> tasks_;
  std::condition_variable work_cv_;
  std::vector<std::thread> threads_;
  size_t idle_workers_ = 0;
  // Calls running (each took room under max_calls) and calls waiting in queue_; apart from
  // the other fields, since every call changes the first.
  alignas(64) std::atomic<uint32_t> running_{0};
  alignas(64) std::atomic<size_t> waiting_{0};
  // Whether the poll thread sleeps without watching the calls (see watch_call and
  // poll_loop).
  std::atomic<bool> watcher_asleep_{true};
  // The poll thread's own, kept from tick to tick.
  std::vector<std::shared_ptr<Connection>> stuck_;
  std::vector<pollfd> stuck_fds_;
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
