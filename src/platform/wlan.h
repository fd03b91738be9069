#pragma once
// The WLAN client (native Wi-Fi API on Windows).

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/guid.h"

namespace zaltor::platform {

// Interface states as the WLAN API numbers them.
enum WlanInterfaceState : uint32_t {
  kWlanNotReady = 0,
  kWlanConnected = 1,
  kWlanAdHocFormed = 2,
  kWlanDisconnecting = 3,
  kWlanDisconnected = 4,
  kWlanAssociating = 5,
  kWlanDiscovering = 6,
  kWlanAuthenticating = 7,
};

// Notification sources and the MSM codes the service acts on.
constexpr uint32_t kWlanSourceNone = 0;
constexpr uint32_t kWlanSourceMsm = 0x10;
constexpr uint32_t kWlanMsmConnected = 4;
constexpr uint32_t kWlanMsmDisconnected = 10;
constexpr uint32_t kWlanMsmAdapterRemoval = 13;

struct WlanInterfaceInfo {
  Guid guid;
  std::string description;
  uint32_t state = kWlanNotReady;
};

// Called on a thread of the WLAN service with the notification's source and code.
using WlanCallback = std::function<void(uint32_t source, uint32_t code)>;

class WlanSession {
 public:
  virtual ~WlanSession() = default;
  // Each call answers 0 or a system error code.
  virtual uint32_t enum_interfaces(std::vector<WlanInterfaceInfo>& interfaces) = 0;
  // wlan_intf_opcode_current_connection: the interface state of the current connection.
  virtual uint32_t query_connection_state(const Guid& iface, uint32_t& state) = 0;
  // wlan_intf_opcode_channel_number.
  virtual uint32_t query_channel(const Guid& iface, uint32_t& channel) = 0;
  // Registers `callback` for `sources` (ignoring duplicates); kWlanSourceNone cancels.
  virtual uint32_t register_notification(uint32_t sources, WlanCallback callback) = 0;
};

class Wlan {
 public:
  virtual ~Wlan() = default;
  // WlanOpenHandle with the client version; null and `error` on failure.
  virtual std::unique_ptr<WlanSession> open(uint32_t client_version, uint32_t& error) = 0;
};

}  // namespace zaltor::platform
