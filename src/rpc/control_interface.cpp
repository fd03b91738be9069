#include "rpc/control_interface.h"

#include <cstdlib>

namespace zaltor::rpc {

const platform::RpcInterfaceId kControlInterface{
    {0xae229564, 0x9584, 0x4672, {0x9b, 0x40, 0xad, 0x8f, 0xd8, 0x0f, 0x75, 0xba}}, 1, 0};
const platform::RpcInterfaceId kDiagnosticsInterface{
    {0x9b099b7d, 0x2354, 0x42ca, {0xa4, 0x7e, 0x7c, 0x58, 0xf0, 0x6d, 0xc9, 0x9b}}, 1, 0};
const platform::RpcInterfaceId kNdrTransferSyntax{
    {0x8a885d04, 0x1ceb, 0x11c9, {0x9f, 0xe8, 0x08, 0x00, 0x2b, 0x10, 0x48, 0x60}}, 2, 0};

namespace {
constexpr const char* kProcedureNames[kProcedureCount] = {
    "OpenControlContext", "CloseControlContext", "QueryValue", "QueryIndexedValue",
    "SetValue",           "SetPairedValue",      "QueryArray"};
}  // namespace

std::string endpoint_name_from_environment() {
  const char* v = std::getenv(kEndpointEnvironment);
  if (v != nullptr && *v != '\0') return v;
  return kDefaultEndpoint;
}

const char* procedure_name(uint32_t procedure) {
  return procedure < kProcedureCount ? kProcedureNames[procedure] : nullptr;
}

bool procedure_by_name(const std::string& name, uint32_t& procedure) {
  for (uint32_t i = 0; i < kProcedureCount; ++i) {
    if (name == kProcedureNames[i]) {
      procedure = i;
      return true;
    }
  }
  return false;
}

}  // namespace zaltor::rpc
