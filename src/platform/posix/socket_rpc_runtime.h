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
//
// Abuse. No thread ever blocks on a client: replies and refusals are written without
// blocking, what the socket does not take waits in a bounded per-connection buffer that is
// sent as the socket drains, and a connection whose buffer would overflow is dropped. The
// connections, the calls and contexts of one connection and the runtime's threads are all
// bounded (SocketRuntimeLimits); what lies beyond a bound is refused at once, never queued.
// When the process runs out of descriptors the listener does not spin: a spare descriptor
// is given up to accept and refuse the waiting connection, and failing that the listener
// rests until a connection ends or a short timer fires.

#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

#include "platform/clock.h"
#include "platform/rpc_runtime.h"

namespace zaltor::platform {

// The runtime's bounds; the defaults are the service's (docs/control-wire-format.md).
struct SocketRuntimeLimits {
  // Calls that run at once; further calls wait, oldest first (0: kMaxConcurrentCalls).
  uint32_t max_calls = kMaxConcurrentCalls;
  // Connections open at once: room for 1234 clients each with a call in progress. One more
  // is accepted, refused with 1723 and closed. The bound in force is never above half the
  // process's descriptor limit, so that clients cannot take the descriptors that the
  // service's own files need.
  size_t max_connections = 2048;
  // Calls of one connection waiting or running; further ones are refused with 1723.
  int max_calls_per_connection = 128;
  // Contexts one connection may hold open; opening another is refused with 1721.
  size_t max_contexts_per_connection = 64;
  // Reply bytes waiting for a client that does not read; the connection is dropped when more
  // would have to wait.
  size_t max_pending_reply_bytes = 256 * 1024;
  // Starts one of the runtime's threads. It may throw (std::system_error when the system has
  // no thread to give): the call that needed the thread is then refused with 1723. Empty:
  // std::thread.
  std::function<std::thread(std::function<void()>)> start_thread;
};

// Calls run on the runtime's own threads, each attached to `clock` for the call's duration.
// Destroying the runtime stops listening and runs down every open context.
std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock);
std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock, SocketRuntimeLimits limits);

}  // namespace zaltor::platform
