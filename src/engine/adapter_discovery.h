#pragma once
// Wireless adapter discovery: the Wi-Fi chip vendor's PCI network adapter, the WLAN
// interface that belongs to it (and its performance counter instance name), the
// connected Bluetooth devices, and the config set that these conditions select.

#include <cstdint>
#include <string>
#include <vector>

#include "engine/shared_state.h"
#include "platform/clock.h"
#include "platform/device_list.h"
#include "platform/log.h"
#include "platform/status.h"

namespace zaltor::engine {

constexpr const char* kWifiVendorPattern = "VEN_8086";
constexpr int64_t kDiscoveryRetryMs = 5000;
constexpr int64_t kBluetoothSettleMs = 2000;
// CountConnectedBtDevices: the Bluetooth device list could not be had.
constexpr Status kBtListUnavailable = 0xFFFFFFFF;

// The performance counter instance name of an interface description, as Windows names the
// network interface instances: every "(" becomes "[", every ")" becomes "]", and every
// "#", "/" and "\\" becomes "_".
std::string counter_instance_name(const std::string& description);

class AdapterDiscovery {
 public:
  AdapterDiscovery(DeviceState& state, platform::DeviceLists& devices, platform::Clock& clock,
                   Log& log)
      : state_(state), devices_(devices), clock_(clock), log_(log) {}

  // The descriptions of the PCI network adapters whose hardware ID names the Wi-Fi chip
  // vendor: at most one, the first such adapter.
  void ListVendorNics(std::vector<std::string>& list);

  // Blocks, retrying every 5000 ms through the clock, until a WLAN interface whose
  // description contains the candidate's description is found; stores its GUID in
  // state.wlan_interface and its counter instance name in `instance_name`. Returns 0, or
  // 8 at once when the WLAN client is not open (state.wlan null).
  Status FindWifiInterface(std::string& instance_name);

  // Counts the connected Bluetooth devices of one enumerator ("BTHLE", "BTHENUM") into
  // `count`. kBtListUnavailable, with `count` untouched, when there is no device list.
  Status CountConnectedBtDevices(const std::string& enumerator, int32_t& count);

  // The config set for the present conditions: 3 lid closed (when lid notifications are
  // registered), else 1 on a 5 GHz link (channel above 14), 2 on a 2.4 GHz link with a
  // Bluetooth device connected, 0 otherwise (also when the band is unknown). A pending
  // device change first re-scans Bluetooth after a 2000 ms settle.
  uint32_t SelectConfigSet();

 private:
  std::string read_property(platform::DeviceList& list, uint32_t index,
                            platform::DeviceProperty property, const char* name);

  DeviceState& state_;
  platform::DeviceLists& devices_;
  platform::Clock& clock_;
  Log& log_;
};

}  // namespace zaltor::engine
