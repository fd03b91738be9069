#pragma once
// Time, waits and threads. Every wait of the system goes through a Clock, so that the
// simulated notebook can run the service in scaled or in deterministic virtual time.
//
// Virtual time: exactly one attached thread runs at a time; simulated time advances only
// when every attached thread waits (sleep, mutex, event, join), and threads that wake at
// the same simulated moment run one after the other in the order in which their waits
// began. A run is therefore the same every time.

#include <cstdint>
#include <functional>
#include <memory>

namespace zaltor::platform {

// A mutex with the semantics of a kernel mutex: its owner may take it again (recursive),
// a thread that never releases it keeps it, and it may be destroyed while held.
class Mutex {
 public:
  virtual ~Mutex() = default;
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

// Scoped hold of a Mutex.
class MutexHold {
 public:
  explicit MutexHold(Mutex& m) : m_(m) { m_.lock(); }
  ~MutexHold() { m_.unlock(); }
  MutexHold(const MutexHold&) = delete;
  MutexHold& operator=(const MutexHold&) = delete;

 private:
  Mutex& m_;
};

// A wake-up signal. An auto-reset event releases one waiter per set(); a manual-reset
// event stays set until reset().
class Event {
 public:
  virtual ~Event() = default;
  virtual void set() = 0;
  virtual void reset() = 0;
  // Waits until the event is set or timeout_ms has passed (Clock::kInfinite: no limit).
  // Returns true when the event was set.
  virtual bool wait(int64_t timeout_ms) = 0;
};

class Thread {
 public:
  // Destroying a Thread that was neither joined nor detached detaches it.
  virtual ~Thread() = default;
  virtual void join() = 0;
  virtual void detach() = 0;
};

class Clock {
 public:
  static constexpr int64_t kInfinite = -1;

  virtual ~Clock() = default;
  // Milliseconds since the clock started.
  virtual int64_t now_ms() = 0;
  virtual void sleep_ms(int64_t ms) = 0;
  virtual std::unique_ptr<Mutex> make_mutex() = 0;
  virtual std::unique_ptr<Event> make_event(bool manual_reset) = 0;
  // Starts a thread that takes part in the clock's schedule for its whole life.
  virtual std::unique_ptr<Thread> start_thread(const char* name, std::function<void()> body) = 0;
  // A thread the clock did not start (the main thread of a tool, a thread of the control
  // interface's runtime) takes part in the schedule between attach and detach. A thread
  // that the clock started detaches while it blocks on something outside the clock.
  virtual void attach_current_thread() = 0;
  virtual void detach_current_thread() = 0;
};

// Attaches the calling thread for a scope.
class ClockAttachment {
 public:
  explicit ClockAttachment(Clock& c) : c_(c) { c_.attach_current_thread(); }
  ~ClockAttachment() { c_.detach_current_thread(); }
  ClockAttachment(const ClockAttachment&) = delete;
  ClockAttachment& operator=(const ClockAttachment&) = delete;

 private:
  Clock& c_;
};

// Steps an attached thread out of the schedule while it blocks outside the clock.
class ClockAbsence {
 public:
  explicit ClockAbsence(Clock& c) : c_(c) { c_.detach_current_thread(); }
  ~ClockAbsence() { c_.attach_current_thread(); }
  ClockAbsence(const ClockAbsence&) = delete;
  ClockAbsence& operator=(const ClockAbsence&) = delete;

 private:
  Clock& c_;
};

// Real time of the machine, with standard threads and mutexes.
std::unique_ptr<Clock> make_real_clock();
// The machine's time run `speed` times faster (null unless speed > 0).
std::unique_ptr<Clock> make_machine_clock(double speed);

}  // namespace zaltor::platform
