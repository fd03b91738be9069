#pragma once
// Frames of the control interface on the local stream socket (docs/control-wire-format.md).
// Every integer is little-endian. A frame is a u32 length of the body that follows, then:
//   request body: u32 call id, u32 procedure number, the procedure's in parameters (NDR);
//   reply body:   u32 call id, u32 fault (0 = the call completed), then, only when the call
//                 completed, the procedure's out parameters (NDR).

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/control_protocol.h"
#include "platform/rpc_runtime.h"

namespace zaltor::platform::wire {

inline constexpr size_t kLengthBytes = 4;
inline constexpr size_t kContextBytes = 20;
// The largest request body: call id, procedure, a context and four longs would be 44.
inline constexpr uint32_t kMaxRequestBody = 64;
// The largest reply body: call id, fault, status, length, the text's byte count and the
// largest diagnostics text (above the control interface's call id, fault, status, count and
// kMaxArrayCount longs).
inline constexpr uint32_t kMaxReplyBody = 20 + kMaxDiagnosticsBytes;
static_assert(kMaxReplyBody >= 16 + 4 * static_cast<uint32_t>(kMaxArrayCount));

class Writer {
 public:
  void u32(uint32_t v);
  void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
  void context(const ContextHandleWire& c);
  std::vector<uint8_t>& bytes() { return b_; }
  // Prepends the length of what was written: the frame to send.
  std::vector<uint8_t> frame() const;

 private:
  std::vector<uint8_t> b_;
};

// Writes one frame, the body's length first, into room of its own: a small frame (every
// request, and every reply but QueryArray's and the diagnostics texts) stays inside the
// object, so that a call's path needs no heap; a larger one is sized once on the heap.
// Not copyable: the frame points into the object.
class FrameWriter {
 public:
  static constexpr size_t kInlineBody = kMaxRequestBody;
  // Room for a body of `body_bytes` (a larger body would be cut short: size callers exactly).
  explicit FrameWriter(size_t body_bytes = kInlineBody) { reset(body_bytes); }
  FrameWriter(const FrameWriter&) = delete;
  FrameWriter& operator=(const FrameWriter&) = delete;
  // Starts again, empty, with room for a body of `body_bytes`.
  void reset(size_t body_bytes = kInlineBody);
  void u32(uint32_t v);
  void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
  void context(const ContextHandleWire& c);
  void bytes(const void* data, size_t n);
  // The frame as written so far, its length in front.
  const uint8_t* data();
  size_t size() const { return n_; }

 private:
  uint8_t inline_[kLengthBytes + kInlineBody];
  std::vector<uint8_t> heap_;
  uint8_t* p_;
  size_t cap_;
  size_t n_ = kLengthBytes;
};

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
  bool u32(uint32_t& v);
  bool i32(int32_t& v);
  bool context(ContextHandleWire& c);
  bool at_end() const { return p_ == end_; }
  size_t left() const { return static_cast<size_t>(end_ - p_); }
  const uint8_t* position() const { return p_; }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
};

uint32_t load_u32(const uint8_t* p);
void store_u32(uint8_t* p, uint32_t v);

// The exact request body size of a procedure (call id and procedure number included), or 0
// for an unknown procedure.
size_t request_body_size(uint32_t procedure);

// The body of a request (call id, procedure, then the in parameters).
struct Request {
  uint32_t call_id = 0;
  uint32_t procedure = 0;
  ContextHandleWire context;
  int32_t command = 0;
  int32_t a = 0;  // argument, first argument or count (diagnostics: count of ReadHistory)
  int32_t b = 0;  // second argument (diagnostics: the capacity)
};

// The call id that follows `last`. Ids run 1, 2, ..., 2^32 - 1 and then 1 again: id 0 is
// the server's refusal of a whole stream, so a call never takes it.
constexpr uint32_t next_call_id(uint32_t last) {
  return last == UINT32_MAX ? 1 : last + 1;
}

// Writes the request's frame into `out` (which starts empty).
void encode_request(const Request& r, FrameWriter& out);
std::vector<uint8_t> encode_request(const Request& r);

}  // namespace zaltor::platform::wire
