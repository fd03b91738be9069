#pragma once
// What the simulated radio gives at a moment of the notebook's clock: the RSSI of an antenna
// port in a switch position, and the link rate of a mode. The counters publish it (adding
// their seeded noise), and tools that need the notebook's truth (the lab) read it, so both
// always agree.
//
// Beyond the fixed per-port values of `radio.rssi`, a scenario can move the radio:
// - `drift`: every port's RSSI changes linearly from `start` on, `dbPerMinute`, until it
//   reaches `limitDbm` (walking away from the access point, or back towards it);
// - `blockage`: a port (in one position, or both) loses `lossDb` for `duration` seconds
//   every `period` seconds, the first time at `offset` (a hand over an antenna element, the
//   lid half closed);
// - `fading`: every antenna element (a port in one position) swings slowly by up to
//   `depthDb` around its value, a sum of two sine waves whose periods (around
//   `periodSeconds`) and phases come from `seed`, so that a seed gives the same fading
//   everywhere; elements fade independently, so fading changes which mode is best;
// - without `rateMbps`, a mode's link rate follows its RSSI (the mean over its ports)
//   through an MCS-like table (two streams, 80 MHz).
// - `modeRssi`: per mode, what every port reads while the switches form that mode, in place
//   of all of the above (a replayed field log knows the modes, not the ports).
// A value at or below -95 dBm means no signal and stays exactly -95.

#include <cstddef>

#include "platform/sim/scenario.h"

namespace zaltor::platform::sim {

constexpr double kNoSignalDbm = -95.0;

// The RSSI of `port` with its switch in `position` (0 "Main", 1 "Div", other: neither) at
// `t_s` seconds, without counter noise.
double port_rssi_at(const Scenario& s, size_t port, int position, double t_s);

// What the port counters read in `mode` when the scenario gives `modeRssi` for it; false
// when it does not (the ports read port_rssi_at).
bool mode_reading(const Scenario& s, int mode, double& dbm);

// The RSSI of `mode` (1-based; port p stands in position bit p of mode - 1) over the first
// `ports` ports: the mean of the ports with a signal, or kNoSignalDbm when none has one.
double mode_rssi_at(const Scenario& s, int mode, size_t ports, double t_s);

// The link rate of `mode` in Mbps: `rateMbps` when the scenario gives it (0 for a mode it
// does not list), else the rate of the mode's RSSI in the MCS-like table.
double mode_rate_at(const Scenario& s, int mode, size_t ports, double t_s);

// The MCS-like table: the rate in Mbps of a link at `rssi_dbm` (0 without a signal).
double rate_for_rssi(double rssi_dbm);

}  // namespace zaltor::platform::sim
