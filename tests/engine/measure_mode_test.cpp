// MeasureMode on the simulated notebook in virtual time: the per-sample mean, the marks of
// silent antennas and failed reads, the link rate and its retry, the waits between
// attempts and how a stop or a re-evaluation request ends a measurement.
//
// The notebook's two antennas (port 0 "Main", port 1 "Aux") read -55/-62 and -70/-58 dBm
// with their switch in "Main"/"Div"; mode 1 (both switches "Main") runs at 866.7 Mbps.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "engine/engine_harness.h"
#include "engine/measure_mode.h"
#include "engine/sample_buffers.h"

namespace zaltor::engine::autotest {
namespace {

class EngineMeasureMode : public ::testing::Test {
 protected:
  void Start(HarnessOptions o) {
    h_ = std::make_unique<AutoHarness>(std::move(o));
    ASSERT_EQ(h_->Init(), 0);
    arg_ = std::make_shared<AutoSwitchingWorkerArg>();
    arg_->worker = &h_->worker();
    buffers_ = SampleBuffers::create(h_->worker().settings().MaxRSSICollectCount);
    buffers_->reset();
  }
  // Measures mode index `index` (already set on the device); the virtual time it took.
  int64_t measure(int32_t index) {
    const int64_t t0 = h_->clock().now_ms();
    MeasureMode(h_->worker(), *arg_, *buffers_, index, count_);
    return h_->clock().now_ms() - t0;
  }
  std::string log() const { return h_->text() + h_->pending(); }

  std::unique_ptr<AutoHarness> h_;
  std::shared_ptr<AutoSwitchingWorkerArg> arg_;
  std::shared_ptr<SampleBuffers> buffers_;
  uint32_t count_ = 99;
};

HarnessOptions keys3(Keys extra = {}, std::string patch = "{}") {
  HarnessOptions o;
  o.keys = {{"RSSICollectCount", "3"}};
  for (auto& [k, v] : extra) o.keys[k] = v;
  o.scenario_patch = std::move(patch);
  return o;
}

TEST_F(EngineMeasureMode, TruncatingMeanOfTheAntennasAndTheRateFillTheModesRows) {
  Start(keys3());
  const int64_t took = measure(0);
  // (-55 + -70) / 2 = -62.5, truncated toward zero.
  EXPECT_NE(log().find("-62 (866.7M), -62 (866.7M), -62 (866.7M), Avg: 866.7 Mbps\n"),
            std::string::npos)
      << log();
  EXPECT_EQ(count_, 3u);
  const auto rssi = buffers_->rssi_row(0, 3);
  const auto rate = buffers_->rate_row(0, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(rssi[static_cast<size_t>(i)], -62.0);
    EXPECT_EQ(rate[static_cast<size_t>(i)], 866.7);
  }
  EXPECT_EQ(rssi[3], -200.0);  // the row's spare entry stays untouched
  EXPECT_EQ(took, 2000);       // two one-second waits between three attempts, none after
}

TEST_F(EngineMeasureMode, RowOfAModeBeginsAfterTheRowsOfTheModesBeforeIt) {
  Start(keys3());
  std::array<Status, platform::kMaxPorts> results{};
  h_->worker().sw.SetMode(3, results);  // switch 0 "Main", switch 1 "Div"
  measure(2);
  // (-55 + -58) / 2 = -56.5 -> -56, at 2 * (3 + 1) in the buffer.
  EXPECT_EQ(buffers_->rssi()[8], -56.0);
  EXPECT_EQ(buffers_->rate()[8], 780.0);
  EXPECT_EQ(buffers_->rssi()[0], -200.0);
}

TEST_F(EngineMeasureMode, AntennaReadingMinus95IsLeftOutOfTheMeanAndMarked) {
  Start(keys3({}, R"({"radio":{"rssi":[{"Main":-55,"Div":-62},{"Main":-95,"Div":-58}]}})"));
  measure(0);
  EXPECT_NE(log().find("*-55 (866.7M), *-55 (866.7M), *-55 (866.7M), Avg: 866.7 Mbps\n"),
            std::string::npos)
      << log();
  EXPECT_EQ(buffers_->rssi_row(0, 3)[0], -55.0);
  EXPECT_EQ(count_, 3u);
}

TEST_F(EngineMeasureMode, EveryAntennaSilentIsAFailedReadThatCounts) {
  Start(keys3({}, R"({"radio":{"rssi":[{"Main":-95,"Div":-62},{"Main":-95,"Div":-58}]}})"));
  const int64_t took = measure(0);
  EXPECT_NE(log().find("*ERR, *ERR, *ERR, Avg: N/A\n"), std::string::npos) << log();
  EXPECT_EQ(h_->count(kLogWarning, "All fail while getting rssi for mode 1\n"), 1);
  EXPECT_EQ(count_, 0u);
  EXPECT_EQ(took, 2000);  // failed attempts count and wait like good ones
}

TEST_F(EngineMeasureMode, AverageRateIsTheMeanOfTheSuccessfulSamples) {
  Start(HarnessOptions{});  // two samples
  auto patcher = h_->after(500, [&] {
    std::string error;
    EXPECT_TRUE(h_->notebook().apply_patch(
        nlohmann::json::parse(R"({"radio":{"rateMbps":[433.3,650.0,780.0,400.0]}})"), error))
        << error;
  });
  measure(0);
  patcher->join();
  EXPECT_NE(log().find("-62 (866.7M), -62 (433.3M), Avg: 650.0 Mbps\n"), std::string::npos)
      << log();
}

TEST_F(EngineMeasureMode, PartOfASecondBetweenAttemptsWaitsAWholeStep) {
  HarnessOptions o;
  o.keys = {{"RSSICollectInterval", "1500"}};
  Start(std::move(o));
  EXPECT_EQ(measure(0), 2000);  // one wait of 1500 ms in one-second steps
}

TEST_F(EngineMeasureMode, ZeroIntervalTakesNoWait) {
  Start(keys3({{"RSSICollectInterval", "0"}}));
  EXPECT_EQ(measure(0), 0);
  EXPECT_EQ(count_, 3u);
}

TEST_F(EngineMeasureMode, RateThatNeverRisesAboveZeroRetriesUntilAReevaluationRequest) {
  HarnessOptions o = keys3();
  o.scripted_counters = true;
  Start(std::move(o));
  ScriptedCounters& counters = h_->scripted();
  const int base = counters.collections.load();
  counters.zero_rate = true;
  // Each try collects twice (RSSI, then the rate); after 40 collections another thread's
  // request arrives.
  counters.on_collect = [&](int n) {
    if (n == base + 40) h_->worker().raise_reevaluation(Trigger::kMonitor);
  };
  const int64_t took = measure(0);
  counters.on_collect = nullptr;

  EXPECT_EQ(took, 0) << "a retry neither counts nor waits";
  EXPECT_EQ(count_, 0u);
  const std::string text = log();
  size_t retries = 0;
  for (size_t at = text.find("-62 (--/Retry), "); at != std::string::npos;
       at = text.find("-62 (--/Retry), ", at + 1)) {
    ++retries;
  }
  EXPECT_EQ(retries, 20u);
  EXPECT_EQ(text.find("Avg:"), std::string::npos) << "an interrupted measurement has no average";
  EXPECT_TRUE(h_->worker().reevaluation_requested()) << "the request stays for the loop";
}

TEST_F(EngineMeasureMode, RateThatNeverRisesAboveZeroRetriesUntilAStop) {
  HarnessOptions o = keys3();
  o.scripted_counters = true;
  Start(std::move(o));
  ScriptedCounters& counters = h_->scripted();
  const int base = counters.collections.load();
  counters.zero_rate = true;
  counters.on_collect = [&](int n) {
    if (n == base + 10) arg_->keep_running = false;
  };
  EXPECT_EQ(measure(0), 0);
  counters.on_collect = nullptr;
  EXPECT_EQ(count_, 0u);
  EXPECT_EQ(log().find("Avg:"), std::string::npos);
  EXPECT_EQ(counters.collections.load() - base, 10);
}

TEST_F(EngineMeasureMode, RateThatReturnsAfterRetriesCompletesTheAttempt) {
  HarnessOptions o = HarnessOptions{};
  o.scripted_counters = true;
  Start(std::move(o));
  ScriptedCounters& counters = h_->scripted();
  const int base = counters.collections.load();
  counters.zero_rate = true;
  counters.on_collect = [&](int n) {
    if (n == base + 5) counters.zero_rate = false;  // the third try gets its rate
  };
  measure(0);
  counters.on_collect = nullptr;
  EXPECT_NE(log().find("-62 (--/Retry), -62 (--/Retry), -62 (866.7M), -62 (866.7M), "
                       "Avg: 866.7 Mbps\n"),
            std::string::npos)
      << log();
  EXPECT_EQ(count_, 2u);
}

TEST_F(EngineMeasureMode, StopDuringTheWaitEndsTheMeasurementAtTheNextStep) {
  Start(keys3({{"RSSICollectInterval", "3000"}}));
  auto stopper = h_->after(1500, [&] { arg_->keep_running = false; });
  const int64_t took = measure(0);
  stopper->join();
  EXPECT_EQ(took, 2000);  // seen after the second one-second step
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(log().find("Avg:"), std::string::npos);
}

TEST_F(EngineMeasureMode, ReevaluationRequestDuringTheWaitEndsItAndStaysPending) {
  Start(keys3({{"RSSICollectInterval", "3000"}}));
  auto requester = h_->after(3500, [&] { h_->worker().raise_reevaluation(Trigger::kMonitor); });
  const int64_t took = measure(0);
  requester->join();
  EXPECT_EQ(took, 4000);
  EXPECT_EQ(count_, 2u);
  EXPECT_EQ(log().find("Avg:"), std::string::npos);
  EXPECT_TRUE(h_->worker().reevaluation_requested());
}

TEST_F(EngineMeasureMode, PendingRequestMeasuresNothing) {
  Start(keys3());
  h_->worker().raise_reevaluation(Trigger::kMonitor);
  EXPECT_EQ(measure(0), 0);
  EXPECT_EQ(count_, 0u);
  EXPECT_EQ(log().find("-62"), std::string::npos);
}

TEST_F(EngineMeasureMode, EachReadIsRecordedAsTheAutomaticSweepOfItsSwitchPositions) {
  Start(keys3());
  std::array<Status, platform::kMaxPorts> results{};
  h_->worker().sw.SetMode(3, results);  // switch 0 "Main", switch 1 "Div"
  measure(2);
  const DeviceState& device = h_->worker().shared.device();
  EXPECT_EQ(device.auto_sweep(0, 0), -55);  // port 0 in "Main"
  EXPECT_EQ(device.auto_sweep(1, 1), -58);  // port 1 in "Div"
  EXPECT_EQ(device.auto_sweep(1, 0), -200);
  EXPECT_EQ(device.auto_sweep(0, 1), -200);
}

TEST_F(EngineMeasureMode, FourthAntennaHasNoCounterAndIsLeftOutOfMeanAndSweep) {
  HarnessOptions o;
  o.gpio = four_switch_gpio();
  o.scenario_patch = R"({"firmware":{"switchCount":4,"lines":255},
    "counters":{"A":0,"B":1,"C":2,"D":3},
    "radio":{"rssi":[{"Main":-55,"Div":-62},{"Main":-70,"Div":-58},
                     {"Main":-66,"Div":-61},{"Main":-40,"Div":-41}],
             "rateMbps":[866.7,650,780,400,866.7,650,780,400,866.7,650,780,400,
                         866.7,650,780,400]}})";
  for (int m = 5; m <= 16; ++m) {
    o.keys["RSSIWeightForMode_" + std::to_string(m)] = "0.0";
    o.keys["DisableMode_" + std::to_string(m)] = "0";
  }
  Start(std::move(o));
  ASSERT_EQ(h_->worker().mode_count(), 16);
  measure(0);
  // (-55 + -70 + -66) / 3 = -63.67 -> -63; the fourth port's -40 is never read.
  EXPECT_NE(log().find("*-63 (866.7M), *-63 (866.7M), Avg: 866.7 Mbps\n"), std::string::npos)
      << log();
  const DeviceState& device = h_->worker().shared.device();
  EXPECT_EQ(device.auto_sweep(0, 2), -66);
  EXPECT_EQ(device.auto_sweep(0, 3), -200);
}

}  // namespace
}  // namespace zaltor::engine::autotest
