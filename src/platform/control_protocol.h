#pragma once
// The control protocol as both runtimes and both clients see it: the procedures of the
// control interface and of the diagnostics interface, the arguments each one carries and the
// bounds a call must keep. The Linux runtime and client put these on the local socket
// (docs/control-wire-format.md); the Windows ones hand them to the RPC runtime, whose stubs
// come from src/rpc/*.idl. The IDL states the array bound again as `[range(0, 4096)]` (widl
// cannot read a C++ header); the build stops when the two differ (src/CMakeLists.txt).

#include <cstdint>

namespace zaltor::platform {

// Procedure numbers of the control interface.
enum ControlProcedure : uint32_t {
  kOpenControlContext = 0,
  kCloseControlContext = 1,
  kQueryValue = 2,
  kQueryIndexedValue = 3,
  kSetValue = 4,
  kSetPairedValue = 5,
  kQueryArray = 6,
  kProcedureCount = 7,
};

// Procedure numbers of the diagnostics interface, which hands out UTF-8 JSON text (the
// decision journal and the antenna health; see docs/diagnostics-interface.md).
enum DiagnosticsProcedure : uint32_t {
  kReadLastDecision = 0,
  kReadHistory = 1,
  kReadHealth = 2,
  kDiagnosticsProcedureCount = 3,
};

// On the local socket both interfaces share one procedure-number space: a diagnostics
// procedure travels as this bit (bit 16) together with its own number.
inline constexpr uint32_t kDiagnosticsInterfaceBit = 1u << 16;

// Largest element count a QueryArray call may ask for; a count outside 0..kMaxArrayCount is
// refused with RPC_X_INVALID_BOUND before anything is allocated for it.
inline constexpr int32_t kMaxArrayCount = 4096;

// Whether a control procedure names a context handle among its in arguments (every one but
// OpenControlContext).
constexpr bool takes_context(uint32_t procedure) {
  return procedure > kOpenControlContext && procedure < kProcedureCount;
}

// The 32-bit in arguments of a control procedure after its context handle: the command, then
// the argument (QueryIndexedValue, SetValue), both values (SetPairedValue) or the count
// (QueryArray). -1 for a number outside the interface.
constexpr int long_arguments(uint32_t procedure) {
  switch (procedure) {
    case kOpenControlContext:
    case kCloseControlContext:
      return 0;
    case kQueryValue:
      return 1;
    case kQueryIndexedValue:
    case kSetValue:
    case kQueryArray:
      return 2;
    case kSetPairedValue:
      return 3;
    default:
      return -1;
  }
}

// Whether a control procedure answers a value beside its status.
constexpr bool returns_value(uint32_t procedure) {
  return procedure == kQueryValue || procedure == kQueryIndexedValue;
}

// The 32-bit in arguments of a diagnostics procedure: the room for the text (capacity), after
// the count of decisions for ReadHistory. -1 for a number outside the interface.
constexpr int diagnostics_long_arguments(uint32_t procedure) {
  switch (procedure) {
    case kReadLastDecision:
    case kReadHealth:
      return 1;
    case kReadHistory:
      return 2;
    default:
      return -1;
  }
}

}  // namespace zaltor::platform
