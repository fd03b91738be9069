// Event Tracing for Windows: one provider per registration, one UTF-16 data item per event.
#include <windows.h>
// evntprov.h needs windows.h first.
#include <evntprov.h>

#include "platform/utf16.h"
#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

GUID to_guid(const Guid& g) {
  GUID out{};
  out.Data1 = g.data1;
  out.Data2 = g.data2;
  out.Data3 = g.data3;
  for (size_t i = 0; i < 8; ++i) out.Data4[i] = g.data4[i];
  return out;
}

EVENT_DESCRIPTOR to_descriptor(const EventDescriptor& d) {
  EVENT_DESCRIPTOR descriptor{};
  descriptor.Id = d.id;
  descriptor.Version = d.version;
  descriptor.Channel = d.channel;
  descriptor.Level = d.level;
  descriptor.Opcode = d.opcode;
  descriptor.Task = d.task;
  descriptor.Keyword = d.keyword;
  return descriptor;
}

// UTF-16 units of a line converted on the stack (the log's line buffer holds fewer bytes).
constexpr size_t kStackUnits = 4096;

class EtwEventTrace final : public EventTrace {
 public:
  uint32_t register_provider(const Guid& provider, Handle& handle) override {
    const GUID id = to_guid(provider);
    REGHANDLE reg = 0;
    const ULONG status = EventRegister(&id, nullptr, nullptr, &reg);
    handle = status == ERROR_SUCCESS ? static_cast<Handle>(reg) : 0;
    return status;
  }

  uint32_t write(Handle handle, const EventDescriptor& d, std::string_view line) override {
    const EVENT_DESCRIPTOR descriptor = to_descriptor(d);
    // A UTF-8 line never takes more UTF-16 units than bytes: a log line (at most 4095 bytes)
    // is converted on the stack; only longer text goes to the heap.
    wchar_t small[kStackUnits + 1];
    std::wstring large;
    const wchar_t* text = small;
    size_t units = 0;
    if (line.size() <= kStackUnits) {
      units = utf8_to_utf16(line, reinterpret_cast<char16_t*>(small), kStackUnits);
      small[units] = L'\0';
    } else {
      large = win32::wide(line);
      text = large.c_str();
      units = large.size();
    }
    EVENT_DATA_DESCRIPTOR data{};
    // The line and its terminator: (length + 1) * 2 bytes.
    EventDataDescCreate(&data, text, static_cast<ULONG>((units + 1) * sizeof(wchar_t)));
    return EventWrite(static_cast<REGHANDLE>(handle), &descriptor, 1, &data);
  }

  bool enabled(Handle handle, const EventDescriptor& d) override {
    const EVENT_DESCRIPTOR descriptor = to_descriptor(d);
    return EventEnabled(static_cast<REGHANDLE>(handle), &descriptor) != FALSE;
  }

  uint32_t unregister(Handle handle) override {
    return EventUnregister(static_cast<REGHANDLE>(handle));
  }
};

}  // namespace

std::unique_ptr<EventTrace> make_etw_event_trace() {
  return std::make_unique<EtwEventTrace>();
}

}  // namespace zaltor::platform
