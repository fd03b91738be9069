#pragma once
// Device lists of the setup API: present devices of a setup class and an enumerator, and
// the properties of each device. Every property read can fail with an error code.

#include <cstdint>
#include <memory>
#include <string>

namespace zaltor::platform {

enum class DeviceClass {
  kNetwork,    // {4D36E972-E325-11CE-BFC1-08002BE10318}
  kBluetooth,  // {E0CBF06C-CD8B-4647-BB8A-263B43F0F974}
};

enum class DeviceProperty { kHardwareId, kDeviceDesc, kFriendlyName };

// Node status bit of a device that is not connected (DN_DEVICE_DISCONNECTED).
constexpr uint32_t kDevNodeDisconnected = 0x02000000;

class DeviceList {
 public:
  virtual ~DeviceList() = default;
  // True while `index` names a device of the list.
  virtual bool has_device(uint32_t index) = 0;
  // 0 and the text, or the error code of the failed read.
  virtual uint32_t registry_property(uint32_t index, DeviceProperty property,
                                     std::string& value) = 0;
  // The device's node status (DEVPKEY_Device_DevNodeStatus); false when it cannot be read.
  virtual bool devnode_status(uint32_t index, uint32_t& status) = 0;
};

class DeviceLists {
 public:
  virtual ~DeviceLists() = default;
  // The present devices of a class with the given enumerator ("PCI", "BTHLE", "BTHENUM");
  // null when the list cannot be had.
  virtual std::unique_ptr<DeviceList> present_devices(DeviceClass cls,
                                                      const std::string& enumerator) = 0;
};

}  // namespace zaltor::platform
