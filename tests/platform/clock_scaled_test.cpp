// The scaled clock: real threads, the notebook's time running `speed` times as fast.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "platform/sim/sim_clocks.h"

namespace zaltor::platform::sim {
namespace {

using std::chrono::steady_clock;

TEST(ClockScaled, SleepTakesTheScaledShareOfRealTime) {
  auto clock = make_scaled_clock(1000.0);
  const auto wall = steady_clock::now();
  clock->sleep_ms(3000);  // 3 ms of the machine's time
  const auto real = steady_clock::now() - wall;
  EXPECT_GE(real, std::chrono::milliseconds(3));
  EXPECT_LT(real, std::chrono::milliseconds(500));
  EXPECT_GE(clock->now_ms(), 3000);
}

TEST(ClockScaled, NowIsScaled) {
  auto clock = make_scaled_clock(200.0);
  const auto wall = steady_clock::now();
  while (steady_clock::now() - wall < std::chrono::milliseconds(10)) {
  }
  EXPECT_GE(clock->now_ms(), 2000);
  EXPECT_LT(clock->now_ms(), 200000);
}

TEST(ClockScaled, EventTimeoutIsScaledAndSetReleasesAWaiter) {
  auto clock = make_scaled_clock(1000.0);
  auto ev = clock->make_event(false);
  const auto wall = steady_clock::now();
  EXPECT_FALSE(ev->wait(2000));
  EXPECT_LT(steady_clock::now() - wall, std::chrono::milliseconds(500));
  auto t = clock->start_thread("setter", [&] {
    clock->sleep_ms(50);
    ev->set();
  });
  EXPECT_TRUE(ev->wait(Clock::kInfinite));
  t->join();
  EXPECT_FALSE(ev->wait(0));
  auto manual = clock->make_event(true);
  manual->set();
  EXPECT_TRUE(manual->wait(0));
  EXPECT_TRUE(manual->wait(0));
  manual->reset();
  EXPECT_FALSE(manual->wait(0));
}

TEST(ClockScaled, MutexIsRecursiveAndExcludesOtherThreads) {
  auto clock = make_scaled_clock(100.0);
  auto m = clock->make_mutex();
  std::atomic<bool> other_has_it{false};
  m->lock();
  m->lock();
  auto t = clock->start_thread("other", [&] {
    m->lock();
    other_has_it = true;
    m->unlock();
  });
  m->unlock();
  clock->sleep_ms(200);
  EXPECT_FALSE(other_has_it.load()) << "still held once";
  m->unlock();
  t->join();
  EXPECT_TRUE(other_has_it.load());
}

TEST(ClockScaled, ASpeedOfZeroOrLessIsRefused) {
  EXPECT_EQ(make_scaled_clock(0.0), nullptr);
  EXPECT_EQ(make_scaled_clock(-1.0), nullptr);
}

}  // namespace
}  // namespace zaltor::platform::sim
