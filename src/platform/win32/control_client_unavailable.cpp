// The Windows build has no control client yet: it will call the control interface through
// the RPC runtime with the stubs generated from src/rpc/zaltor_antenna.idl. Until then every
// connection attempt answers RPC_S_SERVER_UNAVAILABLE, which antennactl reports as a fault.
#include "platform/control_client.h"

namespace zaltor::platform {

std::unique_ptr<ControlClient> connect_control_client(const std::string&, int, uint32_t& error) {
  error = kRpcServerUnavailable;
  return nullptr;
}

}  // namespace zaltor::platform
