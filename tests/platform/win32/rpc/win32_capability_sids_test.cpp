// The capability SIDs of the companion package: the derivation where the system has no
// DeriveCapabilitySidsFromName, checked against a SHA-256 computed here by other means, and
// the choice between the system's function and the derivation.

#include <gtest/gtest.h>
#include <windows.h>
// sddl.h needs windows.h first.
#include <sddl.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/win32/capability_sids.h"
#include "platform/win32/endpoint_security.h"
#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"
#include "platform/win32/win32_rpc_runtime.h"
#include "rpc/control_interface.h"
#include "rpc/rpc_fakes.h"

namespace zaltor::rpc::test {
namespace {

namespace w = platform::win32;

// SHA-256 (FIPS 180-4) written out, independent of the system's providers.
std::array<uint8_t, 32> sha256(const std::vector<uint8_t>& message) {
  static constexpr uint32_t k_[64] = {
      0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4,
      0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe,
      0x9bdc06a7, 0xc19bf174, 0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f,
      0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7,
      0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138, 0x4d2c6dfc,
      0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b,
      0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116,
      0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
      0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7,
      0xc67178f2};
  uint32_t h[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                   0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  auto rotr = [](uint32_t x, int n) { return (x >> n) | (x << (32 - n)); };
  std::vector<uint8_t> m = message;
  const uint64_t bits = static_cast<uint64_t>(message.size()) * 8;
  m.push_back(0x80);
  while (m.size() % 64 != 56) m.push_back(0);
  for (int i = 7; i >= 0; --i) m.push_back(static_cast<uint8_t>(bits >> (8 * i)));
  for (size_t block = 0; block < m.size(); block += 64) {
    uint32_t wv[64];
    for (int i = 0; i < 16; ++i) {
      const uint8_t* p = &m[block + 4 * static_cast<size_t>(i)];
      wv[i] = (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
    }
    for (int i = 16; i < 64; ++i) {
      const uint32_t s0 = rotr(wv[i - 15], 7) ^ rotr(wv[i - 15], 18) ^ (wv[i - 15] >> 3);
      const uint32_t s1 = rotr(wv[i - 2], 17) ^ rotr(wv[i - 2], 19) ^ (wv[i - 2] >> 10);
      wv[i] = wv[i - 16] + s0 + wv[i - 7] + s1;
    }
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4], f = h[5], g = h[6], hh = h[7];
    for (int i = 0; i < 64; ++i) {
      const uint32_t t1 =
          hh + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + k_[i] + wv[i];
      const uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
      hh = g;
      g = f;
      f = e;
      e = d + t1;
      d = c;
      c = b;
      b = a;
      a = t1 + t2;
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
    h[5] += f;
    h[6] += g;
    h[7] += hh;
  }
  std::array<uint8_t, 32> out{};
  for (size_t i = 0; i < 32; ++i) out[i] = static_cast<uint8_t>(h[i / 4] >> (24 - 8 * (i % 4)));
  return out;
}

std::string hex(const std::array<uint8_t, 32>& d) {
  std::string s;
  char buf[3];
  for (uint8_t b : d) {
    std::snprintf(buf, sizeof buf, "%02x", b);
    s += buf;
  }
  return s;
}

// The eight little-endian words of the hash of the upper-cased ASCII name in UTF-16LE.
std::string hash_words(const std::string& name) {
  std::vector<uint8_t> utf16le;
  for (char ch : name) {
    utf16le.push_back(static_cast<uint8_t>(ch >= 'a' && ch <= 'z' ? ch - 'a' + 'A' : ch));
    utf16le.push_back(0);
  }
  const auto d = sha256(utf16le);
  std::string s;
  for (size_t i = 0; i < 8; ++i) {
    const uint32_t word = uint32_t{d[4 * i]} | (uint32_t{d[4 * i + 1]} << 8) |
                          (uint32_t{d[4 * i + 2]} << 16) | (uint32_t{d[4 * i + 3]} << 24);
    s += '-';
    s += std::to_string(word);
  }
  return s;
}

std::string sid_text(PSID sid) {
  LPWSTR text = nullptr;
  if (!ConvertSidToStringSidW(sid, &text)) return "(ConvertSidToStringSidW failed)";
  std::string s = w::narrow(text, wcslen(text));
  LocalFree(text);
  return s;
}

struct Derived {
  bool ok = false;
  DWORD error = 0;
  std::vector<std::string> groups;
  std::vector<std::string> capabilities;
};

Derived derive_with(w::DeriveCapabilitySidsFn fn, const std::string& name) {
  Derived r;
  PSID* groups = nullptr;
  PSID* caps = nullptr;
  DWORD gc = 0, cc = 0;
  const std::wstring wname = w::wide(name);
  r.ok = fn(wname.c_str(), &groups, &gc, &caps, &cc) != FALSE;
  if (!r.ok) {
    r.error = GetLastError();
    return r;
  }
  for (DWORD i = 0; i < gc; ++i) {
    r.groups.push_back(sid_text(groups[i]));
    LocalFree(groups[i]);
  }
  for (DWORD i = 0; i < cc; ++i) {
    r.capabilities.push_back(sid_text(caps[i]));
    LocalFree(caps[i]);
  }
  LocalFree(groups);
  LocalFree(caps);
  return r;
}

TEST(CapabilitySids, TheTestsOwnHashMatchesTheStandardVectors) {
  EXPECT_EQ(hex(sha256({'a', 'b', 'c'})),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(sha256({})), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(CapabilitySids, CompanionPackageYieldsOneHashBasedSidOfEachKind) {
  const Derived d = derive_with(&w::derive_capability_sids_by_hash, kCompanionPackageFamily);
  ASSERT_TRUE(d.ok) << d.error;
  const std::string words = hash_words(kCompanionPackageFamily);
  EXPECT_EQ(d.capabilities, (std::vector<std::string>{"S-1-15-3-1024" + words}));
  EXPECT_EQ(d.groups, (std::vector<std::string>{"S-1-5-32" + words}));
  // The same words, computed once more with a third implementation (Python's hashlib).
  EXPECT_EQ(d.capabilities[0],
            "S-1-15-3-1024-1557424489-2161841021-2121625835-3760945288-1585260759-4254722223-"
            "618179731-2890179887");
}

TEST(CapabilitySids, NamesCompareWithoutRegardToCase) {
  const Derived upper =
      derive_with(&w::derive_capability_sids_by_hash, "ZALTOR.ANTENNASWITCH_K3D9WQ2V8XHNA");
  const Derived mixed = derive_with(&w::derive_capability_sids_by_hash, kCompanionPackageFamily);
  const Derived other = derive_with(&w::derive_capability_sids_by_hash, "Another.app_1");
  ASSERT_TRUE(upper.ok && mixed.ok && other.ok);
  EXPECT_EQ(upper.capabilities, mixed.capabilities);
  EXPECT_EQ(upper.groups, mixed.groups);
  EXPECT_NE(other.capabilities, mixed.capabilities);
}

TEST(CapabilitySids, LegacyCapabilityKeepsItsPublishedSid) {
  const Derived d = derive_with(&w::derive_capability_sids_by_hash, "internetClient");
  ASSERT_TRUE(d.ok);
  EXPECT_EQ(d.capabilities, (std::vector<std::string>{"S-1-15-3-1"}));
  EXPECT_EQ(d.groups, (std::vector<std::string>{"S-1-5-32" + hash_words("internetClient")}));
}

TEST(CapabilitySids, EmptyNameFailsWithInvalidParameter) {
  const Derived d = derive_with(&w::derive_capability_sids_by_hash, "");
  EXPECT_FALSE(d.ok);
  EXPECT_EQ(d.error, static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST(CapabilitySids, TheSystemFunctionIsFoundByNameAtRunTime) {
  // Present on Windows 10 and later, absent from Wine 8; where present it must agree.
  if (w::DeriveCapabilitySidsFn system = w::find_derive_capability_sids()) {
    const Derived a = derive_with(system, kCompanionPackageFamily);
    const Derived b = derive_with(&w::derive_capability_sids_by_hash, kCompanionPackageFamily);
    EXPECT_EQ(a.capabilities, b.capabilities);
    EXPECT_EQ(a.groups, b.groups);
  }
  // The production runtime uses the system's function where there is one, else the
  // derivation, and so derives the same SIDs whichever way it found.
  const w::DeriveCapabilitySidsFn chosen = w::choose_derive_capability_sids();
  ASSERT_NE(chosen, nullptr);
  if (w::find_derive_capability_sids() == nullptr) {
    EXPECT_EQ(chosen, &w::derive_capability_sids_by_hash);
  }
  const Derived d = derive_with(chosen, kCompanionPackageFamily);
  ASSERT_TRUE(d.ok);
  EXPECT_EQ(d.capabilities,
            std::vector<std::string>{"S-1-15-3-1024" + hash_words(kCompanionPackageFamily)});
  EXPECT_EQ(d.groups, std::vector<std::string>{"S-1-5-32" + hash_words(kCompanionPackageFamily)});
}

// The descriptor of the endpoint and both interfaces: an access list present and not
// defaulted, allowing generic all access to everyone and then to the package's capability SID.
TEST(EndpointSecurity, AccessListAdmitsEveryoneAndThenTheCompanionPackage) {
  w::EndpointSecurity security;
  EXPECT_EQ(security.descriptor(), nullptr);
  const platform::RpcStep st =
      security.build(kCompanionPackageFamily, w::choose_derive_capability_sids());
  ASSERT_TRUE(st.ok()) << st.status << " " << st.failed_call;
  PSECURITY_DESCRIPTOR sd = security.descriptor();
  ASSERT_NE(sd, nullptr);
  EXPECT_TRUE(IsValidSecurityDescriptor(sd));
  BOOL present = FALSE, defaulted = TRUE;
  PACL acl = nullptr;
  ASSERT_TRUE(GetSecurityDescriptorDacl(sd, &present, &acl, &defaulted));
  EXPECT_TRUE(present);
  EXPECT_FALSE(defaulted);
  ASSERT_NE(acl, nullptr);
  ACL_SIZE_INFORMATION info{};
  ASSERT_TRUE(GetAclInformation(acl, &info, sizeof info, AclSizeInformation));
  ASSERT_EQ(info.AceCount, 2u);
  const std::string expected[2] = {"S-1-1-0",
                                   "S-1-15-3-1024" + hash_words(kCompanionPackageFamily)};
  for (DWORD i = 0; i < 2; ++i) {
    void* ace = nullptr;
    ASSERT_TRUE(GetAce(acl, i, &ace));
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
    EXPECT_EQ(allowed->Header.AceType, ACCESS_ALLOWED_ACE_TYPE) << i;
    EXPECT_EQ(allowed->Header.AceFlags, 0) << i;  // no inheritance
    EXPECT_EQ(allowed->Mask, static_cast<ACCESS_MASK>(GENERIC_ALL)) << i;
    EXPECT_EQ(sid_text(&allowed->SidStart), expected[i]) << i;
  }
}

// A stand-in for the system's function: counts its calls and answers as scripted.
std::atomic<int> g_injected_calls{0};
std::atomic<int> g_injected_capabilities{1};
std::atomic<DWORD> g_injected_error{0};  // not 0: fail with this error
BOOL WINAPI injected_derive(LPCWSTR name, PSID** groups, DWORD* gc, PSID** caps, DWORD* cc) {
  ++g_injected_calls;
  if (g_injected_error.load() != 0) {
    SetLastError(g_injected_error.load());
    return FALSE;
  }
  PSID* g = nullptr;
  PSID* c = nullptr;
  DWORD n = 0, m = 0;
  if (!w::derive_capability_sids_by_hash(name, &g, &n, &c, &m)) return FALSE;
  const int count = g_injected_capabilities.load();
  auto* many = static_cast<PSID*>(LocalAlloc(LPTR, sizeof(PSID) * static_cast<size_t>(count + 1)));
  if (count > 0) {
    many[0] = c[0];
  } else {
    LocalFree(c[0]);
  }
  for (int i = 1; i < count; ++i) {
    PSID* g2 = nullptr;
    PSID* c2 = nullptr;
    DWORD n2 = 0, m2 = 0;
    w::derive_capability_sids_by_hash(L"second", &g2, &n2, &c2, &m2);
    many[i] = c2[0];
    LocalFree(g2[0]);
    LocalFree(g2);
    LocalFree(c2);
  }
  LocalFree(c);
  *groups = g;
  *gc = n;
  *caps = many;
  *cc = static_cast<DWORD>(count);
  return TRUE;
}

TEST(CapabilitySids, AnInjectedSystemFunctionIsTheOneUsed) {
  g_injected_calls = 0;
  g_injected_capabilities = 1;
  TestClock clock;
  auto rt = w::make_win32_rpc_runtime(clock, &injected_derive);
  EXPECT_TRUE(rt->admit_everyone_and(kCompanionPackageFamily).ok());
  EXPECT_EQ(g_injected_calls.load(), 1);
}

TEST(CapabilitySids, PackageNameWithTwoCapabilitySidsFailsWith87BeforeAnyEndpointOpens) {
  g_injected_calls = 0;
  g_injected_capabilities = 2;
  TestClock clock;
  RecordingLog log;
  FakeTarget target;
  ControlProcedures procedures(target);
  auto rt = w::make_win32_rpc_runtime(clock, &injected_derive);
  const std::string endpoint = "ZaltorRpcTest-twosids-" + std::to_string(GetCurrentProcessId());
  EndpointSetup setup{*rt, clock, log, procedures, endpoint, {}};
  EXPECT_EQ(serve(setup), 87u);
  EXPECT_EQ(g_injected_calls.load(), 1);
  EXPECT_TRUE(log.lines().empty());  // not even "Initializing RPC endpoints."
  uint32_t err = 0;
  auto c = platform::connect_control_client(endpoint, 1000, err);
  ASSERT_TRUE(c);
  platform::ContextHandleWire ctx;
  EXPECT_EQ(c->open_context(ctx), platform::kRpcServerUnavailable);
  g_injected_capabilities = 1;
}

TEST(CapabilitySids, NoCapabilitySidFailsWith87) {
  g_injected_capabilities = 0;
  w::EndpointSecurity security;
  const platform::RpcStep st = security.build(kCompanionPackageFamily, &injected_derive);
  EXPECT_EQ(st.status, 87u);
  EXPECT_STREQ(st.failed_call, "DeriveCapabilitySidsFromName");
  EXPECT_EQ(security.descriptor(), nullptr);
  g_injected_capabilities = 1;
}

TEST(CapabilitySids, DeriveFailureAnswersItsError) {
  g_injected_error = 1332;  // ERROR_NONE_MAPPED
  TestClock clock;
  auto rt = w::make_win32_rpc_runtime(clock, &injected_derive);
  const platform::RpcStep st = rt->admit_everyone_and(kCompanionPackageFamily);
  EXPECT_EQ(st.status, 1332u);
  EXPECT_STREQ(st.failed_call, "DeriveCapabilitySidsFromName");
  g_injected_error = 0;
}

TEST(CapabilitySids, MissingSystemFunctionAndNoFallbackFailsWithItsError) {
  TestClock clock;
  auto rt = w::make_win32_rpc_runtime(clock, nullptr);
  const platform::RpcStep st = rt->admit_everyone_and(kCompanionPackageFamily);
  EXPECT_EQ(st.status, static_cast<uint32_t>(ERROR_PROC_NOT_FOUND));
  EXPECT_STREQ(st.failed_call, "DeriveCapabilitySidsFromName");
}

}  // namespace
}  // namespace zaltor::rpc::test
