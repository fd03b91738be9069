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
  STATUS_WLAN_NOT_OPENED = 8,
  STATUS_NO_WIFI_INTERFACE = 11,
  STATUS_COUNTER_COLLECT = 17,
  STATUS_THROUGHPUT_VALUE = 18,
  STATUS_RSSI_VALUE = 19,
  SWITCH_ERR_INDEX = 25,
  STATUS_RSSI_NOT_SUPPORTED = 26,
  STATUS_RSSI_UNREADABLE = 27,
  SWITCH_ERR_INVALID_MODE = 28,
  STATUS_LOG_FAILURE = 31,
  STATUS_UNKNOWN_COMMAND = 36,
  SWITCH_ERR_INVALID_POSITION = 38,
  SWITCH_ERR_NO_POSITION = 39,
  STATUS_CONFIG_KEY_MISSING = 40,
  SWITCH_ERR_RSSI_PA = 41,  // also: PCW mapping error
  STATUS_CONFIG_VERSION = 42,
  STATUS_VERSION_REG_OPEN = 43,
  STATUS_VERSION_FILE_OPEN = 44,
  STATUS_VERSION_PARAM = 45,
  STATUS_VERSION_REG_WRITE = 46,
  STATUS_VERSION_REG_READ = 47,
  STATUS_VERSION_CHECK = 48,
  STATUS_WORKER_START_FAILED = 110,
};

// Mode numbers: 0 automatic, 1..modeCount fixed, 99 unknown.
constexpr int32_t kModeAuto = 0;
constexpr int32_t kModeUnknown = 99;

// RSSI markers: -95 no signal on an antenna, -200 no value at all.
constexpr int32_t kRssiNoSignal = -95;
constexpr int32_t kRssiAbsent = -200;

}  // namespace zaltor
