// Event Tracing for Windows: one provider per registration, one UTF-16 data item per event.
#include <windows.h>
// evntprov.h needs windows.h first.
#include <evntprov.h>

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
    EVENT_DESCRIPTOR descriptor{};
    descriptor.Id = d.id;
    descriptor.Version = d.version;
    descriptor.Channel = d.channel;
    descriptor.Level = d.level;
    descriptor.Opcode = d.opcode;
    descriptor.Task = d.task;
    descriptor.Keyword = d.keyword;
    const std::wstring text = win32::wide(line);
    EVENT_DATA_DESCRIPTOR data{};
    // The line and its terminator: (length + 1) * 2 bytes.
    EventDataDescCreate(&data, text.c_str(),
                        static_cast<ULONG>((text.size() + 1) * sizeof(wchar_t)));
    return EventWrite(static_cast<REGHANDLE>(handle), &descriptor, 1, &data);
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
