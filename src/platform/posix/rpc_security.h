#pragma once
// Security identifiers, access lists and descriptors of the Linux control endpoint. They are
// built exactly as on Windows so that the set-up logic runs unchanged; the endpoint itself is
// an abstract local socket, which admits every local process, as the access list says.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/rpc_runtime.h"

namespace zaltor::platform {

struct SidObject {
  SidAuthority authority{};
  std::vector<uint32_t> sub_authorities;
};

struct AclObject {
  struct Entry {
    uint32_t permissions;
    uint32_t mode;
    uint32_t inheritance;
    uint32_t trustee_type;
    SidObject trustee;
  };
  std::vector<Entry> entries;
};

namespace posix_security {

// "S-1-15-3-1024-...": the text form of a SID.
std::string to_string(const SidObject& sid);

// The capability SID (S-1-15-3-1024-h0..h7) and the capability group SID (S-1-5-32-h0..h7)
// of a capability or package name, hi being the eight little-endian 32-bit words of the
// SHA-256 of the upper-cased UTF-16LE name. False (error 87) for an empty name.
bool derive_capability_sids(const std::string& name, SidObject& capability, SidObject& group);

// Descriptor kept in SecurityDescriptor::storage.
struct DescriptorState {
  uint32_t magic;
  uint32_t revision;
  bool dacl_present;
  bool dacl_defaulted;
  const AclObject* dacl;
};
inline constexpr uint32_t kDescriptorMagic = 0x5344'4c5a;  // marks an initialised one

bool descriptor_valid(const SecurityDescriptor& sd);
DescriptorState read_descriptor(const SecurityDescriptor& sd);
void write_descriptor(SecurityDescriptor& sd, const DescriptorState& s);

}  // namespace posix_security
}  // namespace zaltor::platform
