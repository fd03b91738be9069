#pragma once
// Signal and throughput counters: one counter query for the service's lifetime holding the
// Wi-Fi interface's throughput and link speed counters and up to three per-antenna RSSI
// counters (port slots 0..2; a fourth port never has one), and the RSSI sweeps built on
// them. The query, its counters and flags live in DeviceState.
//
// RSSI: the counter gives the magnitude; the stored value is its negation, and a counter
// value of 0 (no reading) is stored as -200.
//
// The sweeps run on the RPC, automatic-mode and monitor threads over the one shared query
// without a lock of their own (the query backend must accept calls from several threads);
// a collection taken by one thread changes what another formats next, by design.

#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/antenna_switch.h"
#include "engine/shared_state.h"
#include "platform/clock.h"
#include "platform/counters.h"
#include "platform/log.h"
#include "platform/status.h"

namespace zaltor::engine {

// GetAverageRssi found no usable reading (every reading -95, or no antenna): the average
// would divide by zero. The control interface turns this outcome into the call fault
// 0xC0000094 (integer division by zero) instead of returning it as a status; it is not a
// status code of the shared numbering and never leaves the service as one.
constexpr Status kAverageRssiDivideByZero = 0xC0000094;
// Collecting with no query (opening it failed): the error the counter API gives for an
// invalid query handle.
constexpr uint32_t kCounterInvalidHandle = 0xC0000BBC;
constexpr int kRssiAttempts = 3;

// One reading of the Wi-Fi interface's rate counters; -1 where not available.
struct LinkReading {
  int64_t throughput_bps = -1;    // bytes per second
  double link_speed_mbps = -1.0;  // megabits per second
};

class SignalCounters {
 public:
  SignalCounters(DeviceState& state, AntennaSwitch& sw, platform::Counters& counters,
                 platform::Clock& clock, Log& log)
      : state_(state), sw_(sw), counters_(counters), clock_(clock), log_(log) {}

  // Builds the counter paths for the interface's counter instance name, opens the query,
  // adds the counters, sets the flags and takes a first sample. Once, at initialisation.
  void SetUpCounters(const std::string& instance_name);

  // Reads the throughput and the link speed into `reading`: 0, 2, 17 or 18. Without the
  // throughput counters both read as not available (-1). A value whose formatting fails is
  // left as it was (the throughput read before a failing link speed is kept).
  Status ReadThroughput(LinkReading& reading);

  // One sample of the first `count` RSSI counters (at most three; values beyond the third
  // are left alone): 0, 2 or 19. A failed collection is not reported: 0 with `values`
  // untouched.
  Status ReadRssi(int32_t count, int32_t* values);

  // Every port (at most three) in position "Main", then "Div": values[s * ports + port].
  // In automatic mode the stored automatic sweep is copied instead and no switch moves.
  // Writes never go beyond `length` entries. 0, 2, 26 or 27.
  Status GetRssiAllPorts(int32_t* values, size_t length);

  // Every port (at most three) in the mode set now: values[port]. 0, 2, 26 or 27.
  Status GetRssiCurrentMode(int32_t* values, size_t length);

  // The whole-number mean (truncating) of the readings that are not -95, over the switch
  // number's antennas; an antenna without an RSSI counter (a fourth port) counts as -95.
  // 0, 2, the reading's status, or kAverageRssiDivideByZero (average stays -200).
  Status GetAverageRssi(int32_t& average);

  // Records one automatic-mode sweep result (row 0 "Main", row 1 "Div") for GetRssiAllPorts.
  void store_auto_sweep(int32_t row, int32_t port, int32_t rssi);

 private:
  // ReadRssi without the readiness check: collect, then format at most three counters.
  Status read_into(int32_t count, int32_t* values);
  // One attempt of a sweep: fails when not ready, no ports, or a formatting failure.
  bool sweep_attempt(int32_t ports, int32_t* values);
  int32_t switch_number();

  DeviceState& state_;
  AntennaSwitch& sw_;
  platform::Counters& counters_;
  platform::Clock& clock_;
  Log& log_;
};

}  // namespace zaltor::engine
