// The security objects of the Linux runtime: built as on Windows, freed by their owner.
// The local socket runtime is the Linux one.

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/posix/rpc_security.h"
#include "platform/posix/socket_rpc_runtime.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

size_t count_parts(const std::string& s) {
  return static_cast<size_t>(std::count(s.begin(), s.end(), '-')) + 1;
}

TEST(RpcSecurity, PackageNameYieldsOneCapabilitySidAndOneGroupSid) {
  platform::SidObject cap, group;
  ASSERT_TRUE(
      platform::posix_security::derive_capability_sids(kCompanionPackageFamily, cap, group));
  const std::string c = platform::posix_security::to_string(cap);
  const std::string g = platform::posix_security::to_string(group);
  EXPECT_EQ(c.rfind("S-1-15-3-1024-", 0), 0u) << c;
  EXPECT_EQ(count_parts(c), 3u + 2u + 8u);
  EXPECT_EQ(g.rfind("S-1-5-32-", 0), 0u) << g;
  EXPECT_EQ(count_parts(g), 3u + 1u + 8u);
  // The hash words are the same in both.
  EXPECT_EQ(c.substr(c.find("-1024-") + 6), g.substr(9));
  // Names compare without regard to case; different names differ.
  platform::SidObject lower, lower_group, other, other_group;
  ASSERT_TRUE(platform::posix_security::derive_capability_sids("zaltor.antennaswitch_k3d9wq2v8xhna",
                                                               lower, lower_group));
  EXPECT_EQ(platform::posix_security::to_string(lower), c);
  ASSERT_TRUE(
      platform::posix_security::derive_capability_sids("Another.app_1", other, other_group));
  EXPECT_NE(platform::posix_security::to_string(other), c);
  EXPECT_FALSE(platform::posix_security::derive_capability_sids("", other, other_group));
}

TEST(RpcSecurity, RuntimeBuildsTheWorldSidAccessListAndDescriptor) {
  TestClock clock;
  auto rt = platform::make_socket_rpc_runtime(clock);
  std::vector<platform::Sid> groups, caps;
  ASSERT_TRUE(rt->derive_capability_sids_from_name(kCompanionPackageFamily, groups, caps));
  EXPECT_EQ(caps.size(), 1u);
  EXPECT_EQ(groups.size(), 1u);
  platform::Sid world = nullptr;
  ASSERT_TRUE(rt->allocate_and_initialize_sid(platform::kSecurityWorldSidAuthority, {0}, world));
  EXPECT_EQ(platform::posix_security::to_string(*world), "S-1-1-0");
  std::vector<platform::ExplicitAccess> entries(1);
  entries[0].trustee = world;
  platform::Acl acl = nullptr;
  EXPECT_EQ(rt->set_entries_in_acl(entries, acl), 0u);
  platform::SecurityDescriptor sd;
  EXPECT_FALSE(rt->set_security_descriptor_dacl(sd, true, acl, false));  // not initialised
  EXPECT_EQ(rt->last_error(), 1338u);
  EXPECT_FALSE(rt->initialize_security_descriptor(sd, 2));
  ASSERT_TRUE(rt->initialize_security_descriptor(sd, 1));
  EXPECT_TRUE(rt->set_security_descriptor_dacl(sd, true, acl, false));
  EXPECT_EQ(rt->use_protseq_ep("ncalrpc", 10, unique_endpoint("sd"), &sd), 0u);
  // Refused: an entry without a trustee.
  std::vector<platform::ExplicitAccess> bad(1);
  platform::Acl none = nullptr;
  EXPECT_EQ(rt->set_entries_in_acl(bad, none), 87u);
  EXPECT_EQ(none, nullptr);
  rt->local_free_acl(acl);
  rt->free_sid(world);
  for (platform::Sid& s : caps) rt->local_free_sid(s);
  rt->local_free_sid_array(caps);
  for (platform::Sid& s : groups) rt->local_free_sid(s);
  rt->local_free_sid_array(groups);
  EXPECT_EQ(acl, nullptr);
  EXPECT_EQ(world, nullptr);
  EXPECT_TRUE(caps.empty());
}

}  // namespace
}  // namespace zaltor::rpc::test
