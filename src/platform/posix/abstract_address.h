#pragma once
// The address of a name in Linux's abstract socket namespace, where the control interface's
// endpoints live: no file, gone with the last socket bound to it.

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace zaltor::platform {

// The longest name an abstract address holds: its first byte is the zero that marks it.
inline constexpr size_t kAbstractNameMax = sizeof(sockaddr_un{}.sun_path) - 1;

// Fills `addr` with the abstract address of `name` and answers the address's length; 0 (and
// `addr` cleared) when the name is empty or longer than kAbstractNameMax.
inline socklen_t abstract_address(const std::string& name, sockaddr_un& addr) {
  addr = sockaddr_un{};
  if (name.empty() || name.size() > kAbstractNameMax) return 0;
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path + 1, name.data(), name.size());
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

}  // namespace zaltor::platform
