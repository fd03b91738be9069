#pragma once
// The security descriptor of the control endpoint and its interfaces: a discretionary access
// list that grants everyone (S-1-1-0), and then the app container of the companion package
// (its capability SID: an app container is not part of Everyone), generic all access.

#include <windows.h>

#include <string>

#include "platform/rpc_runtime.h"
#include "platform/win32/capability_sids.h"

namespace zaltor::platform::win32 {

class EndpointSecurity {
 public:
  EndpointSecurity() = default;
  ~EndpointSecurity() { release(); }
  EndpointSecurity(const EndpointSecurity&) = delete;
  EndpointSecurity& operator=(const EndpointSecurity&) = delete;

  // Builds the descriptor for the package with capability name `name`, `derive` standing for
  // DeriveCapabilitySidsFromName (null: the system has none, ERROR_PROC_NOT_FOUND). Fails
  // with the failing call's error, or 87 when the name does not yield exactly one capability
  // SID; what was built on the way is freed. A second build replaces the first.
  RpcStep build(const std::string& name, DeriveCapabilitySidsFn derive);

  // The descriptor once built, else null.
  PSECURITY_DESCRIPTOR descriptor() { return built_ ? &descriptor_ : nullptr; }

 private:
  void release();

  PSID* group_sids_ = nullptr;
  DWORD group_count_ = 0;
  PSID* capability_sids_ = nullptr;
  DWORD capability_count_ = 0;
  PSID world_sid_ = nullptr;
  PACL acl_ = nullptr;
  SECURITY_DESCRIPTOR descriptor_{};
  bool built_ = false;
};

}  // namespace zaltor::platform::win32
