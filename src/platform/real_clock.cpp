// The machine's own time, optionally run faster: standard threads and kernel-mutex
// semantics, with every duration divided by `speed` before the machine waits it. The real
// clock is speed 1; the simulated notebook's scaled clock uses any speed.
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/clock.h"
#include "platform/thread_token.h"

namespace zaltor::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

class MachineMutex final : public Mutex {
 public:
  void lock() override {
    std::unique_lock<std::mutex> g(m_);
    const uint64_t self = this_thread_token();
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
    // Like ReleaseMutex: only the owner can release.
    if (count_ == 0 || owner_ != this_thread_token()) return;
    if (--count_ == 0) {
      owner_ = 0;
      cv_.notify_one();
    }
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  uint64_t owner_ = 0;
  unsigned count_ = 0;
};

class MachineEvent final : public Event {
 public:
  MachineEvent(bool manual_reset, double speed) : manual_(manual_reset), speed_(speed) {}
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
      const auto real = std::chrono::microseconds(
          static_cast<int64_t>(std::llround(static_cast<double>(timeout_ms) * 1000.0 / speed_)));
      ok = cv_.wait_for(g, real, [&] { return set_; });
    }
    if (ok && !manual_) set_ = false;
    return ok;
  }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  bool manual_;
  double speed_;
  bool set_ = false;
};

class MachineThread final : public Thread {
 public:
  explicit MachineThread(std::function<void()> body) : t_(std::move(body)) {}
  ~MachineThread() override {
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

class MachineClock final : public Clock {
 public:
  explicit MachineClock(double speed) : speed_(speed) {}
  int64_t now_ms() override {
    const auto real = std::chrono::duration<double, std::milli>(SteadyClock::now() - start_);
    return static_cast<int64_t>(real.count() * speed_);
  }
  void sleep_ms(int64_t ms) override {
    if (ms <= 0) {
      std::this_thread::yield();
      return;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(
        static_cast<int64_t>(std::llround(static_cast<double>(ms) * 1000.0 / speed_))));
  }
  std::unique_ptr<Mutex> make_mutex() override { return std::make_unique<MachineMutex>(); }
  std::unique_ptr<Event> make_event(bool manual_reset) override {
    return std::make_unique<MachineEvent>(manual_reset, speed_);
  }
  std::unique_ptr<Thread> start_thread(const char*, std::function<void()> body) override {
    return std::make_unique<MachineThread>(std::move(body));
  }
  void attach_current_thread() override {}
  void detach_current_thread() override {}

 private:
  double speed_;
  SteadyClock::time_point start_ = SteadyClock::now();
};

}  // namespace

std::unique_ptr<Clock> make_machine_clock(double speed) {
  if (!(speed > 0.0)) return nullptr;
  return std::make_unique<MachineClock>(speed);
}

std::unique_ptr<Clock> make_real_clock() {
  return make_machine_clock(1.0);
}

}  // namespace zaltor::platform
