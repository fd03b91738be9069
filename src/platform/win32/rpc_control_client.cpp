// The control client over the Windows RPC runtime: a binding to "ncalrpc" and the endpoint,
// and the widl client stubs (prefixed ZaltorClient_).
//
// Context handles: the seam names a context by its 20 wire bytes; the runtime's client side
// names it by an NDR_CCONTEXT. The client keeps a table from wire bytes to the handle that
// the runtime made when the context was opened (NDRCContextMarshall gives its wire bytes). A
// context the table does not know (a copy from elsewhere, or one already closed) is turned
// into a handle on this binding with NDRCContextUnmarshall, so that the server, not the
// client, decides about it (it refuses an unknown context with a fault).
//
// Failed calls: the stubs raise the runtime's code as an exception; call_guarded turns it
// into the returned code (rpc_call_guard.h). The functions that run under the guard only
// pass plain values to the stubs, so nothing of theirs needs cleaning up.
//
// Time-outs: the call time-out (RpcBindingSetOption with RPC_C_OPT_CALL_TIMEOUT) and the
// communication time-out (RpcMgmtSetComTimeout) are set on the binding. Windows applies them
// to connection-oriented transports; Wine 8 answers 0 to both. Nothing depends on them being
// applied: over ncalrpc a call normally waits for the server's answer.
#include <windows.h>

#include <array>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/control_client.h"
#include "platform/control_protocol.h"
#include "platform/win32/rpc_call_guard.h"
#include "platform/win32/wide_text.h"
#include "zaltor_antenna.h"
#include "zaltor_diagnostics.h"

namespace zaltor::platform {
namespace {

constexpr uint32_t kRpcZeroDivide = 1767;  // RPC_S_ZERO_DIVIDE

using WireBytes = std::array<uint8_t, 20>;

WireBytes to_bytes(const ContextHandleWire& wire) {
  WireBytes b{};
  for (int i = 0; i < 4; ++i)
    b[static_cast<size_t>(i)] = static_cast<uint8_t>(wire.attributes >> (8 * i));
  std::memcpy(b.data() + 4, wire.uuid.data(), 16);
  return b;
}

ContextHandleWire from_bytes(const WireBytes& b) {
  ContextHandleWire wire;
  wire.attributes = static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) |
                    (static_cast<uint32_t>(b[2]) << 16) | (static_cast<uint32_t>(b[3]) << 24);
  std::memcpy(wire.uuid.data(), b.data() + 4, 16);
  return wire;
}

// The calls made under the guard: plain records in, plain values out.
struct OpenCall {
  RPC_BINDING_HANDLE binding;
  ControlContext context;
};
void do_open(void* p) {
  auto* c = static_cast<OpenCall*>(p);
  ZaltorClient_OpenControlContext(c->binding, &c->context);
}

struct CloseCall {
  ControlContext context;
};
void do_close(void* p) {
  auto* c = static_cast<CloseCall*>(p);
  ZaltorClient_CloseControlContext(&c->context);
}

struct ValueCall {
  ControlContext context;
  LONG command;
  LONG argument;
  LONG second;
  LONG status;
  LONG value;
  LONG* values;
};
void do_query_value(void* p) {
  auto* c = static_cast<ValueCall*>(p);
  ZaltorClient_QueryValue(c->context, c->command, &c->status, &c->value);
}
void do_query_indexed_value(void* p) {
  auto* c = static_cast<ValueCall*>(p);
  ZaltorClient_QueryIndexedValue(c->context, c->command, &c->status, c->argument, &c->value);
}
void do_set_value(void* p) {
  auto* c = static_cast<ValueCall*>(p);
  ZaltorClient_SetValue(c->context, c->command, &c->status, c->argument);
}
void do_set_paired_value(void* p) {
  auto* c = static_cast<ValueCall*>(p);
  ZaltorClient_SetPairedValue(c->context, c->command, &c->status, c->argument, c->second);
}
void do_query_array(void* p) {
  auto* c = static_cast<ValueCall*>(p);
  ZaltorClient_QueryArray(c->context, c->command, &c->status, c->argument, c->values);
}

struct DiagnosticsCall {
  RPC_BINDING_HANDLE binding;
  uint32_t procedure;
  LONG count;
  LONG capacity;
  LONG status;
  LONG length;
  LONG sent;
  byte* text;
};
void do_read_diagnostics(void* p) {
  auto* c = static_cast<DiagnosticsCall*>(p);
  switch (c->procedure) {
    case kReadHistory:
      ZaltorClient_ReadHistory(c->binding, c->count, c->capacity, &c->status, &c->length, &c->sent,
                               c->text);
      break;
    case kReadHealth:
      ZaltorClient_ReadHealth(c->binding, c->capacity, &c->status, &c->length, &c->sent, c->text);
      break;
    default:
      ZaltorClient_ReadLastDecision(c->binding, c->capacity, &c->status, &c->length, &c->sent,
                                    c->text);
      break;
  }
}

struct MarshallCall {
  ControlContext context;
  unsigned char bytes[20];
};
void do_marshall(void* p) {
  auto* c = static_cast<MarshallCall*>(p);
  NDRCContextMarshall(static_cast<NDR_CCONTEXT>(c->context), c->bytes);
}

struct UnmarshallCall {
  RPC_BINDING_HANDLE binding;
  NDR_CCONTEXT context;
  unsigned char bytes[20];
};
void do_unmarshall(void* p) {
  auto* c = static_cast<UnmarshallCall*>(p);
  NDRCContextUnmarshall(&c->context, c->binding, c->bytes, NDR_LOCAL_DATA_REPRESENTATION);
}

struct DestroyCall {
  void* context;
};
void do_destroy(void* p) {
  RpcSsDestroyClientContext(&static_cast<DestroyCall*>(p)->context);
}

class RpcControlClient final : public ControlClient {
 public:
  explicit RpcControlClient(RPC_BINDING_HANDLE binding) : binding_(binding) {}
  ~RpcControlClient() override {
    // Contexts still open are dropped on this side only; the server runs them down when
    // the connection goes.
    for (auto& [bytes, context] : contexts_) {
      DestroyCall d{context};
      win32::call_guarded(&do_destroy, &d);
    }
    RpcBindingFree(&binding_);
  }

  uint32_t open_context(ContextHandleWire& out) override {
    OpenCall c{binding_, nullptr};
    if (const uint32_t err = win32::call_guarded(&do_open, &c); err != 0) return err;
    MarshallCall m{c.context, {}};
    if (const uint32_t err = win32::call_guarded(&do_marshall, &m); err != 0) return err;
    WireBytes bytes;
    std::memcpy(bytes.data(), m.bytes, 20);
    {
      std::lock_guard<std::mutex> hold(lock_);
      contexts_[bytes] = c.context;
    }
    out = from_bytes(bytes);
    return 0;
  }

  uint32_t close_context(ContextHandleWire& wire) override {
    // The context to close must not be null: refused here, as the stubs refuse a null
    // context of the other procedures.
    if (wire.is_null()) return kRpcNullContext;
    ControlContext context = nullptr;
    if (const uint32_t err = handle_for(wire, context); err != 0) return err;
    CloseCall c{context};
    if (const uint32_t err = win32::call_guarded(&do_close, &c); err != 0) return err;
    // The runtime freed its handle and nulled it.
    {
      std::lock_guard<std::mutex> hold(lock_);
      contexts_.erase(to_bytes(wire));
    }
    wire = ContextHandleWire{};
    return 0;
  }

  uint32_t query_value(const ContextHandleWire& wire, int32_t command, int32_t& status,
                       int32_t& value) override {
    ValueCall c{};
    c.command = command;
    if (const uint32_t err = call(wire, &do_query_value, c); err != 0) return err;
    status = c.status;
    value = c.value;
    return 0;
  }

  uint32_t query_indexed_value(const ContextHandleWire& wire, int32_t command, int32_t argument,
                               int32_t& status, int32_t& value) override {
    ValueCall c{};
    c.command = command;
    c.argument = argument;
    if (const uint32_t err = call(wire, &do_query_indexed_value, c); err != 0) return err;
    status = c.status;
    value = c.value;
    return 0;
  }

  uint32_t set_value(const ContextHandleWire& wire, int32_t command, int32_t argument,
                     int32_t& status) override {
    ValueCall c{};
    c.command = command;
    c.argument = argument;
    if (const uint32_t err = call(wire, &do_set_value, c); err != 0) return err;
    status = c.status;
    return 0;
  }

  uint32_t set_paired_value(const ContextHandleWire& wire, int32_t command, int32_t first,
                            int32_t second, int32_t& status) override {
    ValueCall c{};
    c.command = command;
    c.argument = first;
    c.second = second;
    if (const uint32_t err = call(wire, &do_set_paired_value, c); err != 0) return err;
    status = c.status;
    return 0;
  }

  uint32_t query_array(const ContextHandleWire& wire, int32_t command, int32_t count,
                       int32_t& status, std::vector<int32_t>& values) override {
    // A count outside 0..kMaxArrayCount is refused here with the code the server stub gives it
    // (the interface declares the range): no buffer is sized from it, and no server can
    // write past one.
    if (count < 0 || count > kMaxArrayCount) return kRpcInvalidBound;
    std::vector<LONG> out(static_cast<size_t>(count) + 1, 0);  // +1: never a null pointer
    ValueCall c{};
    c.command = command;
    c.argument = count;
    c.values = out.data();
    if (const uint32_t err = call(wire, &do_query_array, c); err != 0) return err;
    status = c.status;
    values.assign(out.begin(), out.begin() + count);
    return 0;
  }

  uint32_t read_diagnostics(uint32_t procedure, int32_t count, int32_t capacity, int32_t& status,
                            int32_t& length, std::string& text) override {
    if (procedure >= kDiagnosticsProcedureCount) return kRpcProcnumOutOfRange;
    if (capacity < 0 || capacity > kMaxDiagnosticsBytes) return kRpcInvalidBound;
    std::vector<byte> room(static_cast<size_t>(capacity) + 1, 0);  // +1: never a null pointer
    DiagnosticsCall c{binding_, procedure, count, capacity, 0, 0, 0, room.data()};
    if (const uint32_t err = win32::call_guarded(&do_read_diagnostics, &c); err != 0) {
      return reported(err);
    }
    if (c.sent < 0 || c.sent > capacity) return kRpcProtocolError;
    status = c.status;
    length = c.length;
    text.assign(reinterpret_cast<const char*>(room.data()), static_cast<size_t>(c.sent));
    return 0;
  }

 private:
  // The runtime's handle for `wire`: null for the null context (the stub refuses it), the
  // table's entry, or a new handle for a context this client does not know.
  uint32_t handle_for(const ContextHandleWire& wire, ControlContext& out) {
    out = nullptr;
    if (wire.is_null()) return 0;
    const WireBytes bytes = to_bytes(wire);
    std::lock_guard<std::mutex> hold(lock_);
    if (auto it = contexts_.find(bytes); it != contexts_.end()) {
      out = it->second;
      return 0;
    }
    UnmarshallCall u{binding_, nullptr, {}};
    std::memcpy(u.bytes, bytes.data(), 20);
    if (const uint32_t err = win32::call_guarded(&do_unmarshall, &u); err != 0) return err;
    contexts_[bytes] = u.context;
    out = u.context;
    return 0;
  }

  uint32_t call(const ContextHandleWire& wire, void (*fn)(void*), ValueCall& c) {
    if (const uint32_t err = handle_for(wire, c.context); err != 0) return err;
    return reported(win32::call_guarded(fn, &c));
  }

  // A server's integer division by zero travels as the NCA fault
  // nca_s_fault_int_div_by_zero, which some runtimes (Wine's) hand to the client as
  // RPC_S_ZERO_DIVIDE: reported as the exception code the server raised.
  static uint32_t reported(uint32_t code) {
    return code == kRpcZeroDivide ? kStatusIntegerDivideByZero : code;
  }

  RPC_BINDING_HANDLE binding_;
  std::mutex lock_;
  std::map<WireBytes, ControlContext> contexts_;
};

}  // namespace

std::unique_ptr<ControlClient> connect_control_client(const std::string& endpoint, int timeout_ms,
                                                      uint32_t& error) {
  std::wstring protseq = L"ncalrpc";
  std::wstring ep = win32::wide(endpoint);
  RPC_WSTR text = nullptr;
  RPC_STATUS st =
      RpcStringBindingComposeW(nullptr, reinterpret_cast<RPC_WSTR>(protseq.data()), nullptr,
                               reinterpret_cast<RPC_WSTR>(ep.data()), nullptr, &text);
  if (st != RPC_S_OK) {
    error = st;
    return nullptr;
  }
  RPC_BINDING_HANDLE binding = nullptr;
  st = RpcBindingFromStringBindingW(text, &binding);
  RpcStringFreeW(&text);
  if (st != RPC_S_OK) {
    error = st;
    return nullptr;
  }
  if (timeout_ms > 0) {
    RpcBindingSetOption(binding, RPC_C_OPT_CALL_TIMEOUT, static_cast<ULONG_PTR>(timeout_ms));
  }
  RpcMgmtSetComTimeout(binding, RPC_C_BINDING_DEFAULT_TIMEOUT);
  error = 0;
  // The binding connects on the first call: an absent server shows there (1722).
  return std::make_unique<RpcControlClient>(binding);
}

}  // namespace zaltor::platform
