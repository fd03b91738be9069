#pragma once
// Antenna switch control over the firmware's control device.
//
// The channel: every request is one device I/O control (kControlCode) with a request
// buffer naming an ACPI method, and a 1024-byte reply whose first u32 is the result.
//   "DSTS" (12 bytes): method, argument length 4, device ID      -> the status word
//   "DEVS" (16 bytes): method, argument length 8, device ID, value -> 1 when accepted
// All fields little-endian. Only min(returned, 4) bytes of the reply are used, and a
// reply shorter than 4 bytes reads as 0.
//
// The status word: bits 0-3 the X line of switch IDs 0..3, bits 4-7 the Y lines, bits 8-15
// the number of switches, bit 16 the feature is present, bits 17-31 not interpreted.
// A control line is bit (id + offset) mod 32, offset 0 for X and 4 for Y.
//
// SetControlBit(id, level, offset) sets one line:
//   1. read the status word ("DSTS"); a failed request (or a closed device) gives 4;
//   2. an id that is negative or not below the reported switch number gives 25, before any
//      write; bit 16 is NOT required: a firmware that reports the feature absent is still
//      written to (only the reads refuse with 3);
//   3. the value written is the status word restricted to the bits the service owns
//      (0-16) with the one line bit set (level != 0) or cleared (level 0);
//   4. "DEVS" with that value: a failed request gives 6, an answer other than 1 gives 5;
//   5. read the status word again (a failed read gives 4) and compare it, all 32 bits,
//      with the value written: a difference gives 7. A firmware whose status words carry
//      bits 17-31 therefore makes every write end in 7 although the line was set.
//
// Readiness: the channel operations (read_status_word, GetSwitchNumber, GetControlBit,
// SetControlBit) only need an open device, because the worker's initialisation reads the
// switch number before it is ready. The switch and mode operations (GetSwitchPosition,
// SetSwitchPosition, SetMode, GetCurrentMode) return 2 until the worker is ready.
//
// The device lock: every write sequence (SetControlBit's read, write and read-back,
// SetSwitchPosition's two lines, SetMode's switches) runs under one lock of the switch, so
// that writers from the control interface, the auto loop and the worker's mode changes never
// interleave their read-modify-write steps (an interleaving loses line updates and ends in 7).
// The lock is recursive, as the sequences nest. Reads take no lock: a reader may see a switch
// half-way between positions (mode 99) while a write is under way.

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include "engine/shared_state.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/status.h"

namespace zaltor::engine {

constexpr const char* kControlDevicePath = "\\\\.\\ZLTACPI";
constexpr uint32_t kControlCode = 0x0022240C;
constexpr uint32_t kSwitchDeviceId = 0x00010031;
constexpr uint32_t kReplyCapacity = 1024;
constexpr uint32_t kStatusPresentBit = 1u << 16;
constexpr uint32_t kOwnedStatusBits = 0x0001FFFF;  // bits 0-16: lines, count, present
constexpr int32_t kLineX = 0;                      // offset of the X line
constexpr int32_t kLineY = 4;                      // offset of the Y line

// The request buffers, byte-exact. Fixed arrays: a decision pass sends several hundred
// requests, and none of them allocates.
using StatusRequest = std::array<uint8_t, 12>;
using ControlRequest = std::array<uint8_t, 16>;
StatusRequest encode_status_request();
ControlRequest encode_control_request(uint32_t value);

// Opens the control device into `state.device`. 0, or 3 after "InitializeZLTACPIDevice
// Failed!\n" (level 1).
Status open_control_device(platform::ControlDevice& devices, DeviceState& state, Log& log);

class AntennaSwitch {
 public:
  // `device_lock` comes from the clock that the callers' threads wait on (make_mutex), so
  // that a wait for it takes part in a virtual clock's schedule; without one (tests of the
  // device logic alone) the switch uses a plain recursive mutex.
  AntennaSwitch(DeviceState& state, Log& log,
                std::unique_ptr<platform::Mutex> device_lock = nullptr);

  // The raw status word ("DSTS"): 0, or 4 when the device is not open or the request failed.
  Status read_status_word(uint32_t& word);

  Status GetSwitchNumber(int32_t& count);
  Status GetControlBit(int32_t id, int32_t& level, int32_t offset);
  Status SetControlBit(int32_t id, int32_t level, int32_t offset);

  // The position (0 "Main", 1 "Div", 2 "Off") whose table entry matches the two lines of
  // switch index `sw`: a table value 0 or 1 must equal the line, -1 matches any level,
  // any other value never matches. The first matching position wins; none gives 39.
  // 25 for a switch index outside 0..SwitchCount-1 or a switch without a control line.
  Status GetSwitchPosition(int32_t sw, int32_t& position);
  // Drives the X then the Y line of switch `sw` to the table values of `position` (0..2;
  // others give 38). Lines whose value is not 0 or 1 are not driven. Both lines are
  // written even when the first write fails; the first non-zero status is returned.
  Status SetSwitchPosition(int32_t sw, int32_t position);

  // Puts switch i into bit i of mode - 1, one status per switch in results[i] (slots
  // beyond SwitchCount are left alone). A mode outside 1..ModeCount logs
  // "Invalid Mode: %d.\n" (level 2) and sets every slot to 28; not ready sets every slot to 2.
  void SetMode(int32_t mode, std::array<Status, platform::kMaxPorts>& results);
  // SetMode only if `wanted` still holds once the device lock is taken: false (nothing
  // written, `results` untouched) when it does not. A writer that may have been overtaken
  // (the auto loop, once the user chose a fixed mode) tests its stop flag here, so that its
  // write can never land after the one that overtook it.
  bool set_mode_if(const std::function<bool()>& wanted, int32_t mode,
                   std::array<Status, platform::kMaxPorts>& results);

  // The mode the switches stand in: 1 + sum(position_i << i). SwitchCount 0 reads as 1.
  // A switch in "Off" logs "No valid mode for %s OFF.\n" (level 3, port name) and a switch
  // whose lines match no position logs "No valid mode for %s: no position matches.\n"
  // (level 3); both give mode 99 with status 0. Other failures give their status and 99.
  Status GetCurrentMode(int32_t& mode);

 private:
  // One request; false when the device is not open or the request failed.
  bool transact(const uint8_t* request, uint32_t length, uint32_t& result);
  int32_t switch_limit() const;
  Status set_control_bit_locked(int32_t id, int32_t level, int32_t offset);
  Status set_switch_position_locked(int32_t sw, int32_t position);
  void set_mode_locked(int32_t mode, std::array<Status, platform::kMaxPorts>& results);

  DeviceState& state_;
  Log& log_;
  std::unique_ptr<platform::Mutex> device_lock_;
};

}  // namespace zaltor::engine
