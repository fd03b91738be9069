// The virtual clock: one thread at a time, time that jumps, the same order every run.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/sim/sim_clocks.h"

namespace zaltor::platform::sim {
namespace {

// A record of what happened when; only the running thread appends, but the guard keeps
// the test honest should the clock ever run two threads at once.
class Trace {
 public:
  explicit Trace(Clock& clock) : clock_(clock) {}
  void add(const std::string& what) {
    const int64_t t = clock_.now_ms();
    std::lock_guard<std::mutex> g(m_);
    lines_.push_back(std::to_string(t) + " " + what);
  }
  std::vector<std::string> lines() {
    std::lock_guard<std::mutex> g(m_);
    return lines_;
  }

 private:
  Clock& clock_;
  std::mutex m_;
  std::vector<std::string> lines_;
};

using Lines = std::vector<std::string>;

TEST(ClockVirtual, StartsAtZeroAndStandsStillWhileEverybodyWaitsWithoutDeadline) {
  auto clock = make_virtual_clock();
  EXPECT_EQ(clock->now_ms(), 0);
  auto ev = clock->make_event(false);
  Trace trace(*clock);
  auto t = clock->start_thread("waiter", [&] {
    ev->wait(Clock::kInfinite);
    trace.add("woken");
  });
  // Give the machine real time: the simulated clock must not move meanwhile.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(clock->now_ms(), 0);
  EXPECT_TRUE(trace.lines().empty());
  ev->set();  // from a thread outside the schedule
  t->join();
  EXPECT_EQ(trace.lines(), (Lines{"0 woken"}));
}

TEST(ClockVirtual, SleepJumpsStraightToTheDeadline) {
  auto clock = make_virtual_clock();
  ClockAttachment attach(*clock);
  const auto wall = std::chrono::steady_clock::now();
  clock->sleep_ms(5000);
  EXPECT_EQ(clock->now_ms(), 5000);
  clock->sleep_ms(1);
  EXPECT_EQ(clock->now_ms(), 5001);
  EXPECT_LT(std::chrono::steady_clock::now() - wall, std::chrono::seconds(1));
}

TEST(ClockVirtual, SleepersWakeInDeadlineOrder) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  auto a = clock->start_thread("a", [&] {
    clock->sleep_ms(300);
    trace.add("a");
  });
  auto b = clock->start_thread("b", [&] {
    clock->sleep_ms(100);
    trace.add("b");
  });
  auto c = clock->start_thread("c", [&] {
    clock->sleep_ms(200);
    trace.add("c");
  });
  a->join();
  b->join();
  c->join();
  EXPECT_EQ(trace.lines(), (Lines{"100 b", "200 c", "300 a"}));
  EXPECT_EQ(clock->now_ms(), 300);
}

TEST(ClockVirtual, ThreadsDueAtTheSameMomentRunInTheOrderTheirWaitsBegan) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  std::vector<std::unique_ptr<Thread>> threads;
  // c starts its wait first, then b, then a: all are due at 100.
  for (const char* name : {"c", "b", "a"}) {
    threads.push_back(clock->start_thread(name, [&trace, &clock, name] {
      clock->sleep_ms(100);
      trace.add(name);
      clock->sleep_ms(0);
      trace.add(std::string(name) + "2");
    }));
  }
  for (auto& t : threads) t->join();
  EXPECT_EQ(trace.lines(), (Lines{"100 c", "100 b", "100 a", "100 c2", "100 b2", "100 a2"}));
}

TEST(ClockVirtual, ANewThreadRunsOnlyWhenTheCurrentOneWaits) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  auto t = clock->start_thread("new", [&] { trace.add("new runs"); });
  trace.add("starter goes on");
  trace.add("starter still goes on");
  clock->sleep_ms(10);
  trace.add("starter after wait");
  t->join();
  EXPECT_EQ(trace.lines(), (Lines{"0 starter goes on", "0 starter still goes on", "0 new runs",
                                  "10 starter after wait"}));
}

TEST(ClockVirtual, SetMakesTheWaiterReadyButTheSetterKeepsRunning) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  auto ev = clock->make_event(false);
  auto t = clock->start_thread(
      "waiter", [&] { trace.add(ev->wait(Clock::kInfinite) ? "woken" : "timed out"); });
  clock->sleep_ms(50);
  ev->set();
  trace.add("setter goes on");
  clock->sleep_ms(0);
  trace.add("setter after yield");
  t->join();
  EXPECT_EQ(trace.lines(), (Lines{"50 setter goes on", "50 woken", "50 setter after yield"}));
}

TEST(ClockVirtual, EventWaitTimesOutAtItsDeadline) {
  auto clock = make_virtual_clock();
  ClockAttachment attach(*clock);
  auto ev = clock->make_event(false);
  EXPECT_FALSE(ev->wait(0));
  EXPECT_EQ(clock->now_ms(), 0);
  EXPECT_FALSE(ev->wait(250));
  EXPECT_EQ(clock->now_ms(), 250);
  auto t = clock->start_thread("setter", [&] {
    clock->sleep_ms(100);
    ev->set();
  });
  EXPECT_TRUE(ev->wait(1000));
  EXPECT_EQ(clock->now_ms(), 350);
  t->join();
}

TEST(ClockVirtual, AutoResetReleasesOneWaiterPerSetManualResetReleasesAll) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  auto autoev = clock->make_event(false);
  std::vector<std::unique_ptr<Thread>> threads;
  for (const char* name : {"x", "y"}) {
    threads.push_back(clock->start_thread(name, [&trace, &autoev, name] {
      trace.add(std::string(name) + (autoev->wait(1000) ? " set" : " timeout"));
    }));
  }
  clock->sleep_ms(10);
  autoev->set();
  for (auto& t : threads) t->join();
  EXPECT_EQ(trace.lines(), (Lines{"10 x set", "1000 y timeout"}));
  EXPECT_FALSE(autoev->wait(0)) << "an auto-reset event is consumed by the waiter it released";

  auto manual = clock->make_event(true);
  threads.clear();
  for (const char* name : {"p", "q"}) {
    threads.push_back(clock->start_thread(name, [&trace, &manual, name] {
      trace.add(std::string(name) + (manual->wait(Clock::kInfinite) ? " set" : " timeout"));
    }));
  }
  clock->sleep_ms(5);
  manual->set();
  for (auto& t : threads) t->join();
  EXPECT_TRUE(manual->wait(0)) << "a manual-reset event stays set";
  manual->reset();
  EXPECT_FALSE(manual->wait(0));
  const Lines lines = trace.lines();
  EXPECT_EQ(Lines(lines.begin() + 2, lines.end()), (Lines{"1005 p set", "1005 q set"}));
}

TEST(ClockVirtual, SetBeforeWaitIsKeptByAnAutoResetEvent) {
  auto clock = make_virtual_clock();
  auto ev = clock->make_event(false);
  ev->set();
  EXPECT_TRUE(ev->wait(Clock::kInfinite));
  EXPECT_FALSE(ev->wait(0));
}

TEST(ClockVirtual, JoinWaitsForTheThreadsEndInSimulatedTime) {
  auto clock = make_virtual_clock();
  ClockAttachment attach(*clock);
  auto t = clock->start_thread("worker", [&] { clock->sleep_ms(700); });
  t->join();
  EXPECT_EQ(clock->now_ms(), 700);
  t->join();  // a second join does nothing
}

TEST(ClockVirtual, ContendedMutexIsHandedOverWhenTheOwnerUnlocks) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  auto m = clock->make_mutex();
  auto holder = clock->start_thread("holder", [&] {
    m->lock();
    m->lock();  // recursive for its owner
    trace.add("holder has it twice");
    clock->sleep_ms(100);
    m->unlock();
    trace.add("holder released once");
    clock->sleep_ms(100);
    m->unlock();
    trace.add("holder released");
    m->lock();  // the waiter got it first
    trace.add("holder has it again");
    m->unlock();
  });
  auto waiter = clock->start_thread("waiter", [&] {
    clock->sleep_ms(10);
    m->lock();
    trace.add("waiter has it");
    clock->sleep_ms(50);
    m->unlock();
  });
  holder->join();
  waiter->join();
  EXPECT_EQ(trace.lines(),
            (Lines{"0 holder has it twice", "100 holder released once", "200 holder released",
                   "200 waiter has it", "250 holder has it again"}));
}

TEST(ClockVirtual, UnlockByAThreadThatDoesNotOwnTheMutexIsIgnored) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  auto m = clock->make_mutex();
  m->lock();
  auto other = clock->start_thread("other", [&] {
    m->unlock();  // not the owner
    trace.add("other unlocked nothing");
    m->lock();
    trace.add("other has it");
    m->unlock();
  });
  clock->sleep_ms(30);
  trace.add("owner releases");
  m->unlock();
  other->join();
  EXPECT_EQ(trace.lines(),
            (Lines{"0 other unlocked nothing", "30 owner releases", "30 other has it"}));
}

TEST(ClockVirtual, AnOwnerThatEndsWithoutUnlockingKeepsTheMutex) {
  auto clock = make_virtual_clock();
  ClockAttachment attach(*clock);
  auto m = clock->make_mutex();
  auto owner = clock->start_thread("owner", [&] { m->lock(); });
  owner->join();
  std::atomic<bool> got{false};
  auto waiter = clock->start_thread("waiter", [&] {
    m->lock();
    got = true;
  });
  clock->sleep_ms(10000);
  EXPECT_EQ(clock->now_ms(), 10000);
  EXPECT_FALSE(got.load());
  // The waiter stays blocked for ever, as on a kernel mutex whose owner is gone.
  waiter->detach();
}

TEST(ClockVirtual, AMutexMayBeDestroyedWhileHeld) {
  auto clock = make_virtual_clock();
  auto m = clock->make_mutex();
  m->lock();
  m->lock();
  m.reset();
  SUCCEED();
}

TEST(ClockVirtual, AnUnattachedThreadAttachesForItsSleep) {
  auto clock = make_virtual_clock();
  clock->sleep_ms(100);
  EXPECT_EQ(clock->now_ms(), 100);
  // Between calls it is not in the schedule: a clock thread that sleeps runs on its own.
  auto t = clock->start_thread("alone", [&] { clock->sleep_ms(400); });
  t->join();
  EXPECT_EQ(clock->now_ms(), 500);
}

TEST(ClockVirtual, AnUnattachedThreadBlockingOnAMutexWaitsInSimulatedTime) {
  auto clock = make_virtual_clock();
  auto m = clock->make_mutex();
  auto ready = clock->make_event(true);
  auto holder = clock->start_thread("holder", [&] {
    m->lock();
    ready->set();
    clock->sleep_ms(300);
    m->unlock();
  });
  ready->wait(Clock::kInfinite);
  m->lock();
  EXPECT_EQ(clock->now_ms(), 300);
  m->unlock();
  holder->join();
}

TEST(ClockVirtual, AThreadOutsideTheClockCanAttachAndTakePart) {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  std::thread outside([&] {
    ClockAttachment attach(*clock);
    clock->sleep_ms(20);
    trace.add("outside");
  });
  outside.join();
  EXPECT_EQ(trace.lines(), (Lines{"20 outside"}));
}

TEST(ClockVirtual, AThreadAbsentFromTheClockDoesNotHoldTimeBack) {
  auto clock = make_virtual_clock();
  ClockAttachment attach(*clock);
  std::promise<void> release;
  auto released = release.get_future();
  Trace trace(*clock);
  auto t = clock->start_thread("blocks outside", [&] {
    {
      ClockAbsence away(*clock);
      released.wait();  // a real block, outside the clock
    }
    trace.add("back");
  });
  clock->sleep_ms(1000);  // time moves although the other thread never waits on the clock
  EXPECT_EQ(clock->now_ms(), 1000);
  release.set_value();
  t->join();
  EXPECT_EQ(trace.lines(), (Lines{"1000 back"}));
}

// A busy program: workers contend for a mutex, signal each other and sleep.
Lines run_busy_program() {
  auto clock = make_virtual_clock();
  Trace trace(*clock);
  ClockAttachment attach(*clock);
  auto m = clock->make_mutex();
  auto ping = clock->make_event(false);
  auto done = clock->make_event(true);
  int shared = 0;
  std::vector<std::unique_ptr<Thread>> threads;
  for (int w = 0; w < 4; ++w) {
    threads.push_back(clock->start_thread("worker", [&, w] {
      for (int i = 0; i < 6; ++i) {
        m->lock();
        shared += w + 1;
        std::string line = "w";
        line += std::to_string(w);
        line += " in ";
        line += std::to_string(shared);
        trace.add(line);
        clock->sleep_ms(3 + w);
        m->unlock();
        if (w == 0) ping->set();
        if (w == 3 && ping->wait(7)) trace.add("w3 pinged");
        clock->sleep_ms((i * 7 + w * 5) % 11);
      }
    }));
  }
  threads.push_back(clock->start_thread("watcher", [&] {
    while (!done->wait(13)) trace.add("watch " + std::to_string(shared));
  }));
  for (int w = 0; w < 4; ++w) threads[static_cast<size_t>(w)]->join();
  done->set();
  threads.back()->join();
  return trace.lines();
}

TEST(ClockVirtual, ABusyProgramGivesTheSameOrderInTwentyRuns) {
  const Lines first = run_busy_program();
  ASSERT_GT(first.size(), 30u);
  for (int run = 1; run < 20; ++run) {
    EXPECT_EQ(run_busy_program(), first) << "run " << run;
  }
}

TEST(ClockVirtual, AnHourOfOneSecondStepsTakesUnderASecond) {
  auto clock = make_virtual_clock();
  ClockAttachment attach(*clock);
  const auto wall = std::chrono::steady_clock::now();
  auto t = clock->start_thread("ticker", [&] {
    for (int i = 0; i < 3600; ++i) clock->sleep_ms(1000);
  });
  t->join();
  EXPECT_EQ(clock->now_ms(), 3600 * 1000);
  EXPECT_LT(std::chrono::steady_clock::now() - wall, std::chrono::seconds(1));
}

TEST(ClockVirtual, FactoryChoosesByMode) {
  EXPECT_NE(make_sim_clock("virtual", 1.0), nullptr);
  EXPECT_NE(make_sim_clock("scaled", 2.0), nullptr);
  EXPECT_EQ(make_sim_clock("fast", 2.0), nullptr);
  EXPECT_EQ(make_sim_clock("scaled", 0.0), nullptr);
}

}  // namespace
}  // namespace zaltor::platform::sim
