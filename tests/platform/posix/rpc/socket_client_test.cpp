// The client's side of the stream: replies read in pieces or several at once, and the late
// reply of a call that timed out, against a scripted server on a bare socket.
// The local socket client is the Linux one.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/control_client.h"
#include "platform/posix/abstract_address.h"
#include "platform/posix/control_wire.h"
#include "rpc/test_server.h"

namespace zaltor::rpc::test {
namespace {

using platform::ContextHandleWire;

// A listening abstract socket under a unique name; accept() gives the client's connection.
class ScriptedServer {
 public:
  explicit ScriptedServer(const char* tag) : name(unique_endpoint(tag)) {
    sockaddr_un addr{};
    const socklen_t len = platform::abstract_address(name, addr);
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ok = ::bind(listener_, reinterpret_cast<sockaddr*>(&addr), len) == 0 &&
         ::listen(listener_, 4) == 0;
  }
  ~ScriptedServer() {
    if (fd_ >= 0) ::close(fd_);
    ::close(listener_);
  }
  bool accept() {
    fd_ = ::accept(listener_, nullptr, nullptr);
    return fd_ >= 0;
  }
  // The call id of the next request (its whole frame is read).
  uint32_t read_request() {
    uint8_t head[4];
    if (!read_exact(head, 4)) return 0;
    std::vector<uint8_t> body(platform::wire::load_u32(head));
    if (body.size() < 8 || !read_exact(body.data(), body.size())) return 0;
    return platform::wire::load_u32(body.data());
  }
  void send(const std::vector<uint8_t>& bytes) const {
    ASSERT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }

  std::string name;
  bool ok = false;

 private:
  bool read_exact(uint8_t* p, size_t n) const {
    size_t got = 0;
    while (got < n) {
      const ssize_t k = ::recv(fd_, p + got, n - got, 0);
      if (k <= 0) return false;
      got += static_cast<size_t>(k);
    }
    return true;
  }
  int listener_ = -1;
  int fd_ = -1;
};

// The reply frame of OpenControlContext: call id, no fault, then a context whose uuid starts
// with `tag`.
std::vector<uint8_t> opened_reply(uint32_t call_id, uint8_t tag) {
  ContextHandleWire ctx;
  ctx.uuid[0] = tag;
  platform::wire::FrameWriter w;
  w.u32(call_id);
  w.u32(0);
  w.context(ctx);
  const uint8_t* p = w.data();
  return std::vector<uint8_t>(p, p + w.size());
}

// Id 0 is the server's refusal of a whole stream: a client that has made 2^32 - 1 calls
// goes on at 1, so that a fault for its next call is not taken for a refusal.
TEST(RpcSocketClient, CallIdsGoOnAtOneWhenTheyWrap) {
  EXPECT_EQ(platform::wire::next_call_id(0), 1u);
  EXPECT_EQ(platform::wire::next_call_id(41), 42u);
  EXPECT_EQ(platform::wire::next_call_id(UINT32_MAX - 1), UINT32_MAX);
  EXPECT_EQ(platform::wire::next_call_id(UINT32_MAX), 1u);
}

// An endpoint name fills the socket address after its leading zero, or is refused whole.
TEST(RpcSocketClient, AbstractAddressesTakeNamesThatFitAndRefuseTheOthers) {
  sockaddr_un addr{};
  EXPECT_EQ(platform::abstract_address("", addr), 0u);
  EXPECT_EQ(platform::abstract_address(std::string(platform::kAbstractNameMax + 1, 'x'), addr), 0u);
  EXPECT_EQ(addr.sun_family, 0);
  const std::string longest(platform::kAbstractNameMax, 'y');
  EXPECT_EQ(platform::abstract_address(longest, addr), sizeof addr);
  EXPECT_EQ(addr.sun_family, AF_UNIX);
  EXPECT_EQ(addr.sun_path[0], '\0');
  EXPECT_EQ(std::string(addr.sun_path + 1, longest.size()), longest);
  EXPECT_EQ(platform::abstract_address("ep", addr), offsetof(sockaddr_un, sun_path) + 3);
}

TEST(RpcSocketClient, AReplyInPiecesIsPutTogether) {
  ScriptedServer server("client-pieces");
  ASSERT_TRUE(server.ok);
  uint32_t error = 0;
  auto client = platform::connect_control_client(server.name, 5000, error);
  ASSERT_TRUE(client) << error;
  ASSERT_TRUE(server.accept());
  std::thread script([&] {
    const uint32_t id = server.read_request();
    const std::vector<uint8_t> reply = opened_reply(id, 0x5A);
    // The length and a part of the body, then after a while the rest.
    server.send(std::vector<uint8_t>(reply.begin(), reply.begin() + 6));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    server.send(std::vector<uint8_t>(reply.begin() + 6, reply.end()));
  });
  ContextHandleWire ctx;
  EXPECT_EQ(client->open_context(ctx), 0u);
  EXPECT_EQ(ctx.uuid[0], 0x5A);
  script.join();
}

TEST(RpcSocketClient, TheLateReplyOfATimedOutCallIsPassedOver) {
  ScriptedServer server("client-late");
  ASSERT_TRUE(server.ok);
  uint32_t error = 0;
  auto client = platform::connect_control_client(server.name, 100, error);
  ASSERT_TRUE(client) << error;
  ASSERT_TRUE(server.accept());
  // The first call gets no answer in time.
  ContextHandleWire ctx;
  EXPECT_EQ(client->open_context(ctx), platform::kErrorTimeout);
  const uint32_t late = server.read_request();
  std::thread script([&] {
    const uint32_t id = server.read_request();
    // Both replies in one write: the late one first.
    std::vector<uint8_t> both = opened_reply(late, 0x11);
    const std::vector<uint8_t> own = opened_reply(id, 0x22);
    both.insert(both.end(), own.begin(), own.end());
    server.send(both);
  });
  EXPECT_EQ(client->open_context(ctx), 0u);
  EXPECT_EQ(ctx.uuid[0], 0x22);
  script.join();
}

TEST(RpcSocketClient, RepliesLargerThanTheClientsBufferArriveWhole) {
  TestServer server("client-large");
  auto client = server.connect();
  ASSERT_TRUE(client);
  ContextHandleWire ctx;
  ASSERT_EQ(client->open_context(ctx), 0u);
  // 4096 longs: a reply of 16 KiB and more, read in several pieces.
  for (int i = 0; i < 3; ++i) {
    int32_t status = -1;
    std::vector<int32_t> values;
    ASSERT_EQ(client->query_array(ctx, kGetRssiAllPorts, kMaxArrayCount, status, values), 0u);
    EXPECT_EQ(values.size(), static_cast<size_t>(kMaxArrayCount));
    int32_t value = 0;
    ASSERT_EQ(client->query_value(ctx, kGetModeCount, status, value), 0u);
    EXPECT_EQ(value, 4);
  }
}

}  // namespace
}  // namespace zaltor::rpc::test
