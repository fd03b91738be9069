#include "engine/adapter_discovery.h"

#include "config/settings.h"

namespace zaltor::engine {

using platform::Clock;
using platform::DeviceClass;
using platform::DeviceList;
using platform::DeviceLists;
using platform::DeviceProperty;
using platform::kDevNodeDisconnected;
using platform::kWlanConnected;
using platform::to_string;
using platform::WlanInterfaceInfo;

std::string counter_instance_name(const std::string& description) {
  std::string name = description;
  for (char& c : name) {
    if (c == '(') c = '[';
  }
  for (char& c : name) {
    if (c == ')') c = ']';
  }
  // The network interface counters publish "#", "/" and "\\" as "_" too: a path cannot hold
  // them inside an instance name, and a second adapter of a kind is named "... #2".
  for (char& c : name) {
    if (c == '#' || c == '/' || c == '\\') c = '_';
  }
  return name;
}

std::string AdapterDiscovery::read_property(DeviceList& list, uint32_t index,
                                            DeviceProperty property, const char* name) {
  std::string value;
  const uint32_t error = list.registry_property(index, property, value);
  if (error != 0) {
    if (name != nullptr) {
      log_.write(kLogInfo, "SetupDiGetDeviceRegistryProperty %s error %d\n", name,
                 static_cast<int>(error));
    }
    return {};
  }
  return value;
}

void AdapterDiscovery::ListVendorNics(std::vector<std::string>& list) {
  list.clear();
  std::unique_ptr<DeviceList> nics = devices_.present_devices(DeviceClass::kNetwork, "PCI");
  if (!nics) return;
  for (uint32_t i = 0; nics->has_device(i); ++i) {
    const std::string hwid =
        read_property(*nics, i, DeviceProperty::kHardwareId, "SPDRP_HARDWAREID");
    const std::string desc =
        read_property(*nics, i, DeviceProperty::kDeviceDesc, "SPDRP_DEVICEDESC");
    log_.write(kLogInfo, "PCI_NET[%d] %s (%s)\n", static_cast<int>(i), desc.c_str(), hwid.c_str());
    if (hwid.find(kWifiVendorPattern) != std::string::npos) {
      list.push_back(desc);
      return;  // the first matching adapter is the only candidate
    }
  }
}

Status AdapterDiscovery::FindWifiInterface(std::string& instance_name) {
  if (state_.wlan() == nullptr) return kStatusWlanNotOpened;
  for (;;) {
    std::vector<std::string> candidates;
    ListVendorNics(candidates);
    if (candidates.empty()) {
      log_.write(kLogWarning, "No NICs found on system.\n");
      clock_.sleep_ms(kDiscoveryRetryMs);
      continue;
    }
    std::vector<WlanInterfaceInfo> interfaces;
    const uint32_t error = state_.wlan()->enum_interfaces(interfaces);
    if (error != 0) {
      log_.write(kLogWarning, "WlanEnumInterfaces failed with error: %u\n", error);
      clock_.sleep_ms(kDiscoveryRetryMs);
      continue;
    }
    log_.write(kLogInfo, "Num Entries: %lu\n", static_cast<unsigned long>(interfaces.size()));
    if (interfaces.empty()) {
      log_.write(kLogWarning, "Cannot get desired wNIC! (All wNICs disabled?)\n");
      clock_.sleep_ms(kDiscoveryRetryMs);
      continue;
    }
    for (size_t i = 0; i < interfaces.size(); ++i) {
      const WlanInterfaceInfo& iface = interfaces[i];
      log_.write(kLogInfo, "WNIC[%d]: %s (%s)\n", static_cast<int>(i), iface.description.c_str(),
                 to_string(iface.guid).c_str());
      bool match = false;
      for (const std::string& candidate : candidates) {
        if (iface.description.find(candidate) != std::string::npos) match = true;
      }
      if (!match) continue;
      log_.write(kLogInfo, "<Selected interface>");
      instance_name = counter_instance_name(iface.description);
      state_.set_wlan_interface(iface.guid);
      if (iface.state != kWlanConnected)
        log_.write(kLogWarning, " WARNING: Wifi not connected!!\n");
      return SWITCH_OK;
    }
    clock_.sleep_ms(kDiscoveryRetryMs);
  }
}

Status AdapterDiscovery::CountConnectedBtDevices(const std::string& enumerator, int32_t& count) {
  std::unique_ptr<DeviceList> list = devices_.present_devices(DeviceClass::kBluetooth, enumerator);
  if (!list) return kBtListUnavailable;
  const std::string pattern = enumerator + "\\Dev";
  const char* en = enumerator.c_str();
  int32_t connected = 0;
  for (uint32_t i = 0; list->has_device(i); ++i) {
    const std::string hwid =
        read_property(*list, i, DeviceProperty::kHardwareId, "SPDRP_HARDWAREID");
    const std::string desc =
        read_property(*list, i, DeviceProperty::kDeviceDesc, "SPDRP_DEVICEDESC");
    const std::string friendly = read_property(*list, i, DeviceProperty::kFriendlyName, nullptr);
    const int index = static_cast<int>(i);
    if (hwid.find(pattern) == std::string::npos) {
      log_.write(kLogInfo, "*%s[%d] %s <%s> (%s)\n", en, index, friendly.c_str(), desc.c_str(),
                 hwid.c_str());
      continue;
    }
    uint32_t status = 0;
    if (!list->devnode_status(i, status)) continue;
    const bool is_connected = (status & kDevNodeDisconnected) == 0;
    log_.write(kLogInfo, "%s[%d/%s] %s <%s> (%s)\n", en, index,
               is_connected ? "Connected" : "Disconnected", friendly.c_str(), desc.c_str(),
               hwid.c_str());
    if (is_connected) ++connected;
  }
  count = connected;
  return SWITCH_OK;
}

uint32_t AdapterDiscovery::SelectConfigSet() {
  if (state_.lid_notification_registered() && !state_.lid_open()) {
    return config::kConfLidClosed;
  }
  if (state_.take_device_change_pending()) {
    clock_.sleep_ms(kBluetoothSettleMs);
    int32_t le = 0;
    int32_t classic = 0;
    CountConnectedBtDevices("BTHLE", le);
    CountConnectedBtDevices("BTHENUM", classic);
    state_.set_bt_connection_count(le + classic);
  }
  enum class Band { kUnknown, k24, k5 } band = Band::kUnknown;
  if (state_.ready() && state_.wlan() != nullptr) {
    uint32_t channel = 0;
    if (state_.wlan()->query_channel(state_.wlan_interface(), channel) == 0 && channel != 0) {
      band = channel > 14 ? Band::k5 : Band::k24;
    }
  }
  switch (band) {
    case Band::k5:
      return config::kConf5G;
    case Band::k24:
      return state_.bt_connection_count() > 0 ? config::kConfBtCoexist : config::kConf24G;
    case Band::kUnknown:
      break;
  }
  return config::kConf24G;
}

}  // namespace zaltor::engine
