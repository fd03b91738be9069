#include "service/service_environment.h"

namespace zaltor::service {

std::vector<std::string> service_environment(
    const std::function<const char*(const char*)>& lookup) {
  std::vector<std::string> entries;
  for (const char* name : kServiceEnvironmentNames) {
    const char* value = lookup(name);
    // An empty variable means the default, as if it were not set: nothing to register.
    if (value != nullptr && *value != '\0') entries.push_back(std::string(name) + "=" + value);
  }
  return entries;
}

}  // namespace zaltor::service
