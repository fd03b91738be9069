// The WLAN client: the scenario's interfaces, and notifications delivered on the WLAN
// service thread to the callback a session registered.
#include <algorithm>

#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {
namespace {

class SimWlanSession final : public WlanSession {
 public:
  explicit SimWlanSession(NotebookCore& core) : core_(core), id_(core.new_session_id()) {}
  ~SimWlanSession() override { drop_registration(); }

  uint32_t enum_interfaces(std::vector<WlanInterfaceInfo>& interfaces) override {
    core_.spend_call_time();
    std::lock_guard<std::mutex> g(core_.mutex);
    interfaces.clear();
    for (const auto& i : core_.scenario.interfaces) {
      interfaces.push_back(
          {i.guid, i.description, i.connected ? kWlanConnected : kWlanDisconnected});
    }
    return 0;
  }
  uint32_t query_connection_state(const Guid& iface, uint32_t& state) override {
    core_.spend_call_time();
    std::lock_guard<std::mutex> g(core_.mutex);
    const SimInterface* i = find(iface);
    if (i == nullptr) return kErrorNotFound;
    // Without a connection there is no current connection to describe.
    if (!i->connected) return kErrorInvalidState;
    state = kWlanConnected;
    return 0;
  }
  uint32_t query_channel(const Guid& iface, uint32_t& channel) override {
    core_.spend_call_time();
    std::lock_guard<std::mutex> g(core_.mutex);
    const SimInterface* i = find(iface);
    if (i == nullptr) return kErrorNotFound;
    if (!i->connected) return kErrorInvalidState;
    channel = i->channel;
    return 0;
  }
  uint32_t register_notification(uint32_t sources, WlanCallback callback) override {
    drop_registration();
    if (sources == kWlanSourceNone) return 0;
    if (!callback) return kErrorInvalidParameter;
    std::lock_guard<std::mutex> g(core_.mutex);
    core_.wlan_registrations.push_back({id_, sources, std::move(callback)});
    return 0;
  }

 private:
  const SimInterface* find(const Guid& g) const {
    for (const auto& i : core_.scenario.interfaces) {
      if (i.guid == g) return &i;
    }
    return nullptr;
  }
  void drop_registration() {
    std::lock_guard<std::mutex> g(core_.mutex);
    auto& regs = core_.wlan_registrations;
    regs.erase(std::remove_if(regs.begin(), regs.end(),
                              [&](const WlanRegistration& r) { return r.session == id_; }),
               regs.end());
  }

  NotebookCore& core_;
  uint64_t id_;
};

class SimWlan final : public Wlan {
 public:
  explicit SimWlan(NotebookCore& core) : core_(core) {}
  std::unique_ptr<WlanSession> open(uint32_t client_version, uint32_t& error) override {
    if (client_version != 1 && client_version != 2) {
      error = kErrorInvalidParameter;
      return nullptr;
    }
    error = 0;
    return std::make_unique<SimWlanSession>(core_);
  }

 private:
  NotebookCore& core_;
};

}  // namespace

std::unique_ptr<Wlan> make_sim_wlan(NotebookCore& core) {
  return std::make_unique<SimWlan>(core);
}

}  // namespace zaltor::platform::sim
