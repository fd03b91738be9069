#pragma once
// The event tracing side of the diagnostic log: the provider and one event descriptor per
// log level.

#include <cstdint>
#include <string_view>

#include "platform/event_trace.h"
#include "platform/guid.h"

namespace zaltor::log {

// {F5F415CB-6614-45C6-9453-C5A0D2CD3C5C}
extern const platform::Guid kLogProviderId;

// Descriptor of log level `level` (0..5): Id = level, Version 0, Channel 16, Opcode 0,
// Task 0, Keyword 0x8000000000000000, and the event level 4 for level 0 (deliberately),
// else the log level itself.
platform::EventDescriptor log_event_descriptor(uint8_t level);

// Writes `line` as one event of `level`. A lone line end, an unregistered provider
// (handle 0) and a level outside 0..5 (which has no descriptor) write nothing and give -1;
// a level that no session records writes nothing and gives 0, as the write itself would;
// otherwise the write's status.
int32_t write_log_event(platform::EventTrace* trace, platform::EventTrace::Handle handle,
                        std::string_view line, uint8_t level);

}  // namespace zaltor::log
