// Override sets: discovery and reading with fallbacks.
#include "config/config_sets.h"

#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::TempDir;

const char* k_defaults =
    "[Settings.AB12]\nBaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\n"
    "RSSICollectCount=3\nTimeToWaitForRSSIStable=2000\nDefaultMode=1\n"
    "RSSIThresholdForSwitchToDefaultMode=-85.0\nRSSIWeightForMode_1=2.0\nDisableMode_4=1\n"
    "IntervalTimeExpX=2.0\nWifiStatMonitorInterval=5000\n";

class ConfigSetsTest : public ::testing::Test {
 protected:
  void load(const std::string& ini, const SectionList& sections) {
    dir_.write("Conf.ini", ini);
    path_ = dir_.file("Conf.ini");
    IniSource src{*profiles_, path_, sources_};
    ASSERT_EQ(read_default_settings(src, sections, s_), SWITCH_OK);
    bool too_long = false;
    last_ = find_enabled_sets(*profiles_, path_, sections, enabled_, too_long);
    ASSERT_FALSE(too_long);
    ASSERT_EQ(read_override_settings(src, sections, enabled_, s_), SWITCH_OK);
  }

  TempDir dir_;
  std::string path_;
  std::unique_ptr<platform::ProfileReader> profiles_ = testing::platform_profile_reader();
  ConfigKeySourceMap sources_;
  ConfigSettings s_;
  std::array<bool, kConfigSets> enabled_{};
  int32_t last_ = -1;
};

TEST_F(ConfigSetsTest, OnlySetTwoSectionGivesOverridesAndCopies) {
  load(std::string(k_defaults) + "[Settings.AB12.2]\nDefaultMode=2\nRSSICollectCount=4\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_EQ(last_, 2);
  EXPECT_TRUE(enabled_[2]);
  EXPECT_FALSE(enabled_[1]);
  EXPECT_FALSE(enabled_[3]);
  EXPECT_EQ(s_.DefaultMode[2], 2);
  EXPECT_EQ(s_.RSSICollectCount[2], 4);
  EXPECT_EQ(s_.BaseSleepIntervalBetweenEval[2], 10000);  // fallback to set 0
  EXPECT_EQ(sources_.at("DefaultMode.2"), "AB12.2");
  for (int set : {1, 3, 4, 5, 6, 7, 8, 9}) {
    SCOPED_TRACE(set);
    const auto i = static_cast<size_t>(set);
    EXPECT_EQ(s_.DefaultMode[i], 1);
    EXPECT_EQ(s_.RSSICollectCount[i], 3);
    EXPECT_EQ(s_.RSSIThresholdForSwitchToDefaultMode[i], -85.0);
    EXPECT_EQ(s_.rssi_weight_for_mode[i][0], 2.0);
    EXPECT_EQ(s_.disable_mode[i][3], 1);
    EXPECT_EQ(s_.current_sleep_interval[i], 10000);
    // Not copied for a disabled set: stays zero.
    EXPECT_EQ(s_.IntervalTimeExpX[i], 0.0);
    EXPECT_EQ(s_.WifiStatMonitorInterval[i], 0);
  }
}

TEST_F(ConfigSetsTest, SetsThreeThenOneLastFoundIsOne) {
  load(std::string(k_defaults) +
           "[Settings.AB12.3]\nDefaultMode=3\n[Settings.AB12.1]\nDefaultMode=4\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_TRUE(enabled_[3]);
  EXPECT_TRUE(enabled_[1]);
  EXPECT_EQ(last_, 1);
}

TEST_F(ConfigSetsTest, LargerOverrideCollectCountRaisesMax) {
  load(std::string(k_defaults) + "[Settings.AB12.1]\nRSSICollectCount=7\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_EQ(s_.MaxRSSICollectCount, 7);
}

TEST_F(ConfigSetsTest, SmallerOverrideCollectCountLeavesMax) {
  load(std::string(k_defaults) + "[Settings.AB12.1]\nRSSICollectCount=2\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_EQ(s_.RSSICollectCount[1], 2);
  EXPECT_EQ(s_.MaxRSSICollectCount, 3);
}

TEST_F(ConfigSetsTest, SetTwelveSectionEnablesNothing) {
  load(std::string(k_defaults) + "[Settings.AB12.12]\nDefaultMode=2\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_EQ(last_, 0);
  for (bool e : enabled_) EXPECT_FALSE(e);
  EXPECT_EQ(s_.DefaultMode[1], 1);
}

TEST_F(ConfigSetsTest, NegativeSetNumberIsIgnored) {
  load(std::string(k_defaults) + "[Settings.AB12.-1]\nDefaultMode=2\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_EQ(last_, 0);
  for (bool e : enabled_) EXPECT_FALSE(e);
}

TEST_F(ConfigSetsTest, ShorterPrefixOverrideFoundWhenFullNameLacksKey) {
  load(std::string(k_defaults) +
           "[Settings.AB12XY.1]\nDefaultMode=3\n[Settings.AB12.1]\nDefaultMode=4\nRSSICollectCount="
           "6\n",
       {"Settings.AB12XY", "Settings.AB12X", "Settings.AB12"});
  EXPECT_TRUE(enabled_[1]);
  EXPECT_EQ(s_.DefaultMode[1], 3);
  EXPECT_EQ(s_.RSSICollectCount[1], 6);
  EXPECT_EQ(sources_.at("DefaultMode.1"), "AB12XY.1");
  EXPECT_EQ(sources_.at("RSSICollectCount.1"), "AB12.1");
}

TEST_F(ConfigSetsTest, NonOverridableKeysComeFromPlainSections) {
  load(std::string(k_defaults) +
           "[Settings.AB12.1]\nIntervalTimeExpX=9.0\nWifiStatMonitorInterval=1\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_TRUE(enabled_[1]);
  EXPECT_EQ(s_.IntervalTimeExpX[1], 2.0);
  EXPECT_EQ(s_.WifiStatMonitorInterval[1], 5000);
}

TEST_F(ConfigSetsTest, SetZeroSectionSetsItsFlag) {
  load(std::string(k_defaults) + "[Settings.AB12.0]\nDefaultMode=2\n",
       {"Settings.AB12", "Settings.AB1"});
  EXPECT_TRUE(enabled_[0]);
  EXPECT_EQ(last_, 0);
  EXPECT_EQ(s_.DefaultMode[0], 1);
}

// A profile reader that serves a fixed section list and records the buffer sizes asked for.
class ListedSections final : public platform::ProfileReader {
 public:
  explicit ListedSections(std::vector<std::string> names) : names_(std::move(names)) {}
  uint32_t read_int(const std::string&, const std::string&, int32_t d,
                    const std::string&) override {
    return static_cast<uint32_t>(d);
  }
  uint32_t read_string(const std::string&, const std::string&, const std::string& d, std::string& v,
                       uint32_t, const std::string&) override {
    v = d;
    return static_cast<uint32_t>(d.size());
  }
  uint32_t read_section_names(std::string& out, uint32_t size, const std::string&) override {
    sizes.push_back(size);
    std::string all;
    for (const auto& n : names_) all += n + '\0';
    if (all.size() + 1 <= size - 1 + 0u && size > 1) {
      out = all;
      return static_cast<uint32_t>(all.size());
    }
    out = all.substr(0, size - 2);
    return size - 2;
  }
  std::vector<uint32_t> sizes;

 private:
  std::vector<std::string> names_;
};

TEST(ConfigSetDiscovery, BufferStartsAtEightAndGrowsByReturnPlusHundred) {
  ListedSections reader({"Version", "Settings.AB12", "Settings.AB12.1", "Settings.AB12.GPIO"});
  std::array<bool, kConfigSets> enabled{};
  bool too_long = false;
  const int32_t last = find_enabled_sets(reader, "x", {"Settings.AB12"}, enabled, too_long);
  ASSERT_GE(reader.sizes.size(), 2u);
  EXPECT_EQ(reader.sizes[0], 8u);
  EXPECT_EQ(reader.sizes[1], 106u);
  EXPECT_FALSE(too_long);
  EXPECT_EQ(last, 1);
  EXPECT_TRUE(enabled[1]);
}

TEST(ConfigSetDiscovery, ListLongerThanTheLimitIsRefused) {
  std::vector<std::string> names;
  for (int i = 0; i < 5000; ++i) names.push_back("Settings.Filler" + std::to_string(i));
  ListedSections reader(names);
  std::array<bool, kConfigSets> enabled{};
  bool too_long = false;
  find_enabled_sets(reader, "x", {"Settings.AB12"}, enabled, too_long);
  EXPECT_TRUE(too_long);
  EXPECT_LE(reader.sizes.back(), kMaxSectionListChars);
}

TEST(ConfigSetDiscovery, NumberIsReadPastTheBaseLengthFromTheNameStart) {
  // "Settings.AB12" itself matches; the text one past its end is the next name.
  ListedSections reader({"Settings.AB12", "4"});
  std::array<bool, kConfigSets> enabled{};
  bool too_long = false;
  EXPECT_EQ(find_enabled_sets(reader, "x", {"Settings.AB12"}, enabled, too_long), 4);
  EXPECT_TRUE(enabled[4]);
}

TEST(ConfigSetLabels, SetFourAndAboveAreNotAvailable) {
  EXPECT_STREQ(set_label(1), "5GHz");
  EXPECT_STREQ(set_label(2), "BTCoexist");
  EXPECT_STREQ(set_label(3), "LidClosed");
  EXPECT_STREQ(set_label(4), "N/A");
  EXPECT_STREQ(set_label(9), "N/A");
}

}  // namespace
}  // namespace zaltor::config
