// Fuzzes the control interface's Linux socket runtime with what a connection sends: each
// input goes, as one client's byte stream, to a server on the real runtime (one for the
// whole run) serving the procedures over a scripted target; the client then ends its side
// and reads replies until the server hangs up. The server must answer or hang up, and keep
// serving.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "rpc/raw_connection.h"
#include "rpc/test_server.h"

namespace {

using zaltor::rpc::test::RawConnection;
using zaltor::rpc::test::TestServer;

TestServer& server() {
  // Never destroyed: the runtime's threads serve until the process ends.
  static TestServer* s = new TestServer("fuzz");
  return *s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TestServer& s = server();
  RawConnection raw(s.endpoint);
  if (!raw.connected()) std::abort();
  raw.send(std::vector<uint8_t>(data, data + size));
  raw.finish_sending();
  // Each reply within the time a call takes; then the server hangs up.
  for (int i = 0; i < 64; ++i) {
    if (!raw.read_reply(2000)) break;
  }
  if (!raw.closed_by_server(5000)) std::abort();  // a server that neither answers nor hangs up
  return 0;
}
