// The machine's own time: steady clock, standard threads, kernel-mutex semantics.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/clock.h"

namespace zaltor::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

class RealMutex final : public Mutex {
 public:
  void lock() override {
    std::unique_lock<std::mutex> g(m_);
    const auto self = std::this_thread::get_id();
    if (count_ > 0 && owner_ == self) {
      ++count_;
      return;
    }
    cv_.wait(g, [&] { return count_ == 0; });
    owner_ = self;
    count_ = 1;
  }
  void unlock() override {
    std::lock_guard<std::mutex> g(m_);
    if (count_ == 0 || owner_ != std::this_thread::get_id()) return;
    if (--count_ == 0) {
      owner_ = {};
      cv_.notify_one();
    }
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  std::thread::id owner_;
  unsigned count_ = 0;
};

class RealEvent final : public Event {
 public:
  explicit RealEvent(bool manual_reset) : manual_(manual_reset) {}
  void set() override {
    std::lock_guard<std::mutex> g(m_);
    set_ = true;
    if (manual_) {
      cv_.notify_all();
    } else {
      cv_.notify_one();
    }
  }
  void reset() override {
    std::lock_guard<std::mutex> g(m_);
    set_ = false;
  }
  bool wait(int64_t timeout_ms) override {
    std::unique_lock<std::mutex> g(m_);
    bool ok = true;
    if (timeout_ms < 0) {
      cv_.wait(g, [&] { return set_; });
    } else {
      ok = cv_.wait_for(g, std::chrono::milliseconds(timeout_ms), [&] { return set_; });
    }
    if (ok && !manual_) set_ = false;
    return ok;
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  bool manual_;
  bool set_ = false;
};

class RealThread final : public Thread {
 public:
  explicit RealThread(std::function<void()> body) : t_(std::move(body)) {}
  ~RealThread() override {
    if (t_.joinable()) t_.detach();
  }
  void join() override {
    if (t_.joinable()) t_.join();
  }
  void detach() override {
    if (t_.joinable()) t_.detach();
  }

 private:
  std::thread t_;
};

class RealClock final : public Clock {
 public:
  int64_t now_ms() override {
    return std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - start_)
        .count();
  }
  void sleep_ms(int64_t ms) override {
    if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }
  std::unique_ptr<Mutex> make_mutex() override { return std::make_unique<RealMutex>(); }
  std::unique_ptr<Event> make_event(bool manual_reset) override {
    return std::make_unique<RealEvent>(manual_reset);
  }
  std::unique_ptr<Thread> start_thread(const char*, std::function<void()> body) override {
    return std::make_unique<RealThread>(std::move(body));
  }
  void attach_current_thread() override {}
  void detach_current_thread() override {}

 private:
  SteadyClock::time_point start_ = SteadyClock::now();
};

}  // namespace

std::unique_ptr<Clock> make_real_clock() {
  return std::make_unique<RealClock>();
}

}  // namespace zaltor::platform
