#pragma once
// Identity, names and numbers of the control interface (see zaltor_antenna.idl).

#include <cstdint>
#include <string>

#include "platform/control_protocol.h"
#include "platform/rpc_runtime.h"

namespace zaltor::rpc {

// ae229564-9584-4672-9b40-ad8fd80f75ba, version 1.0.
extern const platform::RpcInterfaceId kControlInterface;
// The diagnostics interface (zaltor_diagnostics.idl): 9b099b7d-2354-42ca-a47e-7c58f06dc99b,
// version 1.0, on the same endpoint with the same security.
extern const platform::RpcInterfaceId kDiagnosticsInterface;
// NDR transfer syntax 8a885d04-1ceb-11c9-9fe8-08002b104860, version 2.0.
extern const platform::RpcInterfaceId kNdrTransferSyntax;

using platform::kProtocolSequence;
inline constexpr const char* kDefaultEndpoint = "ZaltorMultiAntennaRpcEndpoint";
inline constexpr const char* kEndpointEnvironment = "ZALTOR_RPC_ENDPOINT";
inline constexpr const char* kCompanionPackageFamily = "Zaltor.antennaSwitch_k3d9wq2v8xhna";

// How the runtime serves the endpoint (platform/rpc_runtime.h).
inline constexpr uint32_t kProtseqMaxCalls = platform::kEndpointMaxCalls;
using platform::kInterfaceFlags;
using platform::kMaxConcurrentCalls;
using platform::kMinCallThreads;
inline constexpr int64_t kEndpointRetryMs = 5000;

// Procedure numbers (platform/control_protocol.h).
using Procedure = platform::ControlProcedure;
using platform::kCloseControlContext;
using platform::kOpenControlContext;
using platform::kProcedureCount;
using platform::kQueryArray;
using platform::kQueryIndexedValue;
using platform::kQueryValue;
using platform::kSetPairedValue;
using platform::kSetValue;

// Command codes; the high nibble of the second byte names the procedure group.
enum Command : int32_t {
  kGetSwitchNumber = 0x1001,
  kGetReserved = 0x1002,
  kGetAverageRssi = 0x1003,
  kGetUserMode = 0x1004,
  kGetSwitchCount = 0x1005,
  kGetModeCount = 0x1006,
  kGetRssiPaRequested = 0x1007,
  kGetCurrentMode = 0x1008,
  kGetAutoState = 0x1009,
  kGetSwitchPosition = 0x2001,
  kGetControlBit = 0x2002,
  kSetUserMode = 0x3001,
  kSetSwitchPosition = 0x4001,
  kSetControlBit = 0x4002,
  kGetRssiAllPorts = 0x5001,
  kGetRssiCurrentMode = 0x5002,
};

// Largest element count a QueryArray call may ask for (the runtime refuses more).
using platform::kMaxArrayCount;

// The endpoint name: ZALTOR_RPC_ENDPOINT when set and not empty, else the default.
std::string endpoint_name_from_environment();

// The procedure name by number ("QueryValue"), or nullptr.
const char* procedure_name(uint32_t procedure);
// The procedure number by name (case-sensitive); false when there is none.
bool procedure_by_name(const std::string& name, uint32_t& procedure);

}  // namespace zaltor::rpc
