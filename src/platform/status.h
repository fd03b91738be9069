#pragma once
// Status codes: one numbering shared by every operation of the service and returned
// unchanged through the control interface. 0 is success.

#include <cstdint>

namespace zaltor {

using Status = uint32_t;

enum : Status {
  SWITCH_OK = 0,
  SWITCH_ERR_NOT_READY = 2,      // worker not initialised
  SWITCH_ERR_NOT_PRESENT = 3,    // status word bit 16 clear; unsupported device
  SWITCH_ERR_STATUS_IO = 4,      // status request failed
  SWITCH_ERR_CTRL_REJECTED = 5,  // control method answered other than 1
  SWITCH_ERR_CTRL_IO = 6,        // control request failed
  SWITCH_ERR_VERIFY = 7,         // read-back differs from what was written
  kStatusWlanNotOpened = 8,
  kStatusNoWifiInterface = 11,
  kStatusCounterCollect = 17,
  kStatusThroughputValue = 18,
  kStatusRssiValue = 19,
  SWITCH_ERR_INDEX = 25,
  kStatusRssiNotSupported = 26,
  kStatusRssiUnreadable = 27,
  SWITCH_ERR_INVALID_MODE = 28,
  kStatusLogFailure = 31,
  kStatusUnknownCommand = 36,
  kSwitchErrInvalidPosition = 38,
  SWITCH_ERR_NO_POSITION = 39,
  kStatusConfigKeyMissing = 40,
  SWITCH_ERR_RSSI_PA = 41,  // also: PCW mapping error
  kStatusConfigVersion = 42,
  kStatusVersionRegOpen = 43,
  kStatusVersionFileOpen = 44,
  kStatusVersionParam = 45,
  kStatusVersionRegWrite = 46,
  kStatusVersionRegRead = 47,
  kStatusVersionCheck = 48,
  kStatusWorkerStartFailed = 110,
};

// Mode numbers: 0 automatic, 1..modeCount fixed, 99 unknown.
constexpr int32_t kModeAuto = 0;
constexpr int32_t kModeUnknown = 99;

// RSSI markers: -95 no signal on an antenna, -200 no value at all.
constexpr int32_t kRssiNoSignal = -95;
constexpr int32_t kRssiAbsent = -200;

}  // namespace zaltor
