#include "rpc/control_endpoint.h"

#include "rpc/control_interface.h"

namespace zaltor::rpc {

uint32_t serve(const EndpointSetup& setup) {
  platform::RpcRuntime& rt = setup.runtime;

  // Everyone, and the companion app's package (an app container is not part of Everyone).
  if (const platform::RpcStep st = rt.admit_everyone_and(kCompanionPackageFamily); !st.ok()) {
    return st.status;
  }

  setup.log.write(kLogInfo, "Initializing RPC endpoints.\n");
  // A previous instance may still hold the name: wait for it, silently and for ever.
  while (!rt.open_endpoint(setup.endpoint).ok()) setup.clock.sleep_ms(kEndpointRetryMs);
  setup.log.write(kLogInfo, "RPC Endpoints ok.\n");

  if (setup.choose_auto) setup.choose_auto();

  if (const platform::RpcStep st = rt.serve_control(setup.procedures); !st.ok()) return st.status;
  // The diagnostics are a help beside the companion app's interface: without them the
  // control interface is still served.
  if (setup.diagnostics != nullptr) rt.serve_diagnostics(*setup.diagnostics);

  if (const platform::RpcStep st = rt.publish_control(); !st.ok()) return st.status;

  platform::RpcStep st;
  {
    // Listening blocks outside the clock for the life of the process.
    platform::ClockAbsence absent(setup.clock);
    st = rt.listen();
  }
  // The auto-listen registration may already have started listening.
  if (st.status == platform::kRpcAlreadyListening) return 0;
  return st.status;
}

void withdraw(platform::RpcRuntime& runtime) {
  runtime.withdraw();
}

}  // namespace zaltor::rpc
