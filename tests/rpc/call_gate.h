#pragma once
// A gate for the control interface's tests: it holds every call that reaches it until it is
// opened, and counts the calls inside.

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

}  // namespace zaltor::rpc::test
