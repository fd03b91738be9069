#include <gtest/gtest.h>

#include "engine/determine_fixture.h"
#include "engine/determine_mode.h"

namespace zaltor::engine {
namespace {

using testing::DetermineFixture;
using testing::LogCall;

TEST(DetermineMode, CompleteLogOfOneRssiDecisionForFourModes) {
  DetermineFixture f(2, 2);
  f.settings.RSSIThresholdForSwitchToDefaultMode[0] = -80.0;
  f.settings.rssi_weight_for_mode[0][2] = -10.0;  // mode 3
  f.samples(0, {-50.0, -52.0}, {100.0, 110.0});
  f.samples(1, {-60.0, -61.0}, {200.0, 210.0});
  f.samples(2, {-45.0, -46.0}, {50.0, 52.0});
  f.samples(3, {-70.0, -71.0}, {80.0, 81.0});

  EXPECT_EQ(f.Run(1), 1);

  const std::vector<LogCall> expected = {
      {5, "Avg RSSI: "},
      {5, "#1)-51.000 (105.0), "},
      {5, "#2)-60.500 (205.0), "},
      {5, "#3)-45.500 (51.0), "},
      {5, "#4)-70.500 (80.5), "},
      {5, "\n"},
      {5, "Weighted: "},
      {5, "#1)-51.000, "},
      {5, "#2)-60.500, "},
      {5, "#3)-55.500, "},
      {5, "#4)-70.500, "},
      {5, "\n\n"},
      {5, "BW: "},
      {5, "#1)105.0, "},
      {5, "#2)205.0, "},
      {5, "#3)51.0, "},
      {5, "#4)80.5, "},
      {5, "\n\n"},
      {4, "Using RSSI determinator.\n"},
      {4, "Determined mode: 1\n"},
      {5, "Switch status: \n"},
      {5, "Main => 0 (Main)\n"},
      {5, "Aux => 0 (Main)\n"},
      {5, "\n\n"},
  };
  EXPECT_EQ(f.log.calls, expected);
  EXPECT_DOUBLE_EQ(f.rssiOut, -51.0);
  EXPECT_FALSE(f.fallback);
  EXPECT_DOUBLE_EQ(f.results.avg_rssi[2], -45.5);
  EXPECT_DOUBLE_EQ(f.results.weighted[2], -55.5);
  EXPECT_DOUBLE_EQ(f.results.avgRate[3], 80.5);
}

TEST(DetermineMode, OneDisabledModeAndAllOthersBelowThresholdFallsBack) {
  DetermineFixture f(2);
  f.settings.DefaultMode[0] = 2;
  f.settings.RSSIThresholdForSwitchToDefaultMode[0] = -70.0;
  f.one_sample_each({-75.0, -80.0, -71.0, -20.0}, {});
  f.disable(3);  // the only strong mode is disabled

  EXPECT_EQ(f.Run(0), 2);
  EXPECT_TRUE(f.fallback);
  EXPECT_TRUE(
      f.log.has(5, "All Measurements of signal strength are below threshold (-70.00 dBm).\n"));
  EXPECT_TRUE(f.log.has(5, "Determined mode: 2 (Fallback)\n"));
  EXPECT_FALSE(f.log.has(5, "Weighted: "));
  EXPECT_FALSE(f.log.has(4, "Using RSSI determinator.\n"));
  EXPECT_DOUBLE_EQ(f.rssiOut, -80.0);  // the default mode's average
}

TEST(DetermineMode, OneModeAboveThresholdPreventsTheFallback) {
  DetermineFixture f(2);
  f.settings.RSSIThresholdForSwitchToDefaultMode[0] = -70.0;
  f.one_sample_each({-75.0, -80.0, -69.0, -90.0}, {});
  EXPECT_EQ(f.Run(0), 3);
  EXPECT_FALSE(f.fallback);
}

TEST(DetermineMode, AValueEqualToTheThresholdIsNotBelowIt) {
  DetermineFixture f(1);
  f.settings.RSSIThresholdForSwitchToDefaultMode[0] = -70.0;
  f.one_sample_each({-70.0, -80.0}, {});
  EXPECT_EQ(f.Run(0), 1);
  EXPECT_FALSE(f.fallback);
}

TEST(DetermineMode, ZeroSuccessesFallsBackEvenWhenOthersAreStrong) {
  DetermineFixture f(2);
  f.settings.DefaultMode[0] = 4;
  f.one_sample_each({-30.0, -35.0, -40.0, -45.0}, {});
  f.counts[1] = 0;

  EXPECT_EQ(f.Run(0), 4);
  EXPECT_TRUE(f.fallback);
  EXPECT_TRUE(f.log.has(5, "#2)*ERR, "));
  EXPECT_TRUE(f.log.has(5, "Some Measurement(s) (1 times) are failed.\n"));
  EXPECT_FALSE(
      f.log.has(5, "All Measurements of signal strength are below threshold (-90.00 dBm).\n"));
  EXPECT_TRUE(f.log.has(5, "Determined mode: 4 (Fallback)\n"));
  EXPECT_DOUBLE_EQ(f.rssiOut, -45.0);
  EXPECT_DOUBLE_EQ(f.results.avg_rssi[1], -200.0);
  EXPECT_DOUBLE_EQ(f.results.avgRate[1], 0.0);
}

TEST(DetermineMode, AllBelowWithFailuresReportsTheFailureCount) {
  DetermineFixture f(2);
  f.one_sample_each({-95.0, -99.0, -92.0, -91.0}, {});
  f.counts[0] = 0;
  f.counts[3] = 0;
  EXPECT_EQ(f.Run(0), 1);
  EXPECT_TRUE(f.fallback);
  EXPECT_TRUE(f.log.has(5, "Some Measurement(s) (2 times) are failed.\n"));
  const std::string text = f.log.text();
  EXPECT_EQ(text.find("All Measurements"), std::string::npos);
  EXPECT_EQ(text,
            "Avg RSSI: #1)*ERR, #2)-99.000 (100.0), #3)-92.000 (100.0), #4)*ERR, \n"
            "Some Measurement(s) (2 times) are failed.\n"
            "Determined mode: 1 (Fallback)\n");
}

TEST(DetermineMode, EveryModeDisabledFallsBack) {
  DetermineFixture f(1);
  f.disable(0);
  f.disable(1);
  EXPECT_EQ(f.Run(0), 1);
  EXPECT_TRUE(f.fallback);
  EXPECT_EQ(f.log.text(),
            "Avg RSSI: \n"
            "All Measurements of signal strength are below threshold (-90.00 dBm).\n"
            "Determined mode: 1 (Fallback)\n");
}

TEST(DetermineMode, FallbackToADefaultModeOutsideTheModesReadsNoValue) {
  DetermineFixture f(1);
  f.settings.DefaultMode[0] = 7;
  f.one_sample_each({-95.0, -99.0}, {});
  EXPECT_EQ(f.Run(0), 7);
  EXPECT_DOUBLE_EQ(f.rssiOut, -200.0);
}

TEST(DetermineMode, DisabledModesAreLeftOutOfAveragesAndWeightedButNotBw) {
  DetermineFixture f(2);
  f.one_sample_each({-50.0, -40.0, -60.0, -70.0}, {100.0, 300.0, 50.0, 60.0});
  f.disable(1);
  EXPECT_EQ(f.Run(0), 1);
  EXPECT_EQ(f.log.text(),
            "Avg RSSI: #1)-50.000 (100.0), #3)-60.000 (50.0), #4)-70.000 (60.0), \n"
            "Weighted: #1)-50.000, #3)-60.000, #4)-70.000, \n\n"
            "BW: #1)100.0, #2)0.0, #3)50.0, #4)60.0, \n\n"
            "Using RSSI determinator.\n"
            "Determined mode: 1\n"
            "Switch status: \nMain => 0 (Main)\nAux => 0 (Main)\n\n\n");
}

TEST(DetermineMode, WeightsAreAdditiveOffsets) {
  DetermineFixture f(1);
  f.one_sample_each({-50.0, -54.0}, {});
  EXPECT_EQ(f.Run(0), 1);
  f.settings.rssi_weight_for_mode[0][1] = 5.0;
  EXPECT_EQ(f.Run(0), 2);
  EXPECT_DOUBLE_EQ(f.results.weighted[1], -49.0);
  EXPECT_DOUBLE_EQ(f.rssiOut, -54.0);  // the unweighted average of the chosen mode
}

TEST(DetermineMode, RssiOutIsTheChosenModesAverageAndTheFallbackFlagIsLeftAsItWas) {
  DetermineFixture f(1);
  f.one_sample_each({-60.0, -50.0}, {});
  f.fallback = true;
  EXPECT_EQ(f.Run(0), 2);
  EXPECT_DOUBLE_EQ(f.rssiOut, -50.0);
  EXPECT_TRUE(f.fallback);
  f.fallback = false;
  EXPECT_EQ(f.Run(0), 2);
  EXPECT_FALSE(f.fallback);
}

TEST(DetermineMode, InvalidDeterminatorYieldsZeroAndChoosesNothing) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = 7;
  f.settings.DefaultMode[0] = 3;
  f.one_sample_each({-60.0, -50.0, -40.0, -70.0}, {});

  EXPECT_EQ(f.Run(1), 0);
  EXPECT_TRUE(f.log.has(1, "Invalid Determinator!\n"));
  EXPECT_DOUBLE_EQ(f.rssiOut, -50.0);  // still the mode in use
  EXPECT_FALSE(f.fallback);
  EXPECT_FALSE(f.log.has(5, "Switch status: \n"));
  EXPECT_EQ(f.log.calls.back(), (LogCall{1, "Invalid Determinator!\n"}));
  // The auto loop keeps the configured default for it.
  EXPECT_EQ(mode_to_apply(0, f.settings, 0), 3);
  EXPECT_EQ(mode_to_apply(2, f.settings, 0), 2);
}

TEST(DetermineMode, NegativeDeterminatorIsInvalid) {
  DetermineFixture f(1);
  f.settings.DeterminatorMode = -1;
  f.one_sample_each({-60.0, -50.0}, {});
  EXPECT_EQ(f.Run(0), 0);
  EXPECT_TRUE(f.log.has(1, "Invalid Determinator!\n"));
}

TEST(DetermineMode, HistoryRingTakesEachEvaluationsAveragesAndWrapsAtTwenty) {
  DetermineFixture f(1);
  for (int run = 0; run < 21; ++run) {
    EXPECT_EQ(f.history.index, static_cast<uint32_t>(run % 20));
    f.one_sample_each({-40.0 - run, -80.0}, {});
    f.Run(0);
  }
  EXPECT_EQ(f.history.index, 1u);
  EXPECT_DOUBLE_EQ(f.history.rows[0][0], -60.0);  // the 21st evaluation overwrote row 0
  EXPECT_DOUBLE_EQ(f.history.rows[1][0], -41.0);
  EXPECT_DOUBLE_EQ(f.history.rows[19][0], -59.0);
  EXPECT_DOUBLE_EQ(f.history.rows[5][1], -80.0);
}

TEST(DetermineMode, HistoryTakesFailedModesAndSkipsDisabledOnes) {
  DetermineFixture f(2);
  f.history.rows[0].fill(1.0);
  f.one_sample_each({-40.0, -50.0, -60.0, -70.0}, {});
  f.counts[1] = 0;
  f.disable(2);
  f.Run(0);
  EXPECT_DOUBLE_EQ(f.history.rows[0][0], -40.0);
  EXPECT_DOUBLE_EQ(f.history.rows[0][1], -200.0);
  EXPECT_DOUBLE_EQ(f.history.rows[0][2], 1.0);
  EXPECT_DOUBLE_EQ(f.history.rows[0][3], -70.0);
  EXPECT_EQ(f.history.index, 1u);
}

TEST(DetermineMode, UsesTheSettingsOfTheActiveSet) {
  DetermineFixture f(1, 3);
  f.active_set = 2;
  f.settings.RSSICollectCount[2] = 2;  // rows laid out by this set's count
  f.settings.rssi_weight_for_mode[2][0] = 20.0;
  f.settings.rssi_weight_for_mode[0][1] = 20.0;  // set 0's weight must not count
  f.samples(0, {-60.0, -62.0}, {10.0, 20.0});
  f.samples(1, {-50.0, -50.0}, {30.0, 30.0});
  EXPECT_EQ(f.Run(0), 1);
  EXPECT_DOUBLE_EQ(f.results.avg_rssi[0], -61.0);
  EXPECT_DOUBLE_EQ(f.results.avgRate[0], 15.0);
  EXPECT_DOUBLE_EQ(f.results.weighted[0], -41.0);
  // Mode index 1's row starts at 1 * (2 + 1) in the shared buffer.
  EXPECT_DOUBLE_EQ(f.buffers().rssi()[3], -50.0);

  f.settings.disable_mode[2][1] = 1;
  f.settings.RSSIThresholdForSwitchToDefaultMode[2] = -55.0;
  f.settings.DefaultMode[2] = 2;
  EXPECT_EQ(f.Run(0), 2);
  EXPECT_TRUE(f.fallback);
  EXPECT_TRUE(
      f.log.has(5, "All Measurements of signal strength are below threshold (-55.00 dBm).\n"));
}

TEST(DetermineMode, CurrentIndexOutsideTheModesGivesNoValueWhenNothingIsChosen) {
  DetermineFixture f(1);
  f.settings.DeterminatorMode = 9;
  f.one_sample_each({-60.0, -50.0}, {});
  EXPECT_EQ(f.Run(-1), 0);
  EXPECT_DOUBLE_EQ(f.rssiOut, -200.0);
  EXPECT_EQ(f.Run(2), 0);
  EXPECT_DOUBLE_EQ(f.rssiOut, -200.0);
}

TEST(DetermineMode, NoQualifyingWeightedValueKeepsTheDefaultMode) {
  // Averages of -100 dB with a -100 dB weight land exactly on the no-value RSSI, which every
  // scan skips: nothing is left to compare.
  DetermineFixture f(1);
  f.settings.DefaultMode[0] = 2;
  f.settings.RSSIThresholdForSwitchToDefaultMode[0] = -150.0;
  f.settings.rssi_weight_for_mode[0][0] = -100.0;
  f.settings.rssi_weight_for_mode[0][1] = -100.0;
  f.one_sample_each({-100.0, -100.0}, {});
  EXPECT_EQ(f.Run(0), 2);
  EXPECT_FALSE(f.fallback);
  EXPECT_TRUE(f.log.has(4, "Determined mode: 2\n"));
}

TEST(DetermineMode, SwitchStatusUsesTheSwitchNamesAndPositionLabels) {
  DetermineFixture f(2);
  f.labels[0] = {"Main", {"M0", "D0"}};
  f.labels[1] = {"Aux", {"M1", "D1"}};
  f.one_sample_each({-60.0, -50.0, -70.0, -80.0}, {});
  EXPECT_EQ(f.Run(0), 2);
  const int at = f.log.find(5, "Switch status: \n");
  ASSERT_GE(at, 0);
  ASSERT_EQ(f.log.calls.size(), static_cast<size_t>(at) + 4);
  EXPECT_EQ(f.log.calls[static_cast<size_t>(at) + 1], (LogCall{5, "Main => 1 (D0)\n"}));
  EXPECT_EQ(f.log.calls[static_cast<size_t>(at) + 2], (LogCall{5, "Aux => 0 (M1)\n"}));
  EXPECT_EQ(f.log.calls[static_cast<size_t>(at) + 3], (LogCall{5, "\n\n"}));
}

TEST(DetermineMode, FourSwitchesSixteenModes) {
  DetermineFixture f(4);
  std::vector<double> rssi(16);
  for (int i = 0; i < 16; ++i) rssi[static_cast<size_t>(i)] = -80.0 + i;
  rssi[9] = -30.0;  // bits 0 and 3
  f.one_sample_each(rssi, {});
  f.disable(15);
  EXPECT_EQ(f.Run(0), 10);
  EXPECT_DOUBLE_EQ(f.rssiOut, -30.0);
  const std::string text = f.log.text();
  EXPECT_NE(text.find("#16)0.0, \n\n"), std::string::npos);  // BW lists every mode
  EXPECT_EQ(text.find("#16)-"), std::string::npos);          // disabled: no average
  EXPECT_NE(text.find("Main => 1 (Div)\nAux => 0 (Main)\nAux2 => 0 (Main)\nAux3 => 1 (Div)\n"),
            std::string::npos);
}

TEST(DetermineMode, FourSwitchTieIsResolvedPerSwitch) {
  // Modes 6 and 10 (indices 5 and 9) tie at the top; the preferred index is 9 (0b1001).
  // Switch 0: position 1 wins (4,5) and (8,9), nothing else: 1. Switch 1: position 0 wins
  // (5,7) and (9,11): 0. Switch 2: (1,5) for 1, (9,13) for 0: preferred's bit 0. Switch 3:
  // (1,9) for 1, (5,13) for 0: preferred's bit 1. Composed: 0b1001.
  DetermineFixture f(4);
  std::vector<double> rssi(16, -70.0);
  for (int i = 8; i < 16; ++i) rssi[static_cast<size_t>(i)] = -60.0;
  rssi[5] = -40.0;
  rssi[9] = -40.0;
  f.one_sample_each(rssi, {});
  EXPECT_EQ(f.Run(0), 10);
  EXPECT_TRUE(f.log.has(5, "Use more precise methods with switch count 4...\n"));
  EXPECT_TRUE(f.log.has(4, "Preferred mode = 10\n"));
  EXPECT_NE(f.log.text().find("Determined Switch States: {0, 1} = Div, {1, 0} = Main, "
                              "{1, 1} = **(0), {1, 1} = **(1), \n"),
            std::string::npos);
}

}  // namespace
}  // namespace zaltor::engine
