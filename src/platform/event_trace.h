#pragma once
// Event tracing: a provider, registered by its identifier, writes events that each carry
// one text item. On Windows this is Event Tracing for Windows (EventRegister, EventWrite,
// EventUnregister); elsewhere a substitute with the same arguments and statuses.

#include <cstdint>
#include <string_view>

#include "platform/guid.h"

namespace zaltor::platform {

// EVENT_DESCRIPTOR.
struct EventDescriptor {
  uint16_t id = 0;
  uint8_t version = 0;
  uint8_t channel = 0;
  uint8_t level = 0;
  uint8_t opcode = 0;
  uint16_t task = 0;
  uint64_t keyword = 0;
};

class EventTrace {
 public:
  // REGHANDLE; 0 is none.
  using Handle = uint64_t;

  virtual ~EventTrace() = default;
  // 0 and a handle, or the Win32 error code (the handle then stays 0).
  virtual uint32_t register_provider(const Guid& provider, Handle& handle) = 0;
  // Writes one event whose single data item is `line` (UTF-8 here; a zero-terminated
  // UTF-16 string on Windows). 0, or the Win32 error code.
  virtual uint32_t write(Handle handle, const EventDescriptor& descriptor,
                         std::string_view line) = 0;
  // Whether anybody would record an event of `descriptor` (its level and keyword) written
  // through `handle` (EventEnabled on Windows). The log asks before it writes, so that a
  // line nobody records is neither converted nor written.
  virtual bool enabled(Handle handle, const EventDescriptor& descriptor) = 0;
  virtual uint32_t unregister(Handle handle) = 0;
};

}  // namespace zaltor::platform
