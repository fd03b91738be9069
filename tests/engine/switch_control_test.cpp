// Switch control over a scripted firmware: the request buffers, the status word, the
// control-bit operations, positions and modes.
#include <gtest/gtest.h>

#include "engine/antenna_switch.h"
#include "engine/device_fakes.h"

namespace zaltor::engine {
namespace {

using platform::kMaxPorts;
using platform::kPositionDiv;
using platform::kPositionMain;
using platform::kPositionOff;

using zaltor::testing::FakeControlDevice;
using zaltor::testing::FakeDeviceHandle;
using zaltor::testing::FakeFirmware;
using zaltor::testing::RecordingLog;

template <size_t N>
std::vector<uint8_t> bytes(const std::array<uint8_t, N>& request) {
  return std::vector<uint8_t>(request.begin(), request.end());
}

// Line bits of the default table: switch ID n has X at bit n and Y at bit 4 + n.
constexpr int x(int id) {
  return id;
}
constexpr int y(int id) {
  return 4 + id;
}

class SwitchTest : public ::testing::Test {
 protected:
  SwitchTest() {
    state_.set_control_device(std::make_unique<FakeDeviceHandle>(fw_));
    state_.set_ready(true);
    state_.set_switch_count(2);
    state_.set_mode_count(4);
  }
  void lines(int id, int x_level, int y_level) {
    fw_.set_line(x(id), x_level);
    fw_.set_line(y(id), y_level);
  }

  FakeFirmware fw_;
  DeviceState state_;
  RecordingLog log_;
  AntennaSwitch sw_{state_, log_};
};

TEST_F(SwitchTest, StatusRequestIsTwelveBytesLittleEndian) {
  const StatusRequest expected = {'D', 'S', 'T', 'S', 4, 0, 0, 0, 0x31, 0x00, 0x01, 0x00};
  EXPECT_EQ(encode_status_request(), expected);
}

TEST_F(SwitchTest, ControlRequestIsSixteenBytesLittleEndian) {
  const ControlRequest expected = {'D',  'E',  'V',  'S',  8,    0,    0,    0,
                                   0x31, 0x00, 0x01, 0x00, 0x78, 0x56, 0x34, 0x12};
  EXPECT_EQ(encode_control_request(0x12345678), expected);
}

TEST_F(SwitchTest, RequestsUseTheControlCodeAndAReplyOf1024Bytes) {
  ASSERT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_OK);
  ASSERT_EQ(fw_.requests.size(), 3u);  // read, write, read back
  for (size_t i = 0; i < fw_.requests.size(); ++i) {
    EXPECT_EQ(fw_.codes[i], 0x0022240Cu);
    EXPECT_EQ(fw_.capacities[i], 1024u);
  }
  EXPECT_EQ(fw_.requests[0], bytes(encode_status_request()));
  EXPECT_EQ(fw_.requests[1], bytes(encode_control_request(fw_.written.at(0))));
  EXPECT_EQ(fw_.requests[2], bytes(encode_status_request()));
}

TEST_F(SwitchTest, GetSwitchNumberReadsBits8To15) {
  fw_.switch_count = 3;
  int32_t count = 0;
  EXPECT_EQ(sw_.GetSwitchNumber(count), SWITCH_OK);
  EXPECT_EQ(count, 3);
}

TEST_F(SwitchTest, FailedStatusRequestGives4) {
  fw_.status_fails = true;
  int32_t count = -1;
  int32_t level = -1;
  EXPECT_EQ(sw_.GetSwitchNumber(count), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(sw_.GetControlBit(0, level, kLineX), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(count, -1);
  EXPECT_TRUE(fw_.written.empty());
}

TEST_F(SwitchTest, ClosedDeviceGives4ForEveryRequest) {
  state_.set_control_device(nullptr);
  int32_t count = 0;
  uint32_t word = 0;
  EXPECT_EQ(sw_.read_status_word(word), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(sw_.GetSwitchNumber(count), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_ERR_STATUS_IO);
}

TEST_F(SwitchTest, ShortReplyCountsAsResultZero) {
  fw_.lines = 0xFF;
  fw_.short_reply = true;
  uint32_t word = 0xDEAD;
  EXPECT_EQ(sw_.read_status_word(word), SWITCH_OK);
  EXPECT_EQ(word, 0u);
  int32_t count = 0;
  EXPECT_EQ(sw_.GetSwitchNumber(count), SWITCH_ERR_NOT_PRESENT);
}

TEST_F(SwitchTest, BitSixteenClearMakesReadsFailWith3ButSetControlBitStillWrites) {
  fw_.present = false;
  int32_t count = 0;
  int32_t level = 0;
  int32_t position = 0;
  EXPECT_EQ(sw_.GetSwitchNumber(count), SWITCH_ERR_NOT_PRESENT);
  EXPECT_EQ(sw_.GetControlBit(0, level, kLineX), SWITCH_ERR_NOT_PRESENT);
  EXPECT_EQ(sw_.GetSwitchPosition(0, position), SWITCH_ERR_NOT_PRESENT);

  EXPECT_EQ(sw_.SetControlBit(1, 1, kLineY), SWITCH_OK);
  ASSERT_EQ(fw_.written.size(), 1u);
  EXPECT_EQ(fw_.line(y(1)), 1);
}

TEST_F(SwitchTest, GetControlBitReadsTheXAndYLines) {
  lines(1, 0, 1);
  int32_t x = -1;
  int32_t y = -1;
  EXPECT_EQ(sw_.GetControlBit(1, x, kLineX), SWITCH_OK);
  EXPECT_EQ(sw_.GetControlBit(1, y, kLineY), SWITCH_OK);
  EXPECT_EQ(x, 0);
  EXPECT_EQ(y, 1);
}

TEST_F(SwitchTest, GetControlBitRefusesAnIdNotBelowTheSwitchNumber) {
  int32_t level = 0;
  EXPECT_EQ(sw_.GetControlBit(2, level, kLineX), SWITCH_ERR_INDEX);
  EXPECT_EQ(sw_.GetControlBit(-1, level, kLineX), SWITCH_ERR_INDEX);
}

TEST_F(SwitchTest, SetControlBitForIdEqualToSwitchNumberGives25BeforeAnyWrite) {
  fw_.switch_count = 2;
  EXPECT_EQ(sw_.SetControlBit(2, 1, kLineX), SWITCH_ERR_INDEX);
  EXPECT_TRUE(fw_.written.empty());
  EXPECT_EQ(fw_.requests.size(), 1u);  // only the status read
}

TEST_F(SwitchTest, SetControlBitWritesTheOwnedBitsWithTheOneLineChanged) {
  fw_.lines = 0x21;  // X0 and Y1 set
  fw_.switch_count = 2;
  ASSERT_EQ(sw_.SetControlBit(0, 1, kLineY), SWITCH_OK);
  ASSERT_EQ(sw_.SetControlBit(0, 0, kLineX), SWITCH_OK);
  ASSERT_EQ(fw_.written.size(), 2u);
  EXPECT_EQ(fw_.written[0], 0x10231u);  // present, count 2, lines 0x31
  EXPECT_EQ(fw_.written[1], 0x10230u);
  EXPECT_EQ(fw_.lines, 0x30u);
}

TEST_F(SwitchTest, FirmwareKeepingABitAboveSixteenMakesEveryWriteEndIn7) {
  fw_.extra_bits = 0x00020000;  // bit 17
  EXPECT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_ERR_VERIFY);
  EXPECT_EQ(fw_.line(x(0)), 1);  // the line was set all the same
  ASSERT_EQ(fw_.written.size(), 1u);
  EXPECT_EQ(fw_.written[0] & 0xFFFE0000u, 0u);
  EXPECT_EQ(sw_.SetControlBit(0, 0, kLineX), SWITCH_ERR_VERIFY);
  EXPECT_EQ(fw_.line(x(0)), 0);
}

TEST_F(SwitchTest, FailedControlRequestGives6) {
  fw_.control_fails = true;
  EXPECT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_ERR_CTRL_IO);
  EXPECT_EQ(fw_.line(x(0)), 0);
}

TEST_F(SwitchTest, ControlAnswerOtherThanOneGives5) {
  fw_.control_result = 0;
  EXPECT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_ERR_CTRL_REJECTED);
  fw_.control_result = 2;
  EXPECT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_ERR_CTRL_REJECTED);
}

TEST_F(SwitchTest, FailedReadBackGives4) {
  fw_.status_fails_from_call = 2;
  EXPECT_EQ(sw_.SetControlBit(0, 1, kLineX), SWITCH_ERR_STATUS_IO);
  EXPECT_EQ(fw_.written.size(), 1u);
}

TEST_F(SwitchTest, TwoSwitchesMode3PutsSwitch0InMainAndSwitch1InDiv) {
  fw_.lines = 0x22;  // start from something else: X1 and Y1 set
  std::array<Status, kMaxPorts> results{};
  sw_.SetMode(3, results);
  EXPECT_EQ(results, (std::array<Status, kMaxPorts>{0, 0, 0, 0}));
  EXPECT_EQ(fw_.line(x(0)), 1);
  EXPECT_EQ(fw_.line(y(0)), 1);
  EXPECT_EQ(fw_.line(x(1)), 0);
  EXPECT_EQ(fw_.line(y(1)), 0);
  int32_t mode = 0;
  EXPECT_EQ(sw_.GetCurrentMode(mode), SWITCH_OK);
  EXPECT_EQ(mode, 3);
}

TEST_F(SwitchTest, EveryModeReadsBackAsItself) {
  fw_.switch_count = 3;
  state_.set_switch_count(3);
  state_.set_mode_count(8);
  zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) {
    t.positions[2] = {{{1, 0}, {0, 1}, {0, 0}}};
  });
  for (int32_t m = 1; m <= 8; ++m) {
    std::array<Status, kMaxPorts> results{};
    sw_.SetMode(m, results);
    EXPECT_EQ(results, (std::array<Status, kMaxPorts>{0, 0, 0, 0})) << m;
    int32_t mode = 0;
    EXPECT_EQ(sw_.GetCurrentMode(mode), SWITCH_OK);
    EXPECT_EQ(mode, m);
  }
}

TEST_F(SwitchTest, SwitchInOffGivesMode99AndNamesThePort) {
  lines(0, 1, 1);  // Main
  lines(1, 1, 0);  // Off
  int32_t position = -1;
  EXPECT_EQ(sw_.GetSwitchPosition(1, position), SWITCH_OK);
  EXPECT_EQ(position, kPositionOff);
  int32_t mode = 0;
  EXPECT_EQ(sw_.GetCurrentMode(mode), SWITCH_OK);
  EXPECT_EQ(mode, kModeUnknown);
  EXPECT_TRUE(log_.contains(kLogWarning, "No valid mode for Aux OFF.\n"));
}

TEST_F(SwitchTest, LinesMatchingNoPositionGive39AndMode99) {
  lines(0, 0, 1);  // X=0, Y=1 is none of Main, Div, Off
  int32_t position = -1;
  EXPECT_EQ(sw_.GetSwitchPosition(0, position), SWITCH_ERR_NO_POSITION);
  EXPECT_EQ(position, -1);
  int32_t mode = 0;
  EXPECT_EQ(sw_.GetCurrentMode(mode), SWITCH_OK);
  EXPECT_EQ(mode, kModeUnknown);
  EXPECT_TRUE(log_.contains(kLogWarning, "No valid mode for Main: no position matches.\n"));
}

TEST_F(SwitchTest, DontCareMatchesAnyLevelAndOtherNegativesNeverMatch) {
  zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) {
    t.positions[0] = {{{-2, 1}, {-1, 0}, {1, -1}}};
  });
  lines(0, 0, 1);  // Main would need X=-2: never
  int32_t position = -1;
  EXPECT_EQ(sw_.GetSwitchPosition(0, position), SWITCH_ERR_NO_POSITION);
  lines(0, 1, 0);  // X don't care, Y=0: Div
  EXPECT_EQ(sw_.GetSwitchPosition(0, position), SWITCH_OK);
  EXPECT_EQ(position, kPositionDiv);
  lines(0, 1, 1);  // Off: X=1, Y don't care
  EXPECT_EQ(sw_.GetSwitchPosition(0, position), SWITCH_OK);
  EXPECT_EQ(position, kPositionOff);
}

TEST_F(SwitchTest, SetModeWithModeZeroLogsAndSetsEveryResultTo28) {
  std::array<Status, kMaxPorts> results{};
  sw_.SetMode(0, results);
  EXPECT_EQ(results, (std::array<Status, kMaxPorts>{28, 28, 28, 28}));
  EXPECT_TRUE(log_.contains(kLogError, "Invalid Mode: 0.\n"));
  EXPECT_TRUE(fw_.written.empty());
}

TEST_F(SwitchTest, SetModeAboveModeCountGives28) {
  std::array<Status, kMaxPorts> results{};
  sw_.SetMode(5, results);
  EXPECT_EQ(results[0], SWITCH_ERR_INVALID_MODE);
  EXPECT_TRUE(log_.contains(kLogError, "Invalid Mode: 5.\n"));
}

TEST_F(SwitchTest, SetModeGoesOnAfterAFailedSwitch) {
  zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) {
    t.switch_id[0] = 3;
  });  // not below the firmware's switch number 2
  std::array<Status, kMaxPorts> results{};
  sw_.SetMode(4, results);
  EXPECT_EQ(results[0], SWITCH_ERR_INDEX);
  EXPECT_EQ(results[1], SWITCH_OK);
  EXPECT_EQ(results[2], SWITCH_OK);  // left alone
  EXPECT_EQ(fw_.line(x(1)), 0);
}

TEST_F(SwitchTest, SwitchCountZeroReadsAsMode1) {
  state_.set_switch_count(0);
  fw_.lines = 0x12;  // whatever the lines say
  int32_t mode = 0;
  EXPECT_EQ(sw_.GetCurrentMode(mode), SWITCH_OK);
  EXPECT_EQ(mode, 1);
}

TEST_F(SwitchTest, NotReadyGives2) {
  state_.set_ready(false);
  int32_t position = 0;
  int32_t mode = 0;
  EXPECT_EQ(sw_.GetSwitchPosition(0, position), SWITCH_ERR_NOT_READY);
  EXPECT_EQ(sw_.SetSwitchPosition(0, 0), SWITCH_ERR_NOT_READY);
  EXPECT_EQ(sw_.GetCurrentMode(mode), SWITCH_ERR_NOT_READY);
  EXPECT_EQ(mode, kModeUnknown);
  std::array<Status, kMaxPorts> results{};
  sw_.SetMode(1, results);
  EXPECT_EQ(results, (std::array<Status, kMaxPorts>{2, 2, 2, 2}));
  EXPECT_TRUE(fw_.requests.empty());
}

TEST_F(SwitchTest, InvalidPositionGives38AndBadSwitchGives25) {
  EXPECT_EQ(sw_.SetSwitchPosition(0, 3), kSwitchErrInvalidPosition);
  EXPECT_EQ(sw_.SetSwitchPosition(0, -1), kSwitchErrInvalidPosition);
  EXPECT_EQ(sw_.SetSwitchPosition(2, 0), SWITCH_ERR_INDEX);
  EXPECT_EQ(sw_.SetSwitchPosition(-1, 0), SWITCH_ERR_INDEX);
  zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) {
    t.switch_id[1] = -1;
  });  // a port without a control line
  EXPECT_EQ(sw_.SetSwitchPosition(1, 0), SWITCH_ERR_INDEX);
  int32_t position = 0;
  EXPECT_EQ(sw_.GetSwitchPosition(1, position), SWITCH_ERR_INDEX);
  EXPECT_TRUE(fw_.written.empty());
}

TEST_F(SwitchTest, SetSwitchPositionOffDrivesXHighAndYLow) {
  lines(1, 0, 1);
  EXPECT_EQ(sw_.SetSwitchPosition(1, kPositionOff), SWITCH_OK);
  EXPECT_EQ(fw_.line(x(1)), 1);
  EXPECT_EQ(fw_.line(y(1)), 0);
}

TEST_F(SwitchTest, LinesThatAreNotDrivenAreNotWritten) {
  fw_.switch_count = 3;
  state_.set_switch_count(3);
  EXPECT_EQ(sw_.SetSwitchPosition(2, kPositionDiv), SWITCH_OK);  // default: all -1
  EXPECT_TRUE(fw_.written.empty());
  zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) {
    t.positions[2][kPositionDiv] = {-1, 1};
  });
  EXPECT_EQ(sw_.SetSwitchPosition(2, kPositionDiv), SWITCH_OK);
  ASSERT_EQ(fw_.written.size(), 1u);
  EXPECT_EQ(fw_.line(y(2)), 1);
}

TEST_F(SwitchTest, SetSwitchPositionWritesBothLinesWhenTheFirstEndsIn7) {
  fw_.extra_bits = 0x80000000u;
  EXPECT_EQ(sw_.SetSwitchPosition(0, kPositionMain), SWITCH_ERR_VERIFY);
  EXPECT_EQ(fw_.written.size(), 2u);
  EXPECT_EQ(fw_.line(x(0)), 1);
  EXPECT_EQ(fw_.line(y(0)), 1);
}

TEST_F(SwitchTest, SwitchIdsComeFromTheTable) {
  fw_.switch_count = 4;
  zaltor::testing::edit_switches(state_, [](platform::SwitchTable& t) { t.switch_id[0] = 3; });
  EXPECT_EQ(sw_.SetSwitchPosition(0, kPositionMain), SWITCH_OK);
  EXPECT_EQ(fw_.line(x(3)), 1);
  EXPECT_EQ(fw_.line(y(3)), 1);
  EXPECT_EQ(fw_.line(x(0)), 0);
}

TEST(SwitchOpen, FailedOpenLogsAndGives3) {
  FakeFirmware fw;
  FakeControlDevice dev(fw);
  dev.open_fails = true;
  DeviceState state;
  RecordingLog log;
  EXPECT_EQ(open_control_device(dev, state, log), SWITCH_ERR_NOT_PRESENT);
  EXPECT_EQ(dev.opened_path, "\\\\.\\ZLTACPI");
  EXPECT_EQ(state.control_device(), nullptr);
  EXPECT_EQ(log.lines,
            (std::vector<zaltor::testing::LogLine>{{1, "InitializeZLTACPIDevice Failed!\n"}}));
}

TEST(SwitchOpen, OpenedDeviceIsKeptInTheState) {
  FakeFirmware fw;
  FakeControlDevice dev(fw);
  DeviceState state;
  RecordingLog log;
  EXPECT_EQ(open_control_device(dev, state, log), SWITCH_OK);
  EXPECT_NE(state.control_device(), nullptr);
  EXPECT_TRUE(log.lines.empty());
}

}  // namespace
}  // namespace zaltor::engine
