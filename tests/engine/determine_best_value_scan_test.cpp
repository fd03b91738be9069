#include <gtest/gtest.h>

#include <vector>

#include "engine/best_value_scan.h"

namespace zaltor::engine {
namespace {

// The tied indices in order.
std::vector<int> ties(const ScanResult& scan) {
  return std::vector<int>(scan.ties.begin(), scan.ties.end());
}

ModeValues values(std::initializer_list<double> v) {
  ModeValues values{};
  values.fill(-200.0);
  size_t i = 0;
  for (double x : v) values[i++] = x;
  return values;
}

TEST(DetermineBestValueScan, FirstOfEqualValuesIsBestAndLaterOnesTie) {
  const ScanResult scan = best_value_scan(values({-60.0, -55.0, -55.0, -70.0}), 4, 0);
  EXPECT_EQ(scan.best_index, 1);
  EXPECT_EQ(ties(scan), std::vector<int>{2});
  EXPECT_EQ(scan.preferred(), 2);
}

TEST(DetermineBestValueScan, AGreaterValueEmptiesTheTies) {
  const ScanResult scan = best_value_scan(values({-60.0, -60.0, -50.0, -70.0}), 4, 0);
  EXPECT_EQ(scan.best_index, 2);
  EXPECT_TRUE(scan.ties.empty());
}

TEST(DetermineBestValueScan, SkipsDisabledModesAndTheNoValueRssi) {
  const ScanResult scan =
      best_value_scan(values({-200.0, -40.0, -50.0, -50.0}), 4, ModeMask{1} << 1);
  EXPECT_EQ(scan.best_index, 2);
  EXPECT_EQ(ties(scan), std::vector<int>{3});
}

TEST(DetermineBestValueScan, SixteenEqualModesGiveFifteenTies) {
  ModeValues equal{};
  equal.fill(-60.0);
  const ScanResult scan = best_value_scan(equal, kMaxModes, 0);
  EXPECT_EQ(scan.best_index, 0);
  std::vector<int> expected;
  for (int i = 1; i < kMaxModes; ++i) expected.push_back(i);
  EXPECT_EQ(ties(scan), expected);
  EXPECT_EQ(scan.preferred(), 15);
}

TEST(DetermineBestValueScan, NothingQualifiesWhenEveryModeIsSkipped) {
  const ScanResult scan = best_value_scan(values({-200.0, -50.0}), 2, ModeMask{1} << 1);
  EXPECT_FALSE(scan.found());
}

TEST(DetermineBestValueScan, OnlyModesBelowTheModeCountAreScanned) {
  const ScanResult scan = best_value_scan(values({-60.0, -61.0, -10.0}), 2, 0);
  EXPECT_EQ(scan.best_index, 0);
}

TEST(DetermineSecondaryScan, HybridExampleSecondaryBreaksTheEqualRate) {
  const ScanResult scan = secondary_scan(values({144.0, 144.0, 72.0, 72.0}),
                                         values({-50.0, -48.0, -40.0, -41.0}), 4, 0);
  EXPECT_EQ(scan.best_index, 1);
  EXPECT_TRUE(scan.ties.empty());
}

TEST(DetermineSecondaryScan, EqualInBothArraysTiesAndASmallerSecondaryIsIgnored) {
  const ScanResult scan = secondary_scan(values({100.0, 100.0, 100.0, 100.0}),
                                         values({-50.0, -60.0, -50.0, -50.0}), 4, 0);
  EXPECT_EQ(scan.best_index, 0);
  EXPECT_EQ(ties(scan), (std::vector<int>{2, 3}));
}

TEST(DetermineSecondaryScan, SkipsDisabledModes) {
  const ScanResult scan = secondary_scan(values({100.0, 200.0, 100.0, 100.0}),
                                         values({-50.0, -40.0, -45.0, -50.0}), 4, ModeMask{1} << 1);
  EXPECT_EQ(scan.best_index, 2);
  EXPECT_TRUE(scan.ties.empty());
}

}  // namespace
}  // namespace zaltor::engine
