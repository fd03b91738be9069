// A decision pass in steady state allocates nothing: the control-device requests, the log
// calls, the counter reads, the scans of the determinators and the clock's waits all run
// on fixed buffers. This executable links the operator new of tools/allocation_count, which
// counts every call of the process (all threads: the auto loop, the monitor, the notebook
// and the clock), so that an allocation anywhere on the pass's path shows up here.
//
// It is an executable of its own so that the other tests keep the standard operator new
// (and the sanitizers' checks of it).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "allocation_count/allocation_count.h"
#include "log/line_buffer.h"
#include "log/log_context.h"
#include "log/log_event.h"
#include "log/worker_log.h"
#include "platform/event_trace.h"
#include "rig/notebook_rig.h"

namespace zaltor::rig {
namespace {

constexpr int64_t kDayMs = 24LL * 60 * 60 * 1000;

// The next pass, run to its "Sleep: " line.
void one_pass(NotebookRig& rig) {
  ASSERT_TRUE(rig.run_until_sleep_lines(rig.sleep_lines() + 1, kDayMs));
}

// The count is only worth something if the replacement is the operator new in use (a
// statically linked runtime might bring its own).
TEST(PassAllocation, TheCounterSeesAnAllocation) {
  const uint64_t before = allocation_count();
  int* volatile escaped = new int(1);
  delete escaped;
  EXPECT_EQ(allocation_count() - before, 1u);
}

TEST(PassAllocation, ASteadyStateDecisionPassAllocatesNothing) {
  // One second between two passes on the loop's own timer, no growth.
  NotebookRig rig(four_switch_notebook("1000", false));
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
  const uint64_t before = allocation_count();
  for (int i = 0; i < kPasses; ++i) one_pass(rig);
  const uint64_t counted = allocation_count() - before;
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

  const uint64_t before = allocation_count();
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
  const uint64_t counted = allocation_count() - before;
  EXPECT_EQ(counted, 0u);
  EXPECT_EQ(session.writes, 16);  // the information lines only
  EXPECT_EQ(session.unrecorded_writes, 0);
}

}  // namespace
}  // namespace zaltor::rig
