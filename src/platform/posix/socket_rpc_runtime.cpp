#include "platform/posix/socket_rpc_runtime.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

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

#include "platform/posix/control_wire.h"
#include "platform/posix/rpc_security.h"

namespace zaltor::platform {

struct BindingVectorObject {
  std::vector<std::string> bindings;  // "ncalrpc:[endpoint]"
};

namespace {

constexpr uint32_t kNoProtseqsRegistered = 1714;   // RPC_S_NO_PROTSEQS_REGISTERED
constexpr uint32_t kInvalidEndpointFormat = 1706;  // RPC_S_INVALID_ENDPOINT_FORMAT
constexpr uint32_t kCantCreateEndpoint = 1720;     // RPC_S_CANT_CREATE_ENDPOINT
constexpr uint32_t kEptNotRegistered = 1753;       // EPT_S_NOT_REGISTERED
constexpr uint32_t kInvalidSecurityDescr = 1338;   // ERROR_INVALID_SECURITY_DESCR
constexpr uint32_t kUnknownRevision = 1305;        // ERROR_UNKNOWN_REVISION
// Calls of one connection that may wait or run at once; more are refused as too busy.
constexpr int kMaxCallsPerConnection = 128;
// A client that does not read its replies is dropped after this long.
constexpr int kSendTimeoutSeconds = 5;
// Reads of one connection per poll event (of 4096 bytes each) before the others get a turn.
constexpr int kReadsPerEvent = 16;

thread_local uint32_t t_last_error = 0;

using Uuid = std::array<uint8_t, 16>;

struct Connection {
  explicit Connection(int f) : fd(f) {}
  ~Connection() {
    // The client went away (or the runtime stopped): run down what it left open.
    for (auto& [uuid, entry] : contexts) entry.second->rundown(entry.first);
    ::close(fd);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void send_reply(const std::vector<uint8_t>& frame) {
    std::lock_guard<std::mutex> g(write_m);
    size_t off = 0;
    while (off < frame.size()) {
      const ssize_t n = ::send(fd, frame.data() + off, frame.size() - off, MSG_NOSIGNAL);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        // Gone or not reading: the reader thread sees the end and drops the connection.
        ::shutdown(fd, SHUT_RDWR);
        return;
      }
      off += static_cast<size_t>(n);
    }
  }

  const int fd;
  std::mutex write_m;
  std::mutex ctx_m;
  std::map<Uuid, std::pair<ContextObject, RpcDispatch*>> contexts;
  std::atomic<int> in_flight{0};
  // The connection's poll event is one-shot, so one thread reads at a time; the lock makes
  // the hand-over between threads visible.
  std::mutex read_m;
  std::vector<uint8_t> inbuf;  // under read_m
};

struct Call {
  std::shared_ptr<Connection> conn;
  std::vector<uint8_t> body;
};

std::vector<uint8_t> fault_frame(uint32_t call_id, uint32_t fault) {
  wire::Writer w;
  w.u32(call_id);
  w.u32(fault);
  return w.frame();
}

class SocketRpcRuntime final : public RpcRuntime {
 public:
  explicit SocketRpcRuntime(Clock& clock) : clock_(clock), rng_(std::random_device{}()) {}
  ~SocketRpcRuntime() override {
    stop_server_listening();
    if (listen_fd_ >= 0) ::close(listen_fd_);
  }

  uint32_t last_error() override { return t_last_error; }

  bool derive_capability_sids_from_name(const std::string& name, std::vector<Sid>& group_sids,
                                        std::vector<Sid>& capability_sids) override {
    auto cap = std::make_unique<SidObject>();
    auto group = std::make_unique<SidObject>();
    if (!posix_security::derive_capability_sids(name, *cap, *group)) {
      t_last_error = kErrorInvalidParameter;
      return false;
    }
    group_sids = {group.release()};
    capability_sids = {cap.release()};
    return true;
  }
  void local_free_sid(Sid& sid) override {
    delete sid;
    sid = nullptr;
  }
  void local_free_sid_array(std::vector<Sid>& sids) override {
    // The array itself; its entries were freed one by one before.
    for (Sid& s : sids) delete s;
    sids.clear();
  }
  bool allocate_and_initialize_sid(const SidAuthority& authority,
                                   const std::vector<uint32_t>& sub_authorities,
                                   Sid& out) override {
    if (sub_authorities.empty() || sub_authorities.size() > 8) {
      t_last_error = kErrorInvalidParameter;
      return false;
    }
    out = new SidObject{authority, sub_authorities};
    return true;
  }
  void free_sid(Sid& sid) override {
    delete sid;
    sid = nullptr;
  }
  uint32_t set_entries_in_acl(const std::vector<ExplicitAccess>& entries, Acl& out) override {
    auto acl = std::make_unique<AclObject>();
    for (const ExplicitAccess& e : entries) {
      if (e.trustee_form != kTrusteeIsSid || e.trustee == nullptr) return kErrorInvalidParameter;
      acl->entries.push_back({e.permissions, e.mode, e.inheritance, e.trustee_type, *e.trustee});
    }
    out = acl.release();
    return 0;
  }
  void local_free_acl(Acl& acl) override {
    delete acl;
    acl = nullptr;
  }
  bool initialize_security_descriptor(SecurityDescriptor& sd, uint32_t revision) override {
    if (revision != kSecurityDescriptorRevision) {
      t_last_error = kUnknownRevision;
      return false;
    }
    posix_security::write_descriptor(
        sd, {posix_security::kDescriptorMagic, revision, false, false, nullptr});
    return true;
  }
  bool set_security_descriptor_dacl(SecurityDescriptor& sd, bool present, Acl acl,
                                    bool defaulted) override {
    if (!posix_security::descriptor_valid(sd)) {
      t_last_error = kInvalidSecurityDescr;
      return false;
    }
    auto s = posix_security::read_descriptor(sd);
    s.dacl_present = present;
    s.dacl = acl;
    s.dacl_defaulted = defaulted;
    posix_security::write_descriptor(sd, s);
    return true;
  }

  uint32_t use_protseq_ep(const std::string& protseq, uint32_t, const std::string& endpoint,
                          const SecurityDescriptor* sd) override {
    // Local procedure calls only: no network protocol sequence exists here.
    if (protseq != "ncalrpc") return kRpcProtseqNotSupported;
    if (sd != nullptr && !posix_security::descriptor_valid(*sd)) return kInvalidSecurityDescr;
    sockaddr_un addr{};
    if (endpoint.empty() || endpoint.size() + 1 > sizeof addr.sun_path) {
      return kInvalidEndpointFormat;
    }
    std::lock_guard<std::mutex> g(m_);
    if (listen_fd_ >= 0) return endpoint == endpoint_ ? 0u : uint32_t{kRpcDuplicateEndpoint};
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return kCantCreateEndpoint;
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path + 1, endpoint.data(), endpoint.size());  // abstract name
    const auto len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + endpoint.size());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0) {
      const int err = errno;
      ::close(fd);
      return err == EADDRINUSE ? kRpcDuplicateEndpoint : kCantCreateEndpoint;
    }
    if (::listen(fd, SOMAXCONN) != 0) {
      ::close(fd);
      return kCantCreateEndpoint;
    }
    listen_fd_ = fd;
    endpoint_ = endpoint;
    return 0;
  }

  uint32_t register_if(const RpcInterfaceId& id, RpcDispatch& dispatch, uint32_t flags,
                       uint32_t max_calls, uint32_t, const SecurityDescriptor* sd) override {
    if (sd != nullptr && !posix_security::descriptor_valid(*sd)) return kInvalidSecurityDescr;
    std::lock_guard<std::mutex> g(m_);
    if (registered_) return kRpcAlreadyRegistered;
    id_ = id;
    dispatch_ = &dispatch;
    registered_ = true;
    if (max_calls > 0) max_calls_ = max_calls;
    // Every caller of an abstract local socket is on this machine, so the local-only flag
    // holds by construction.
    if ((flags & kRpcIfAutolisten) != 0 && listen_fd_ >= 0) start_serving_locked();
    return 0;
  }

  uint32_t inq_bindings(BindingVector& out) override {
    std::lock_guard<std::mutex> g(m_);
    if (listen_fd_ < 0) return kRpcNoBindings;
    out = new BindingVectorObject{{"ncalrpc:[" + endpoint_ + "]"}};
    return 0;
  }

  uint32_t ep_register(const RpcInterfaceId&, BindingVector bindings) override {
    // There is no endpoint mapper here (clients find the socket by its name); the entry is
    // kept so that unregistering answers as it would on Windows.
    if (bindings == nullptr) return kRpcNoBindings;
    std::lock_guard<std::mutex> g(m_);
    ep_registered_ = true;
    return 0;
  }

  uint32_t listen(uint32_t, uint32_t max_calls, bool dont_wait) override {
    std::unique_lock<std::mutex> lk(m_);
    if (stopped_) return 0;  // listening has already ended
    if (listen_fd_ < 0 && !serving_) return kNoProtseqsRegistered;
    if (listening_call_) return kRpcAlreadyListening;
    listening_call_ = true;
    if (max_calls > 0) max_calls_ = max_calls;
    if (!serving_ && !stopped_) start_serving_locked();
    if (dont_wait) return 0;
    state_cv_.wait(lk, [&] { return stopped_; });
    return 0;
  }

  uint32_t stop_server_listening() override {
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

  uint32_t unregister_if(const RpcInterfaceId& id, bool) override {
    std::lock_guard<std::mutex> g(m_);
    if (!registered_ || !(id.uuid == id_.uuid)) return kRpcUnknownIf;
    registered_ = false;
    dispatch_ = nullptr;
    return 0;
  }

  uint32_t ep_unregister(const RpcInterfaceId&, BindingVector bindings) override {
    if (bindings == nullptr) return kRpcNoBindings;
    std::lock_guard<std::mutex> g(m_);
    if (!ep_registered_) return kEptNotRegistered;
    ep_registered_ = false;
    return 0;
  }

  uint32_t binding_vector_free(BindingVector& bindings) override {
    if (bindings == nullptr) return kErrorInvalidParameter;
    delete bindings;
    bindings = nullptr;
    return 0;
  }

 private:
  void start_serving_locked() {
    epoll_fd_ = ::epoll_create1(EPOLL_CLOEXEC);
    wake_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    work_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    // The stop and work events are level-triggered: every poller may see them. The listening
    // socket and the connections are one-shot: one thread at a time reads each of them.
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = wake_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, wake_fd_, &ev);
    ev.data.fd = work_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, work_fd_, &ev);
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.fd = listen_fd_;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, listen_fd_, &ev);
    serving_ = true;
    start_thread_locked();
  }

  // Every runtime thread runs this loop (see "Threads" in socket_rpc_runtime.h): it runs a
  // waiting call when one may start, else it polls the sockets, and a request it reads it
  // then runs itself.
  void serve_loop() {
    std::unique_lock<std::mutex> lk(m_);
    for (;;) {
      if (stopping_) return;
      if (!queue_.empty() && running_ < max_calls_) {
        Call call = std::move(queue_.front());
        queue_.pop_front();
        --idle_;
        ++running_;
        // Someone must keep polling while this thread is in the call, and the next waiting
        // call goes to another thread.
        if (idle_ == 0) start_thread_locked();
        if (!queue_.empty() && running_ < max_calls_) signal_work();
        RpcDispatch* dispatch = registered_ ? dispatch_ : nullptr;
        lk.unlock();
        run_call(call, dispatch);
        lk.lock();
        --running_;
        ++idle_;
        continue;
      }
      lk.unlock();
      poll_once();
      lk.lock();
    }
  }

  void start_thread_locked() {
    // One thread more than the calls that may run, so that one always polls.
    if (stopping_ || threads_.size() > max_calls_) return;
    ++idle_;
    threads_.emplace_back([this] { serve_loop(); });
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

  // Waits for one event and handles it; complete requests are queued for serve_loop.
  void poll_once() {
    epoll_event event{};
    if (::epoll_wait(epoll_fd_, &event, 1, -1) != 1) return;  // interrupted
    const int fd = event.data.fd;
    if (fd == wake_fd_) return;  // stopping_ is already set
    if (fd == work_fd_) {
      uint64_t count = 0;
      [[maybe_unused]] ssize_t r = ::read(work_fd_, &count, sizeof count);
      return;
    }
    if (fd == listen_fd_) {
      accept_all();
      rearm(listen_fd_, EPOLLIN);
      return;
    }
    std::shared_ptr<Connection> conn;
    {
      std::lock_guard<std::mutex> g(conns_m_);
      if (auto it = conns_.find(fd); it != conns_.end()) conn = it->second;
    }
    if (!conn) return;
    std::vector<Call> calls;
    bool open = false;
    {
      std::lock_guard<std::mutex> g(conn->read_m);
      open = read_connection(*conn, conn, calls);
    }
    if (open) {
      rearm(fd, EPOLLIN | EPOLLRDHUP);
    } else {
      ::epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, fd, nullptr);
      std::lock_guard<std::mutex> g(conns_m_);
      conns_.erase(fd);
    }
    if (!calls.empty()) {
      std::lock_guard<std::mutex> g(m_);
      for (Call& c : calls) queue_.push_back(std::move(c));
    }
    // The last reference to a connection that ended may go here, outside every lock: its
    // contexts are run down.
  }

  void accept_all() {
    for (;;) {
      const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) return;  // EAGAIN, or out of descriptors: try again on the next event
      timeval tv{kSendTimeoutSeconds, 0};
      ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
      {
        std::lock_guard<std::mutex> g(conns_m_);
        conns_[fd] = std::make_shared<Connection>(fd);
      }
      epoll_event ev{};
      ev.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
      ev.data.fd = fd;
      ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &ev);
    }
  }

  // Reads what is there (a bounded amount, so that one busy client cannot keep a thread
  // from the others) and takes every complete request. False when the connection ends.
  bool read_connection(Connection& c, const std::shared_ptr<Connection>& ref,
                       std::vector<Call>& calls) {
    uint8_t buf[4096];
    for (int reads = 0; reads < kReadsPerEvent; ++reads) {
      const ssize_t n = ::recv(c.fd, buf, sizeof buf, MSG_DONTWAIT);
      if (n == 0) return false;
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) break;
        return false;
      }
      c.inbuf.insert(c.inbuf.end(), buf, buf + n);
      if (!take_frames(c, ref, calls)) return false;
      // A short read emptied the socket; what comes later fires the re-armed event.
      if (static_cast<size_t>(n) < sizeof buf) break;
    }
    return true;
  }

  bool take_frames(Connection& c, const std::shared_ptr<Connection>& ref,
                   std::vector<Call>& calls) {
    size_t off = 0;
    while (c.inbuf.size() - off >= wire::kLengthBytes) {
      const uint32_t len = wire::load_u32(c.inbuf.data() + off);
      if (len < 8 || len > wire::kMaxRequestBody) {
        // The stream cannot be followed past a bad length: refuse and hang up.
        c.send_reply(fault_frame(0, kRpcProtocolError));
        return false;
      }
      if (c.inbuf.size() - off - wire::kLengthBytes < len) break;
      const uint8_t* body = c.inbuf.data() + off + wire::kLengthBytes;
      off += wire::kLengthBytes + len;
      if (c.in_flight.load(std::memory_order_relaxed) >= kMaxCallsPerConnection) {
        c.send_reply(fault_frame(wire::load_u32(body), kRpcServerTooBusy));
        continue;
      }
      c.in_flight.fetch_add(1, std::memory_order_relaxed);
      calls.push_back(Call{ref, std::vector<uint8_t>(body, body + len)});
    }
    c.inbuf.erase(c.inbuf.begin(), c.inbuf.begin() + static_cast<std::ptrdiff_t>(off));
    return true;
  }

  void run_call(Call& call, RpcDispatch* dispatch) {
    const std::vector<uint8_t> reply = handle(*call.conn, call.body, dispatch);
    call.conn->send_reply(reply);
    call.conn->in_flight.fetch_sub(1, std::memory_order_relaxed);
    call = Call{};  // may be the last reference: runs the connection's contexts down
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

  std::vector<uint8_t> handle(Connection& c, const std::vector<uint8_t>& body,
                              RpcDispatch* dispatch) {
    wire::Reader in(body.data(), body.size());
    uint32_t call_id = 0;
    uint32_t proc = 0;
    in.u32(call_id);
    in.u32(proc);
    const size_t expected = wire::request_body_size(proc);
    if (expected == 0) return fault_frame(call_id, kRpcProcnumOutOfRange);
    if (body.size() != expected) return fault_frame(call_id, kRpcProtocolError);
    if (dispatch == nullptr) return fault_frame(call_id, kRpcUnknownIf);

    wire::Writer out;
    out.u32(call_id);
    out.u32(0);
    try {
      if (proc == 0) {
        ContextObject object = nullptr;
        {
          ClockAttachment attach(clock_);
          object = dispatch->open_context();
        }
        ContextHandleWire handle;
        handle.uuid = new_context_uuid();
        {
          std::lock_guard<std::mutex> g(c.ctx_m);
          c.contexts[handle.uuid] = {object, dispatch};
        }
        out.context(handle);
        return out.frame();
      }
      ContextHandleWire handle;
      in.context(handle);
      if (handle.is_null()) return fault_frame(call_id, kRpcNullContext);
      std::pair<ContextObject, RpcDispatch*> entry{nullptr, nullptr};
      {
        std::lock_guard<std::mutex> g(c.ctx_m);
        auto it = c.contexts.find(handle.uuid);
        if (it == c.contexts.end() || handle.attributes != 0) {
          return fault_frame(call_id, kErrorInvalidHandle);
        }
        entry = it->second;
        if (proc == 1) c.contexts.erase(it);
      }
      if (proc == 1) {
        {
          ClockAttachment attach(clock_);
          entry.second->close_context(entry.first);
        }
        out.context(ContextHandleWire{});
        return out.frame();
      }
      int32_t command = 0, a = 0, b = 0, status = 0, value = 0;
      in.i32(command);
      if (proc != 2) in.i32(a);
      if (proc == 5) in.i32(b);
      if (proc == 6 && (a < 0 || a > 4096)) return fault_frame(call_id, kRpcInvalidBound);
      std::vector<int32_t> values(proc == 6 ? static_cast<size_t>(a) : 0, 0);
      {
        ClockAttachment attach(clock_);
        switch (proc) {
          case 2:
            dispatch->query_value(entry.first, command, status, value);
            break;
          case 3:
            dispatch->query_indexed_value(entry.first, command, status, a, value);
            break;
          case 4:
            dispatch->set_value(entry.first, command, status, a);
            break;
          case 5:
            dispatch->set_paired_value(entry.first, command, status, a, b);
            break;
          default:
            dispatch->query_array(entry.first, command, status, a, values.data());
            break;
        }
      }
      out.i32(status);
      if (proc == 2 || proc == 3) out.i32(value);
      if (proc == 6) {
        out.u32(static_cast<uint32_t>(values.size()));
        for (int32_t v : values) out.i32(v);
      }
      return out.frame();
    } catch (const RpcFault& f) {
      return fault_frame(call_id, f.code());
    } catch (...) {
      return fault_frame(call_id, kRpcCallFailed);
    }
  }

  Clock& clock_;
  std::mutex stop_m_;
  std::mutex m_;
  std::condition_variable state_cv_;
  int listen_fd_ = -1;
  std::string endpoint_;
  RpcInterfaceId id_;
  RpcDispatch* dispatch_ = nullptr;
  bool registered_ = false;
  bool ep_registered_ = false;
  uint32_t max_calls_ = 1234;
  bool serving_ = false;
  bool stopping_ = false;
  bool stopped_ = false;
  bool listening_call_ = false;
  int epoll_fd_ = -1;
  int wake_fd_ = -1;
  int work_fd_ = -1;
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
  return std::make_unique<SocketRpcRuntime>(clock);
}

}  // namespace zaltor::platform
