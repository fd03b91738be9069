#pragma once
// The tests by which the auto-mode thread and the measurement notice, between two steps of
// their work, that they are to stop or to begin a new pass. Every wait of the loop is taken
// in one-second steps with such a test after each step, so that a stop or a re-evaluation
// request is seen within about a second.

#include <cstdint>

#include "engine/worker.h"

namespace zaltor::engine {

// One wait step of the auto loop and of the measurement.
constexpr int64_t kLoopStepMs = 1000;

// What a checkpoint of the auto loop found.
enum class LoopCheck {
  kGoOn,      // nothing asked: carry on with the pass
  kNextPass,  // a re-evaluation request was consumed: begin the next pass at once
  kEnd,       // keepRunning is cleared: end the thread
};

// The auto loop's checkpoint: keepRunning first, then, under loopMutex, a re-evaluation
// request is consumed (a pending config set becomes active).
// `taken`, when given, receives the cause of a request consumed.
LoopCheck checkpoint(AntennaSwitchWorkerObj& worker, const AutoSwitchingWorkerArg& arg,
                     Trigger* taken = nullptr);

// The measurement's test: true when keepRunning is cleared or a re-evaluation request is
// pending. The request is only looked at (under loopMutex), not consumed: it stays for the
// loop, which abandons its pass at its next checkpoint.
bool stop_or_request_pending(AntennaSwitchWorkerObj& worker, const AutoSwitchingWorkerArg& arg);

// The number of one-second steps a wait of `ms` milliseconds takes: the loop sleeps whole
// steps until the time slept reaches the interval, so a part of a second counts as a whole
// step, and 0 or a negative interval takes none.
int64_t wait_steps(int64_t ms);

}  // namespace zaltor::engine
