#pragma once
// A scenario from a field log (the service's "rflog.txt"): the notebook that reproduces the
// per-mode measurements of every pass, so that a customer's log can be replayed under
// another configuration.
//
// The log holds the text of the worker's log calls without times. The replay rebuilds the
// times of the passes from the log itself: a pass measures its first mode without switching
// and every other mode after the stabilisation wait, each with one collect interval between
// attempts (the intervals and waits of each config set come from the configuration report
// at the start of the log; without it 1000 ms and 2000 ms), and then sleeps its logged
// "Sleep: %d". Each pass's measured averages ("Avg RSSI: #%d)%.3lf (%.1lf)") become the
// notebook's `radio.modeRssi` and `radio.rateMbps` from the middle of the previous pass's
// sleep, so that the replayed pass measures them even when the estimated times are off.
// The config set of each pass is reproduced by its situation: set 1 a 5 GHz channel, set 2
// a connected Bluetooth headset, set 3 the lid closed, set 0 none of these.
//
// What the log cannot tell is not reproduced: single samples (every sample of a mode reads
// its average, rounded to whole dBm by the counters), each port's own reading (every port
// reads the mode's value, so a tie that the engine resolves by comparing the ports' readings
// may go another way), the moment a monitor or an event cut a sleep short, and anything
// between passes.

#include <string>

#include <nlohmann/json.hpp>

namespace zaltor::lab {

// False with `error` when the text holds no pass with measured averages.
bool scenario_from_log(const std::string& log_text, nlohmann::json& scenario, std::string& error);

}  // namespace zaltor::lab
