#include "platform/posix/control_wire.h"

namespace zaltor::platform::wire {

void Writer::u32(uint32_t v) {
  for (int i = 0; i < 4; ++i) b_.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void Writer::context(const ContextHandleWire& c) {
  u32(c.attributes);
  b_.insert(b_.end(), c.uuid.begin(), c.uuid.end());
}

std::vector<uint8_t> Writer::frame() const {
  Writer w;
  w.u32(static_cast<uint32_t>(b_.size()));
  w.b_.insert(w.b_.end(), b_.begin(), b_.end());
  return std::move(w.b_);
}

uint32_t load_u32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

bool Reader::u32(uint32_t& v) {
  if (left() < 4) return false;
  v = load_u32(p_);
  p_ += 4;
  return true;
}

bool Reader::i32(int32_t& v) {
  uint32_t u = 0;
  if (!u32(u)) return false;
  v = static_cast<int32_t>(u);
  return true;
}

bool Reader::context(ContextHandleWire& c) {
  if (left() < kContextBytes) return false;
  u32(c.attributes);
  for (auto& byte : c.uuid) byte = *p_++;
  return true;
}

size_t request_body_size(uint32_t procedure) {
  constexpr size_t head = 8;
  switch (procedure) {
    case 0:  // OpenControlContext: the binding is the connection itself
      return head;
    case 1:  // CloseControlContext
      return head + kContextBytes;
    case 2:  // QueryValue: context, command
      return head + kContextBytes + 4;
    case 3:  // QueryIndexedValue: context, command, argument
    case 4:  // SetValue: context, command, argument
    case 6:  // QueryArray: context, command, count
      return head + kContextBytes + 8;
    case 5:  // SetPairedValue: context, command, first, second
      return head + kContextBytes + 12;
    case kDiagnosticsInterfaceBit | kReadLastDecision:  // capacity
    case kDiagnosticsInterfaceBit | kReadHealth:
      return head + 4;
    case kDiagnosticsInterfaceBit | kReadHistory:  // count, capacity
      return head + 8;
    default:
      return 0;
  }
}

std::vector<uint8_t> encode_request(const Request& r) {
  Writer w;
  w.u32(r.call_id);
  w.u32(r.procedure);
  if ((r.procedure & kDiagnosticsInterfaceBit) != 0) {
    if (r.procedure == (kDiagnosticsInterfaceBit | kReadHistory)) w.i32(r.a);
    w.i32(r.b);
    return w.frame();
  }
  if (r.procedure >= 1) w.context(r.context);
  if (r.procedure >= 2) w.i32(r.command);
  if (r.procedure >= 3) w.i32(r.a);
  if (r.procedure == 5) w.i32(r.b);
  return w.frame();
}

}  // namespace zaltor::platform::wire
