// Device lists: the scenario's PCI network adapters and Bluetooth devices. A list is a
// snapshot taken when it is made, as the setup API's lists are.
#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {
namespace {

class SimDeviceList final : public DeviceList {
 public:
  explicit SimDeviceList(std::vector<SimDevice> devices) : devices_(std::move(devices)) {}
  bool has_device(uint32_t index) override { return index < devices_.size(); }
  uint32_t registry_property(uint32_t index, DeviceProperty property, std::string& value) override {
    value.clear();
    if (index >= devices_.size()) return kErrorNoMoreItems;
    const SimDevice& d = devices_[index];
    const std::optional<std::string>* p = &d.hardware_id;
    if (property == DeviceProperty::kDeviceDesc) p = &d.description;
    if (property == DeviceProperty::kFriendlyName) p = &d.friendly_name;
    // A property the device does not have cannot be read.
    if (!p->has_value()) return kErrorInvalidData;
    value = **p;
    return 0;
  }
  bool devnode_status(uint32_t index, uint32_t& status) override {
    if (index >= devices_.size()) return false;
    status = kDevNodeStarted | (devices_[index].connected ? 0u : kDevNodeDisconnected);
    return true;
  }

 private:
  std::vector<SimDevice> devices_;
};

bool iequals(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    auto up = [](char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; };
    if (up(a[i]) != up(b[i])) return false;
  }
  return true;
}

class SimDeviceLists final : public DeviceLists {
 public:
  explicit SimDeviceLists(NotebookCore& core) : core_(core) {}
  std::unique_ptr<DeviceList> present_devices(DeviceClass cls,
                                              const std::string& enumerator) override {
    std::lock_guard<std::mutex> g(core_.mutex);
    std::vector<SimDevice> devices;
    if (cls == DeviceClass::kNetwork && iequals(enumerator, "PCI")) {
      devices = core_.scenario.pci_nics;
    } else if (cls == DeviceClass::kBluetooth) {
      for (const auto& [name, list] : core_.scenario.bluetooth) {
        if (iequals(enumerator, name)) devices = list;
      }
    }
    return std::make_unique<SimDeviceList>(std::move(devices));
  }

 private:
  NotebookCore& core_;
};

}  // namespace

std::unique_ptr<DeviceLists> make_sim_device_lists(NotebookCore& core) {
  return std::make_unique<SimDeviceLists>(core);
}

}  // namespace zaltor::platform::sim
