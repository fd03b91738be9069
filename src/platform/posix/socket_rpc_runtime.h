#pragma once
// The control interface's runtime on Linux: a local stream socket in the abstract namespace
// named after the endpoint, serving the frames of docs/control-wire-format.md.
//
// Threads. Each connection has a reader thread that waits in the connection's socket (a
// blocking receive), so that a request wakes the very thread that runs it and sends the
// reply: one receive and one send per call, as in a bare exchange, with no hand-off and no
// poll set in between. Beside the readers, one poll thread takes connections (and rests the
// listener), sends the replies that waited for a full socket, and watches the calls.
// - A reader runs the first request of a read on its own thread; requests read together
//   with it run on workers at once, side by side.
// - While a reader runs a call nobody reads its connection. The poll thread looks every
//   tick (1 ms) for a reader that has been in the same call for a whole tick while its
//   client sent more or left, and gives the connection a new reader; the old one leaves
//   once its call ends. A call that blocks (SetUserMode waits for the loop mutex; a call on
//   a virtual clock waits for its turn) so holds up neither the other connections nor, for
//   more than a tick, the other calls of its own connection. The poll thread watches only
//   while calls run or start, so an idle service never wakes for it, and a steady client's
//   calls never have to wake it.
// - Up to max_calls calls run at once; further calls wait, oldest first, and a call that
//   ends starts the oldest waiting one on a worker. Room is taken and given back without a
//   lock; the runtime's lock is taken only when calls wait or several came in one read.
// - Threads are kept for a while: a reader whose connection ends, or a worker whose call
//   ends, waits for the next connection or call, and ends after idle_thread_time without
//   one, so that a burst of clients does not leave its threads (and their stacks) behind.
// Stopping ends the poll thread, then shuts every connection, so that each reader sees the
// end; threads in calls finish them, waiting calls are dropped and every open context is
// run down.
//
// Abuse. No thread ever blocks on a client but that connection's own reader: replies and
// refusals are written without blocking, what the socket does not take waits in a bounded
// per-connection buffer that is sent as the socket drains, and a connection whose buffer
// would overflow is dropped. The connections, the calls and contexts of one connection and
// the runtime's threads (a reader per connection, one more per call that outlasts a tick,
// a worker per call that runs beside its reader's) are all bounded (SocketRuntimeLimits);
// what lies beyond a bound is refused at once, never queued.
// When the process runs out of descriptors the listener does not spin: a spare descriptor
// is given up to accept and refuse the waiting connection, and failing that the listener
// rests until a connection ends or a short timer fires.

#include <chrono>
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
  // Reply bytes waiting for a client that does not read, behind the reply it is taking (a
  // reply that finds nothing waiting always waits whole: a diagnostics text may be larger
  // than this); the connection is dropped when more would have to wait.
  size_t max_pending_reply_bytes = 256 * 1024;
  // Starts one of the runtime's threads. It may throw (std::system_error when the system has
  // no thread to give): the call that needed the thread is then refused with 1723. Empty:
  // std::thread.
  std::function<std::thread(std::function<void()>)> start_thread;
  // How long a thread with nothing to do waits for the next connection or call before it
  // ends (the poll thread stays).
  std::chrono::milliseconds idle_thread_time{10000};
};

// Calls run on the runtime's own threads, each attached to `clock` for the call's duration.
// Destroying the runtime stops listening and runs down every open context.
std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock);
std::unique_ptr<RpcRuntime> make_socket_rpc_runtime(Clock& clock, SocketRuntimeLimits limits);

}  // namespace zaltor::platform
