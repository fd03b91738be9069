// Deterministic virtual time: a cooperative scheduler over real threads.
//
// Every thread in the schedule has a record. One record at a time is `current`; all
// others wait on their own condition variable until the scheduler makes them current.
// A thread gives up its turn only when it waits; the scheduler then picks the ready
// record whose wait began first (the lowest sequence number). When no record is ready,
// time jumps to the earliest deadline and every record due at that moment becomes
// ready. All decisions are taken under one lock and depend only on the order of waits,
// never on the machine's timing, so a run is the same every time.
//
// The hand-over is what virtual time costs: a simulated day of Auto mode is around a
// million of them (the auto loop and the monitor step every second, each hardware call
// waits a millisecond). A thread whose turn ends first watches `current` for a short while
// (spinning, then yielding its core) and sleeps on its condition variable only when its
// turn does not come back soon; the scheduler notifies only threads that sleep. So a
// hand-over between threads that run on two cores takes no system call at all.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/sim/sim_clocks.h"
#include "platform/thread_token.h"

namespace zaltor::platform::sim {
namespace {

struct Rec {
  enum State { kOut, kReady, kRunning, kWaiting };
  uint64_t id = 0;  // this_thread_token() of the thread
  std::string name;
  std::condition_variable cv;
  State state = kOut;
  uint64_t seq = 0;                       // when the present wait (or readiness) began
  int64_t deadline = -1;                  // simulated ms, -1: none
  bool timed_out = false;                 // the last wait ended by its deadline
  std::deque<Rec*>* wait_list = nullptr;  // the waiter list it sits in
  int depth = 0;                          // attach depth; a started thread begins at 1
  bool clock_started = false;
  bool has_id = false;
  bool sleeping = false;  // waits on `cv` (guarded by the core's lock)
};

// How long a thread whose turn ended watches for the next one before it sleeps: first
// spinning, then yielding its core to the thread that runs. On a busy machine fewer yields
// take less CPU (twenty took a tenth less on the decision-pass benchmark), but where the
// clock's threads have the cores to themselves a waiter that sleeps this early is woken for
// nearly every turn: the same benchmark under SCHED_FIFO took twelve times the CPU with
// twenty yields. Two hundred cover the turns of the auto loop and the monitor.
constexpr int kSpinRounds = 0;
constexpr int kYieldRounds = 200;

inline void cpu_relax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

using Lock = std::unique_lock<std::mutex>;

struct Core {
  std::mutex m;
  // Written only under `m`; read without it by now_ms (the thread that reads it holds the
  // turn, which it took under `m` after the time was last moved).
  std::atomic<int64_t> now{0};
  uint64_t next_seq = 0;
  // Written only under `m`; read without it by a thread watching for its turn.
  std::atomic<Rec*> current{nullptr};
  std::vector<std::shared_ptr<Rec>> recs;

  Rec* find_self() {
    const uint64_t self = this_thread_token();
    for (auto& r : recs) {
      if (r->has_id && r->id == self) return r.get();
    }
    return nullptr;
  }

  Rec* min_ready() {
    Rec* pick = nullptr;
    for (auto& r : recs) {
      if (r->state == Rec::kReady && (pick == nullptr || r->seq < pick->seq)) pick = r.get();
    }
    return pick;
  }

  // Hands the turn to the next thread; time advances only when nobody is ready.
  void dispatch() {
    current.store(nullptr, std::memory_order_relaxed);
    Rec* pick = min_ready();
    if (pick == nullptr) {
      int64_t earliest = -1;
      for (auto& r : recs) {
        if (r->state == Rec::kWaiting && r->deadline >= 0 &&
            (earliest < 0 || r->deadline < earliest)) {
          earliest = r->deadline;
        }
      }
      if (earliest < 0) return;  // everybody waits for somebody: time stands still
      const int64_t moved = std::max(now.load(std::memory_order_relaxed), earliest);
      now.store(moved, std::memory_order_relaxed);
      for (auto& r : recs) {
        if (r->state == Rec::kWaiting && r->deadline >= 0 && r->deadline <= moved) {
          if (r->wait_list != nullptr) {
            auto& wl = *r->wait_list;
            wl.erase(std::remove(wl.begin(), wl.end(), r.get()), wl.end());
          }
          r->timed_out = true;
          r->wait_list = nullptr;
          r->deadline = -1;
          r->state = Rec::kReady;
        }
      }
      pick = min_ready();
    }
    pick->state = Rec::kRunning;
    current.store(pick, std::memory_order_relaxed);
    if (pick->sleeping) pick->cv.notify_one();
  }

  // A waiter woken by a set, an unlock or the end of a thread; it keeps its place in line.
  void make_ready(Rec* r) {
    r->state = Rec::kReady;
    r->deadline = -1;
    r->wait_list = nullptr;
    r->timed_out = false;
  }
  // After waking waiters from a thread outside the schedule, somebody must run.
  void kick() {
    if (current.load(std::memory_order_relaxed) == nullptr) dispatch();
  }

  void wait_turn(Lock& lk, Rec* r) {
    if (current.load(std::memory_order_relaxed) == r) return;
    // Watch without the lock first: the lock taken again below orders what the previous
    // thread did before it handed the turn over.
    lk.unlock();
    for (int i = 0; i < kSpinRounds + kYieldRounds; ++i) {
      if (current.load(std::memory_order_relaxed) == r) break;
      if (i < kSpinRounds) {
        cpu_relax();
      } else {
        std::this_thread::yield();
      }
    }
    lk.lock();
    r->sleeping = true;
    r->cv.wait(lk, [&] { return current.load(std::memory_order_relaxed) == r; });
    r->sleeping = false;
  }

  // The current thread waits; `deadline` -1 waits without limit.
  void block(Lock& lk, Rec* r, int64_t deadline, std::deque<Rec*>* wait_list) {
    r->state = Rec::kWaiting;
    r->seq = next_seq++;
    r->deadline = deadline;
    r->timed_out = false;
    r->wait_list = wait_list;
    if (wait_list != nullptr) wait_list->push_back(r);
    dispatch();
    wait_turn(lk, r);
  }

  Rec* attach(Lock& lk) {
    Rec* r = find_self();
    if (r != nullptr && r->depth > 0) {
      ++r->depth;
      return r;
    }
    if (r == nullptr) {
      auto fresh = std::make_shared<Rec>();
      fresh->id = this_thread_token();
      fresh->has_id = true;
      recs.push_back(fresh);
      r = fresh.get();
    }
    r->depth = 1;
    r->state = Rec::kReady;
    r->seq = next_seq++;
    if (current.load(std::memory_order_relaxed) == nullptr) dispatch();
    wait_turn(lk, r);
    return r;
  }

  void detach(Rec* r) {
    if (r == nullptr || r->depth == 0) return;
    if (--r->depth > 0) return;
    r->state = Rec::kOut;
    if (current.load(std::memory_order_relaxed) == r) dispatch();
    if (!r->clock_started) {
      recs.erase(std::find_if(recs.begin(), recs.end(), [&](auto& p) { return p.get() == r; }));
    }
  }

  // The calling thread in the schedule for one call: attached already, or for now.
  struct Presence {
    Rec* rec;
    bool temporary;
  };
  Presence enter(Lock& lk) {
    Rec* r = find_self();
    if (r != nullptr && r->depth > 0) return {r, false};
    return {attach(lk), true};
  }
  void leave(const Presence& p) {
    if (p.temporary) detach(p.rec);
  }
};

class VirtualMutex final : public Mutex {
 public:
  explicit VirtualMutex(std::shared_ptr<Core> core) : core_(std::move(core)) {}
  void lock() override {
    Lock lk(core_->m);
    const uint64_t self = this_thread_token();
    if (count_ > 0 && owner_ == self) {
      ++count_;
      return;
    }
    if (count_ == 0) {
      owner_ = self;
      count_ = 1;
      return;
    }
    auto presence = core_->enter(lk);
    if (count_ == 0) {
      owner_ = self;
      count_ = 1;
    } else {
      // unlock() hands the mutex straight to the first waiter.
      core_->block(lk, presence.rec, -1, &waiters_);
    }
    core_->leave(presence);
  }
  void unlock() override {
    Lock lk(core_->m);
    if (count_ == 0 || owner_ != this_thread_token()) return;
    if (--count_ > 0) return;
    if (waiters_.empty()) {
      owner_ = 0;
      return;
    }
    Rec* next = waiters_.front();
    waiters_.pop_front();
    owner_ = next->id;
    count_ = 1;
    core_->make_ready(next);
    core_->kick();
  }

 private:
  std::shared_ptr<Core> core_;
  uint64_t owner_ = 0;
  unsigned count_ = 0;
  std::deque<Rec*> waiters_;
};

class VirtualEvent final : public Event {
 public:
  VirtualEvent(std::shared_ptr<Core> core, bool manual_reset)
      : core_(std::move(core)), manual_(manual_reset) {}
  void set() override {
    Lock lk(core_->m);
    if (manual_) {
      set_ = true;
      auto woken = std::move(waiters_);
      waiters_.clear();
      for (Rec* r : woken) core_->make_ready(r);
    } else if (!waiters_.empty()) {
      Rec* r = waiters_.front();
      waiters_.pop_front();
      core_->make_ready(r);
    } else {
      set_ = true;
    }
    core_->kick();
  }
  void reset() override {
    Lock lk(core_->m);
    set_ = false;
  }
  bool wait(int64_t timeout_ms) override {
    Lock lk(core_->m);
    if (take()) return true;
    if (timeout_ms == 0) return false;
    auto presence = core_->enter(lk);
    bool ok = take();
    if (!ok) {
      const int64_t deadline =
          timeout_ms < 0 ? -1 : core_->now.load(std::memory_order_relaxed) + timeout_ms;
      core_->block(lk, presence.rec, deadline, &waiters_);
      ok = !presence.rec->timed_out;
    }
    core_->leave(presence);
    return ok;
  }

 private:
  bool take() {
    if (!set_) return false;
    if (!manual_) set_ = false;
    return true;
  }

  std::shared_ptr<Core> core_;
  bool manual_;
  bool set_ = false;
  std::deque<Rec*> waiters_;
};

struct ThreadState {
  bool done = false;
  std::deque<Rec*> joiners;
};

class VirtualThread final : public Thread {
 public:
  VirtualThread(std::shared_ptr<Core> core, std::shared_ptr<ThreadState> state, std::thread t)
      : core_(std::move(core)), state_(std::move(state)), t_(std::move(t)) {}
  ~VirtualThread() override {
    if (t_.joinable()) t_.detach();
  }
  void join() override {
    if (!t_.joinable()) return;
    {
      Lock lk(core_->m);
      if (!state_->done) {
        auto presence = core_->enter(lk);
        if (!state_->done) core_->block(lk, presence.rec, -1, &state_->joiners);
        core_->leave(presence);
      }
    }
    // The body has ended; the machine's thread only returns now.
    t_.join();
  }
  void detach() override {
    if (t_.joinable()) t_.detach();
  }

 private:
  std::shared_ptr<Core> core_;
  std::shared_ptr<ThreadState> state_;
  std::thread t_;
};

class VirtualClock final : public Clock {
 public:
  // Read without the scheduler's lock: the time of the clock is asked for in every
  // collection of the simulated counters.
  int64_t now_ms() override { return core_->now.load(std::memory_order_relaxed); }
  void sleep_ms(int64_t ms) override {
    Lock lk(core_->m);
    auto presence = core_->enter(lk);
    Rec* r = presence.rec;
    if (ms <= 0) {
      // A yield: the thread goes behind every thread that is ready now.
      r->state = Rec::kReady;
      r->seq = core_->next_seq++;
      core_->dispatch();
      core_->wait_turn(lk, r);
    } else {
      core_->block(lk, r, core_->now.load(std::memory_order_relaxed) + ms, nullptr);
    }
    core_->leave(presence);
  }
  std::unique_ptr<Mutex> make_mutex() override { return std::make_unique<VirtualMutex>(core_); }
  std::unique_ptr<Event> make_event(bool manual_reset) override {
    return std::make_unique<VirtualEvent>(core_, manual_reset);
  }
  std::unique_ptr<Thread> start_thread(const char* name, std::function<void()> body) override {
    auto rec = std::make_shared<Rec>();
    rec->name = name != nullptr ? name : "";
    rec->clock_started = true;
    rec->depth = 1;
    auto state = std::make_shared<ThreadState>();
    {
      Lock lk(core_->m);
      rec->state = Rec::kReady;
      rec->seq = core_->next_seq++;
      core_->recs.push_back(rec);
      if (core_->current.load(std::memory_order_relaxed) == nullptr) core_->dispatch();
    }
    std::thread t([core = core_, rec, state, body = std::move(body)] {
      {
        Lock lk(core->m);
        rec->id = this_thread_token();
        rec->has_id = true;
        core->wait_turn(lk, rec.get());
      }
      body();
      Lock lk(core->m);
      state->done = true;
      auto joiners = std::move(state->joiners);
      state->joiners.clear();
      const bool was_current = core->current.load(std::memory_order_relaxed) == rec.get();
      rec->state = Rec::kOut;
      rec->depth = 0;
      core->recs.erase(std::find(core->recs.begin(), core->recs.end(), rec));
      if (was_current) core->current.store(nullptr, std::memory_order_relaxed);
      for (Rec* j : joiners) core->make_ready(j);
      core->kick();
    });
    return std::make_unique<VirtualThread>(core_, std::move(state), std::move(t));
  }
  void attach_current_thread() override {
    Lock lk(core_->m);
    core_->attach(lk);
  }
  void detach_current_thread() override {
    Lock lk(core_->m);
    core_->detach(core_->find_self());
  }

 private:
  std::shared_ptr<Core> core_ = std::make_shared<Core>();
};

}  // namespace

std::unique_ptr<Clock> make_virtual_clock() {
  return std::make_unique<VirtualClock>();
}

}  // namespace zaltor::platform::sim
