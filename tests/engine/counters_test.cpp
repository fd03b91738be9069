// Signal and throughput counters over scripted counters and a scripted firmware.
#include <gtest/gtest.h>

#include "engine/device_fakes.h"
#include "engine/signal_counters.h"

namespace zaltor::engine {
namespace {

using zaltor::testing::FakeClock;
using zaltor::testing::FakeCounterQuery;
using zaltor::testing::FakeCounters;
using zaltor::testing::FakeDeviceHandle;
using zaltor::testing::FakeFirmware;
using zaltor::testing::LogLine;
using zaltor::testing::RecordingLog;

const std::string kThroughput = "\\Network Interface(Wireless AX [R2])\\Bytes Total/sec";
const std::string kSpeed = "\\Network Interface(Wireless AX [R2])\\Current Bandwidth";
const std::string kA = "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna A";
const std::string kB = "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna B";
const std::string kC = "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna C";
constexpr int32_t kWait = 1500;
constexpr int32_t kInterval = 300;
constexpr uint32_t kCollectError = 0x800007D5;
constexpr uint32_t kFormatError = 0xC0000BC6;

class CountersTest : public ::testing::Test {
 protected:
  CountersTest() {
    state_.set_control_device(std::make_unique<FakeDeviceHandle>(fw_));
    state_.set_switch_count(2);
    state_.set_mode_count(4);
    state_.set_user_mode(1);
    zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) {
      t.counter_path = {kA, kB, kC, ""};
    });
    settings_.TimeToWaitForRSSIStable[0] = kWait;
    settings_.RSSICollectInterval[0] = kInterval;
    settings_.TimeToWaitForRSSIStable[1] = 99;
    state_.set_settings(&settings_);
  }
  // Sets up the counters on the default instance name and makes the worker ready.
  FakeCounterQuery& ready() {
    counters_.SetUpCounters("Wireless AX [R2]");
    state_.set_ready(true);
    log_.lines.clear();
    return *fake_.query;
  }

  FakeFirmware fw_;
  config::ConfigSettings settings_;
  DeviceState state_;
  FakeCounters fake_;
  FakeClock clock_;
  RecordingLog log_;
  AntennaSwitch sw_{state_, log_};
  SignalCounters counters_{state_, sw_, fake_, clock_, log_};
};

TEST_F(CountersTest, SetUpAddsEveryCounterInOrderAndTakesAFirstSample) {
  counters_.SetUpCounters("Wireless AX [R2]");
  ASSERT_NE(fake_.query, nullptr);
  EXPECT_EQ(fake_.query->added, (std::vector<std::string>{kThroughput, kSpeed, kA, kB, kC}));
  EXPECT_EQ(fake_.query->collects, 1);
  EXPECT_TRUE(state_.throughput_available());
  EXPECT_TRUE(state_.rssi_per_antenna());
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "Counter Path: " + kThroughput + "\n"}}));
}

TEST_F(CountersTest, NetworkInterfaceCountersAreAddedByTheirEnglishNamesRssiAsPublished) {
  // A Windows in another language translates the network interface counters' names, not the
  // Wi-Fi driver's RSSI counter set.
  counters_.SetUpCounters("Wireless AX [R2]");
  ASSERT_NE(fake_.query, nullptr);
  EXPECT_EQ(fake_.query->added_english, (std::vector<std::string>{kThroughput, kSpeed}));
  EXPECT_EQ(fake_.query->added, (std::vector<std::string>{kThroughput, kSpeed, kA, kB, kC}));
}

TEST_F(CountersTest, FailedQueryOpenAddsNothingAndClearsTheRssiFlag) {
  fake_.open_error = 0xC0000BB8;
  state_.set_rssi_per_antenna(true);
  counters_.SetUpCounters("Wireless AX [R2]");
  EXPECT_EQ(state_.counter_query(), nullptr);
  EXPECT_FALSE(state_.rssi_per_antenna());
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "Counter Path: " + kThroughput + "\n"},
                                              {3, "PdhOpenQuery failed with 0xc0000bb8\n"}}));
  state_.set_ready(true);
  LinkReading reading;
  EXPECT_EQ(counters_.ReadThroughput(reading), kStatusCounterCollect);
}

TEST_F(CountersTest, FailedAddsAreLoggedAndLeaveTheFlagsClear) {
  fake_.prepare = [](FakeCounterQuery& q) {
    q.add_errors[kSpeed] = 0xC0000BB8;
    q.add_errors[kA] = 0xC0000BC0;
  };
  counters_.SetUpCounters("Wireless AX [R2]");
  EXPECT_FALSE(state_.throughput_available());
  EXPECT_FALSE(state_.rssi_per_antenna());
  EXPECT_EQ(state_.link_speed_counter(), 0u);
  EXPECT_EQ(state_.rssi_counter(0), 0u);
  EXPECT_NE(state_.rssi_counter(1), 0u);
  EXPECT_EQ(log_.lines,
            (std::vector<LogLine>{{4, "Counter Path: " + kThroughput + "\n"},
                                  {4, "PdhAddCounter " + kSpeed + " failed with 0xc0000bb8\n"},
                                  {3, "PdhAddCounter " + kA + " failed with 0xc0000bc0\n"}}));
}

TEST_F(CountersTest, AnEmptySlotFailsToAddButOnlySlotZeroDecidesTheFlag) {
  zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) {
    t.counter_path = {kA, kB, "", ""};
  });
  counters_.SetUpCounters("Wireless AX [R2]");
  EXPECT_TRUE(state_.rssi_per_antenna());
  EXPECT_EQ(state_.rssi_counter(2), 0u);
  EXPECT_TRUE(log_.contains(3, "PdhAddCounter  failed with 0xc0000bb8\n"));
}

TEST_F(CountersTest, ReadThroughputStoresBytesAndMegabits) {
  FakeCounterQuery& q = ready();
  q.values[kThroughput] = 12000000;
  q.values[kSpeed] = 866700000;
  LinkReading reading;
  EXPECT_EQ(counters_.ReadThroughput(reading), SWITCH_OK);
  EXPECT_EQ(reading.throughput_bps, 12000000);
  EXPECT_DOUBLE_EQ(reading.link_speed_mbps, 866.7);
}

TEST_F(CountersTest, ReadThroughputFailures) {
  FakeCounterQuery& q = ready();
  LinkReading reading;
  state_.set_ready(false);
  EXPECT_EQ(counters_.ReadThroughput(reading), SWITCH_ERR_NOT_READY);
  state_.set_ready(true);
  q.collect_results = {kCollectError};
  EXPECT_EQ(counters_.ReadThroughput(reading), kStatusCounterCollect);
  EXPECT_TRUE(log_.contains(4, "PdhCollectQueryData failed with 0x800007d5\n"));

  q.values[kThroughput] = 5000;
  q.format_errors[kSpeed] = {kFormatError, 1};
  EXPECT_EQ(counters_.ReadThroughput(reading), kStatusThroughputValue);
  EXPECT_EQ(reading.throughput_bps, 5000);  // the first value stays stored
  EXPECT_TRUE(log_.contains(4, "PdhGetFormattedCounterValue failed with 0xc0000bc6.\n"));

  q.format_errors[kThroughput] = {kFormatError, 1};
  q.values[kThroughput] = 7000;
  EXPECT_EQ(counters_.ReadThroughput(reading), kStatusThroughputValue);
  EXPECT_EQ(reading.throughput_bps, 5000);
}

TEST_F(CountersTest, MissingThroughputCountersReadAsMinusOne) {
  fake_.prepare = [](FakeCounterQuery& q) { q.add_errors[kThroughput] = 1; };
  ready();
  LinkReading reading{1, 1.0};
  EXPECT_EQ(counters_.ReadThroughput(reading), SWITCH_OK);
  EXPECT_EQ(reading.throughput_bps, -1);
  EXPECT_DOUBLE_EQ(reading.link_speed_mbps, -1.0);
}

TEST_F(CountersTest, ACounterReadingZeroGivesMinus200NeverZero) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 0;
  q.values[kB] = 55;
  int32_t values[2] = {1, 1};
  EXPECT_EQ(counters_.ReadRssi(2, values), SWITCH_OK);
  EXPECT_EQ(values[0], -200);
  EXPECT_EQ(values[1], -55);
}

TEST_F(CountersTest, AFailedCollectionInReadRssiReturns0AndLeavesTheValues) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 40;
  q.collect_error = kCollectError;
  int32_t values[2] = {-123, -124};
  EXPECT_EQ(counters_.ReadRssi(2, values), SWITCH_OK);
  EXPECT_EQ(values[0], -123);
  EXPECT_EQ(values[1], -124);
  EXPECT_TRUE(log_.lines.empty());
}

TEST_F(CountersTest, ReadRssiFormattingFailureGives19WithEarlierPortsWritten) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 41;
  q.values[kC] = 43;
  q.format_errors[kB] = {kFormatError, 1};
  int32_t values[3] = {0, 0, 0};
  EXPECT_EQ(counters_.ReadRssi(3, values), kStatusRssiValue);
  EXPECT_EQ(values[0], -41);
  EXPECT_EQ(values[1], 0);
  EXPECT_EQ(values[2], 0);
}

TEST_F(CountersTest, ReadRssiEdges) {
  FakeCounterQuery& q = ready();
  int32_t values[4] = {9, 9, 9, 9};
  EXPECT_EQ(counters_.ReadRssi(0, values), SWITCH_OK);
  EXPECT_EQ(q.collects, 2);  // collects even for no port
  q.values[kA] = 1;
  q.values[kB] = 2;
  q.values[kC] = 3;
  EXPECT_EQ(counters_.ReadRssi(4, values), SWITCH_OK);  // a fourth port has no counter
  EXPECT_EQ(values[2], -3);
  EXPECT_EQ(values[3], 9);
  state_.set_ready(false);
  EXPECT_EQ(counters_.ReadRssi(1, values), SWITCH_ERR_NOT_READY);
}

TEST_F(CountersTest, AllPortsSweepLogsEveryLineInOrder) {
  FakeCounterQuery& q = ready();
  q.value_sequences[kA] = {55, 70};
  q.value_sequences[kB] = {62, 58};
  int32_t values[4] = {};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), SWITCH_OK);
  EXPECT_EQ(values[0], -55);
  EXPECT_EQ(values[1], -62);
  EXPECT_EQ(values[2], -70);
  EXPECT_EQ(values[3], -58);
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{5, "Getting RSSI for Main at all ports: \n"},
                                              {5, " 1) Current RSSI: "},
                                              {5, "Main (-55), "},
                                              {5, "Aux (-62), "},
                                              {5, "\n"},
                                              {5, "\n\n"},
                                              {5, "Getting RSSI for Div at all ports: \n"},
                                              {5, " 1) Current RSSI: "},
                                              {5, "Main (-70), "},
                                              {5, "Aux (-58), "},
                                              {5, "\n"},
                                              {5, "\n\n"}}));
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{kWait, kWait}));
  // The switches stay in "Div": X and Y of IDs 0 and 1 low.
  EXPECT_EQ(fw_.lines & 0x33u, 0u);
  EXPECT_FALSE(fw_.written.empty());
}

TEST_F(CountersTest, AllPortsSweepMovesTheSwitchesBeforeEachState) {
  FakeCounterQuery& q = ready();
  std::vector<uint32_t> lines_at_read;
  q.values[kA] = 50;
  q.values[kB] = 50;
  clock_.on_sleep = [&](size_t) { lines_at_read.push_back(fw_.lines); };
  int32_t values[4] = {};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), SWITCH_OK);
  EXPECT_EQ(lines_at_read, (std::vector<uint32_t>{0x33, 0x00}));
}

TEST_F(CountersTest, WaitsComeFromTheConfigSetInForce) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 50;
  state_.set_active_config_set(1);
  int32_t values[4] = {};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), SWITCH_OK);
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{99, 99}));
}

TEST_F(CountersTest, WithFourSwitchesOnlyThreePortsAreSwept) {
  FakeCounterQuery& q = ready();
  fw_.switch_count = 4;
  state_.set_switch_count(4);
  state_.set_mode_count(16);
  q.values[kA] = 51;
  q.values[kB] = 52;
  q.values[kC] = 53;
  int32_t values[8];
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 8), SWITCH_OK);
  const int32_t expected[8] = {-51, -52, -53, -51, -52, -53, -200, -200};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(values[i], expected[i]) << i;
  EXPECT_EQ(q.formats, 6);
  // Switch 3 (ID 3) is never driven.
  for (uint32_t v : fw_.written) EXPECT_EQ(v & 0x88u, 0u);
}

TEST_F(CountersTest, AutomaticModeAllPortsReturnsTheStoredResultsWithoutSwitching) {
  FakeCounterQuery& q = ready();
  state_.set_user_mode(0);
  counters_.store_auto_sweep(0, 0, -50);
  counters_.store_auto_sweep(0, 1, -51);
  counters_.store_auto_sweep(1, 0, -60);
  counters_.store_auto_sweep(1, 1, -61);
  const int collects = q.collects;
  int32_t values[6] = {1, 1, 1, 1, 1, 1};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 6), SWITCH_OK);
  const int32_t expected[6] = {-50, -51, -60, -61, -200, -200};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(values[i], expected[i]) << i;
  EXPECT_TRUE(fw_.written.empty());
  EXPECT_TRUE(clock_.sleeps.empty());
  EXPECT_EQ(q.collects, collects);
  EXPECT_TRUE(log_.lines.empty());
}

TEST_F(CountersTest, AutomaticModeStoredResultsStartAtMinus200AndKeepTheFourthPort) {
  ready();
  state_.set_user_mode(0);
  fw_.switch_count = 4;
  state_.set_switch_count(4);
  counters_.store_auto_sweep(0, 2, -70);
  int32_t values[8] = {};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 8), SWITCH_OK);
  const int32_t expected[8] = {-200, -200, -70, -200, -200, -200, -200, -200};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(values[i], expected[i]) << i;
}

TEST_F(CountersTest, ThreeFailedAttemptsInDivAfterASuccessfulMainResetEverything) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 55;
  q.values[kB] = 62;
  clock_.on_sleep = [&](size_t n) {
    if (n == 2) q.format_errors[kA] = {kFormatError, 3};  // the "Div" state's reads fail
  };
  int32_t values[4] = {};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), kStatusRssiUnreadable);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(values[i], -200) << i;
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{kWait, kWait, kInterval, kInterval, kInterval}));
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{5, "Getting RSSI for Main at all ports: \n"},
                                              {5, " 1) Current RSSI: "},
                                              {5, "Main (-55), "},
                                              {5, "Aux (-62), "},
                                              {5, "\n"},
                                              {5, "\n\n"},
                                              {5, "Getting RSSI for Div at all ports: \n"},
                                              {5, "# 1) Error while getting rssi! \n"},
                                              {5, "# 2) Error while getting rssi! \n"},
                                              {5, "# 3) Error while getting rssi! \n"},
                                              {5, "\n\n"},
                                              {3, "Failed while getting rssi for state 1!\n"}}));
}

TEST_F(CountersTest, AFailedAttemptIsRetriedAfterTheCollectInterval) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 45;
  q.values[kB] = 46;
  q.format_errors[kB] = {kFormatError, 1};
  int32_t values[4] = {};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), SWITCH_OK);
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{kWait, kInterval, kWait}));
  EXPECT_EQ(log_.lines[1], (LogLine{5, "# 1) Error while getting rssi! \n"}));
  EXPECT_EQ(log_.lines[2], (LogLine{5, " 2) Current RSSI: "}));
}

TEST_F(CountersTest, FailedCollectionInTheSweepKeepsThePreviousRead) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 55;
  q.values[kB] = 62;
  // The "Main" read is not collected and no earlier read exists: -200 per port. The
  // "Div" read is not collected either, so the "Main" values stand.
  q.collect_results = {kCollectError};
  int32_t values[4] = {};
  clock_.on_sleep = [&](size_t n) {
    if (n == 2) q.collect_results = {kCollectError};
  };
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), SWITCH_OK);
  EXPECT_EQ(values[0], -200);
  EXPECT_EQ(values[1], -200);
  EXPECT_EQ(values[2], -200);
  EXPECT_EQ(values[3], -200);
  EXPECT_TRUE(log_.contains(5, " 1) Current RSSI: "));
  EXPECT_FALSE(log_.contains_text("# 1) Error while getting rssi! \n"));
}

TEST_F(CountersTest, FailedCollectionAfterASuccessfulReadRepeatsIt) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 55;
  q.values[kB] = 62;
  clock_.on_sleep = [&](size_t n) {
    if (n == 2) q.collect_results = {kCollectError};
  };
  int32_t values[4] = {};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), SWITCH_OK);
  const int32_t expected[4] = {-55, -62, -55, -62};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(values[i], expected[i]) << i;
}

TEST_F(CountersTest, WritesStayWithinTheCallersLength) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 55;
  q.values[kB] = 62;
  int32_t values[4] = {7, 7, 7, 7};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 3), SWITCH_OK);
  EXPECT_EQ(values[2], -55);
  EXPECT_EQ(values[3], 7);
  EXPECT_EQ(counters_.GetRssiCurrentMode(values, 1), SWITCH_OK);
  EXPECT_EQ(values[0], -55);
  EXPECT_EQ(values[1], -62);  // left from before
}

TEST_F(CountersTest, SweepsWithoutPerAntennaRssiGive26) {
  ready();
  state_.set_rssi_per_antenna(false);
  int32_t values[4] = {1, 1, 1, 1};
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), kStatusRssiNotSupported);
  EXPECT_EQ(counters_.GetRssiCurrentMode(values, 4), kStatusRssiNotSupported);
  EXPECT_EQ(values[0], 1);
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "Not support all antenna RSSI.\n"},
                                              {4, "Not support all antenna RSSI.\n"}}));
}

TEST_F(CountersTest, SweepsWhenNotReadyGive2) {
  ready();
  state_.set_ready(false);
  int32_t values[4] = {};
  int32_t average = 0;
  EXPECT_EQ(counters_.GetRssiAllPorts(values, 4), SWITCH_ERR_NOT_READY);
  EXPECT_EQ(counters_.GetRssiCurrentMode(values, 4), SWITCH_ERR_NOT_READY);
  EXPECT_EQ(counters_.GetAverageRssi(average), SWITCH_ERR_NOT_READY);
  EXPECT_EQ(average, -200);
}

TEST_F(CountersTest, CurrentModeSweepInAFixedModeLogsEveryLine) {
  FakeCounterQuery& q = ready();
  state_.set_user_mode(3);
  q.values[kA] = 48;
  q.values[kB] = 0;
  int32_t values[4] = {};
  EXPECT_EQ(counters_.GetRssiCurrentMode(values, 4), SWITCH_OK);
  const int32_t expected[4] = {-48, -200, -200, -200};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(values[i], expected[i]) << i;
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{5, "Getting RSSI for Current Mode (3): \n"},
                                              {5, " 1) Current RSSI: "},
                                              {5, "Main (-48), "},
                                              {5, "Aux (-200), "},
                                              {5, "\n\n"}}));
  EXPECT_TRUE(clock_.sleeps.empty());
  EXPECT_TRUE(fw_.written.empty());
}

TEST_F(CountersTest, CurrentModeSweepInAutomaticModeLogsNothing) {
  FakeCounterQuery& q = ready();
  state_.set_user_mode(0);
  q.values[kA] = 48;
  q.values[kB] = 49;
  q.format_errors[kA] = {kFormatError, 1};
  int32_t values[2] = {};
  EXPECT_EQ(counters_.GetRssiCurrentMode(values, 2), SWITCH_OK);
  EXPECT_EQ(values[1], -49);
  EXPECT_TRUE(log_.lines.empty());
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{kInterval}));
}

TEST_F(CountersTest, CurrentModeSweepFailingThreeTimes) {
  FakeCounterQuery& q = ready();
  state_.set_user_mode(2);
  q.format_errors[kA] = {kFormatError, 3};
  int32_t values[5] = {1, 1, 1, 1, 1};
  EXPECT_EQ(counters_.GetRssiCurrentMode(values, 5), kStatusRssiUnreadable);
  const int32_t expected[5] = {-200, -200, -200, -200, -200};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(values[i], expected[i]) << i;
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{kInterval, kInterval, kInterval}));
  EXPECT_EQ(log_.lines,
            (std::vector<LogLine>{{5, "Getting RSSI for Current Mode (2): \n"},
                                  {5, "# 1) Error while getting rssi! \n"},
                                  {5, "# 2) Error while getting rssi! \n"},
                                  {5, "# 3) Error while getting rssi! \n"},
                                  {3, "Failed while getting rssi for Current Mode (2): \n"}}));
  log_.lines.clear();
  state_.set_user_mode(0);
  q.format_errors[kA] = {kFormatError, 3};
  EXPECT_EQ(counters_.GetRssiCurrentMode(values, 5), kStatusRssiUnreadable);
  EXPECT_TRUE(log_.lines.empty());
}

TEST_F(CountersTest, AverageLeavesOutNoSignalReadings) {
  FakeCounterQuery& q = ready();
  fw_.switch_count = 3;
  q.values[kA] = 60;
  q.values[kB] = 95;
  q.values[kC] = 70;
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), SWITCH_OK);
  EXPECT_EQ(average, -65);
}

TEST_F(CountersTest, AverageTruncatesTowardZero) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 61;
  q.values[kB] = 62;
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), SWITCH_OK);
  EXPECT_EQ(average, -61);
}

TEST_F(CountersTest, AverageUsesTheFirmwaresSwitchNumber) {
  FakeCounterQuery& q = ready();
  fw_.switch_count = 1;  // the stored count says 2
  q.values[kA] = 40;
  q.values[kB] = 80;
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), SWITCH_OK);
  EXPECT_EQ(average, -40);
}

TEST_F(CountersTest, AverageOfOnlyNoSignalReadingsIsTheDivideByZeroOutcome) {
  FakeCounterQuery& q = ready();
  q.values[kA] = 95;
  q.values[kB] = 95;
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), kAverageRssiDivideByZero);
  EXPECT_EQ(kAverageRssiDivideByZero, 0xC0000094u);
  EXPECT_EQ(average, -200);
}

TEST_F(CountersTest, AverageOverNoAntennaIsTheDivideByZeroOutcome) {
  ready();
  fw_.switch_count = 0;
  state_.set_switch_count(0);
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), kAverageRssiDivideByZero);
  EXPECT_EQ(average, -200);
}

TEST_F(CountersTest, AverageWithAFourthPortLeavesItOut) {
  FakeCounterQuery& q = ready();
  fw_.switch_count = 4;
  q.values[kA] = 50;
  q.values[kB] = 60;
  q.values[kC] = 70;
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), SWITCH_OK);
  EXPECT_EQ(average, -60);
}

TEST_F(CountersTest, AveragePassesTheReadFailureOn) {
  FakeCounterQuery& q = ready();
  q.format_errors[kB] = {kFormatError, 1};
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), kStatusRssiValue);
  EXPECT_EQ(average, -200);
}

TEST_F(CountersTest, AverageAfterAFailedCollectionReadsAbsent) {
  FakeCounterQuery& q = ready();
  q.collect_error = kCollectError;
  int32_t average = 0;
  EXPECT_EQ(counters_.GetAverageRssi(average), SWITCH_OK);
  EXPECT_EQ(average, -200);
}

TEST_F(CountersTest, HugeCounterValuesDoNotOverflow) {
  FakeCounterQuery& q = ready();
  q.values[kA] = INT64_MIN;
  q.values[kB] = -5;  // a negative magnitude reads as a positive dBm value
  int32_t values[2] = {};
  EXPECT_EQ(counters_.ReadRssi(2, values), SWITCH_OK);
  EXPECT_EQ(values[0], INT32_MAX);
  EXPECT_EQ(values[1], 5);
}

}  // namespace
}  // namespace zaltor::engine
