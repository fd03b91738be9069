#pragma once
// What the engine did with the switches during one lab run, as the lab observed it.
//
// Every "DEVS" write of the simulated firmware is a switch event: the notebook's time and
// the mode the switches form after it. Setting a mode writes each switch's lines in turn,
// a hardware call (1 ms) apart, so writes at most 10 ms apart with the same role are kept
// as one event at the first write's time with the mode the last one formed. The worker's own log
// calls tell a pass's writes apart: a pass begins with "Using Config Set: %d"; its writes are
// measuring writes until the pass has decided ("Determined mode: %d", or for the DoubleCheck
// determinator "Determined mode[B]: %d"); the first write after the decision applies the chosen
// mode. Every write outside a pass (a fixed mode, the default mode without a connection) puts a
// mode in use. So the switches stand in a mode "only to measure it" from a pass's first
// measuring write until the write that applies the pass's choice.

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

namespace zaltor::lab {

struct SwitchEvent {
  int64_t at_ms = 0;
  int mode = 0;  // the mode the switches form after the write (0: neither)
  bool measuring = false;
};

// The averages a pass measured for one mode ("Avg RSSI: #%d)%.3lf (%.1lf), ").
struct Measured {
  int mode = 0;
  double rssi = 0;  // dBm
  double rate = 0;  // Mbps
};

struct PassRecord {
  int64_t start_ms = 0;
  int64_t end_ms = -1;  // the write that applied the choice; -1 when the pass was cut short
  int chosen = 0;       // the mode the pass determined (0: none logged)
  bool fallback = false;
  std::vector<Measured> measured;
};

struct Trace {
  int64_t end_ms = 0;    // the end of the run (the scenario's stopAfter)
  int initial_mode = 0;  // the mode the switches formed when the run began
  std::vector<SwitchEvent> switches;
  std::vector<PassRecord> passes;
};

nlohmann::json trace_to_json(const Trace& t);
bool trace_from_json(const nlohmann::json& j, Trace& t);

}  // namespace zaltor::lab
