// Device lists of the setup API. A list is the snapshot that SetupDiGetClassDevsW took; each
// read finds its device by index again (SetupDiEnumDeviceInfo), so a missing index fails
// with the setup API's own error (ERROR_NO_MORE_ITEMS).
#include <windows.h>
// windows.h first: the setup API headers build on its types.
#include <devpropdef.h>
#include <setupapi.h>

#include <vector>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_hardware.h"

namespace zaltor::platform {
namespace {

// The two setup classes and the node status property, spelled out here so that no
// translation unit has to instantiate the system headers' GUID definitions.
constexpr GUID kNetworkClass = {
    0x4D36E972, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID kBluetoothClass = {
    0xE0CBF06C, 0xCD8B, 0x4647, {0xBB, 0x8A, 0x26, 0x3B, 0x43, 0xF0, 0xF9, 0x74}};
const DEVPROPKEY kDevNodeStatusKey = {
    {0x4340A6C5, 0x93FA, 0x4706, {0x97, 0x2C, 0x7B, 0x64, 0x80, 0x08, 0xA5, 0xA7}}, 2};

// Property values are read into a zeroed 1024-byte buffer; a longer value fails to read.
constexpr DWORD kPropertyBufferBytes = 1024;

class SetupApiDeviceList final : public DeviceList {
 public:
  explicit SetupApiDeviceList(HDEVINFO set) : set_(set) {}
  ~SetupApiDeviceList() override { SetupDiDestroyDeviceInfoList(set_); }
  SetupApiDeviceList(const SetupApiDeviceList&) = delete;
  SetupApiDeviceList& operator=(const SetupApiDeviceList&) = delete;

  bool has_device(uint32_t index) override {
    SP_DEVINFO_DATA data;
    return device(index, data);
  }

  uint32_t registry_property(uint32_t index, DeviceProperty property, std::string& value) override {
    value.clear();
    SP_DEVINFO_DATA data;
    if (!device(index, data)) return static_cast<uint32_t>(GetLastError());
    DWORD code = SPDRP_HARDWAREID;
    if (property == DeviceProperty::kDeviceDesc) code = SPDRP_DEVICEDESC;
    if (property == DeviceProperty::kFriendlyName) code = SPDRP_FRIENDLYNAME;
    // One unit more than the buffer handed over, so that the text always ends here.
    std::vector<wchar_t> buffer(kPropertyBufferBytes / sizeof(wchar_t) + 1, L'\0');
    if (!SetupDiGetDeviceRegistryPropertyW(set_, &data, code, nullptr,
                                           reinterpret_cast<BYTE*>(buffer.data()),
                                           kPropertyBufferBytes, nullptr)) {
      return static_cast<uint32_t>(GetLastError());
    }
    // Hardware IDs are a list of strings: the first one is the device's own.
    value = win32::narrow(buffer.data());
    return 0;
  }

  bool devnode_status(uint32_t index, uint32_t& status) override {
    SP_DEVINFO_DATA data;
    if (!device(index, data)) return false;
    DEVPROPTYPE type = 0;
    ULONG read = 0;
    if (!SetupDiGetDevicePropertyW(set_, &data, &kDevNodeStatusKey, &type,
                                   reinterpret_cast<BYTE*>(&read), sizeof(read), nullptr, 0)) {
      return false;
    }
    status = static_cast<uint32_t>(read);
    return true;
  }

 private:
  bool device(uint32_t index, SP_DEVINFO_DATA& data) {
    data = {};
    data.cbSize = sizeof(data);
    return SetupDiEnumDeviceInfo(set_, index, &data) != FALSE;
  }

  HDEVINFO set_;
};

class SetupApiDeviceLists final : public DeviceLists {
 public:
  std::unique_ptr<DeviceList> present_devices(DeviceClass cls,
                                              const std::string& enumerator) override {
    const GUID& guid = cls == DeviceClass::kNetwork ? kNetworkClass : kBluetoothClass;
    const HDEVINFO set =
        SetupDiGetClassDevsW(&guid, win32::wide(enumerator).c_str(), nullptr, DIGCF_PRESENT);
    if (set == INVALID_HANDLE_VALUE) return nullptr;
    return std::make_unique<SetupApiDeviceList>(set);
  }
};

}  // namespace

std::unique_ptr<DeviceLists> make_setupapi_device_lists() {
  return std::make_unique<SetupApiDeviceLists>();
}

}  // namespace zaltor::platform
