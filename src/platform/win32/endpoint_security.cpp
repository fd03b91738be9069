#include "platform/win32/endpoint_security.h"

#include <aclapi.h>

#include "platform/win32/wide_text.h"

namespace zaltor::platform::win32 {

RpcStep EndpointSecurity::build(const std::string& name, DeriveCapabilitySidsFn derive) {
  release();
  if (derive == nullptr) {
    SetLastError(ERROR_PROC_NOT_FOUND);
    return RpcStep::failed(GetLastError(), rpc_call::kDeriveCapabilitySids);
  }
  const std::wstring wname = wide(name);
  if (!derive(wname.c_str(), &group_sids_, &group_count_, &capability_sids_, &capability_count_)) {
    const DWORD err = GetLastError();
    group_sids_ = nullptr;
    capability_sids_ = nullptr;
    group_count_ = capability_count_ = 0;
    return RpcStep::failed(err, rpc_call::kDeriveCapabilitySids);
  }
  if (capability_count_ != 1) {
    release();
    return RpcStep::failed(ERROR_INVALID_PARAMETER, rpc_call::kDeriveCapabilitySids);
  }

  SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
  if (!AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &world_sid_)) {
    const DWORD err = GetLastError();
    world_sid_ = nullptr;
    release();
    return RpcStep::failed(err, rpc_call::kAllocateSid);
  }

  EXPLICIT_ACCESS_W entries[2] = {};
  entries[0].grfAccessPermissions = GENERIC_ALL;
  entries[0].grfAccessMode = SET_ACCESS;
  entries[0].grfInheritance = NO_INHERITANCE;
  entries[0].Trustee.TrusteeForm = TRUSTEE_IS_SID;
  entries[0].Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
  entries[0].Trustee.ptstrName = static_cast<LPWSTR>(world_sid_);
  entries[1].grfAccessPermissions = GENERIC_ALL;
  entries[1].grfAccessMode = SET_ACCESS;
  entries[1].grfInheritance = NO_INHERITANCE;
  entries[1].Trustee.TrusteeForm = TRUSTEE_IS_SID;
  entries[1].Trustee.TrusteeType = TRUSTEE_IS_UNKNOWN;
  entries[1].Trustee.ptstrName = static_cast<LPWSTR>(capability_sids_[0]);
  if (const DWORD err = SetEntriesInAclW(2, entries, nullptr, &acl_); err != ERROR_SUCCESS) {
    acl_ = nullptr;
    release();
    return RpcStep::failed(err, rpc_call::kSetEntriesInAcl);
  }

  if (!InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION)) {
    const DWORD err = GetLastError();
    release();
    return RpcStep::failed(err, rpc_call::kInitializeSecurityDescriptor);
  }
  if (!SetSecurityDescriptorDacl(&descriptor_, TRUE, acl_, FALSE)) {
    const DWORD err = GetLastError();
    release();
    return RpcStep::failed(err, rpc_call::kSetSecurityDescriptorDacl);
  }
  built_ = true;
  return RpcStep::done();
}

// The SIDs that DeriveCapabilitySidsFromName gave, each and then their arrays, are freed
// with LocalFree; the world SID with FreeSid.
void EndpointSecurity::release() {
  built_ = false;
  if (capability_sids_ != nullptr) {
    for (DWORD i = 0; i < capability_count_; ++i) LocalFree(capability_sids_[i]);
    LocalFree(capability_sids_);
  }
  if (group_sids_ != nullptr) {
    for (DWORD i = 0; i < group_count_; ++i) LocalFree(group_sids_[i]);
    LocalFree(group_sids_);
  }
  capability_sids_ = group_sids_ = nullptr;
  capability_count_ = group_count_ = 0;
  if (world_sid_ != nullptr) FreeSid(world_sid_);
  world_sid_ = nullptr;
  if (acl_ != nullptr) LocalFree(acl_);
  acl_ = nullptr;
  descriptor_ = SECURITY_DESCRIPTOR{};
}

}  // namespace zaltor::platform::win32
