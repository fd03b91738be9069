// The control interface's server stub as generated from the interface definition: the count of
// QueryArray is range-checked while it is unmarshalled, before the out array is sized from it,
// and the contexts are marked non-serialised. Then the same end to end over the runtime: a
// huge count is refused without the server allocating for it, and calls on one context run
// at the same time.

#include <gtest/gtest.h>
#include <rpc.h>
#include <rpcndr.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/win32/rpc_call_guard.h"
#include "platform/win32/rpc_server_target.h"
#include "rpc/call_gate.h"
#include "rpc/test_server.h"
#include "zaltor_antenna.h"

namespace zaltor::rpc::test {
namespace {

using platform::ContextHandleWire;

constexpr unsigned char kFcBindContext = 0x30;
constexpr unsigned char kFcBindPrimitive = 0x32;
constexpr unsigned char kFcRange = 0xb7;
constexpr unsigned char kFcLong = 0x08;
constexpr unsigned char kFcCarray = 0x1b;
constexpr unsigned char kContextNoSerialize = 0x04;
constexpr unsigned char kContextIn = 0x40;

uint16_t u16(const unsigned char* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
int32_t i32(const unsigned char* p) {
  uint32_t v = 0;
  std::memcpy(&v, p, 4);
  return static_cast<int32_t>(v);
}

// One parameter of a procedure as the interpreted (-Oicf) server stub describes it.
struct Param {
  uint16_t flags = 0;
  const unsigned char* type = nullptr;  // its type description, or null for a base type
};

// The parameters of procedure `proc` in the server stub's format strings.
std::vector<Param> server_params(int proc) {
  const auto* iface = static_cast<const RPC_SERVER_INTERFACE*>(ZaltorAntenna_v1_0_s_ifspec);
  const auto* info = static_cast<const MIDL_SERVER_INFO*>(iface->InterpreterInfo);
  const unsigned char* types = info->pStubDesc->pFormatTypes;
  const unsigned char* p = info->ProcString + info->FmtStringOffset[proc];
  const unsigned char handle_type = p[0];
  const unsigned char oi_flags = p[1];
  size_t off = 2;
  if ((oi_flags & 0x08) != 0) off += 4;                             // Oi_HAS_RPCFLAGS
  off += 4;                                                         // procedure number, stack size
  if (handle_type == 0) off += p[off] == kFcBindPrimitive ? 4 : 6;  // explicit handle
  off += 4;                                                         // buffer sizes
  const unsigned char oi2_flags = p[off];
  const unsigned char count = p[off + 1];
  off += 2;
  if ((oi2_flags & 0x40) != 0) off += p[off];  // extensions, sized by their first byte
  std::vector<Param> params;
  for (unsigned char i = 0; i < count; ++i, off += 6) {
    Param param;
    param.flags = u16(p + off);
    if ((param.flags & 0x40) == 0) param.type = types + u16(p + off + 4);  // not a base type
    params.push_back(param);
  }
  return params;
}

TEST(Win32RpcStub, QueryArrayCountIsRangeCheckedBeforeTheArrayIsSized) {
  const std::vector<Param> params = server_params(6);
  ASSERT_EQ(params.size(), 5u);  // context, command, status, count, values
  const unsigned char* count = params[3].type;
  ASSERT_NE(count, nullptr) << "count is a bare long: nothing checks it before the allocation";
  ASSERT_EQ(count[0], kFcRange);
  EXPECT_EQ(count[1] & 0x0f, kFcLong);
  EXPECT_EQ(i32(count + 2), 0);
  EXPECT_EQ(i32(count + 6), 4096);
  // The array comes after the count, so the count is unmarshalled (and checked) first.
  ASSERT_NE(params[4].type, nullptr);
  EXPECT_EQ(params[4].type[0], kFcCarray);
}

TEST(Win32RpcStub, InGoingContextsAreNotSerialised) {
  for (int proc = 1; proc <= 6; ++proc) {
    const Param context = server_params(proc)[0];
    ASSERT_NE(context.type, nullptr) << proc;
    // The context, or (a simple reference) what the context pointer points at.
    const unsigned char* desc = context.type;
    ASSERT_EQ(desc[0], kFcBindContext) << proc;
    EXPECT_NE(desc[1] & kContextIn, 0) << proc;
    EXPECT_NE(desc[1] & kContextNoSerialize, 0) << "procedure " << proc;
  }
}

// Calls the client stubs directly, for a count that the client would refuse itself.
struct OpenCall {
  RPC_BINDING_HANDLE binding;
  ControlContext context;
};
void do_open(void* p) {
  auto* c = static_cast<OpenCall*>(p);
  ZaltorClient_OpenControlContext(c->binding, &c->context);
}
struct ArrayCall {
  ControlContext context;
  LONG count;
  LONG status;
  LONG* values;
};
void do_query_array(void* p) {
  auto* c = static_cast<ArrayCall*>(p);
  ZaltorClient_QueryArray(c->context, kGetRssiAllPorts, &c->status, c->count, c->values);
}

RPC_BINDING_HANDLE bind_to(const std::string& endpoint) {
  std::wstring protseq = L"ncalrpc";
  std::wstring ep(endpoint.begin(), endpoint.end());
  RPC_WSTR text = nullptr;
  if (RpcStringBindingComposeW(nullptr, reinterpret_cast<RPC_WSTR>(protseq.data()), nullptr,
                               reinterpret_cast<RPC_WSTR>(ep.data()), nullptr, &text) != 0) {
    return nullptr;
  }
  RPC_BINDING_HANDLE binding = nullptr;
  RpcBindingFromStringBindingW(text, &binding);
  RpcStringFreeW(&text);
  return binding;
}

TEST(Win32RpcStubServer, HugeArrayCountIsRefusedBeforeTheServerAllocatesForIt) {
  TestServer server("stub-range");
  RPC_BINDING_HANDLE binding = bind_to(server.endpoint);
  ASSERT_NE(binding, nullptr);
  OpenCall open{binding, nullptr};
  ASSERT_EQ(platform::win32::call_guarded(&do_open, &open), 0u);
  // The caller's buffer holds every element asked for, so that even a server that answered
  // could not write past it.
  constexpr LONG kHuge = 1 << 20;
  std::vector<LONG> values(static_cast<size_t>(kHuge), 0);
  ArrayCall call{open.context, kHuge, 77, values.data()};
  platform::win32::reset_largest_stub_allocation();
  EXPECT_EQ(platform::win32::call_guarded(&do_query_array, &call), platform::kRpcInvalidBound);
  EXPECT_EQ(call.status, 77);  // no status comes back
  EXPECT_LT(platform::win32::largest_stub_allocation(), 64u * 1024u)
      << "bytes allocated for a refused call";
  EXPECT_EQ(server.target.call_count(), 0u);
  // The largest count allowed is still served, by the same context.
  call.count = 4096;
  EXPECT_EQ(platform::win32::call_guarded(&do_query_array, &call), 0u);
  EXPECT_EQ(call.status, 0);
  EXPECT_EQ(values[0], -51);
  RpcSsDestroyClientContext(reinterpret_cast<void**>(&open.context));
  RpcBindingFree(&binding);
  // The client refuses such a count itself, with the same code.
  auto client = server.connect();
  ContextHandleWire ctx;
  ASSERT_EQ(client->open_context(ctx), 0u);
  int32_t status = 0;
  std::vector<int32_t> out;
  EXPECT_EQ(client->query_array(ctx, kGetRssiAllPorts, 0x7fffffff, status, out),
            platform::kRpcInvalidBound);
}

// Wine's runtime takes a lock per context for every call whatever the stub's flags say (and
// RpcSsDontSerializeContext is a stub there): the overlap is seen on Windows only.
bool under_wine() {
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

TEST(Win32RpcStubServer, CallsOnOneContextRunAtTheSameTime) {
  if (under_wine()) {
    GTEST_SKIP() << "Wine serialises the calls of one context regardless of the stub's "
                    "no-serialise flag";
  }
  Gate gate;
  TestServer server("stub-overlap");
  const OpenAtExit release(gate);
  server.target.set_on_call([&] { gate.pass(); });
  // Two clients of one process share the association, and with it the context.
  auto first = server.connect(10000);
  auto second = server.connect(10000);
  ContextHandleWire ctx;
  ASSERT_EQ(first->open_context(ctx), 0u);
  std::atomic<uint32_t> r1{1}, r2{1};
  std::thread a([&] {
    int32_t status = -1;
    r1 = first->set_value(ctx, kSetUserMode, 1, status);
  });
  ASSERT_TRUE(gate.wait_inside(1));
  std::thread b([&] {
    int32_t status = -1;
    r2 = second->set_paired_value(ctx, kSetSwitchPosition, 0, 1, status);
  });
  EXPECT_TRUE(gate.wait_inside(2, std::chrono::milliseconds(3000)));
  gate.open();
  a.join();
  b.join();
  EXPECT_EQ(r1.load(), 0u);
  EXPECT_EQ(r2.load(), 0u);
  EXPECT_EQ(gate.most(), 2);
}

}  // namespace
}  // namespace zaltor::rpc::test
