#pragma once
// The diagnostics texts the service hands out: the decision journal and the antenna health
// as UTF-8 JSON, in the shapes `antennactl why|history|health --json` print.
//
//   decision D: {"time": s, "trigger": ..., "configSet": N, "determinator": ...,
//                "currentMode": N, "modes": [{"mode": N, "disabled": b, "samples": N,
//                "rssi": dBm, "rate": Mbps, "weight": dB, "weighted": dBm}, ...],
//                "chosen": N, "outcome": ..., "sleepMs": N}
//   why:     {"decision": D} or {"decision": null}
//   history: {"decisions": [D, ...]} oldest first
//   health:  {"ports": [{"port": "Main", "state": "ok", "detail": text}, ...]}
//
// time is seconds of the service's clock since it started, with millisecond precision.
// An RSSI or weighted value that does not exist (a mode without a successful sample, a
// disabled mode, weighting skipped by a fallback) is null. A record without a measurement
// (no connection, the run count ran out) has an empty modes list.

#include <cstddef>
#include <string>
#include <vector>

#include "engine/decision_journal.h"
#include "engine/port_health.h"

namespace zaltor::engine {

std::string decision_json(const DecisionRecord& record);
std::string why_json(const DecisionJournal& journal);
std::string history_json(const DecisionJournal& journal, size_t count);
std::string health_json(const std::vector<PortReport>& ports);

// "Main", "Aux", "Aux2", "Aux3".
const char* port_name(int port);

}  // namespace zaltor::engine
