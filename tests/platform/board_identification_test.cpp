// Board identification over a scripted board query, and the start-up model identification
// with a scripted firmware.
#include <gtest/gtest.h>

#include "platform/board_identification.h"
#include "platform/device_fakes.h"

namespace zaltor::platform {
namespace {

using testing::FakeBoardQuery;
using testing::FakeDeviceHandle;
using testing::FakeFirmware;
using testing::LogLine;
using testing::RecordingConsole;
using testing::RecordingLog;

class BoardTest : public ::testing::Test {
 protected:
  BoardTest() { state.device = std::make_unique<FakeDeviceHandle>(fw); }

  std::string ReadName() {
    std::string name = "stale";
    EXPECT_EQ(board.ConnectWmi(), 0);
    EXPECT_EQ(board.QueryBaseBoard(), 0);
    EXPECT_EQ(board.ReadModelName(name), 0);
    return name;
  }
  Status Identify() { return IdentifyModel(board, sw, state, log, console, model); }

  FakeBoardQuery query;
  RecordingConsole console;
  RecordingLog log;
  FakeFirmware fw;
  DeviceState state;
  AntennaSwitch sw{state, log};
  BoardIdentification board{query, console};
  std::string model;
};

TEST_F(BoardTest, ConnectsToRootCimv2AndQueriesTheBaseBoard) {
  query.script.products = {"AB12XY"};
  EXPECT_EQ(ReadName(), "AB12XY");
  // The backends connect to this namespace and run this query (the Windows one is checked
  // under Wine in win32_hardware_test).
  EXPECT_STREQ(platform::kBoardNamespace, "ROOT\\CIMV2");
  EXPECT_STREQ(platform::kBoardQuery, "Select * from Win32_BaseBoard");
  EXPECT_EQ(query.queries, 1);
  EXPECT_TRUE(console.lines.empty());
}

TEST_F(BoardTest, LeadingAndTrailingBlanksAreRemoved) {
  query.script.products = {" AB12XY \r\n"};
  EXPECT_EQ(ReadName(), "AB12XY");
  query.script.products = {"\t\tAB 12\tXY\n"};
  BoardIdentification again(query, console);
  std::string name;
  ASSERT_EQ(again.ConnectWmi(), 0);
  ASSERT_EQ(again.QueryBaseBoard(), 0);
  again.ReadModelName(name);
  EXPECT_EQ(name, "AB 12\tXY");
}

TEST_F(BoardTest, OnlyBlanksGiveAnEmptyModelName) {
  query.script.products = {" \t\r\n "};
  EXPECT_EQ(ReadName(), "");
  // The per-model section name then has nothing behind its point.
  EXPECT_EQ("Settings." + ReadName(), "Settings.");
}

TEST_F(BoardTest, LastBaseBoardWins) {
  query.script.products = {"FIRST", "SECOND"};
  EXPECT_EQ(ReadName(), "SECOND");
}

TEST_F(BoardTest, NoBaseBoardGivesAnEmptyNameAndResult0) {
  EXPECT_EQ(ReadName(), "");
}

TEST_F(BoardTest, AValueOf254BytesFits) {
  query.script.products = {std::string(254, 'M')};
  EXPECT_EQ(ReadName(), std::string(254, 'M'));
}

TEST_F(BoardTest, ALongerValueIsRefusedNotTruncated) {
  query.script.products = {std::string(255, 'M')};
  EXPECT_EQ(ReadName(), "");
  // Blanks around a fitting value do not count against the bound.
  query.script.products = {"  " + std::string(254, 'N') + "  "};
  BoardIdentification again(query, console);
  std::string name;
  ASSERT_EQ(again.ConnectWmi(), 0);
  ASSERT_EQ(again.QueryBaseBoard(), 0);
  again.ReadModelName(name);
  EXPECT_EQ(name, std::string(254, 'N'));
}

TEST_F(BoardTest, ARefusedValueCanBeFollowedByAFittingOne) {
  query.script.products = {std::string(300, 'L'), "FITS"};
  EXPECT_EQ(ReadName(), "FITS");
}

TEST_F(BoardTest, ComInitialisationFailureIsPrinted) {
  query.init_hr = static_cast<int32_t>(0x80004005u);
  EXPECT_EQ(board.ConnectWmi(), -1);
  EXPECT_EQ(
      console.lines,
      (std::vector<std::string>{"Failed to initialize COM library. Error code = 0x80004005\n"}));
  EXPECT_EQ(board.QueryBaseBoard(), -1);
}

TEST_F(BoardTest, LocatorFailureIsPrinted) {
  query.script.locator = static_cast<int32_t>(0x80040154u);
  EXPECT_EQ(board.ConnectWmi(), -1);
  EXPECT_EQ(console.lines, (std::vector<std::string>{
                               "Failed to create IWbemLocator object. Error code = 0x80040154\n"}));
}

TEST_F(BoardTest, ConnectionFailureIsPrintedWithTheNamespace) {
  query.script.connect = static_cast<int32_t>(0x8004100Eu);
  EXPECT_EQ(board.ConnectWmi(), -1);
  EXPECT_EQ(console.lines,
            (std::vector<std::string>{
                "Could not connect to namespace ROOT\\CIMV2. Error code = 0x8004100e\n"}));
}

TEST_F(BoardTest, ProxyBlanketFailureIsPrinted) {
  query.script.blanket = static_cast<int32_t>(0x80070005u);
  EXPECT_EQ(board.ConnectWmi(), -1);
  EXPECT_EQ(console.lines,
            (std::vector<std::string>{"Could not set proxy blanket. Error code = 0x80070005\n"}));
}

TEST_F(BoardTest, QueryFailureIsPrintedWithTheQuery) {
  query.script.query = static_cast<int32_t>(0x80041003u);
  EXPECT_EQ(board.ConnectWmi(), 0);
  EXPECT_EQ(board.QueryBaseBoard(), -1);
  EXPECT_EQ(console.lines,
            (std::vector<std::string>{
                "Query (Select * from Win32_BaseBoard) failed. Error code = 0x80041003\n"}));
}

TEST_F(BoardTest, IdentificationLogsBoardFlagsAndSwitchNumber) {
  query.script.products = {" AB12XY\r\n"};
  fw.lines = 0x03;
  fw.switch_count = 2;
  EXPECT_EQ(Identify(), SWITCH_OK);
  EXPECT_EQ(model, "AB12XY");
  EXPECT_EQ(console.lines, (std::vector<std::string>{"ExecQuery OK!\n"}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{4, "ModelName: AB12XY\n"},
                                             {4, "[SUPPORT_FLAGS] 0x00010203\n"},
                                             {4, "AntennaSwitchNumber = 2\n"}}));
  EXPECT_EQ(state.switch_count.load(), 2);
  EXPECT_EQ(state.mode_count.load(), 4u);
}

TEST_F(BoardTest, FailedBoardQueryMarksTheDeviceUnsupported) {
  query.script.query = static_cast<int32_t>(0x80041003u);
  EXPECT_EQ(Identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_EQ(
      log.lines,
      (std::vector<LogLine>{{2, "Query model name failed, marked as unsupported device.\n"}}));
  EXPECT_TRUE(fw.requests.empty());
}

TEST_F(BoardTest, FailedConnectionMarksTheDeviceUnsupported) {
  query.init_hr = -1;
  EXPECT_EQ(Identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_TRUE(log.Contains(2, "Query model name failed, marked as unsupported device.\n"));
}

TEST_F(BoardTest, NoBaseBoardStillGoesOnToTheFirmwareChecks) {
  fw.switch_count = 1;
  EXPECT_EQ(Identify(), SWITCH_OK);
  EXPECT_EQ(model, "");
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{4, "ModelName: \n"},
                                             {4, "[SUPPORT_FLAGS] 0x00010100\n"},
                                             {4, "AntennaSwitchNumber = 1\n"}}));
  EXPECT_EQ(state.mode_count.load(), 2u);
}

TEST_F(BoardTest, ClosedControlDeviceGives4) {
  state.device.reset();
  EXPECT_EQ(Identify(), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{4, "ModelName: \n"}}));
}

TEST_F(BoardTest, FailedSupportFlagRequestGives4WithoutMessage) {
  fw.status_fails = true;
  EXPECT_EQ(Identify(), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{4, "ModelName: \n"}}));
}

TEST_F(BoardTest, ShortReplyLogsFlagsAsZeroAndIsNotSupported) {
  fw.short_reply = true;
  EXPECT_EQ(Identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{4, "ModelName: \n"},
                                             {4, "[SUPPORT_FLAGS] 0x00000000\n"},
                                             {2, "MultiAntenna is not Supported!\n"}}));
}

TEST_F(BoardTest, ZeroSwitchesIsNotSupported) {
  fw.switch_count = 0;
  EXPECT_EQ(Identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_TRUE(log.Contains(2, "MultiAntenna is not Supported!\n"));
  EXPECT_EQ(state.switch_count.load(), 0);
}

TEST_F(BoardTest, FeatureAbsentIsNotSupported) {
  fw.present = false;
  EXPECT_EQ(Identify(), SWITCH_ERR_NOT_PRESENT);
  EXPECT_TRUE(log.Contains(4, "[SUPPORT_FLAGS] 0x00000200\n"));
  EXPECT_TRUE(log.Contains(2, "MultiAntenna is not Supported!\n"));
}

TEST_F(BoardTest, MoreThanFourSwitchesAreHeldToFour) {
  fw.switch_count = 9;
  EXPECT_EQ(Identify(), SWITCH_OK);
  EXPECT_TRUE(log.Contains(4, "AntennaSwitchNumber = 9\n"));
  EXPECT_EQ(state.switch_count.load(), 4);
  EXPECT_EQ(state.mode_count.load(), 16u);
}

TEST(BoardTrim, TrimsOnlyTheBlankSet) {
  EXPECT_EQ(TrimBlanks(" \t\r\nX\v \n"), "X\v");
  EXPECT_EQ(TrimBlanks(""), "");
}

}  // namespace
}  // namespace zaltor::platform
