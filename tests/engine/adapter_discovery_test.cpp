// Adapter discovery over scripted device lists and a scripted WLAN session.
#include <gtest/gtest.h>

#include "engine/adapter_discovery.h"
#include "engine/device_fakes.h"

namespace zaltor::engine {
namespace {

using platform::parse_guid;

using platform::DeviceClass;
using platform::Guid;
using platform::kDevNodeDisconnected;
using platform::kWlanConnected;
using platform::kWlanDisconnected;

using zaltor::testing::FakeClock;
using zaltor::testing::FakeDevice;
using zaltor::testing::FakeDeviceLists;
using zaltor::testing::FakeWlanSession;
using zaltor::testing::LogLine;
using zaltor::testing::RecordingLog;

const Guid kGuidA = *parse_guid("{6A1B2C3D-1111-2222-3333-444455556666}");
const Guid kGuidB = *parse_guid("{00000000-AAAA-BBBB-CCCC-DDDDEEEEFFFF}");

class AdapterTest : public ::testing::Test {
 protected:
  AdapterTest() {
    auto session = std::make_unique<FakeWlanSession>();
    wlan_ = session.get();
    state_.set_wlan(std::move(session));
    state_.set_ready(true);
  }
  void nics(std::vector<FakeDevice> nics) {
    devices_.lists[{DeviceClass::kNetwork, "PCI"}] = std::move(nics);
  }
  void bluetooth(const std::string& enumerator, std::vector<FakeDevice> list) {
    devices_.lists[{DeviceClass::kBluetooth, enumerator}] = std::move(list);
  }

  DeviceState state_;
  FakeWlanSession* wlan_ = nullptr;
  FakeDeviceLists devices_;
  FakeClock clock_;
  RecordingLog log_;
  AdapterDiscovery discovery_{state_, devices_, clock_, log_};
};

TEST_F(AdapterTest, OnlyTheFirstVendorAdapterBecomesACandidate) {
  nics({{"PCI\\VEN_10EC&DEV_8168", "Ethernet", ""},
        {"PCI\\VEN_8086&DEV_2725", "Wireless AX (R2)", ""},
        {"PCI\\VEN_8086&DEV_1234", "Other Intel", ""}});
  std::vector<std::string> list = {"stale"};
  discovery_.ListVendorNics(list);
  EXPECT_EQ(list, (std::vector<std::string>{"Wireless AX (R2)"}));
  EXPECT_EQ(log_.lines,
            (std::vector<LogLine>{{4, "PCI_NET[0] Ethernet (PCI\\VEN_10EC&DEV_8168)\n"},
                                  {4, "PCI_NET[1] Wireless AX (R2) (PCI\\VEN_8086&DEV_2725)\n"}}));
}

TEST_F(AdapterTest, VendorPatternIsCaseSensitive) {
  nics({{"PCI\\ven_8086&DEV_2725", "lower", ""}});
  std::vector<std::string> list;
  discovery_.ListVendorNics(list);
  EXPECT_TRUE(list.empty());
}

TEST_F(AdapterTest, FailedPropertyReadsLogAndGoOnWithEmptyText) {
  FakeDevice d{"", "", ""};
  d.hardware_id_error = 13;
  d.description_error = 122;
  nics({d});
  std::vector<std::string> list;
  discovery_.ListVendorNics(list);
  EXPECT_EQ(log_.lines, (std::vector<LogLine>{
                            {4, "SetupDiGetDeviceRegistryProperty SPDRP_HARDWAREID error 13\n"},
                            {4, "SetupDiGetDeviceRegistryProperty SPDRP_DEVICEDESC error 122\n"},
                            {4, "PCI_NET[0]  ()\n"}}));
}

TEST_F(AdapterTest, NoDeviceListGivesAnEmptyList) {
  std::vector<std::string> list = {"stale"};
  discovery_.ListVendorNics(list);
  EXPECT_TRUE(list.empty());
  EXPECT_TRUE(log_.lines.empty());
}

TEST_F(AdapterTest, HashSlashAndBackslashBecomeUnderscoresInTheInstanceName) {
  EXPECT_EQ(counter_instance_name("Wireless AX (R2) #2"), "Wireless AX [R2] _2");
  EXPECT_EQ(counter_instance_name("a/b\\c#"), "a_b_c_");
  // The second adapter of a kind: its interface is found and named as its counters are.
  nics({{"PCI\\VEN_8086&DEV_2725", "Wireless AX (R2) #2", ""}});
  wlan_->interfaces = {{kGuidA, "Wireless AX (R2) #2", kWlanConnected}};
  std::string instance;
  EXPECT_EQ(discovery_.FindWifiInterface(instance), SWITCH_OK);
  EXPECT_EQ(instance, "Wireless AX [R2] _2");
}

TEST_F(AdapterTest, ParenthesesBecomeBracketsInTheInstanceNameOnly) {
  EXPECT_EQ(counter_instance_name("Wireless AX (R2)"), "Wireless AX [R2]");
  EXPECT_EQ(counter_instance_name(")x("), "]x[");
  nics({{"PCI\\VEN_8086&DEV_2725", "Wireless AX (R2)", ""}});
  // The description with its parentheses is what matches the candidate.
  wlan_->interfaces = {{kGuidA, "Wireless AX (R2) 160MHz", kWlanConnected}};
  std::string instance;
  EXPECT_EQ(discovery_.FindWifiInterface(instance), SWITCH_OK);
  EXPECT_EQ(instance, "Wireless AX [R2] 160MHz");
  EXPECT_EQ(state_.wlan_interface(), kGuidA);
}

TEST_F(AdapterTest, FindWifiInterfaceLogsEachStepAndStopsAtTheSelected) {
  nics({{"PCI\\VEN_8086&DEV_2725", "Wireless AX", ""}});
  wlan_->interfaces = {{kGuidB, "Virtual Adapter", kWlanConnected},
                       {kGuidA, "Intel Wireless AX 211", kWlanDisconnected},
                       {kGuidB, "Wireless AX later", kWlanConnected}};
  std::string instance;
  EXPECT_EQ(discovery_.FindWifiInterface(instance), SWITCH_OK);
  EXPECT_EQ(instance, "Intel Wireless AX 211");
  EXPECT_EQ(state_.wlan_interface(), kGuidA);
  EXPECT_TRUE(clock_.sleeps.empty());
  EXPECT_EQ(log_.lines,
            (std::vector<LogLine>{
                {4, "PCI_NET[0] Wireless AX (PCI\\VEN_8086&DEV_2725)\n"},
                {4, "Num Entries: 3\n"},
                {4, "WNIC[0]: Virtual Adapter ({00000000-AAAA-BBBB-CCCC-DDDDEEEEFFFF})\n"},
                {4, "WNIC[1]: Intel Wireless AX 211 ({6A1B2C3D-1111-2222-3333-444455556666})\n"},
                {4, "<Selected interface>"},
                {3, " WARNING: Wifi not connected!!\n"}}));
}

TEST_F(AdapterTest, FindWifiInterfaceRetriesEvery5000MsUntilAnInterfaceAppears) {
  // No NIC, then a failing enumeration, then no interfaces, then no match, then success.
  clock_.on_sleep = [&](size_t n) {
    if (n == 1) {
      nics({{"PCI\\VEN_8086&DEV_2725", "Wireless AX", ""}});
      wlan_->enum_error = 1062;
    } else if (n == 2) {
      wlan_->enum_error = 0;
    } else if (n == 3) {
      wlan_->interfaces = {{kGuidB, "Something else", kWlanConnected}};
    } else if (n == 4) {
      wlan_->interfaces = {{kGuidA, "Wireless AX", kWlanConnected}};
    }
  };
  std::string instance;
  EXPECT_EQ(discovery_.FindWifiInterface(instance), SWITCH_OK);
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{5000, 5000, 5000, 5000}));
  EXPECT_EQ(instance, "Wireless AX");
  const std::string pci = "PCI_NET[0] Wireless AX (PCI\\VEN_8086&DEV_2725)\n";
  EXPECT_EQ(log_.lines,
            (std::vector<LogLine>{
                {3, "No NICs found on system.\n"},
                {4, pci},
                {3, "WlanEnumInterfaces failed with error: 1062\n"},
                {4, pci},
                {4, "Num Entries: 0\n"},
                {3, "Cannot get desired wNIC! (All wNICs disabled?)\n"},
                {4, pci},
                {4, "Num Entries: 1\n"},
                {4, "WNIC[0]: Something else ({00000000-AAAA-BBBB-CCCC-DDDDEEEEFFFF})\n"},
                {4, pci},
                {4, "Num Entries: 1\n"},
                {4, "WNIC[0]: Wireless AX ({6A1B2C3D-1111-2222-3333-444455556666})\n"},
                {4, "<Selected interface>"}}));
}

TEST_F(AdapterTest, FindWifiInterfaceWithoutWlanClientGives8) {
  state_.set_wlan(nullptr);
  std::string instance;
  EXPECT_EQ(discovery_.FindWifiInterface(instance), kStatusWlanNotOpened);
}

TEST_F(AdapterTest, CountsConnectedDevicesAndListsTheOthers) {
  FakeDevice connected{"BTHENUM\\Dev_001122334455", "Headset", "My Headset"};
  FakeDevice disconnected{"BTHENUM\\Dev_AABBCCDDEEFF", "Mouse", "My Mouse"};
  disconnected.devnode_status = kDevNodeDisconnected | 0x1;
  FakeDevice service{"BTHENUM\\{0000110b-0000}", "Audio service", "Svc"};
  FakeDevice unreadable{"BTHENUM\\Dev_0000", "Unreadable", "U"};
  unreadable.devnode_status.reset();
  bluetooth("BTHENUM", {connected, disconnected, service, unreadable});
  int32_t count = -1;
  EXPECT_EQ(discovery_.CountConnectedBtDevices("BTHENUM", count), SWITCH_OK);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(log_.lines,
            (std::vector<LogLine>{
                {4, "BTHENUM[0/Connected] My Headset <Headset> (BTHENUM\\Dev_001122334455)\n"},
                {4, "BTHENUM[1/Disconnected] My Mouse <Mouse> (BTHENUM\\Dev_AABBCCDDEEFF)\n"},
                {4, "*BTHENUM[2] Svc <Audio service> (BTHENUM\\{0000110b-0000})\n"}}));
}

TEST_F(AdapterTest, ConnectedLowEnergyDeviceWithoutThePatternIsListedWithStarAndNotCounted) {
  FakeDevice le{"BTHLEDevice\\{00001812}_Dev_VID", "HID over GATT", "Keyboard"};
  bluetooth("BTHLE", {le});
  int32_t count = -1;
  EXPECT_EQ(discovery_.CountConnectedBtDevices("BTHLE", count), SWITCH_OK);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(log_.lines,
            (std::vector<LogLine>{
                {4, "*BTHLE[0] Keyboard <HID over GATT> (BTHLEDevice\\{00001812}_Dev_VID)\n"}}));
}

TEST_F(AdapterTest, MissingBluetoothListLeavesTheCount) {
  int32_t count = 7;
  EXPECT_EQ(discovery_.CountConnectedBtDevices("BTHLE", count), kBtListUnavailable);
  EXPECT_EQ(count, 7);
}

TEST_F(AdapterTest, ChannelDecidesTheBand) {
  const std::pair<uint32_t, uint32_t> cases[] = {{1, 0},  {14, 0},  {15, 1},
                                                 {36, 1}, {165, 1}, {0, 0}};
  for (const auto& [channel, expected] : cases) {
    wlan_->channel = channel;
    EXPECT_EQ(discovery_.SelectConfigSet(), expected) << channel;
  }
  state_.set_bt_connection_count(1);
  wlan_->channel = 14;
  EXPECT_EQ(discovery_.SelectConfigSet(), 2u);
  wlan_->channel = 0;  // unknown band: set 0 even with Bluetooth
  EXPECT_EQ(discovery_.SelectConfigSet(), 0u);
  wlan_->channel = 36;
  EXPECT_EQ(discovery_.SelectConfigSet(), 1u);
  EXPECT_EQ(wlan_->channel_queries.back(), state_.wlan_interface());
}

TEST_F(AdapterTest, FailedChannelQueryFallsBackToSet0) {
  state_.set_bt_connection_count(2);
  wlan_->channel = 6;
  wlan_->channel_error = 5;
  EXPECT_EQ(discovery_.SelectConfigSet(), 0u);
}

TEST_F(AdapterTest, NotReadySkipsTheBandQuery) {
  state_.set_ready(false);
  wlan_->channel = 36;
  EXPECT_EQ(discovery_.SelectConfigSet(), 0u);
  EXPECT_TRUE(wlan_->channel_queries.empty());
}

TEST_F(AdapterTest, LidClosedWithA5GhzLinkStillSelectsSet3) {
  wlan_->channel = 36;
  state_.set_lid_notification_registered(true);
  state_.set_lid_open(false);
  EXPECT_EQ(discovery_.SelectConfigSet(), 3u);
  state_.set_lid_notification_registered(false);  // not registered: the lid is not consulted
  EXPECT_EQ(discovery_.SelectConfigSet(), 1u);
}

TEST_F(AdapterTest, DeviceChangeRescansBluetoothAfterTwoSeconds) {
  bluetooth("BTHLE", {{"BTHLE\\Dev_c0ffee000001", "LE Mouse", "Mouse"}});
  bluetooth("BTHENUM", {{"BTHENUM\\Dev_001122334455", "Headset", "Headset"}});
  wlan_->channel = 6;
  EXPECT_EQ(discovery_.SelectConfigSet(), 0u);  // no re-scan asked: stored count 0
  EXPECT_TRUE(clock_.sleeps.empty());
  state_.set_device_change_pending(true);
  EXPECT_EQ(discovery_.SelectConfigSet(), 2u);
  EXPECT_EQ(clock_.sleeps, (std::vector<int64_t>{2000}));
  EXPECT_EQ(state_.bt_connection_count(), 2);
  EXPECT_FALSE(state_.device_change_pending());
  EXPECT_EQ(devices_.requests.size(), 2u);
  EXPECT_EQ(devices_.requests[0].second, "BTHLE");
  EXPECT_EQ(devices_.requests[1].second, "BTHENUM");
  // Between scans the stored count is used.
  devices_.lists.clear();
  EXPECT_EQ(discovery_.SelectConfigSet(), 2u);
  EXPECT_EQ(devices_.requests.size(), 2u);
}

TEST_F(AdapterTest, RescanWithoutListsCountsZero) {
  state_.set_bt_connection_count(3);
  state_.set_device_change_pending(true);
  wlan_->channel = 6;
  EXPECT_EQ(discovery_.SelectConfigSet(), 0u);
  EXPECT_EQ(state_.bt_connection_count(), 0);
}

}  // namespace
}  // namespace zaltor::engine
