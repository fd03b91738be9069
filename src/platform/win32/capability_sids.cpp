#include "platform/win32/capability_sids.h"

#include <bcrypt.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace zaltor::platform::win32 {
namespace {

constexpr DWORD kCapabilityBaseRid = 3;    // SECURITY_CAPABILITY_BASE_RID
constexpr DWORD kCapabilityAppRid = 1024;  // SECURITY_CAPABILITY_APP_RID
constexpr DWORD kBuiltinDomainRid = 32;    // SECURITY_BUILTIN_DOMAIN_RID
constexpr SID_IDENTIFIER_AUTHORITY kNtAuthority = {{0, 0, 0, 0, 0, 5}};
constexpr SID_IDENTIFIER_AUTHORITY kAppPackageAuthority = {{0, 0, 0, 0, 0, 15}};

// The capabilities of Windows 8, whose capability SIDs were assigned by number.
struct LegacyCapability {
  const wchar_t* name;
  DWORD rid;
};
constexpr LegacyCapability kLegacy[] = {
    {L"internetClient", 1},
    {L"internetClientServer", 2},
    {L"privateNetworkClientServer", 3},
    {L"picturesLibrary", 4},
    {L"videosLibrary", 5},
    {L"musicLibrary", 6},
    {L"documentsLibrary", 7},
    {L"enterpriseAuthentication", 8},
    {L"sharedUserCertificates", 9},
    {L"removableStorage", 10},
    {L"appointments", 11},
    {L"contacts", 12},
};

bool sha256(const void* data, ULONG size, std::array<UCHAR, 32>& digest) {
  BCRYPT_ALG_HANDLE alg = nullptr;
  if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&alg, BCRYPT_SHA256_ALGORITHM, nullptr, 0))) {
    return false;
  }
  BCRYPT_HASH_HANDLE hash = nullptr;
  bool ok = BCRYPT_SUCCESS(BCryptCreateHash(alg, &hash, nullptr, 0, nullptr, 0, 0));
  if (ok) {
    ok = BCRYPT_SUCCESS(
             BCryptHashData(hash, static_cast<PUCHAR>(const_cast<void*>(data)), size, 0)) &&
         BCRYPT_SUCCESS(BCryptFinishHash(hash, digest.data(), 32, 0));
    BCryptDestroyHash(hash);
  }
  BCryptCloseAlgorithmProvider(alg, 0);
  return ok;
}

// A SID in LocalAlloc memory, or null (with the error set).
PSID make_sid(const SID_IDENTIFIER_AUTHORITY& authority, const std::vector<DWORD>& subs) {
  const auto count = static_cast<BYTE>(subs.size());
  PSID sid = LocalAlloc(LPTR, GetSidLengthRequired(count));
  if (sid == nullptr) return nullptr;
  SID_IDENTIFIER_AUTHORITY a = authority;
  if (!InitializeSid(sid, &a, count)) {
    const DWORD err = GetLastError();
    LocalFree(sid);
    SetLastError(err);
    return nullptr;
  }
  for (BYTE i = 0; i < count; ++i) *GetSidSubAuthority(sid, i) = subs[i];
  return sid;
}

// A one-element array holding `sid`, or null.
PSID* one_element_array(PSID sid) {
  auto* array = static_cast<PSID*>(LocalAlloc(LPTR, sizeof(PSID)));
  if (array != nullptr) array[0] = sid;
  return array;
}

}  // namespace

DeriveCapabilitySidsFn find_derive_capability_sids() {
  HMODULE kernelbase = GetModuleHandleW(L"kernelbase.dll");
  if (kernelbase == nullptr) return nullptr;
  return reinterpret_cast<DeriveCapabilitySidsFn>(
      reinterpret_cast<void*>(GetProcAddress(kernelbase, "DeriveCapabilitySidsFromName")));
}

DeriveCapabilitySidsFn choose_derive_capability_sids() {
  DeriveCapabilitySidsFn derive = find_derive_capability_sids();
  return derive != nullptr ? derive : &derive_capability_sids_by_hash;
}

BOOL WINAPI derive_capability_sids_by_hash(LPCWSTR name, PSID** group_sids, DWORD* group_count,
                                           PSID** capability_sids, DWORD* capability_count) {
  if (name == nullptr || *name == L'\0' || group_sids == nullptr || group_count == nullptr ||
      capability_sids == nullptr || capability_count == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  // Capability names compare without regard to case: hash the invariant upper case.
  const int length = static_cast<int>(wcslen(name));
  std::wstring upper(static_cast<size_t>(length), L'\0');
  if (LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, name, length, upper.data(), length,
                    nullptr, nullptr, 0) != length) {
    return FALSE;
  }
  std::array<UCHAR, 32> digest{};
  if (!sha256(upper.data(), static_cast<ULONG>(upper.size() * sizeof(wchar_t)), digest)) {
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
  }
  std::vector<DWORD> words(8);
  for (size_t i = 0; i < 8; ++i) {
    words[i] = static_cast<DWORD>(digest[4 * i]) | (static_cast<DWORD>(digest[4 * i + 1]) << 8) |
               (static_cast<DWORD>(digest[4 * i + 2]) << 16) |
               (static_cast<DWORD>(digest[4 * i + 3]) << 24);
  }

  std::vector<DWORD> group_subs{kBuiltinDomainRid};
  group_subs.insert(group_subs.end(), words.begin(), words.end());
  std::vector<DWORD> capability_subs{kCapabilityBaseRid, kCapabilityAppRid};
  capability_subs.insert(capability_subs.end(), words.begin(), words.end());
  for (const LegacyCapability& legacy : kLegacy) {
    if (CompareStringOrdinal(name, -1, legacy.name, -1, TRUE) == CSTR_EQUAL) {
      capability_subs = {kCapabilityBaseRid, legacy.rid};
    }
  }

  PSID group = make_sid(kNtAuthority, group_subs);
  PSID capability = group != nullptr ? make_sid(kAppPackageAuthority, capability_subs) : nullptr;
  PSID* groups = capability != nullptr ? one_element_array(group) : nullptr;
  PSID* capabilities = groups != nullptr ? one_element_array(capability) : nullptr;
  if (capabilities == nullptr) {
    const DWORD err = GetLastError() != 0 ? GetLastError() : ERROR_NOT_ENOUGH_MEMORY;
    if (groups != nullptr) LocalFree(groups);
    if (capability != nullptr) LocalFree(capability);
    if (group != nullptr) LocalFree(group);
    SetLastError(err);
    return FALSE;
  }
  *group_sids = groups;
  *group_count = 1;
  *capability_sids = capabilities;
  *capability_count = 1;
  return TRUE;
}

}  // namespace zaltor::platform::win32
