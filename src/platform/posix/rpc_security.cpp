#include "platform/posix/rpc_security.h"

#include <openssl/evp.h>

#include <cstring>

namespace zaltor::platform::posix_security {

std::string to_string(const SidObject& sid) {
  uint64_t authority = 0;
  for (uint8_t b : sid.authority) authority = (authority << 8) | b;
  std::string s = "S-1-" + std::to_string(authority);
  for (uint32_t sub : sid.sub_authorities) s += "-" + std::to_string(sub);
  return s;
}

bool derive_capability_sids(const std::string& name, SidObject& capability, SidObject& group) {
  if (name.empty()) return false;
  // Capability names are case-insensitive: hash the upper-cased UTF-16LE text. Package
  // family names are ASCII, so a byte-wise upper-casing is enough.
  std::vector<uint8_t> utf16;
  for (char c : name) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u >= 'a' && u <= 'z') u = static_cast<unsigned char>(u - 'a' + 'A');
    utf16.push_back(u);
    utf16.push_back(0);
  }
  unsigned char digest[32];
  unsigned int len = 0;
  if (EVP_Digest(utf16.data(), utf16.size(), digest, &len, EVP_sha256(), nullptr) != 1 ||
      len != 32) {
    return false;
  }
  std::vector<uint32_t> words;
  for (int i = 0; i < 8; ++i) {
    const unsigned char* p = digest + 4 * i;
    words.push_back(static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                    static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24);
  }
  capability.authority = {0, 0, 0, 0, 0, 15};  // SECURITY_APP_PACKAGE_AUTHORITY
  capability.sub_authorities = {3, 1024};
  capability.sub_authorities.insert(capability.sub_authorities.end(), words.begin(), words.end());
  group.authority = {0, 0, 0, 0, 0, 5};  // SECURITY_NT_AUTHORITY
  group.sub_authorities = {32};
  group.sub_authorities.insert(group.sub_authorities.end(), words.begin(), words.end());
  return true;
}

static_assert(sizeof(DescriptorState) <= sizeof(SecurityDescriptor::storage));

DescriptorState read_descriptor(const SecurityDescriptor& sd) {
  DescriptorState s;
  std::memcpy(&s, sd.storage.data(), sizeof s);
  return s;
}

void write_descriptor(SecurityDescriptor& sd, const DescriptorState& s) {
  std::memcpy(sd.storage.data(), &s, sizeof s);
}

bool descriptor_valid(const SecurityDescriptor& sd) {
  return read_descriptor(sd).magic == kDescriptorMagic;
}

}  // namespace zaltor::platform::posix_security
