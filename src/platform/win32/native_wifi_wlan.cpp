// The WLAN client over the native Wi-Fi API. Notifications reach the registered callback
// through a static trampoline whose context is the session's callback slot; the slot lives
// as long as the session, and WlanCloseHandle (which waits for callbacks in progress) runs
// before it goes away, so no callback runs after the session ended.
#include <windows.h>
// windows.h first: the WLAN API headers build on its types.
#include <wlanapi.h>

#include <mutex>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_hardware.h"

namespace zaltor::platform {
namespace {

static_assert(wlan_intf_opcode_current_connection == 7 && wlan_intf_opcode_channel_number == 8,
              "the WLAN API numbers its opcodes so");

Guid to_guid(const GUID& g) {
  Guid out;
  out.data1 = g.Data1;
  out.data2 = g.Data2;
  out.data3 = g.Data3;
  for (size_t i = 0; i < out.data4.size(); ++i) out.data4[i] = g.Data4[i];
  return out;
}

GUID to_win32(const Guid& g) {
  GUID out;
  out.Data1 = g.data1;
  out.Data2 = g.data2;
  out.Data3 = g.data3;
  for (size_t i = 0; i < g.data4.size(); ++i) out.Data4[i] = g.data4[i];
  return out;
}

// What the trampoline calls: replaced while the WLAN service may deliver, so under a lock;
// the callback itself runs outside it.
struct CallbackSlot {
  std::mutex mutex;
  WlanCallback callback;

  void deliver(uint32_t source, uint32_t code) {
    WlanCallback copy;
    {
      std::lock_guard<std::mutex> g(mutex);
      copy = callback;
    }
    if (copy) copy(source, code);
  }
};

void WINAPI notification_trampoline(PWLAN_NOTIFICATION_DATA data, PVOID context) {
  if (data == nullptr || context == nullptr) return;
  static_cast<CallbackSlot*>(context)->deliver(data->NotificationSource, data->NotificationCode);
}

class NativeWifiSession final : public WlanSession {
 public:
  explicit NativeWifiSession(HANDLE client) : client_(client) {}
  ~NativeWifiSession() override {
    WlanRegisterNotification(client_, WLAN_NOTIFICATION_SOURCE_NONE, TRUE, nullptr, nullptr,
                             nullptr, nullptr);
    WlanCloseHandle(client_, nullptr);
  }
  NativeWifiSession(const NativeWifiSession&) = delete;
  NativeWifiSession& operator=(const NativeWifiSession&) = delete;

  uint32_t enum_interfaces(std::vector<WlanInterfaceInfo>& interfaces) override {
    interfaces.clear();
    PWLAN_INTERFACE_INFO_LIST list = nullptr;
    const DWORD st = WlanEnumInterfaces(client_, nullptr, &list);
    if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
    for (DWORD i = 0; list != nullptr && i < list->dwNumberOfItems; ++i) {
      const WLAN_INTERFACE_INFO& info = list->InterfaceInfo[i];
      interfaces.push_back({to_guid(info.InterfaceGuid),
                            win32::narrow(info.strInterfaceDescription),
                            static_cast<uint32_t>(info.isState)});
    }
    if (list != nullptr) WlanFreeMemory(list);
    return 0;
  }

  uint32_t query_connection_state(const Guid& iface, uint32_t& state) override {
    void* data = nullptr;
    const DWORD st = query(iface, wlan_intf_opcode_current_connection, data);
    if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
    state = static_cast<uint32_t>(static_cast<WLAN_CONNECTION_ATTRIBUTES*>(data)->isState);
    WlanFreeMemory(data);
    return 0;
  }

  uint32_t query_channel(const Guid& iface, uint32_t& channel) override {
    void* data = nullptr;
    const DWORD st = query(iface, wlan_intf_opcode_channel_number, data);
    if (st != ERROR_SUCCESS) return static_cast<uint32_t>(st);
    channel = static_cast<uint32_t>(*static_cast<ULONG*>(data));
    WlanFreeMemory(data);
    return 0;
  }

  uint32_t register_notification(uint32_t sources, WlanCallback callback) override {
    if (sources == kWlanSourceNone) {
      const DWORD st = WlanRegisterNotification(client_, WLAN_NOTIFICATION_SOURCE_NONE, TRUE,
                                                nullptr, nullptr, nullptr, nullptr);
      std::lock_guard<std::mutex> g(slot_.mutex);
      slot_.callback = nullptr;
      return static_cast<uint32_t>(st);
    }
    if (!callback) return ERROR_INVALID_PARAMETER;
    {
      std::lock_guard<std::mutex> g(slot_.mutex);
      slot_.callback = std::move(callback);
    }
    // Duplicate notifications are ignored: the service acts on a state, not on a count.
    return static_cast<uint32_t>(WlanRegisterNotification(
        client_, sources, TRUE, notification_trampoline, &slot_, nullptr, nullptr));
  }

 private:
  // A successful query leaves a buffer of the API's that the caller frees.
  DWORD query(const Guid& iface, WLAN_INTF_OPCODE opcode, void*& data) {
    const GUID guid = to_win32(iface);
    DWORD size = 0;
    data = nullptr;
    const DWORD st = WlanQueryInterface(client_, &guid, opcode, nullptr, &size, &data, nullptr);
    if (st == ERROR_SUCCESS && data == nullptr) return ERROR_INVALID_DATA;
    return st;
  }

  HANDLE client_;
  CallbackSlot slot_;
};

class NativeWifiWlan final : public Wlan {
 public:
  std::unique_ptr<WlanSession> open(uint32_t client_version, uint32_t& error) override {
    DWORD negotiated = 0;
    HANDLE client = nullptr;
    const DWORD st = WlanOpenHandle(client_version, nullptr, &negotiated, &client);
    error = static_cast<uint32_t>(st);
    if (st != ERROR_SUCCESS) return nullptr;
    return std::make_unique<NativeWifiSession>(client);
  }
};

}  // namespace

std::unique_ptr<Wlan> make_native_wifi_wlan() {
  return std::make_unique<NativeWifiWlan>();
}

}  // namespace zaltor::platform
