// The one description of the control protocol that both runtimes and both clients read: the
// procedures, the arguments each carries and the bounds.
#include "platform/control_protocol.h"

#include <gtest/gtest.h>

#include <string>

#include "rpc/control_interface.h"

namespace zaltor::rpc::test {
namespace {

TEST(ControlProtocol, ProceduresAreNumberedAsTheInterfaceNamesThem) {
  const char* names[] = {
      "OpenControlContext", "CloseControlContext", "QueryValue", "QueryIndexedValue",
      "SetValue",           "SetPairedValue",      "QueryArray"};
  ASSERT_EQ(platform::kProcedureCount, 7u);
  for (uint32_t p = 0; p < platform::kProcedureCount; ++p) {
    ASSERT_NE(procedure_name(p), nullptr);
    EXPECT_EQ(std::string(procedure_name(p)), names[p]);
  }
  EXPECT_EQ(platform::kQueryArray, 6u);
  EXPECT_EQ(platform::kReadLastDecision, 0u);
  EXPECT_EQ(platform::kReadHistory, 1u);
  EXPECT_EQ(platform::kReadHealth, 2u);
}

TEST(ControlProtocol, EachProcedureCarriesItsArguments) {
  EXPECT_FALSE(platform::takes_context(platform::kOpenControlContext));
  for (uint32_t p = platform::kCloseControlContext; p < platform::kProcedureCount; ++p) {
    EXPECT_TRUE(platform::takes_context(p)) << p;
  }
  EXPECT_FALSE(platform::takes_context(platform::kProcedureCount));
  // Longs after the context: command; command and argument; command and both values;
  // command and count.
  const int longs[] = {0, 0, 1, 2, 2, 3, 2};
  for (uint32_t p = 0; p < platform::kProcedureCount; ++p) {
    EXPECT_EQ(platform::long_arguments(p), longs[p]) << p;
  }
  EXPECT_EQ(platform::long_arguments(platform::kProcedureCount), -1);
  EXPECT_EQ(platform::long_arguments(platform::kDiagnosticsInterfaceBit), -1);
  EXPECT_TRUE(platform::returns_value(platform::kQueryValue));
  EXPECT_TRUE(platform::returns_value(platform::kQueryIndexedValue));
  EXPECT_FALSE(platform::returns_value(platform::kQueryArray));
  EXPECT_FALSE(platform::returns_value(platform::kSetValue));
  // Diagnostics: the capacity, after the count for ReadHistory.
  EXPECT_EQ(platform::diagnostics_long_arguments(platform::kReadLastDecision), 1);
  EXPECT_EQ(platform::diagnostics_long_arguments(platform::kReadHistory), 2);
  EXPECT_EQ(platform::diagnostics_long_arguments(platform::kReadHealth), 1);
  EXPECT_EQ(platform::diagnostics_long_arguments(platform::kDiagnosticsProcedureCount), -1);
}

TEST(ControlProtocol, BoundsAndTheDiagnosticsBit) {
  EXPECT_EQ(platform::kMaxArrayCount, 4096);
  EXPECT_EQ(kMaxArrayCount, platform::kMaxArrayCount);
  EXPECT_EQ(platform::kDiagnosticsInterfaceBit, 0x10000u);
}

}  // namespace
}  // namespace zaltor::rpc::test
