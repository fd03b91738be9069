#include "platform/posix/control_wire.h"

#include <cstring>

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

void FrameWriter::reset(size_t body_bytes) {
  n_ = kLengthBytes;
  if (body_bytes <= kInlineBody) {
    p_ = inline_;
    cap_ = sizeof inline_;
  } else {
    heap_.resize(kLengthBytes + body_bytes);
    p_ = heap_.data();
    cap_ = heap_.size();
  }
}

void FrameWriter::u32(uint32_t v) {
  if (cap_ - n_ < 4) return;
  store_u32(p_ + n_, v);
  n_ += 4;
}

void FrameWriter::context(const ContextHandleWire& c) {
  u32(c.attributes);
  bytes(c.uuid.data(), c.uuid.size());
}

void FrameWriter::bytes(const void* data, size_t n) {
  if (cap_ - n_ < n) return;
  if (n != 0) std::memcpy(p_ + n_, data, n);
  n_ += n;
}

const uint8_t* FrameWriter::data() {
  store_u32(p_, static_cast<uint32_t>(n_ - kLengthBytes));
  return p_;
}

void store_u32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
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

// A request body is the call id and the procedure number, then, for the control interface,
// the context handle where the procedure takes one and its longs; for the diagnostics
// interface its longs alone. The size is exact: a body of another size is malformed.
size_t request_body_size(uint32_t procedure) {
  constexpr size_t kHead = 8;
  if ((procedure & kDiagnosticsInterfaceBit) != 0) {
    const int longs = diagnostics_long_arguments(procedure & ~kDiagnosticsInterfaceBit);
    return longs < 0 ? 0 : kHead + 4 * static_cast<size_t>(longs);
  }
  const int longs = long_arguments(procedure);
  if (longs < 0) return 0;
  return kHead + (takes_context(procedure) ? kContextBytes : 0) + 4 * static_cast<size_t>(longs);
}

void encode_request(const Request& r, FrameWriter& w) {
  w.u32(r.call_id);
  w.u32(r.procedure);
  if ((r.procedure & kDiagnosticsInterfaceBit) != 0) {
    if (diagnostics_long_arguments(r.procedure & ~kDiagnosticsInterfaceBit) == 2) w.i32(r.a);
    w.i32(r.b);
    return;
  }
  if (takes_context(r.procedure)) w.context(r.context);
  const int longs = long_arguments(r.procedure);
  if (longs >= 1) w.i32(r.command);
  if (longs >= 2) w.i32(r.a);
  if (longs >= 3) w.i32(r.b);
}

std::vector<uint8_t> encode_request(const Request& r) {
  FrameWriter w;
  encode_request(r, w);
  const uint8_t* p = w.data();
  return std::vector<uint8_t>(p, p + w.size());
}

}  // namespace zaltor::platform::wire
