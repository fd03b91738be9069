#pragma once
// Antenna health, derived from what the auto loop measures anyway: the per-antenna RSSI
// readings of each sample and the results of each write of the control lines. No extra
// measurement and no extra switching is done for it.
//
// Each antenna port is judged on its own, in this order (the first rule that holds):
// - "line-fault": at least one of the port's last kLineWindow line writes was refused by the
//   firmware, failed, did not read back as written, or left the lines in no position
//   (status 5, 6, 7 or 39).
// - "unknown": no full sweep measured the port in both positions yet, or the port has no
//   RSSI counter (a fourth port never has one).
// - "no-signal": the port read no signal (-95, or no reading) in both Main and Div in each of
//   the last kNoSignalPasses sweeps.
// - "not-switching": the port's mean RSSI in Main and in Div lay within kSameDb of each other
//   in each of the last kNotSwitchingSweeps sweeps, while in the last sweep another port's
//   two positions differed by kSameDb or more (so that a quiet radio scene, where no port
//   changes, does not condemn every port).
// - "ok" otherwise.
// A sweep is one decision pass that measured every mode (a pass abandoned for a request, or
// one without a connection, does not count); in it, a port's position k readings come from
// the modes in which its switch stands in k.
//
// Threads: the auto loop feeds samples and passes, the auto loop and the control interface
// feed writes, the diagnostics interface reads. A short internal lock guards it all.

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "platform/status.h"
#include "platform/switch_table.h"

namespace zaltor::engine {

enum class PortState : uint8_t { kUnknown, kOk, kNoSignal, kNotSwitching, kLineFault };

// "unknown", "ok", "no-signal", "not-switching", "line-fault".
const char* port_state_name(PortState state);

struct PortReport {
  int port = 0;  // 0 "Main", 1 "Aux", 2 "Aux2", 3 "Aux3"
  PortState state = PortState::kUnknown;
  std::string detail;  // one short sentence for a person
};

class PortHealth {
 public:
  static constexpr int kNoSignalPasses = 3;
  static constexpr int kNotSwitchingSweeps = 5;
  static constexpr double kSameDb = 1.0;
  static constexpr int kLineWindow = 8;

  // A decision pass begins to measure: the sums of the previous one are dropped.
  void begin_pass();
  // One successful reading of `ports` antennas (`values[p]` in dBm, -95 no signal) while
  // mode index `modeIndex` stands.
  void sample(int modeIndex, int ports, const int32_t* values);
  // The pass measured every mode: its sums become a sweep.
  void end_pass();
  // One write of the lines of `ports` ports with their results.
  void write(int ports, const std::array<Status, platform::kMaxPorts>& results);

  // The judgement of the first `ports` ports.
  std::vector<PortReport> report(int ports) const;

 private:
  struct Port {
    // The pass under way: per position, readings taken, readings with a signal, their sum.
    std::array<int32_t, 2> readings{};
    std::array<int32_t, 2> signals{};
    std::array<int64_t, 2> sum{};
    // Over sweeps.
    int32_t sweeps = 0;
    int32_t no_signal_streak = 0;
    int32_t same_streak = 0;
    bool differed = false;  // in the last sweep, Main and Div differed by kSameDb or more
    std::array<double, 2> last_mean{};
    std::array<bool, 2> last_had_signal{};
    // Line writes: bit i set = the i-th newest write failed; how many writes were seen.
    uint32_t failed_writes = 0;
    int32_t writes = 0;
    Status last_failure = 0;
  };

  mutable std::mutex lock_;  // held only to update or copy a few counters
  std::array<Port, platform::kMaxPorts> ports_{};
};

}  // namespace zaltor::engine
