#pragma once
// What the manager functions of both interfaces do around their target: the call runs with
// the target's lock held shared (clearing the target takes it exclusively), attached to the
// clock. An RpcFault or any other C++ exception must not cross the C stub: it becomes the
// code that raise_call_fault raises once every C++ object of the call is gone, which the
// runtime catches and sends to the client as the call's fault (out of memory:
// ERROR_OUTOFMEMORY; anything else: RPC_S_CALL_FAILED).
#include <rpc.h>
#include <windows.h>

#include <cstdint>
#include <mutex>
#include <new>
#include <shared_mutex>

#include "platform/clock.h"
#include "platform/rpc_runtime.h"

namespace zaltor::platform::win32 {

// The target of one interface's manager functions: the registered procedures and the clock.
template <typename Dispatch>
struct CallTarget {
  std::shared_mutex lock;
  Dispatch* dispatch = nullptr;
  Clock* clock = nullptr;

  // Sets (or, with nulls, clears) the target; clearing waits for calls inside the old one.
  void set(Dispatch* d, Clock* c) {
    std::unique_lock<std::shared_mutex> hold(lock);
    dispatch = d;
    clock = c;
  }

  // Runs body(dispatch); 0, or the fault to raise (RPC_S_UNKNOWN_IF while none is set).
  template <typename Body>
  uint32_t forward(Body body) {
    constexpr uint32_t kErrorOutOfMemory = 14;
    try {
      std::shared_lock<std::shared_mutex> hold(lock);
      if (dispatch == nullptr) return kRpcUnknownIf;
      ClockAttachment attach(*clock);
      body(*dispatch);
      return 0;
    } catch (const RpcFault& fault) {
      return fault.code();
    } catch (const std::bad_alloc&) {
      return kErrorOutOfMemory;
    } catch (...) {
      return kRpcCallFailed;
    }
  }
};

// Raises the fault, if any; called with no C++ object of the call alive.
inline void raise_call_fault(uint32_t fault) {
  if (fault != 0) RpcRaiseException(static_cast<RPC_STATUS>(fault));
}

}  // namespace zaltor::platform::win32
