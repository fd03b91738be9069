#include "log/log_event.h"

namespace zaltor::log {

const platform::Guid kLogProviderId{
    0xF5F415CB, 0x6614, 0x45C6, {0x94, 0x53, 0xC5, 0xA0, 0xD2, 0xCD, 0x3C, 0x5C}};

platform::EventDescriptor log_event_descriptor(uint8_t level) {
  platform::EventDescriptor d;
  d.id = level;
  d.version = 0;
  d.channel = 16;
  d.level = (level == 0) ? 4 : level;
  d.opcode = 0;
  d.task = 0;
  d.keyword = 0x8000000000000000ULL;
  return d;
}

int32_t write_log_event(platform::EventTrace* trace, platform::EventTrace::Handle handle,
                        std::string_view line, uint8_t level) {
  if (line.size() == 1 && line[0] == '\n') return -1;
  if (handle == 0 || trace == nullptr) return -1;
  if (level > 5) return -1;
  const platform::EventDescriptor descriptor = log_event_descriptor(level);
  // EventWrite answers success when no session listens; so does the log without writing.
  if (!trace->enabled(handle, descriptor)) return 0;
  return static_cast<int32_t>(trace->write(handle, descriptor, line));
}

}  // namespace zaltor::log
