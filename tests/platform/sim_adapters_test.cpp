// The simulated board query, device lists and WLAN client.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

std::unique_ptr<SimNotebook> notebook(const std::string& text) {
  std::string error;
  auto nb = make_sim_notebook_from_text(text, error);
  EXPECT_NE(nb, nullptr) << error;
  return nb;
}

TEST(SimBoard, AnswersTheProductsInOrder) {
  auto nb = notebook(R"({"board": {"products": [" AB12XY \r\n", "CD34"]}})");
  const BoardProducts answer = nb->board().base_board_products();
  EXPECT_TRUE(answer.ok());
  EXPECT_EQ(answer.hr, 0);
  EXPECT_EQ(answer.products, (std::vector<std::string>{" AB12XY \r\n", "CD34"}))
      << "the notebook gives the raw value; trimming is the caller's";
}

TEST(SimBoard, NoBaseBoardYieldsNothing) {
  auto nb = notebook(R"({"board": {"products": []}})");
  const BoardProducts answer = nb->board().base_board_products();
  EXPECT_TRUE(answer.ok());
  EXPECT_TRUE(answer.products.empty());
}

TEST(SimBoard, QueryErrorFailsTheQuery) {
  auto nb = notebook(R"({"board": {"queryError": "0x80041003"}})");
  const BoardProducts answer = nb->board().base_board_products();
  EXPECT_EQ(answer.failed_step, BoardQueryStep::kExecQuery);
  EXPECT_EQ(static_cast<uint32_t>(answer.hr), 0x80041003u);
  EXPECT_TRUE(answer.products.empty());
}

TEST(SimDeviceLists, PciAdaptersOfTheNetworkClass) {
  auto nb = notebook(R"j({"pciNics": [
      {"hardwareId": "PCI\\VEN_10EC&DEV_8168", "description": "Ethernet"},
      {"hardwareId": "PCI\\VEN_8086&DEV_2725", "description": "Wireless AX (R2)", "friendlyName": "Wi-Fi"}]})j");
  auto list = nb->devices().present_devices(DeviceClass::kNetwork, "PCI");
  ASSERT_NE(list, nullptr);
  ASSERT_TRUE(list->has_device(1));
  EXPECT_FALSE(list->has_device(2));
  std::string v;
  EXPECT_EQ(list->registry_property(1, DeviceProperty::kHardwareId, v), 0u);
  EXPECT_EQ(v, "PCI\\VEN_8086&DEV_2725");
  EXPECT_EQ(list->registry_property(1, DeviceProperty::kDeviceDesc, v), 0u);
  EXPECT_EQ(v, "Wireless AX (R2)");
  EXPECT_EQ(list->registry_property(1, DeviceProperty::kFriendlyName, v), 0u);
  EXPECT_EQ(v, "Wi-Fi");
  EXPECT_EQ(list->registry_property(0, DeviceProperty::kFriendlyName, v), 13u)
      << "a property the device lacks cannot be read";
  EXPECT_EQ(v, "");
  EXPECT_FALSE(nb->devices().present_devices(DeviceClass::kNetwork, "USB")->has_device(0));
  EXPECT_FALSE(nb->devices().present_devices(DeviceClass::kBluetooth, "PCI")->has_device(0));
}

TEST(SimDeviceLists, BluetoothDevicesPerEnumeratorWithTheirConnection) {
  auto nb = notebook(R"({"bluetooth": {
      "BTHENUM": [{"hardwareId": "BTHENUM\\Dev_1", "connected": true}],
      "BTHLE": [{"hardwareId": "BTHLE\\Dev_2", "connected": false}, {"hardwareId": "BTHLE\\Dev_3"}]}})");
  auto classic = nb->devices().present_devices(DeviceClass::kBluetooth, "BTHENUM");
  uint32_t status = 0;
  ASSERT_TRUE(classic->devnode_status(0, status));
  EXPECT_EQ(status & 0x02000000u, 0u);
  EXPECT_FALSE(classic->devnode_status(1, status));
  auto le = nb->devices().present_devices(DeviceClass::kBluetooth, "BTHLE");
  ASSERT_TRUE(le->devnode_status(0, status));
  EXPECT_NE(status & 0x02000000u, 0u);
  ASSERT_TRUE(le->devnode_status(1, status));
  EXPECT_EQ(status & 0x02000000u, 0u) << "connected is the default";
}

TEST(SimDeviceLists, AListIsASnapshot) {
  auto nb = notebook("");
  auto list = nb->devices().present_devices(DeviceClass::kBluetooth, "BTHENUM");
  std::string error;
  ASSERT_TRUE(nb->apply_patch(nlohmann::json::parse(R"({"bluetooth": {"BTHENUM": []}})"), error));
  EXPECT_TRUE(list->has_device(0));
  EXPECT_FALSE(nb->devices().present_devices(DeviceClass::kBluetooth, "BTHENUM")->has_device(0));
}

TEST(SimWlan, InterfacesWithStateAndChannel) {
  auto nb = notebook(R"({"wlan": {"interfaces": [
      {"description": "Wireless AX (R2) 160MHz", "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "channel": 6},
      {"description": "Other", "guid": "{00000000-0000-0000-0000-000000000001}", "connected": false, "channel": 11}]}})");
  uint32_t err = 1;
  auto s = nb->wlan().open(2, err);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(err, 0u);
  std::vector<WlanInterfaceInfo> list;
  ASSERT_EQ(s->enum_interfaces(list), 0u);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].description, "Wireless AX (R2) 160MHz");
  EXPECT_EQ(to_string(list[0].guid), "{6A1B2C3D-1111-2222-3333-444455556666}");
  EXPECT_EQ(list[0].state, kWlanConnected);
  EXPECT_EQ(list[1].state, kWlanDisconnected);
  uint32_t state = 0;
  uint32_t channel = 0;
  EXPECT_EQ(s->query_connection_state(list[0].guid, state), 0u);
  EXPECT_EQ(state, kWlanConnected);
  EXPECT_EQ(s->query_channel(list[0].guid, channel), 0u);
  EXPECT_EQ(channel, 6u);
  EXPECT_EQ(s->query_channel(list[1].guid, channel), 5023u) << "no channel without a connection";
  EXPECT_EQ(s->query_connection_state(list[1].guid, state), 5023u);
  Guid unknown;
  EXPECT_EQ(s->query_channel(unknown, channel), 1168u);
}

TEST(SimWlan, OnlyClientVersionsOneAndTwoOpen) {
  auto nb = notebook("");
  uint32_t err = 0;
  EXPECT_EQ(nb->wlan().open(3, err), nullptr);
  EXPECT_EQ(err, 87u);
  EXPECT_NE(nb->wlan().open(1, err), nullptr);
}

}  // namespace
}  // namespace zaltor::platform::sim
