// A decision pass in steady state allocates nothing: the control-device requests, the log
// calls, the counter reads, the scans of the determinators and the clock's waits all run
// on fixed buffers. This executable replaces the global operator new with one that counts
// every call of the process (all threads: the auto loop, the monitor, the notebook and the
// clock), so that an allocation anywhere on the pass's path shows up here.
//
// It is an executable of its own so that the other tests keep the standard operator new
// (and the sanitizers' checks of it).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include <nlohmann/json.hpp>

#include "log/line_buffer.h"
#include "log/log_context.h"
#include "log/log_event.h"
#include "log/worker_log.h"
#include "platform/event_trace.h"
#include "rig/notebook_rig.h"

// The replacements below pair operator new with free(); GCC sees through them where the
// standard library's containers are inlined and takes the pair for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {
std::atomic<uint64_t> allocations{0};

void* counted_allocation(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}
}  // namespace

void* operator new(std::size_t size) {
  if (void* p = counted_allocation(size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  if (void* p = counted_allocation(size)) return p;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return counted_allocation(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return counted_allocation(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}

namespace zaltor::rig {
namespace {

constexpr int64_t kDayMs = 24LL * 60 * 60 * 1000;

// Four switches (sixteen modes), three samples per mode, and one second between two passes
// on the loop's own timer.
RigOptions four_switch_notebook() {
  RigOptions o;
  o.keep_log = false;  // the rig only counts the pass's last line
  Keys keys = {{"RSSICollectCount", "3"},
               {"BaseSleepIntervalBetweenEval", "1000"},
               {"DeterminatorStableTimesForExp", "0"}};
  for (int m = 5; m <= 16; ++m) {
    keys["RSSIWeightForMode_" + std::to_string(m)] = "0.0";
    keys["DisableMode_" + std::to_string(m)] = "0";
  }
  o.config = conf_ini(keys, "", four_switch_gpio());
  nlohmann::json rates = nlohmann::json::array();
  for (int m = 0; m < 16; ++m) rates.push_back(300.0 + 37.5 * m);
  nlohmann::json rssi = nlohmann::json::array();
  static constexpr int kMain[4] = {-55, -70, -66, -60};
  static constexpr int kDiv[4] = {-62, -58, -61, -64};
  for (int p = 0; p < 4; ++p) rssi.push_back({{"Main", kMain[p]}, {"Div", kDiv[p]}});
  const nlohmann::json patch = {
      {"firmware", {{"switchCount", 4}, {"lines", 255}}},
      {"counters", {{"A", 0}, {"B", 1}, {"C", 2}, {"D", 3}}},
      {"radio", {{"rssi", rssi}, {"rateMbps", rates}}},
  };
  o.scenario_patch = patch.dump();
  return o;
}

// The next pass, run to its "Sleep: " line.
void one_pass(NotebookRig& rig) {
  ASSERT_TRUE(rig.run_until_sleep_lines(rig.sleep_lines() + 1, kDayMs));
}

// The count is only worth something if the replacement is the operator new in use (a
// statically linked runtime might bring its own).
TEST(PassAllocation, TheCounterSeesAnAllocation) {
  const uint64_t before = allocations.load(std::memory_order_relaxed);
  int* volatile escaped = new int(1);
  delete escaped;
  EXPECT_EQ(allocations.load(std::memory_order_relaxed) - before, 1u);
}

TEST(PassAllocation, ASteadyStateDecisionPassAllocatesNothing) {
  NotebookRig rig(four_switch_notebook());
  ASSERT_EQ(rig.Init(), 0);
  rig.take_start_request();
  ASSERT_EQ(rig.worker().mode_count(), 16);
  rig.worker().SetUserMode(0);
  ASSERT_TRUE(rig.run_until_sleep_lines(1, kDayMs));
  // Warm up: the first passes may still grow what a pass reuses afterwards.
  one_pass(rig);
  one_pass(rig);

  constexpr int kPasses = 3;
  const int lines_before = rig.sleep_lines();
  const uint64_t before = allocations.load(std::memory_order_relaxed);
  for (int i = 0; i < kPasses; ++i) one_pass(rig);
  const uint64_t counted = allocations.load(std::memory_order_relaxed) - before;
  ASSERT_EQ(rig.sleep_lines(), lines_before + kPasses);
  std::printf("allocations in %d passes: %llu\n", kPasses,
              static_cast<unsigned long long>(counted));
  EXPECT_EQ(counted, 0u);
}

// A trace session that records events up to information and counts what it is given.
class InformationSession final : public platform::EventTrace {
 public:
  uint32_t register_provider(const platform::Guid&, Handle& handle) override {
    handle = 1;
    return 0;
  }
  uint32_t write(Handle, const platform::EventDescriptor& d, std::string_view) override {
    ++writes;
    if (d.level > 4) ++unrecorded_writes;
    return 0;
  }
  bool enabled(Handle, const platform::EventDescriptor& d) override { return d.level <= 4; }
  uint32_t unregister(Handle) override { return 0; }

  int writes = 0;
  int unrecorded_writes = 0;
};

// The service object's log-entry operation without its console: the event write.
class TraceWriter final : public log::LogEntryWriter {
 public:
  explicit TraceWriter(platform::EventTrace& trace) : trace_(trace) {}
  int32_t WriteLogEntry(std::string_view line, uint8_t level) override {
    return log::write_log_event(&trace_, 1, line, level);
  }

 private:
  platform::EventTrace& trace_;
};

TEST(PassAllocation, LogCallsAllocateNothingAndLinesNobodyRecordsAreNotWritten) {
  InformationSession session;
  TraceWriter writer(session);
  log::LineBuffer lines;
  log::LogFile file;
  log::LogContext context;
  context.lines = &lines;
  context.writer = &writer;
  log::WorkerLog wlog(context, file);

  const uint64_t before = allocations.load(std::memory_order_relaxed);
  for (int mode = 1; mode <= 16; ++mode) {
    // The calls of one measured mode, then the determinator's line.
    wlog.write(kLogDetail, "Getting RSSI for mode %d: ", mode);
    for (int sample = 0; sample < 3; ++sample) {
      wlog.write(kLogDetail, "%d ", -60 - sample);
      wlog.write(kLogDetail, "(%.1lfM), ", 866.7);
    }
    wlog.write(kLogDetail, "Avg: %.1lf Mbps\n\n", 866.7);
    wlog.write(kLogInfo, "Determined mode: %d\n", mode);
  }
  const uint64_t counted = allocations.load(std::memory_order_relaxed) - before;
  EXPECT_EQ(counted, 0u);
  EXPECT_EQ(session.writes, 16);  // the information lines only
  EXPECT_EQ(session.unrecorded_writes, 0);
}

}  // namespace
}  // namespace zaltor::rig
