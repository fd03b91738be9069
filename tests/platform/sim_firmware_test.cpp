// The simulated firmware's control device: the request protocol and every fault.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

constexpr uint32_t kCode = 0x0022240C;
constexpr const char* kPath = "\\\\.\\ZLTACPI";

void put_u32(std::vector<uint8_t>& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

std::vector<uint8_t> request(const char* method, uint32_t arg_len, uint32_t device,
                             const uint32_t* control) {
  std::vector<uint8_t> b(method, method + 4);
  put_u32(b, arg_len);
  put_u32(b, device);
  if (control != nullptr) put_u32(b, *control);
  return b;
}

struct Reply {
  bool ok = false;
  uint32_t returned = 0;
  uint32_t value = 0;
};

Reply send(ControlDeviceHandle& h, const std::vector<uint8_t>& req, uint32_t code = kCode) {
  std::array<uint8_t, 1024> out{};
  Reply r;
  r.ok = h.io_control(code, req.data(), static_cast<uint32_t>(req.size()), out.data(),
                      static_cast<uint32_t>(out.size()), r.returned);
  std::memcpy(&r.value, out.data(), std::min<uint32_t>(r.returned, 4));
  return r;
}

Reply dsts(ControlDeviceHandle& h) {
  return send(h, request("DSTS", 4, 0x00010031, nullptr));
}
Reply devs(ControlDeviceHandle& h, uint32_t value) {
  return send(h, request("DEVS", 8, 0x00010031, &value));
}

class SimFirmware : public ::testing::Test {
 protected:
  void make(const std::string& text) {
    std::string error;
    nb_ = make_sim_notebook_from_text(text, error);
    ASSERT_NE(nb_, nullptr) << error;
    uint32_t err = 99;
    handle_ = nb_->control_device().open(kPath, err);
    ASSERT_NE(handle_, nullptr);
    EXPECT_EQ(err, 0u);
  }
  std::unique_ptr<SimNotebook> nb_;
  std::unique_ptr<ControlDeviceHandle> handle_;
};

TEST_F(SimFirmware, StatusWordCarriesLinesSwitchCountAndPresentBit) {
  make(R"({"firmware": {"lines": 90, "switchCount": 3}})");
  const Reply r = dsts(*handle_);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.returned, 4u);
  EXPECT_EQ(r.value, 90u | (3u << 8) | (1u << 16));
}

TEST_F(SimFirmware, DevsSetsTheEightLineBitsAndAnswersTheControlResult) {
  make("");
  const Reply w = devs(*handle_, 0x12345603);  // only 0x03 reaches the lines
  ASSERT_TRUE(w.ok);
  EXPECT_EQ(w.value, 1u);
  EXPECT_EQ(nb_->lines(), 0x03u);
  EXPECT_EQ(dsts(*handle_).value, 0x03u | (2u << 8) | (1u << 16));
  // Lines (X, Y) = (1, 0) for switch 0 and (1, 0) for switch 1: "Off", in no mode.
  EXPECT_EQ(nb_->position(0), 2);
  EXPECT_EQ(nb_->mode(), 0);
}

TEST_F(SimFirmware, ModeThreePutsSwitchZeroInMainAndSwitchOneInDiv) {
  make("");
  // Switch 0: X0 = 1, Y0 (bit 4) = 1; switch 1: X1 = 0, Y1 (bit 5) = 0.
  ASSERT_TRUE(devs(*handle_, 0x11).ok);
  EXPECT_EQ(nb_->position(0), 0);
  EXPECT_EQ(nb_->position(1), 1);
  EXPECT_EQ(nb_->mode(), 3);
  ASSERT_TRUE(devs(*handle_, 0x00).ok);
  EXPECT_EQ(nb_->mode(), 4);
  ASSERT_TRUE(devs(*handle_, 0x33).ok);
  EXPECT_EQ(nb_->mode(), 1);
}

TEST_F(SimFirmware, ExtraBitsMakeTheReadBackDifferFromWhatWasWritten) {
  make(R"({"firmware": {"extraBits": 131072}})");
  const uint32_t status = dsts(*handle_).value;
  EXPECT_EQ(status & 0xFFFE0000u, 0x00020000u);
  const uint32_t written = (status & 0x1FFFFu) ^ 0x01u;  // X line of switch 0 flipped
  ASSERT_TRUE(devs(*handle_, written).ok);
  const uint32_t back = dsts(*handle_).value;
  EXPECT_EQ(back & 0xFFu, written & 0xFFu) << "the line was set";
  EXPECT_NE(back, written) << "but bit 17 stays set";
}

TEST_F(SimFirmware, PresentFalseClearsBit16ButWritesStillWork) {
  make(R"({"firmware": {"present": false}})");
  EXPECT_EQ(dsts(*handle_).value & (1u << 16), 0u);
  ASSERT_TRUE(devs(*handle_, 0x00).ok);
  EXPECT_EQ(nb_->lines(), 0u);
}

TEST_F(SimFirmware, StatusFailsMakesOnlyTheStatusRequestFail) {
  make(R"({"firmware": {"statusFails": true}})");
  const Reply r = dsts(*handle_);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.returned, 0u);
  EXPECT_TRUE(devs(*handle_, 0x00).ok);
}

TEST_F(SimFirmware, ControlFailsMakesTheControlRequestFailAndLeavesTheLines) {
  make(R"({"firmware": {"controlFails": true}})");
  EXPECT_FALSE(devs(*handle_, 0x00).ok);
  EXPECT_EQ(nb_->lines(), 0x33u);
  EXPECT_TRUE(dsts(*handle_).ok);
}

TEST_F(SimFirmware, ControlResultIsWhatTheControlMethodAnswers) {
  make(R"({"firmware": {"controlResult": 0}})");
  const Reply r = devs(*handle_, 0x11);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, 0u);
}

TEST_F(SimFirmware, ShortReplyCarriesTwoBytes) {
  make(R"({"firmware": {"shortReply": true, "lines": 51}})");
  const Reply r = dsts(*handle_);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.returned, 2u);
  EXPECT_EQ(r.value, 0x0233u);
  EXPECT_EQ(devs(*handle_, 0).returned, 2u);
}

TEST_F(SimFirmware, OpenFailsWithError2) {
  std::string error;
  auto nb = make_sim_notebook_from_text(R"({"firmware": {"openFails": true}})", error);
  ASSERT_NE(nb, nullptr) << error;
  uint32_t err = 0;
  EXPECT_EQ(nb->control_device().open(kPath, err), nullptr);
  EXPECT_EQ(err, 2u);
}

TEST_F(SimFirmware, AnotherDevicePathDoesNotExist) {
  make("");
  uint32_t err = 0;
  EXPECT_EQ(nb_->control_device().open("\\\\.\\OTHER", err), nullptr);
  EXPECT_EQ(err, 2u);
}

TEST_F(SimFirmware, RefusesOtherCodesMethodsDevicesAndMalformedRequests) {
  make("");
  const uint32_t zero = 0;
  EXPECT_FALSE(send(*handle_, request("DSTS", 4, 0x00010031, nullptr), 0x00222410).ok);
  EXPECT_FALSE(send(*handle_, request("WHAT", 4, 0x00010031, nullptr)).ok);
  EXPECT_FALSE(send(*handle_, request("DSTS", 4, 0x00010032, nullptr)).ok);
  EXPECT_FALSE(send(*handle_, request("DSTS", 8, 0x00010031, nullptr)).ok);
  EXPECT_FALSE(send(*handle_, request("DEVS", 4, 0x00010031, &zero)).ok);
  EXPECT_FALSE(send(*handle_, request("DEVS", 8, 0x00010031, nullptr)).ok) << "12 bytes only";
  std::vector<uint8_t> tiny{'D', 'S', 'T', 'S'};
  EXPECT_FALSE(send(*handle_, tiny).ok);
  // A reply buffer too small for the answer.
  const auto req = request("DSTS", 4, 0x00010031, nullptr);
  uint8_t out[2];
  uint32_t returned = 7;
  EXPECT_FALSE(handle_->io_control(kCode, req.data(), 12, out, sizeof out, returned));
  EXPECT_EQ(returned, 0u);
  EXPECT_EQ(nb_->lines(), 0x33u);
}

TEST_F(SimFirmware, FaultsFollowTheTimelineOrAPatch) {
  make("");
  std::string error;
  ASSERT_TRUE(
      nb_->apply_patch(nlohmann::json::parse(R"({"firmware": {"statusFails": true}})"), error))
      << error;
  EXPECT_FALSE(dsts(*handle_).ok);
  ASSERT_TRUE(
      nb_->apply_patch(nlohmann::json::parse(R"({"firmware": {"statusFails": false}})"), error));
  EXPECT_TRUE(dsts(*handle_).ok);
}

TEST_F(SimFirmware, LinesWrittenSurviveAnUnrelatedPatch) {
  make("");
  ASSERT_TRUE(devs(*handle_, 0x11).ok);
  std::string error;
  ASSERT_TRUE(nb_->apply_patch(nlohmann::json::parse(R"({"lid": {"open": false}})"), error));
  EXPECT_EQ(nb_->lines(), 0x11u);
}

}  // namespace
}  // namespace zaltor::platform::sim
