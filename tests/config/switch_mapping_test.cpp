// The switch and port mapping.
#include "config/switch_mapping.h"

#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::RecordingLog;
using testing::TempDir;

const char* k_positions =
    "Sw_Main_Main_X=1\nSw_Main_Main_Y=1\nSw_Main_Div_X=0\nSw_Main_Div_Y=0\n"
    "Sw_Main_Off_X=1\nSw_Main_Off_Y=0\nSw_Aux_Main_X=1\nSw_Aux_Main_Y=1\n"
    "Sw_Aux_Div_X=0\nSw_Aux_Div_Y=0\nSw_Aux_Off_X=1\nSw_Aux_Off_Y=0\n";

class SwitchMappingTest : public ::testing::Test {
 protected:
  Status read(const std::string& gpio_body, int32_t ports) {
    dir_.write("Conf.ini", "[Settings.AB12.GPIO]\n" + gpio_body);
    path_ = dir_.file("Conf.ini");
    IniSource src{*profiles_, path_, sources_};
    return read_switch_mapping(src, {"Settings.AB12XY", "Settings.AB12X", "Settings.AB12"}, ports,
                               table_, log_);
  }

  TempDir dir_;
  std::string path_;
  std::unique_ptr<platform::ProfileReader> profiles_ = testing::platform_profile_reader();
  ConfigKeySourceMap sources_;
  platform::SwitchTable table_;
  RecordingLog log_;
};

TEST_F(SwitchMappingTest, PortCountZeroReturnsOkWithNothingLogged) {
  EXPECT_EQ(read("", 0), SWITCH_OK);
  EXPECT_TRUE(log_.lines.empty());
  EXPECT_EQ(table_.pcw[0], 0);
}

TEST_F(SwitchMappingTest, SampleMappingReadsBothPorts) {
  EXPECT_EQ(read(std::string("Port_Main_PCW=A\nPort_Aux_PCW=B\nSw_Main_ID=0\nSw_Aux_ID=1\n") +
                     k_positions,
                 2),
            SWITCH_OK);
  EXPECT_TRUE(log_.lines.empty());
  EXPECT_EQ(table_.pcw[0], 'A');
  EXPECT_EQ(table_.pcw[1], 'B');
  EXPECT_EQ(table_.counter_path[0], "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna A");
  EXPECT_EQ(table_.counter_path[1], "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna B");
  EXPECT_EQ(table_.switch_id[1], 1);
  EXPECT_EQ(table_.positions[1][platform::kPositionOff], (std::array<int32_t, 2>{1, 0}));
  EXPECT_EQ(sources_.at("Port_Aux_PCW"), "AB12.GPIO");
  EXPECT_EQ(sources_.at("Sw_Aux_ID"), "AB12.GPIO");
}

TEST_F(SwitchMappingTest, MissingPcwNamesThePort) {
  EXPECT_EQ(read("Port_Main_PCW=A\nSw_Main_ID=0\n", 2), SWITCH_ERR_RSSI_PA);
  EXPECT_TRUE(log_.has("PCW Entries not found for Port Aux\n"));
  EXPECT_EQ(log_.lines.back().level, kLogError);
}

TEST_F(SwitchMappingTest, DuplicatePcwNamesEarlierPortFirst) {
  EXPECT_EQ(read(std::string("Port_Main_PCW=A\nPort_Aux_PCW=A\nSw_Main_ID=0\nSw_Aux_ID=1\n") +
                     k_positions,
                 2),
            SWITCH_ERR_RSSI_PA);
  EXPECT_TRUE(log_.has("PCW Entries duplicated! 0 with 1 - A\n"));
}

TEST_F(SwitchMappingTest, DuplicateSwitchIdStopsReadingLaterPositions) {
  EXPECT_EQ(read(std::string("Port_Main_PCW=A\nPort_Aux_PCW=B\nPort_Aux2_PCW=C\n"
                             "Sw_Main_ID=0\nSw_Aux_ID=0\nSw_Aux2_ID=2\n"
                             "Sw_Aux2_Main_X=5\nSw_Aux2_Main_Y=5\n") +
                     k_positions,
                 3),
            SWITCH_OK);
  EXPECT_TRUE(log_.has("GPIO port mapping duplicated! Please check!\n"));
  // Aux and Aux2 keep their built-in positions: they were not read.
  EXPECT_EQ(table_.positions[2][platform::kPositionMain], (std::array<int32_t, 2>{-1, -1}));
  EXPECT_EQ(table_.switch_id[2], 2);
  EXPECT_EQ(table_.pcw[2], 'C');
  EXPECT_FALSE(log_.has("Some GPIO configurations seems not valid, please check!\n"));
}

TEST_F(SwitchMappingTest, OffXMinusOneAndYAbsentIsUnusable) {
  std::string body = "Port_Main_PCW=A\nPort_Aux_PCW=B\nSw_Main_ID=0\nSw_Aux_ID=1\n";
  body +=
      "Sw_Main_Main_X=1\nSw_Main_Main_Y=1\nSw_Main_Div_X=0\nSw_Main_Div_Y=0\nSw_Main_Off_X=-1\n";
  body +=
      "Sw_Aux_Main_X=1\nSw_Aux_Main_Y=1\nSw_Aux_Div_X=0\nSw_Aux_Div_Y=0\nSw_Aux_Off_X=1\nSw_Aux_"
      "Off_Y=0\n";
  EXPECT_EQ(read(body, 2), kSwitchErrInvalidPosition);
  EXPECT_TRUE(log_.has("Switch - Main Off will not work!\n"));
  EXPECT_TRUE(log_.has("Some GPIO configurations seems not valid, please check!\n"));
  EXPECT_EQ(table_.positions[0][platform::kPositionOff], (std::array<int32_t, 2>{-1, -1}));
}

TEST_F(SwitchMappingTest, PositionWithOneValueIsUsable) {
  std::string body = "Port_Main_PCW=A\nSw_Main_ID=0\n";
  body += "Sw_Main_Main_X=1\nSw_Main_Div_Y=0\nSw_Main_Off_X=1\n";
  EXPECT_EQ(read(body, 1), SWITCH_OK);
  EXPECT_EQ(table_.positions[0][platform::kPositionMain], (std::array<int32_t, 2>{1, -1}));
  EXPECT_EQ(table_.positions[0][platform::kPositionDiv], (std::array<int32_t, 2>{-1, 0}));
}

TEST_F(SwitchMappingTest, MultiCharacterPcwUsesFirstCharacter) {
  EXPECT_EQ(
      read(std::string("Port_Main_PCW=Alpha\nPort_Aux_PCW=Beta\nSw_Main_ID=0\nSw_Aux_ID=1\n") +
               k_positions,
           2),
      SWITCH_OK);
  EXPECT_EQ(table_.pcw[0], 'A');
  EXPECT_EQ(table_.counter_path[1], "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna B");
}

TEST_F(SwitchMappingTest, NegativeSwitchIdSkipsThePortsPositions) {
  EXPECT_EQ(read(std::string("Port_Main_PCW=A\nPort_Aux_PCW=B\nSw_Main_ID=0\n") + k_positions, 2),
            SWITCH_OK);
  EXPECT_TRUE(log_.has("All switches on port Aux will not work!\n"));
  EXPECT_EQ(table_.switch_id[1], -1);
}

TEST_F(SwitchMappingTest, FourPortsFormatTheFourthCounterPath) {
  std::string body =
      "Port_Main_PCW=A\nPort_Aux_PCW=B\nPort_Aux2_PCW=C\nPort_Aux3_PCW=D\n"
      "Sw_Main_ID=0\nSw_Aux_ID=1\nSw_Aux2_ID=2\nSw_Aux3_ID=3\n";
  for (const char* port : {"Main", "Aux", "Aux2", "Aux3"}) {
    for (const char* pos : {"Main", "Div", "Off"}) {
      body += std::string("Sw_") + port + "_" + pos + "_X=1\n";
    }
  }
  EXPECT_EQ(read(body, 4), SWITCH_OK);
  EXPECT_EQ(table_.counter_path[3], "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna D");
  EXPECT_EQ(table_.switch_id[3], 3);
  EXPECT_EQ(table_.positions[3][platform::kPositionDiv], (std::array<int32_t, 2>{1, -1}));
}

}  // namespace
}  // namespace zaltor::config
