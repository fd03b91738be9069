#pragma once
// A gate for the control interface's tests: it holds every call that reaches it until it is
// opened, and counts the calls inside.
//
// A test declares its gate before the server whose calls it holds, so that the gate outlives
// the server's threads, and an OpenAtExit after the server, so that on every way out of the
// test (an ASSERT's early return too) the held calls are let go before the server stops.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace zaltor::rpc::test {

class Gate {
 public:
  void pass() {
    std::unique_lock<std::mutex> lk(m_);
    ++inside_;
    most_ = std::max(most_, inside_);
    cv_.notify_all();
    cv_.wait_for(lk, std::chrono::seconds(20), [&] { return open_; });
    --inside_;
  }
  void open() {
    std::lock_guard<std::mutex> g(m_);
    open_ = true;
    cv_.notify_all();
  }
  bool wait_inside(int n, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    std::unique_lock<std::mutex> lk(m_);
    return cv_.wait_for(lk, limit, [&] { return inside_ >= n; });
  }
  int most() {
    std::lock_guard<std::mutex> g(m_);
    return most_;
  }
  int inside() {
    std::lock_guard<std::mutex> g(m_);
    return inside_;
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  int inside_ = 0;
  int most_ = 0;
  bool open_ = false;
};

class OpenAtExit {
 public:
  explicit OpenAtExit(Gate& gate) : gate_(gate) {}
  OpenAtExit(const OpenAtExit&) = delete;
  OpenAtExit& operator=(const OpenAtExit&) = delete;
  ~OpenAtExit() { gate_.open(); }

 private:
  Gate& gate_;
};

}  // namespace zaltor::rpc::test
