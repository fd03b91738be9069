#include <gtest/gtest.h>

#include "engine/determinators.h"
#include "engine/determine_fixture.h"

namespace zaltor::engine {
namespace {

using testing::DetermineFixture;
using testing::LogCall;

TEST(DetermineHybrid, EqualRateIsDecidedByWeightedRssiAndTheRssiReferenceMismatches) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorHybrid;
  f.one_sample_each({-50.0, -48.0, -40.0, -41.0}, {144.0, 144.0, 72.0, 72.0});
  EXPECT_EQ(f.Run(0), 2);
  EXPECT_DOUBLE_EQ(f.rssiOut, -48.0);

  const int at = f.log.find(4, "Using Hybrid determinator.\n");
  ASSERT_GE(at, 0);
  const std::vector<LogCall> expected = {
      {4, "Using Hybrid determinator.\n"},
      {4, "Determined mode: 2\n"},
      {4, "Determined mode[R]: 3, mismatch.\n"},
      {5, "Switch status: \n"},
      {5, "Main => 1 (Div)\n"},
      {5, "Aux => 0 (Main)\n"},
      {5, "\n\n"},
  };
  EXPECT_EQ(std::vector<LogCall>(f.log.calls.begin() + at, f.log.calls.end()), expected);
}

TEST(DetermineHybrid, AgreementWritesNoMismatchLine) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorHybrid;
  f.one_sample_each({-50.0, -48.0, -40.0, -41.0}, {144.0, 144.0, 300.0, 72.0});
  EXPECT_EQ(f.Run(0), 3);
  EXPECT_EQ(f.log.text().find("mismatch"), std::string::npos);
}

TEST(DetermineHybrid, RssiReferenceTieIsResolvedWithoutLogLines) {
  // Weighted ties between indices 1 and 2 (resolved silently to index 2 as in the RSSI
  // determinator); the rate picks index 0 alone.
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorHybrid;
  f.one_sample_each({-60.0, -55.0, -55.0, -70.0}, {200.0, 100.0, 100.0, 100.0});
  EXPECT_EQ(f.Run(0), 1);
  EXPECT_TRUE(f.log.has(4, "Determined mode[R]: 3, mismatch.\n"));
  EXPECT_EQ(f.log.text().find("Preferred mode"), std::string::npos);
  EXPECT_EQ(f.log.text().find("Determined Switch States"), std::string::npos);
}

TEST(DetermineHybrid, FullTieIsResolvedWithBothArrays) {
  // Rate and weighted RSSI equal for indices 0 and 3; index 1 is better than 0 in rate only
  // and index 2 better than 0 in RSSI only, so each switch sees position 1 win in one array
  // and position 0 win in the other.
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorHybrid;
  f.one_sample_each({-50.0, -80.0, -40.0, -50.0}, {100.0, 90.0, 50.0, 100.0});
  EXPECT_EQ(f.Run(0), 4);
  const std::string text = f.log.text();
  EXPECT_NE(text.find("Use more precise methods with switch count 2...\n"
                      "Preferred mode = 4\n"
                      "Determined Switch States: {1, 1} = **(1), {1, 1} = **(1), \n"
                      "Determined mode: 4\n"
                      "Determined mode[R]: 3, mismatch.\n"),
            std::string::npos)
      << text;
}

TEST(DetermineHybrid, ChooseWithSecondaryResolvesTiesWithTheTwoArrayComparison) {
  DetermineFixture f(1);
  ModeResults results;
  results.reset();
  results.avgRate = {100.0, 100.0};
  results.weighted = {-50.0, -50.0};
  const DetermineInput in = f.input();
  const DecisionContext ctx{in, results, 0, 1};
  EXPECT_EQ(ChooseWithSecondary(ctx, results.avgRate, results.weighted), 1);
  EXPECT_TRUE(f.log.has(4, "Preferred mode = 2\n"));
  EXPECT_TRUE(f.log.has(5, "**(1)"));
}

}  // namespace
}  // namespace zaltor::engine
