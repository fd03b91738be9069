#pragma once
// The settings a service process needs from its environment. A service that the manager
// starts does not get the installing shell's environment, so the installation registers
// the ones the installer has (Windows: the service key's "Environment" value, which the
// manager applies to the service process; Linux: Environment= lines of the unit).

#include <functional>
#include <string>
#include <vector>

namespace zaltor::service {

// The variables that choose the platform, the simulated notebook's scenario, the control
// endpoint and (Linux) the registry substitute's root.
inline constexpr const char* kServiceEnvironmentNames[] = {
    "ZALTOR_PLATFORM", "ZALTOR_SIM_SCENARIO", "ZALTOR_RPC_ENDPOINT", "ZALTOR_STATE_DIR"};

// "NAME=value" for each of those variables that `lookup` finds set and not empty, in the
// order above. `lookup` answers null for an unset variable (as std::getenv does).
std::vector<std::string> service_environment(const std::function<const char*(const char*)>& lookup);

}  // namespace zaltor::service
