#include "engine/antenna_switch.h"

#include <algorithm>
#include <mutex>

namespace zaltor::engine {

using platform::ControlDevice;
using platform::kMaxPorts;
using platform::kPortNames;
using platform::kPositionCount;
using platform::kPositionNames;
using platform::kPositionOff;
using platform::Mutex;
using platform::MutexHold;
namespace {

void put_u32(uint8_t* out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Method, argument length and device ID: the head every request begins with.
void put_head(uint8_t* out, const char (&method)[5], uint32_t arg_length) {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(method[i]);
  put_u32(out + 4, arg_length);
  put_u32(out + 8, kSwitchDeviceId);
}

// Bit of line `id` + `offset`, taken mod 32 without a negative shift.
uint32_t line_bit(int32_t id, int32_t offset) {
  const int64_t b = ((static_cast<int64_t>(id) + offset) % 32 + 32) % 32;
  return static_cast<uint32_t>(b);
}

// A table value 0/1 must equal the level; -1 is don't care; anything else never matches.
bool line_matches(int32_t table_value, int32_t level) {
  if (table_value == -1) return true;
  return (table_value == 0 || table_value == 1) && table_value == level;
}

// The device lock of a switch built without a clock.
class PlainRecursiveMutex final : public Mutex {
 public:
  void lock() override { m_.lock(); }
  void unlock() override { m_.unlock(); }

 private:
  std::recursive_mutex m_;
};

}  // namespace

AntennaSwitch::AntennaSwitch(DeviceState& state, Log& log, std::unique_ptr<Mutex> device_lock)
    : state_(state),
      log_(log),
      device_lock_(device_lock ? std::move(device_lock) : std::make_unique<PlainRecursiveMutex>()) {
}

StatusRequest encode_status_request() {
  StatusRequest out;
  put_head(out.data(), "DSTS", 4);
  return out;
}

ControlRequest encode_control_request(uint32_t value) {
  ControlRequest out;
  put_head(out.data(), "DEVS", 8);
  put_u32(out.data() + 12, value);
  return out;
}

Status open_control_device(ControlDevice& devices, DeviceState& state, Log& log) {
  uint32_t error = 0;
  state.set_control_device(devices.open(kControlDevicePath, error));
  if (state.control_device() == nullptr) {
    log.write(kLogCritical, "InitializeZLTACPIDevice Failed!\n");
    return SWITCH_ERR_NOT_PRESENT;
  }
  return SWITCH_OK;
}

bool AntennaSwitch::transact(const uint8_t* request, uint32_t length, uint32_t& result) {
  result = 0;
  if (state_.control_device() == nullptr) return false;
  // The device is offered the full reply capacity, but only the result word is read, so
  // only that is cleared: the rest of the buffer is never looked at.
  uint8_t reply[kReplyCapacity];
  std::fill_n(reply, 4, uint8_t{0});
  uint32_t returned = 0;
  if (!state_.control_device()->io_control(kControlCode, request, length, reply, kReplyCapacity,
                                           returned)) {
    return false;
  }
  // Only min(returned, 4) bytes count; a shorter reply is result 0.
  if (std::min<uint32_t>(returned, 4) < 4) return true;
  result = uint32_t{reply[0]} | (uint32_t{reply[1]} << 8) | (uint32_t{reply[2]} << 16) |
           (uint32_t{reply[3]} << 24);
  return true;
}

Status AntennaSwitch::read_status_word(uint32_t& word) {
  const StatusRequest request = encode_status_request();
  return transact(request.data(), static_cast<uint32_t>(request.size()), word)
             ? SWITCH_OK
             : SWITCH_ERR_STATUS_IO;
}

Status AntennaSwitch::GetSwitchNumber(int32_t& count) {
  uint32_t word = 0;
  if (read_status_word(word) != SWITCH_OK) return SWITCH_ERR_STATUS_IO;
  if ((word & kStatusPresentBit) == 0) return SWITCH_ERR_NOT_PRESENT;
  count = static_cast<int32_t>((word >> 8) & 0xFF);
  return SWITCH_OK;
}

Status AntennaSwitch::GetControlBit(int32_t id, int32_t& level, int32_t offset) {
  uint32_t word = 0;
  if (read_status_word(word) != SWITCH_OK) return SWITCH_ERR_STATUS_IO;
  if ((word & kStatusPresentBit) == 0) return SWITCH_ERR_NOT_PRESENT;
  const int32_t count = static_cast<int32_t>((word >> 8) & 0xFF);
  if (id < 0 || count <= id) return SWITCH_ERR_INDEX;
  level = static_cast<int32_t>((word >> line_bit(id, offset)) & 1u);
  return SWITCH_OK;
}

Status AntennaSwitch::SetControlBit(int32_t id, int32_t level, int32_t offset) {
  MutexHold hold(*device_lock_);
  return set_control_bit_locked(id, level, offset);
}

Status AntennaSwitch::set_control_bit_locked(int32_t id, int32_t level, int32_t offset) {
  uint32_t word = 0;
  if (read_status_word(word) != SWITCH_OK) return SWITCH_ERR_STATUS_IO;
  const int32_t count = static_cast<int32_t>((word >> 8) & 0xFF);
  if (id < 0 || count <= id) return SWITCH_ERR_INDEX;
  const uint32_t mask = 1u << line_bit(id, offset);
  uint32_t value = word & kOwnedStatusBits;
  value = level != 0 ? (value | mask) : (value & ~mask);
  uint32_t answer = 0;
  const ControlRequest request = encode_control_request(value);
  if (!transact(request.data(), static_cast<uint32_t>(request.size()), answer)) {
    return SWITCH_ERR_CTRL_IO;
  }
  if (answer != 1) return SWITCH_ERR_CTRL_REJECTED;
  uint32_t after = 0;
  if (read_status_word(after) != SWITCH_OK) return SWITCH_ERR_STATUS_IO;
  return after == value ? SWITCH_OK : SWITCH_ERR_VERIFY;
}

int32_t AntennaSwitch::switch_limit() const {
  return std::clamp(state_.switch_count(), 0, kMaxPorts);
}

Status AntennaSwitch::GetSwitchPosition(int32_t sw, int32_t& position) {
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  if (sw < 0 || sw >= switch_limit()) return SWITCH_ERR_INDEX;
  const auto port = static_cast<size_t>(sw);
  const int32_t id = state_.switches().switch_id[port];
  if (id < 0) return SWITCH_ERR_INDEX;
  int32_t x = 0;
  int32_t y = 0;
  if (Status s = GetControlBit(id, x, kLineX); s != SWITCH_OK) return s;
  if (Status s = GetControlBit(id, y, kLineY); s != SWITCH_OK) return s;
  for (int32_t p = 0; p < kPositionCount; ++p) {
    const auto& xy = state_.switches().positions[port][static_cast<size_t>(p)];
    if (line_matches(xy[0], x) && line_matches(xy[1], y)) {
      position = p;
      return SWITCH_OK;
    }
  }
  return SWITCH_ERR_NO_POSITION;
}

Status AntennaSwitch::SetSwitchPosition(int32_t sw, int32_t position) {
  MutexHold hold(*device_lock_);
  return set_switch_position_locked(sw, position);
}

Status AntennaSwitch::set_switch_position_locked(int32_t sw, int32_t position) {
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  if (sw < 0 || sw >= switch_limit()) return SWITCH_ERR_INDEX;
  if (position < 0 || position >= kPositionCount) return kSwitchErrInvalidPosition;
  const auto port = static_cast<size_t>(sw);
  const int32_t id = state_.switches().switch_id[port];
  if (id < 0) return SWITCH_ERR_INDEX;
  const auto& xy = state_.switches().positions[port][static_cast<size_t>(position)];
  Status first = SWITCH_OK;
  const int32_t offsets[2] = {kLineX, kLineY};
  for (size_t line = 0; line < 2; ++line) {
    if (xy[line] != 0 && xy[line] != 1) continue;  // not driven
    const Status s = set_control_bit_locked(id, xy[line], offsets[line]);
    if (first == SWITCH_OK) first = s;
  }
  return first;
}

void AntennaSwitch::SetMode(int32_t mode, std::array<Status, kMaxPorts>& results) {
  MutexHold hold(*device_lock_);
  set_mode_locked(mode, results);
}

bool AntennaSwitch::set_mode_if(const std::function<bool()>& wanted, int32_t mode,
                                std::array<Status, kMaxPorts>& results) {
  MutexHold hold(*device_lock_);
  if (!wanted()) return false;
  set_mode_locked(mode, results);
  return true;
}

void AntennaSwitch::set_mode_locked(int32_t mode, std::array<Status, kMaxPorts>& results) {
  if (!state_.ready()) {
    results.fill(SWITCH_ERR_NOT_READY);
    return;
  }
  const uint32_t mode_count = state_.mode_count();
  if (mode < 1 || static_cast<uint32_t>(mode) > mode_count) {
    log_.write(kLogError, "Invalid Mode: %d.\n", mode);
    results.fill(SWITCH_ERR_INVALID_MODE);
    return;
  }
  const uint32_t pattern = static_cast<uint32_t>(mode - 1);
  const int32_t n = switch_limit();
  for (int32_t i = 0; i < n; ++i) {
    results[static_cast<size_t>(i)] =
        set_switch_position_locked(i, static_cast<int32_t>((pattern >> i) & 1u));
  }
}

Status AntennaSwitch::GetCurrentMode(int32_t& mode) {
  mode = kModeUnknown;
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  const int32_t n = switch_limit();
  int32_t pattern = 0;
  for (int32_t i = 0; i < n; ++i) {
    int32_t position = 0;
    const Status s = GetSwitchPosition(i, position);
    const char* port = kPortNames[static_cast<size_t>(i)];
    if (s == SWITCH_ERR_NO_POSITION) {
      log_.write(kLogWarning, "No valid mode for %s: no position matches.\n", port);
      return SWITCH_OK;
    }
    if (s != SWITCH_OK) return s;
    if (position == kPositionOff) {
      log_.write(kLogWarning, "No valid mode for %s OFF.\n", port);
      return SWITCH_OK;
    }
    pattern |= position << i;
  }
  mode = pattern + 1;
  return SWITCH_OK;
}

}  // namespace zaltor::engine
