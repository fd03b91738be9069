// A measurement that retries a link rate of 0 calls the hardware without ever waiting. Every
// call into the simulated hardware costs a little of the notebook's time, so even then the
// virtual clock runs on: other threads get their turn, a test's sleep ends, the scenario's
// stop comes.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "engine/engine_harness.h"
#include "engine/measure_mode.h"
#include "engine/sample_buffers.h"
#include "platform/sim/hardware_call_time.h"

namespace zaltor::engine::autotest {
namespace {

// Ends the test program with a message when a test does not finish in `seconds` of wall
// time: a frozen virtual clock never returns from the test's sleep.
class Watchdog {
 public:
  explicit Watchdog(int seconds)
      : t_([this, seconds] {
          const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
          while (!done_.load()) {
            if (std::chrono::steady_clock::now() > end) {
              std::fprintf(stderr, "virtual time stood still for %d s of wall time\n", seconds);
              std::_Exit(1);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
          }
        }) {}
  ~Watchdog() {
    done_.store(true);
    t_.join();
  }

 private:
  std::atomic<bool> done_{false};
  std::thread t_;
};

TEST(HardwareCallTime, EveryRateRetryCostsTheNotebookTimeSoTheClockRunsOn) {
  Watchdog watchdog(60);
  HarnessOptions o;
  o.scripted_counters = true;
  o.hardware_call_ms = platform::sim::kHardwareCallMs;
  o.scenario_patch = R"({"radio": {"rateMbps": [0, 0, 0, 0]}})";
  AutoHarness h(std::move(o));
  ASSERT_EQ(h.Init(), 0);
  ASSERT_EQ(h.worker().SetUserMode(0), 0u);

  // The loop retries mode 1 without end; the test's own sleep still ends.
  const int64_t t0 = h.clock().now_ms();
  h.run_for(20000);
  EXPECT_GE(h.clock().now_ms() - t0, 20000);
  const std::string text = h.text() + h.pending();
  EXPECT_NE(text.find("(--/Retry), "), std::string::npos);

  // Each retry reads the antenna count and collects the counters, and every one of those
  // calls costs time: the retries are bounded by the time that passed.
  const int collections = h.scripted().collections.load();
  EXPECT_GT(collections, 100);
  EXPECT_LE(collections, 20000 / platform::sim::kHardwareCallMs + 1);

  // A fixed mode chosen meanwhile is carried out and ends the retries.
  EXPECT_EQ(h.worker().SetUserMode(2), 0u);
  h.run_for(3000);
  EXPECT_EQ(h.notebook().mode(), 2);
}

TEST(HardwareCallTime, AMeasurementTakesItsWaitsAndTheTimeOfItsHardwareCalls) {
  HarnessOptions o;
  o.keys = {{"RSSICollectCount", "3"}};
  o.hardware_call_ms = platform::sim::kHardwareCallMs;
  AutoHarness h(std::move(o));
  ASSERT_EQ(h.Init(), 0);
  AutoSwitchingWorkerArg arg;
  arg.worker = &h.worker();
  auto buffers = SampleBuffers::create(h.worker().settings().MaxRSSICollectCount);
  buffers->reset();
  uint32_t count = 0;
  const int64_t t0 = h.clock().now_ms();
  MeasureMode(h.worker(), arg, *buffers, 0, count);
  EXPECT_EQ(count, 3u);
  // Two one-second waits, and per sample three calls: the antenna count (a control device
  // request), the RSSI collection and the link-rate collection.
  EXPECT_EQ(h.clock().now_ms() - t0, 2000 + 3 * 3 * platform::sim::kHardwareCallMs);
}

}  // namespace
}  // namespace zaltor::engine::autotest
