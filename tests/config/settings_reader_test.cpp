// Reading settings keys through the section search list, and the default set.
#include "config/settings_reader.h"

#include <cmath>

#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::TempDir;

class SettingsReaderTest : public ::testing::Test {
 protected:
  void use(const std::string& ini) {
    dir_.write("Conf.ini", ini);
    path_ = dir_.file("Conf.ini");
  }
  IniSource source() { return IniSource{*profiles_, path_, sources_}; }

  TempDir dir_;
  std::string path_;
  std::unique_ptr<platform::ProfileReader> profiles_ = testing::platform_profile_reader();
  ConfigKeySourceMap sources_;
  ConfigSettings s_;
  const SectionList model_sections_{"Settings.AB12XY", "Settings.AB12X", "Settings.AB12"};
};

const char* k_required =
    "BaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\nRSSICollectCount=3\n"
    "TimeToWaitForRSSIStable=2000\nDefaultMode=1\nRSSIThresholdForSwitchToDefaultMode=-85.0\n";

TEST_F(SettingsReaderTest, EmptySectionListIsNotFound) {
  use("[Settings.AB12]\nDefaultMode=1\n");
  auto src = source();
  int32_t v = 5;
  EXPECT_EQ(read_int_key(src, {}, "DefaultMode", v), kStatusConfigKeyMissing);
  double d = 1.0;
  EXPECT_EQ(read_real_key(src, {}, "DefaultMode", d), kStatusConfigKeyMissing);
}

TEST_F(SettingsReaderTest, MissingDefaultModeFailsAfterEarlierKeysStored) {
  use("[Settings.AB12]\nBaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\n"
      "RSSICollectCount=3\nTimeToWaitForRSSIStable=2000\n"
      "RSSIThresholdForSwitchToDefaultMode=-85.0\n");
  auto src = source();
  EXPECT_EQ(read_default_settings(src, model_sections_, s_), kStatusConfigKeyMissing);
  EXPECT_EQ(s_.BaseSleepIntervalBetweenEval[0], 10000);
  EXPECT_EQ(s_.RSSICollectInterval[0], 1000);
  EXPECT_EQ(s_.RSSICollectCount[0], 3);
  EXPECT_EQ(s_.TimeToWaitForRSSIStable[0], 2000);
  EXPECT_EQ(s_.DefaultMode[0], kAbsentInt);
  // The read stopped there: the threshold after it was not read.
  EXPECT_EQ(s_.RSSIThresholdForSwitchToDefaultMode[0], 0.0);
}

TEST_F(SettingsReaderTest, DeterminatorModeThreeStoresZero) {
  use(std::string("[Settings.AB12]\nDeterminatorMode=3\n") + k_required);
  auto src = source();
  s_.DeterminatorMode = 7;
  ASSERT_EQ(read_default_settings(src, model_sections_, s_), SWITCH_OK);
  EXPECT_EQ(s_.DeterminatorMode, 0);
}

TEST_F(SettingsReaderTest, DeterminatorModeMinusOneStoresZero) {
  use(std::string("[Settings.AB12]\nDeterminatorMode=-1\n") + k_required);
  auto src = source();
  s_.DeterminatorMode = 7;
  ASSERT_EQ(read_default_settings(src, model_sections_, s_), SWITCH_OK);
  EXPECT_EQ(s_.DeterminatorMode, 0);
}

TEST_F(SettingsReaderTest, DeterminatorModeTwoIsKept) {
  use(std::string("[Settings.AB12]\nDeterminatorMode=2\n") + k_required);
  auto src = source();
  ASSERT_EQ(read_default_settings(src, model_sections_, s_), SWITCH_OK);
  EXPECT_EQ(s_.DeterminatorMode, 2);
}

TEST_F(SettingsReaderTest, AbsentForceUseModeSwitchingLeavesSentinel) {
  use(std::string("[Settings.AB12]\n") + k_required);
  auto src = source();
  ASSERT_EQ(read_default_settings(src, model_sections_, s_), SWITCH_OK);
  EXPECT_EQ(s_.ForceUseModeSwitching, kAbsentInt);
  EXPECT_EQ(s_.AutoModeRunCount, kAbsentInt);
  EXPECT_EQ(s_.DeterminatorMode, 0);
}

TEST_F(SettingsReaderTest, CollectCountWrittenAsSentinelCountsAsAbsent) {
  use("[Settings.AB12]\nBaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\n"
      "RSSICollectCount=2147483647\nTimeToWaitForRSSIStable=2000\nDefaultMode=1\n"
      "RSSIThresholdForSwitchToDefaultMode=-85.0\n");
  auto src = source();
  EXPECT_EQ(read_default_settings(src, model_sections_, s_), kStatusConfigKeyMissing);
  EXPECT_EQ(sources_.count("RSSICollectCount"), 0u);
}

TEST_F(SettingsReaderTest, ThresholdTextAbcReadsAsZeroAndFound) {
  use("[Settings.AB12]\nBaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\n"
      "RSSICollectCount=3\nTimeToWaitForRSSIStable=2000\nDefaultMode=1\n"
      "RSSIThresholdForSwitchToDefaultMode=abc\n");
  auto src = source();
  s_.RSSIThresholdForSwitchToDefaultMode[0] = 5.0;
  ASSERT_EQ(read_default_settings(src, model_sections_, s_), SWITCH_OK);
  EXPECT_EQ(s_.RSSIThresholdForSwitchToDefaultMode[0], 0.0);
  EXPECT_EQ(sources_.at("RSSIThresholdForSwitchToDefaultMode"), "AB12");
}

TEST_F(SettingsReaderTest, KeyInTwoSectionsTakenFromMoreSpecific) {
  use(std::string("[Settings.AB12]\n") + k_required + "[Settings.AB12XY]\nRSSICollectCount=4\n");
  auto src = source();
  ASSERT_EQ(read_default_settings(src, model_sections_, s_), SWITCH_OK);
  EXPECT_EQ(s_.RSSICollectCount[0], 4);
  EXPECT_EQ(sources_.at("RSSICollectCount"), "AB12XY");
  EXPECT_EQ(sources_.at("DefaultMode"), "AB12");
  EXPECT_EQ(s_.MaxRSSICollectCount, 4);
}

TEST_F(SettingsReaderTest, OptionalKeysDefaultToZeroAndCurrentSleepStartsAtBase) {
  use(std::string("[Settings.AB12]\n") + k_required +
      "RSSIWeightForMode_2=1.25\nDisableMode_16=1\nIntervalTimeExpX=2.5\n");
  auto src = source();
  ASSERT_EQ(read_default_settings(src, model_sections_, s_), SWITCH_OK);
  EXPECT_EQ(s_.rssi_weight_for_mode[0][0], 0.0);
  EXPECT_EQ(s_.rssi_weight_for_mode[0][1], 1.25);
  EXPECT_EQ(s_.disable_mode[0][15], 1);
  EXPECT_EQ(s_.disable_mode[0][0], 0);
  EXPECT_EQ(s_.IntervalTimeExpX[0], 2.5);
  EXPECT_EQ(s_.IntervalTimeExpY[0], 0.0);
  EXPECT_EQ(s_.WifiStatMonitorInterval[0], 0);
  EXPECT_EQ(s_.current_sleep_interval[0], 10000);
  EXPECT_EQ(sources_.count("RSSIWeightForMode_1"), 0u);
  EXPECT_EQ(sources_.at("RSSIWeightForMode_2"), "AB12");
}

TEST_F(SettingsReaderTest, RealNanCountsAsFound) {
  use("[Settings.AB12]\nX=nan\n");
  auto src = source();
  double d = 0.0;
  EXPECT_EQ(read_real_key(src, model_sections_, "X", d), SWITCH_OK);
  EXPECT_TRUE(std::isnan(d));
}

TEST_F(SettingsReaderTest, OverrideSectionEntersKeyWithSetDigit) {
  use("[Settings.AB12.1]\nRSSICollectCount=5\n");
  auto src = source();
  int32_t v = 0;
  EXPECT_EQ(read_int_key(src, {"Settings.AB12.1"}, "RSSICollectCount", v), SWITCH_OK);
  EXPECT_EQ(v, 5);
  EXPECT_EQ(sources_.at("RSSICollectCount.1"), "AB12.1");
  EXPECT_EQ(sources_.count("RSSICollectCount"), 0u);
}

}  // namespace
}  // namespace zaltor::config
