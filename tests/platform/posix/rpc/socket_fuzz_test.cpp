// Malformed frames: the files of tests/platform/posix/rpc/fuzz-corpus and generated ones. The
// server refuses each with a fault (or hangs up when the stream cannot be followed), never calls
// the target, and keeps serving. The local socket runtime is the Linux one.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

std::filesystem::path corpus_dir() {
  const char* src = std::getenv("ZALTOR_TEST_SOURCE_DIR");
  if (src != nullptr) {
    return std::filesystem::path(src) / "tests" / "platform" / "posix" / "rpc" / "fuzz-corpus";
  }
  return std::filesystem::path(__FILE__).parent_path() / "fuzz-corpus";
}

std::vector<uint8_t> read_file(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// Sends one malformed input on a fresh connection; every reply must be a fault.
void expect_refused(TestServer& server, const std::vector<uint8_t>& input,
                    const std::string& name) {
  RawConnection raw(server.endpoint);
  ASSERT_TRUE(raw.connected()) << name;
  raw.send(input);
  raw.finish_sending();  // the server sees the end and hangs up after its replies
  for (int i = 0; i < 64; ++i) {
    auto reply = raw.read_reply();
    if (!reply) break;  // hung up, or nothing more to say
    EXPECT_NE(reply->fault, 0u) << name;
  }
}

void expect_still_serving(TestServer& server) {
  auto c = server.connect();
  ASSERT_TRUE(c);
  platform::ContextHandleWire ctx;
  ASSERT_EQ(c->open_context(ctx), 0u);
  int32_t status = 0, value = 0;
  ASSERT_EQ(c->query_value(ctx, kGetReserved, status, value), 0u);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(c->close_context(ctx), 0u);
}

TEST(RpcFuzz, CorpusFramesAreRefusedWithoutReachingTheTarget) {
  TestServer server("fuzz-corpus");
  size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus_dir())) {
    if (!entry.is_regular_file()) continue;
    ++files;
    expect_refused(server, read_file(entry.path()), entry.path().filename().string());
  }
  EXPECT_GE(files, 10u);
  EXPECT_EQ(server.target.call_count(), 0u);
  expect_still_serving(server);
}

TEST(RpcFuzz, SpecificRefusalsCarryTheirFaultCodes) {
  TestServer server("fuzz-codes");
  RawConnection raw(server.endpoint);
  // Unknown procedure.
  raw.send(raw_frame(5, 7, {}));
  auto r = raw.read_reply();
  ASSERT_TRUE(r);
  EXPECT_EQ(r->call_id, 5u);
  EXPECT_EQ(r->fault, platform::kRpcProcnumOutOfRange);
  // QueryValue one long short.
  raw.send(raw_frame(6, 2, {0, 1, 2, 3, 4}));
  r = raw.read_reply();
  ASSERT_TRUE(r);
  EXPECT_EQ(r->fault, platform::kRpcProtocolError);
  // An open request with trailing bytes.
  raw.send(raw_frame(7, 0, {1}));
  r = raw.read_reply();
  ASSERT_TRUE(r);
  EXPECT_EQ(r->fault, platform::kRpcProtocolError);
  // A null context.
  raw.send(raw_frame(8, 2, {0, 0, 0, 0, 0, 0x1001}));
  r = raw.read_reply();
  ASSERT_TRUE(r);
  EXPECT_EQ(r->fault, platform::kRpcNullContext);
  // A context nobody opened.
  raw.send(raw_frame(9, 6, {0, 1, 2, 3, 4, 0x5001, 3}));
  r = raw.read_reply();
  ASSERT_TRUE(r);
  EXPECT_EQ(r->fault, platform::kErrorInvalidHandle);
  // An oversized frame: refused, then the server hangs up.
  platform::wire::Writer big;
  big.u32(65);
  raw.send(big.bytes());
  r = raw.read_reply();
  ASSERT_TRUE(r);
  EXPECT_EQ(r->call_id, 0u);
  EXPECT_EQ(r->fault, platform::kRpcProtocolError);
  EXPECT_TRUE(raw.closed_by_server());
  EXPECT_EQ(server.target.call_count(), 0u);
  expect_still_serving(server);
}

TEST(RpcFuzz, GeneratedFramesAreRefusedWithoutReachingTheTarget) {
  TestServer server("fuzz-gen");
  std::mt19937 rng(20240611);
  auto byte = [&] { return static_cast<uint8_t>(rng() & 0xff); };
  for (int i = 0; i < 300; ++i) {
    std::vector<uint8_t> input;
    switch (i % 5) {
      case 0: {  // random bytes
        const size_t n = 1 + rng() % 200;
        for (size_t k = 0; k < n; ++k) input.push_back(byte());
        break;
      }
      case 1: {  // a plausible length with random body of the wrong size
        const uint32_t proc = 1 + rng() % 6;
        const size_t want = platform::wire::request_body_size(proc);
        size_t n = 8 + rng() % 57;
        if (n == want) ++n;
        platform::wire::Writer w;
        w.u32(static_cast<uint32_t>(n));
        w.u32(rng());
        w.u32(proc);
        for (size_t k = 8; k < n; ++k) w.bytes().push_back(byte());
        input = w.bytes();
        break;
      }
      case 2: {  // the right size for its procedure, but a context nobody opened
        const uint32_t proc = 1 + rng() % 6;
        const size_t want = platform::wire::request_body_size(proc);
        platform::wire::Writer w;
        w.u32(static_cast<uint32_t>(want));
        w.u32(rng());
        w.u32(proc);
        w.u32(rng());
        for (int k = 0; k < 4; ++k) w.u32(rng() | 1u);  // never the null handle
        while (w.bytes().size() < want + 4) w.bytes().push_back(byte());
        input = w.bytes();
        break;
      }
      case 3: {  // lengths out of range
        platform::wire::Writer w;
        const uint32_t lens[] = {0, 1, 7, 65, 1000, 0xFFFFFFFF, 0x80000000};
        w.u32(lens[rng() % 7]);
        for (int k = 0; k < 12; ++k) w.bytes().push_back(byte());
        input = w.bytes();
        break;
      }
      default: {  // unknown procedure numbers
        platform::wire::Writer w;
        w.u32(8);
        w.u32(rng());
        w.u32(7 + rng() % 1000);
        input = w.bytes();
        break;
      }
    }
    expect_refused(server, input, "generated #" + std::to_string(i));
  }
  EXPECT_EQ(server.target.call_count(), 0u);
  expect_still_serving(server);
}

}  // namespace
}  // namespace zaltor::rpc::test
