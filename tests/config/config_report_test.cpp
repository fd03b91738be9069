// The configuration report.
#include "config/config_report.h"

#include "config/config_loader.h"
#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::LoadFixture;
using testing::RecordingLog;

Configuration basic() {
  Configuration cfg;
  ConfigSettings& s = cfg.settings;
  s.AutoModeRunCount = 0;
  s.ForceUseModeSwitching = 1;
  s.DeterminatorMode = 1;
  s.RSSICollectCount.fill(3);
  s.BaseSleepIntervalBetweenEval.fill(10000);
  s.DefaultMode.fill(1);
  s.RSSIThresholdForSwitchToDefaultMode.fill(-85.0);
  cfg.switches.pcw = {'A', 'B', 0, 0};
  cfg.switches.counter_path[0] = "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna A";
  cfg.switches.counter_path[1] = "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna B";
  return cfg;
}

std::string report(const Configuration& cfg, uint32_t modes = 4, int32_t switches = 2) {
  RecordingLog log;
  write_config_report(log, cfg, modes, switches);
  for (const auto& l : log.lines) EXPECT_EQ(l.level, kLogDetail);
  return log.text();
}

TEST(ConfigReport, AutoModeRunCountZeroIsInfinite) {
  Configuration cfg = basic();
  EXPECT_NE(report(cfg).find("[] AutoModeRunCount = 0 (Infinite)\n"), std::string::npos);
}

TEST(ConfigReport, AbsentAutoModeRunCountPrintsWithoutInfinite) {
  Configuration cfg = basic();
  cfg.settings.AutoModeRunCount = kAbsentInt;
  cfg.settings.ForceUseModeSwitching = kAbsentInt;
  const std::string text = report(cfg);
  EXPECT_NE(text.find("[] AutoModeRunCount = 2147483647\n"), std::string::npos);
  EXPECT_NE(text.find("[] ForceUseModeSwitching = True\n"), std::string::npos);
}

TEST(ConfigReport, NoOverrideSectionsEndWithoutTheListing) {
  Configuration cfg = basic();
  const std::string text = report(cfg);
  EXPECT_EQ(text.find("Additional overriden params:"), std::string::npos);
  const std::string tail = "Mode_4 = no\n\n\n\n";
  ASSERT_GE(text.size(), tail.size());
  EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
}

TEST(ConfigReport, EnabledSetEqualToDefaultIsIdentical) {
  Configuration cfg = basic();
  cfg.enabled[2] = true;
  cfg.last_found_set = 2;
  const std::string text = report(cfg);
  EXPECT_NE(text.find("\nAdditional overriden params:\nConfig set 2 [BTCoexist]:\n"
                      "<Identical to default settings.>\n\n\n"),
            std::string::npos);
}

TEST(ConfigReport, SetFourIsLabelledNotAvailable) {
  Configuration cfg = basic();
  cfg.enabled[4] = true;
  cfg.last_found_set = 4;
  cfg.settings.DefaultMode[4] = 3;
  cfg.sources["DefaultMode.4"] = "AB12.4";
  const std::string text = report(cfg);
  EXPECT_NE(text.find("Config set 4 [N/A]:\n[AB12.4] DefaultMode = 3\n"), std::string::npos);
}

TEST(ConfigReport, SetsAfterTheLastFoundAreNotListed) {
  Configuration cfg = basic();
  cfg.enabled[1] = true;
  cfg.enabled[3] = true;
  cfg.last_found_set = 1;
  const std::string text = report(cfg);
  EXPECT_NE(text.find("Config set 1 [5GHz]:"), std::string::npos);
  EXPECT_EQ(text.find("Config set 3"), std::string::npos);
}

TEST(ConfigReport, OverriddenThresholdPrintsTheLowBitsOfTheReal) {
  Configuration cfg = basic();
  cfg.enabled[1] = true;
  cfg.last_found_set = 1;
  cfg.settings.RSSIThresholdForSwitchToDefaultMode[1] = -80.0;  // 0xC054000000000000
  const std::string text = report(cfg);
  EXPECT_NE(text.find("[] RSSIThresholdForSwitchToDefaultMode = 0\n"), std::string::npos);
  cfg.settings.RSSIThresholdForSwitchToDefaultMode[1] = -80.5;  // 0xC054200000000000
  EXPECT_NE(report(cfg).find("[] RSSIThresholdForSwitchToDefaultMode = 0\n"), std::string::npos);
  cfg.settings.RSSIThresholdForSwitchToDefaultMode[1] = 0.1;  // 0x3FB999999999999A
  EXPECT_NE(report(cfg).find("[] RSSIThresholdForSwitchToDefaultMode = -1717986918\n"),
            std::string::npos);
}

TEST(ConfigReport, DeterminatorNamesAndPortLines) {
  Configuration cfg = basic();
  cfg.sources["Port_Aux_PCW"] = "AB12.GPIO";
  cfg.settings.DeterminatorMode = 0;
  std::string text = report(cfg);
  EXPECT_NE(text.find("[] DeterminatorMode = 0(Hybrid)\n"), std::string::npos);
  EXPECT_NE(text.find(" [AB12.GPIO] Mode Bit 1 -  Aux: Ctrl Bit = 1/5, PCW Path = "
                      "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna B\n"),
            std::string::npos);
  cfg.settings.DeterminatorMode = 2;
  EXPECT_NE(report(cfg).find("[] DeterminatorMode = 2(MCS)\n"), std::string::npos);
}

// The whole report of the sample configuration, compared with the reviewed text.
TEST(ConfigReport, GoldenReportOfTheSampleWithTwoSwitches) {
  ASSERT_FALSE(testing::source_dir().empty()) << "ZALTOR_TEST_SOURCE_DIR is not set";
  LoadFixture f;
  f.dir.write("Conf.ini", testing::read_text_file(testing::source_dir() + "/samples/Conf.ini"));
  Configuration cfg;
  ASSERT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), SWITCH_OK);
  RecordingLog log;
  write_config_report(log, cfg, 4, 2);
  const std::string expected =
      testing::read_text_file(testing::source_dir() + "/tests/config/golden/sample-report.txt");
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(log.text(), expected);
}

}  // namespace
}  // namespace zaltor::config
