#pragma once
// The client side of the control interface, for antennactl and tests. Each call answers 0
// when the call completed (its status and values are then set) or the runtime's fault or
// error code when it did not (values untouched). On Linux it talks to the local stream
// socket; a Windows build supplies one over the real RPC runtime.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/rpc_runtime.h"

namespace zaltor::platform {

class ControlClient {
 public:
  virtual ~ControlClient() = default;
  virtual uint32_t open_context(ContextHandleWire& context) = 0;
  // Closes the context; on success `context` is null.
  virtual uint32_t close_context(ContextHandleWire& context) = 0;
  virtual uint32_t query_value(const ContextHandleWire& context, int32_t command, int32_t& status,
                               int32_t& value) = 0;
  virtual uint32_t query_indexed_value(const ContextHandleWire& context, int32_t command,
                                       int32_t argument, int32_t& status, int32_t& value) = 0;
  virtual uint32_t set_value(const ContextHandleWire& context, int32_t command, int32_t argument,
                             int32_t& status) = 0;
  virtual uint32_t set_paired_value(const ContextHandleWire& context, int32_t command,
                                    int32_t first, int32_t second, int32_t& status) = 0;
  virtual uint32_t query_array(const ContextHandleWire& context, int32_t command, int32_t count,
                               int32_t& status, std::vector<int32_t>& values) = 0;

  // A procedure of the diagnostics interface (DiagnosticsProcedure; `count` for
  // ReadHistory) with `capacity` bytes of room: status 0 and the text, or
  // kDiagnosticsMoreData with the length needed in `length` and no text.
  virtual uint32_t read_diagnostics(uint32_t procedure, int32_t count, int32_t capacity,
                                    int32_t& status, int32_t& length, std::string& text) = 0;
};

// Connects to the control endpoint `endpoint`. Every call (and the connection itself) gives
// up after timeout_ms. Null with `error` set (1722: no server there) when it cannot connect.
std::unique_ptr<ControlClient> connect_control_client(const std::string& endpoint, int timeout_ms,
                                                      uint32_t& error);

}  // namespace zaltor::platform
