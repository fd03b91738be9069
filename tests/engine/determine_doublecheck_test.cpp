#include <gtest/gtest.h>

#include "engine/determine_fixture.h"

namespace zaltor::engine {
namespace {

using testing::DetermineFixture;
using testing::LogCall;

TEST(DetermineDoubleCheck, DisagreementFallsBackToDefaultModeWithoutTheFallbackFlag) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorDoubleCheck;
  f.settings.DefaultMode[0] = 4;
  f.one_sample_each({-40.0, -50.0, -60.0, -70.0}, {100.0, 400.0, 200.0, 300.0});
  EXPECT_EQ(f.Run(0), 4);
  EXPECT_FALSE(f.fallback);
  EXPECT_DOUBLE_EQ(f.rssiOut, -70.0);

  const int at = f.log.find(4, "Using DoubleCheck determinator.\n");
  ASSERT_GE(at, 0);
  const std::vector<LogCall> expected = {
      {4, "Using DoubleCheck determinator.\n"},
      {4, "Determined mode[R]: 1\n"},
      {4, "Determined mode[B]: 2\n"},
      {3, "Mode Mismatch (1 vs 2)"},
      {3, "Determined mode: 4 (Fallback)\n"},
      {5, "Switch status: \n"},
      {5, "Main => 1 (Div)\n"},
      {5, "Aux => 1 (Div)\n"},
      {5, "\n\n"},
  };
  EXPECT_EQ(std::vector<LogCall>(f.log.calls.begin() + at, f.log.calls.end()), expected);
}

TEST(DetermineDoubleCheck, AgreementReturnsThatModeWithoutADeterminedModeLine) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorDoubleCheck;
  f.one_sample_each({-40.0, -50.0, -60.0, -70.0}, {400.0, 100.0, 200.0, 300.0});
  EXPECT_EQ(f.Run(0), 1);
  EXPECT_TRUE(f.log.has(4, "Determined mode[R]: 1\n"));
  EXPECT_TRUE(f.log.has(4, "Determined mode[B]: 1\n"));
  EXPECT_FALSE(f.log.has(4, "Determined mode: 1\n"));
  EXPECT_EQ(f.log.text().find("Mismatch"), std::string::npos);
  EXPECT_TRUE(f.log.has(5, "Switch status: \n"));
}

TEST(DetermineDoubleCheck, BothChoicesResolveTheirTiesWithLogLines) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorDoubleCheck;
  f.one_sample_each({-60.0, -55.0, -55.0, -70.0}, {100.0, 100.0, 100.0, 100.0});
  EXPECT_EQ(f.Run(0), 1);  // R: 3, B: 4, mismatch: DefaultMode 1
  EXPECT_TRUE(f.log.has(4, "Preferred mode = 3\n"));
  EXPECT_TRUE(f.log.has(4, "Preferred mode = 4\n"));
  EXPECT_TRUE(f.log.has(3, "Mode Mismatch (3 vs 4)"));
  EXPECT_TRUE(f.log.has(3, "Determined mode: 1 (Fallback)\n"));
}

}  // namespace
}  // namespace zaltor::engine
