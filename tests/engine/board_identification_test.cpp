// Board identification over a scripted board query, and the start-up model identification
// with a scripted firmware.
#include <gtest/gtest.h>

#include "engine/board_identification.h"
#include "engine/device_fakes.h"

namespace zaltor::engine {
namespace {

using zaltor::testing::FakeBoardQuery;
using zaltor::testing::FakeDeviceHandle;
using zaltor::testing::FakeFirmware;
using zaltor::testing::LogLine;
using zaltor::testing::RecordingConsole;
using zaltor::testing::RecordingLog;

class BoardTest : public ::testing::Test {
 protected:
  BoardTest() { state_.set_control_device(std::make_unique<FakeDeviceHandle>(fw_)); }

  std::string read_name() {
    std::string name = "stale";
    EXPECT_EQ(board_.ConnectWmi(), 0);
    EXPECT_EQ(board_.QueryBaseBoard(), 0);
    EXPECT_EQ(board_.ReadModelName(name), 0);
    return name;
  }
  Status identify() { return identify_model(board_, sw_, state_, log_, console_, model_); }

  FakeBoardQuery query_;
  RecordingConsole console_;
  RecordingLog log_;
  FakeFirmware fw_;
  DeviceState state_;
  AntennaSwitch sw_{state_, log_};
  BoardIdentification board_{query_, console_};
  std::string model_;
};

TEST_F(BoardTest, ConnectsToRootCimv2AndQueriesTheBaseBoard) {
  query_.script.products = {"AB12XY"};
  EXPECT_EQ(read_name(), "AB12XY");
  // The backends connect to this namespace and run this query (the Windows one is checked
  // under Wine in win32_hardware_test).
  EXPECT_STREQ(platform::kBoardNamespace, "ROOT\\CIMV2");
  EXPECT_STREQ(platform::kBoardQuery, "Select * from Win32_BaseBoard");
  EXPECT_EQ(query_.queries, 1);
  EXPECT_TRUE(console_.lines.empty());
}

TEST_F(BoardTest, LeadingAndTrailingBlanksAreRemoved) {
  query_.script.products = {" AB12XY \r\n"};
  EXPECT_EQ(read_name(), "AB12XY");
  query_.script.products = {"\t\tAB 12\tXY\n"};
  BoardIdentification again(query_, console_);
  std::string name;
  ASSERT_EQ(again.ConnectWmi(), 0);
  ASSERT_EQ(again.QueryBaseBoard(), 0);
  again.ReadModelName(name);
  EXPECT_EQ(name, "AB 12\tXY");
}

TEST_F(BoardTest, OnlyBlanksGiveAnEmptyModelName) {
  query_.script.products = {" \t\r\n "};
  EXPECT_EQ(read_name(), "");
  // The per-model section name then has nothing behind its point.
  EXPECT_EQ("Settings." + read_name(), "Settings.");
}

TEST_F(BoardTest, LastBaseBoardWins) {
  query_.script.products = {"FIRST", "SECOND"};
  EXPECT_EQ(read_name(), "SECOND");
}

TEST_F(BoardTest, NoBaseBoardGivesAnEmptyNameAndResult0) {
  EXPECT_EQ(read_name(), "");
}

TEST_F(BoardTest, AValueOf254BytesFits) {
  query_.script.products = {std::string(254, 'M')};
  EXPECT_EQ(read_name(), std::string(254, 'M'));
}

TEST_F(BoardTest, ALongerValueIsRefusedNotTruncated) {
  query_.script.products = {std::string(255, 'M')};
  EXPECT_EQ(read_name(), "");
  // Blanks around a fitting value do not count against the bound.
  query_.script.products = {"  " + std::string(254, 'N') + "  "};
  BoardIdentification again(query_, console_);
  std::string name;
  ASSERT_EQ(again.ConnectWmi(), 0);
  ASSERT_EQ(again.QueryBaseBoard(), 0);
  again.ReadModelName(name);
  EXPECT_EQ(name, std::string(254, 'N'));
}

TEST_F(BoardTest, ARefusedValueCanBeFollowedByAFittingOne) {
  query_.script.products = {std::string(300, 'L'), "FITS"};
  EXPECT_EQ(read_name(), "FITS");
}

TEST_F(BoardTest, ComInitialisationFailureIsPrinted) {
  query_.init_hr = static_cast<int32_t>(0x80004005u);
  EXPECT_EQ(board_.ConnectWmi(), -1);
  EXPECT_EQ(
      console_.lines,
      (std::vector<std::string>{"Failed to initialize COM library. Error code = 0x80004005\n"}));
  EXPECT_EQ(board_.QueryBaseBoard(), -1);
}

TEST_F(BoardTest, LocatorFailureIsPrinted) {
  query_.script.locator = static_cast<int32_t>(0x80040154u);
  EXPECT_EQ(board_.ConnectWmi(), -1);
  EXPECT_EQ(console_.lines,
            (std::vector<std::string>{
                "Failed to create IWbemLocator object. Error code = 0x80040154\n"}));
}

TEST_F(BoardTest, ConnectionFailureIsPrintedWithTheNamespace) {
  query_.script.connect = static_cast<int32_t>(0x8004100Eu);
  EXPECT_EQ(board_.ConnectWmi(), -1);
  EXPECT_EQ(console_.lines,
            (std::vector<std::string>{
                "Could not connect to namespace ROOT\\CIMV2. Error code = 0x8004100e\n"}));
}

TEST_F(BoardTest, ProxyBlanketFailureIsPrinted) {
  query_.script.blanket = static_cast<int32_t>(0x80070005u);
  EXPECT_EQ(board_.ConnectWmi(), -1);
  EXPECT_EQ(console_.lines,
            (std::vector<std::string>{"Could not set proxy blanket. Error code = 0x80070005\n"}));
}

TEST_F(BoardTest, QueryFailureIsPrintedWithTheQuery) {
  query_.script.query = static_cast<int32_t>(0x80041003u);
  EXPECT_EQ(board_.ConnectWmi(), 0);
  EXPECT_EQ(board_.QueryBaseBoard(), -1);
  EXPECT_EQ(console_.lines,
            (std::vector<std::string>{
                "Query (Select * from Win32_BaseBoard) failed. Error code = 0x80041003\n"}));
}

TEST_F(BoardTest, IdentificationLogsBoardFlagsAndSwitchNumber) {
  query_.script.products = {" AB12XY\r\n"};
  fw_.lines = 0x03;
  fw_.switch_count = 2;
  EXPECT_EQ(identify(), SWITCH_OK);
  EXPECT_EQ(model_, "AB12XY");
  EXPECT_EQ(console_.lines, (std::vector<std::string>{"ExecQuery OK!\n"}));
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "ModelName: AB12XY\n"},
                                              {4, "[SUPPORT_FLAGS] 0x00010203\n"},
                                              {4, "AntennaSwitchNumber = 2\n"}}));
  EXPECT_EQ(state_.switch_count(), 2);
  EXPECT_EQ(state_.mode_count(), 4u);
}

TEST_F(BoardTest, FailedBoardQueryMarksTheDeviceUnsupported) {
  query_.script.query = static_cast<int32_t>(0x80041003u);
  EXPECT_EQ(identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_EQ(
      log_.lines,
      (std::vector<LogLine>{{2, "Query model name failed, marked as unsupported device.\n"}}));
  EXPECT_TRUE(fw_.requests.empty());
}

TEST_F(BoardTest, FailedConnectionMarksTheDeviceUnsupported) {
  query_.init_hr = -1;
  EXPECT_EQ(identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_TRUE(log_.contains(2, "Query model name failed, marked as unsupported device.\n"));
}

TEST_F(BoardTest, NoBaseBoardStillGoesOnToTheFirmwareChecks) {
  fw_.switch_count = 1;
  EXPECT_EQ(identify(), SWITCH_OK);
  EXPECT_EQ(model_, "");
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "ModelName: \n"},
                                              {4, "[SUPPORT_FLAGS] 0x00010100\n"},
                                              {4, "AntennaSwitchNumber = 1\n"}}));
  EXPECT_EQ(state_.mode_count(), 2u);
}

TEST_F(BoardTest, ClosedControlDeviceGives4) {
  state_.set_control_device(nullptr);
  EXPECT_EQ(identify(), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "ModelName: \n"}}));
}

TEST_F(BoardTest, FailedSupportFlagRequestGives4WithoutMessage) {
  fw_.status_fails = true;
  EXPECT_EQ(identify(), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "ModelName: \n"}}));
}

TEST_F(BoardTest, ShortReplyLogsFlagsAsZeroAndIsNotSupported) {
  fw_.short_reply = true;
  EXPECT_EQ(identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{{4, "ModelName: \n"},
                                              {4, "[SUPPORT_FLAGS] 0x00000000\n"},
                                              {2, "MultiAntenna is not Supported!\n"}}));
}

TEST_F(BoardTest, ZeroSwitchesIsNotSupported) {
  fw_.switch_count = 0;
  EXPECT_EQ(identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_TRUE(log_.contains(2, "MultiAntenna is not Supported!\n"));
  EXPECT_EQ(state_.switch_count(), 0);
}

TEST_F(BoardTest, FeatureAbsentIsNotSupported) {
  fw_.present = false;
  EXPECT_EQ(identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_TRUE(log_.contains(4, "[SUPPORT_FLAGS] 0x00000200\n"));
  EXPECT_TRUE(log_.contains(2, "MultiAntenna is not Supported!\n"));
}

TEST_F(BoardTest, MoreThanFourSwitchesAreHeldToFour) {
  fw_.switch_count = 9;
  EXPECT_EQ(identify(), SWITCH_OK);
  EXPECT_TRUE(log_.contains(4, "AntennaSwitchNumber = 9\n"));
  EXPECT_EQ(state_.switch_count(), 4);
  EXPECT_EQ(state_.mode_count(), 16u);
}

TEST(BoardTrim, TrimsOnlyTheBlankSet) {
  EXPECT_EQ(trim_blanks(" \t\r\nX\v \n"), "X\v");
  EXPECT_EQ(trim_blanks(""), "");
}

}  // namespace
}  // namespace zaltor::engine
