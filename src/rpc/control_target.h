#pragma once
// What the control procedures need of the worker and the device layer. The engine's worker
// object implements it; the procedures only read its fields and call its operations.

#include <cstddef>
#include <cstdint>

#include "platform/status.h"

namespace zaltor::rpc {

// Room the RSSI sweeps may fill whatever the caller asked for: two switch positions times
// the three ports that have an RSSI counter.
inline constexpr size_t kRssiSweepCapacity = 2 * 3;

// The average RSSI over the antennas as the device logic computes it.
struct AverageRssi {
  Status status = SWITCH_OK;
  int32_t value = kRssiAbsent;
  // Every reading was -95 or there was no antenna: there is nothing to divide by. The
  // control call then fails as a whole with an integer-division fault.
  bool no_divisor = false;
};

class ControlTarget {
 public:
  virtual ~ControlTarget() = default;

  // Worker fields, read without locks.
  virtual bool initialised() = 0;
  virtual uint32_t user_mode() = 0;
  virtual int32_t switchCount() = 0;
  virtual int32_t mode_count() = 0;
  virtual bool rssi_pa_requested() = 0;
  virtual uint32_t auto_state() = 0;

  // Device and worker operations; each answers its own status code.
  virtual Status GetSwitchNumber(int32_t& count) = 0;
  virtual AverageRssi GetAverageRssi() = 0;
  virtual Status GetCurrentMode(int32_t& mode) = 0;
  virtual Status GetSwitchPosition(int32_t switch_index, int32_t& position) = 0;
  virtual Status GetControlBit(int32_t id, int32_t& level, int32_t offset) = 0;
  virtual Status SetUserMode(int32_t mode) = 0;
  virtual Status SetSwitchPosition(int32_t switch_index, int32_t position) = 0;
  virtual Status SetControlBit(int32_t id, int32_t level, int32_t offset) = 0;
  // `values` has room for at least max(length, kRssiSweepCapacity) elements; the sweep may
  // write up to kRssiSweepCapacity of them whatever `length` says.
  virtual Status GetRssiAllPorts(int32_t* values, size_t length) = 0;
  virtual Status GetRssiCurrentMode(int32_t* values, size_t length) = 0;
};

}  // namespace zaltor::rpc
