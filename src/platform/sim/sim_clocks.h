#pragma once
// The simulated notebook's clocks.
//
// Scaled: real threads, mutexes and events, but the notebook's time runs `speed` times as
// fast as the machine's (sleep_ms(ms) takes ms / speed real milliseconds).
//
// Virtual: deterministic. Exactly one attached thread runs at a time. Simulated time moves
// only when every attached thread waits (sleep, a mutex lock that would block, an event
// wait, a join), and then jumps to the earliest deadline. Threads that become ready at the
// same simulated moment run in the order in which their waits began; a newly started
// thread is ready and runs when the current one waits; Mutex::unlock and Event::set make
// waiters ready but the current thread keeps running until it waits. When every attached
// thread waits without a deadline, time stands still until an outside thread attaches or
// sets an event. An unattached thread that sleeps, waits, joins or blocks on a mutex
// attaches for that call only.

#include <memory>
#include <string>

#include "platform/clock.h"

namespace zaltor::platform::sim {

std::unique_ptr<Clock> make_scaled_clock(double speed);
std::unique_ptr<Clock> make_virtual_clock();

// "scaled" (with `speed`) or "virtual"; null for any other mode.
std::unique_ptr<Clock> make_sim_clock(const std::string& mode, double speed);

}  // namespace zaltor::platform::sim
