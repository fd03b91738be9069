#include "rpc/control_procedures.h"

#include <algorithm>
#include <vector>

#include "rpc/control_interface.h"

namespace zaltor::rpc {
namespace {

// The device-level line commands address a line by id; 4 selects the offset of the lines.
constexpr int32_t kControlBitOffset = 4;

// Commands that copy a worker field: 2 while the worker is not initialised, else 0.
template <typename Read>
void read_field(ControlTarget& t, int32_t& status, int32_t& value, Read read) {
  if (!t.initialised()) {
    status = static_cast<int32_t>(SWITCH_ERR_NOT_READY);
    return;
  }
  value = static_cast<int32_t>(read());
  status = static_cast<int32_t>(SWITCH_OK);
}

int32_t as_long(Status s) {
  return static_cast<int32_t>(s);
}

}  // namespace

platform::ContextObject ControlProcedures::open_context() {
  // The object has no content: it only proves that the caller opened a context.
  auto* object = new uint8_t(0);
  open_.fetch_add(1, std::memory_order_relaxed);
  return object;
}

void ControlProcedures::close_context(platform::ContextObject& context) {
  if (context == nullptr) return;
  delete static_cast<uint8_t*>(context);
  open_.fetch_sub(1, std::memory_order_relaxed);
  context = nullptr;
}

void ControlProcedures::rundown(platform::ContextObject context) {
  close_context(context);
}

void ControlProcedures::query_value(platform::ContextObject, int32_t command, int32_t& status,
                                    int32_t& value) {
  ControlTarget& t = target_;
  switch (command) {
    case kGetSwitchNumber:
      status = as_long(t.GetSwitchNumber(value));
      return;
    case kGetReserved:
      status = 1;
      return;
    case kGetAverageRssi: {
      value = kRssiAbsent;
      const AverageRssi average = t.GetAverageRssi();
      if (average.no_divisor) throw platform::RpcFault(platform::kStatusIntegerDivideByZero);
      status = as_long(average.status);
      if (average.status == SWITCH_OK) value = average.value;
      return;
    }
    case kGetUserMode:
      read_field(t, status, value, [&] { return t.user_mode(); });
      return;
    case kGetSwitchCount:
      read_field(t, status, value, [&] { return t.switchCount(); });
      return;
    case kGetModeCount:
      read_field(t, status, value, [&] { return t.mode_count(); });
      return;
    case kGetRssiPaRequested:
      read_field(t, status, value, [&] { return t.rssi_pa_requested() ? 1 : 0; });
      return;
    case kGetCurrentMode:
      status = as_long(t.GetCurrentMode(value));
      return;
    case kGetAutoState:
      read_field(t, status, value, [&] { return t.auto_state(); });
      return;
    default:
      status = as_long(kStatusUnknownCommand);
      return;
  }
}

void ControlProcedures::query_indexed_value(platform::ContextObject, int32_t command,
                                            int32_t& status, int32_t argument, int32_t& value) {
  switch (command) {
    case kGetSwitchPosition:
      status = as_long(target_.GetSwitchPosition(argument, value));
      return;
    case kGetControlBit:
      status = as_long(target_.GetControlBit(argument, value, kControlBitOffset));
      return;
    default:
      status = as_long(kStatusUnknownCommand);
      return;
  }
}

void ControlProcedures::set_value(platform::ContextObject, int32_t command, int32_t& status,
                                  int32_t argument) {
  if (command == kSetUserMode) {
    status = as_long(target_.SetUserMode(argument));
    return;
  }
  status = as_long(kStatusUnknownCommand);
}

void ControlProcedures::set_paired_value(platform::ContextObject, int32_t command, int32_t& status,
                                         int32_t first, int32_t second) {
  switch (command) {
    case kSetSwitchPosition:
      status = as_long(target_.SetSwitchPosition(first, second));
      return;
    case kSetControlBit:
      status = as_long(target_.SetControlBit(first, second, kControlBitOffset));
      return;
    default:
      status = as_long(kStatusUnknownCommand);
      return;
  }
}

void ControlProcedures::query_array(platform::ContextObject, int32_t command, int32_t& status,
                                    int32_t count, int32_t* values) {
  if (command != kGetRssiAllPorts && command != kGetRssiCurrentMode) {
    status = as_long(kStatusUnknownCommand);
    return;
  }
  // The sweeps may write two rows of three ports whatever the caller asked for: they work
  // on a buffer with that much room and the caller gets its `count` elements back.
  const size_t n = count > 0 ? static_cast<size_t>(count) : 0;
  std::vector<int32_t> room(std::max(n, kRssiSweepCapacity), 0);
  std::copy(values, values + n, room.begin());
  const Status s = command == kGetRssiAllPorts ? target_.GetRssiAllPorts(room.data(), n)
                                               : target_.GetRssiCurrentMode(room.data(), n);
  std::copy(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(n), values);
  status = as_long(s);
}

}  // namespace zaltor::rpc
