#pragma once
// The control interface's runtime on Linux: a local stream socket in the abstract namespace
// named after the endpoint, serving the frames of docs/control-wire-format.md.
//
// Threads. The runtime's threads share one epoll set and each runs the same loop: take a
// waiting call if one may start, else wait for one socket event. The thread that reads a
// complete request runs it itself and sends the reply, so a lone call costs one wake-up
// (the reading thread's), as a bare socket exchange does; there is no hand-off from a
// reading thread to a call thread and back.
// - Each connection (and the listening socket) is armed one-shot: one thread at a time reads
//   it, and re-arms it before it runs the call, so the next request of the same connection
//   (an overlapping call) is read and run by another thread.
// - A thread that starts a call first makes sure another thread is left to poll (it starts
//   one when none is idle), so a call that blocks (SetUserMode waits for the loop mutex; a
//   call on a virtual clock waits for its turn) holds only its own thread: the other
//   connections, and the other calls of its connection, go on.
// - Several requests read at once are queued; the reading thread runs the first waiting one
//   and wakes a polling thread (through an event in the same epoll set) for the next.
// - Up to max_calls calls run at once (one thread more polls); further calls wait in the
//   queue, oldest first, and a thread that finishes a call takes the next one before it
//   polls again.
// - A connection's event reads at most 64 KiB before the connection is re-armed, so one
//   busy client cannot keep a thread from the others.
// Stopping sets a level-triggered event that every polling thread sees; threads in calls
// finish them, waiting calls are dropped and every open context is run down.

#include <memory>

#include "platform/clock.h"
#include "platform/rpc_runtime.h"

namespace zaltor::platform {

// Calls run on the runtime's own threads, each attached to `clock` for the call's duration.
// Destroying the runtime stops listening and runs down every open context.
std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock);

}  // namespace zaltor::platform
