#include <gtest/gtest.h>

#include "engine/determine_fixture.h"

namespace zaltor::engine {
namespace {

using testing::DetermineFixture;
using testing::LogCall;

TEST(DetermineRssi, TieOfWeightedValuesIsResolvedBySwitchToModeThree) {
  DetermineFixture f(2);
  f.one_sample_each({-60.0, -55.0, -55.0, -70.0}, {});
  EXPECT_EQ(f.Run(0), 3);
  EXPECT_DOUBLE_EQ(f.rssiOut, -55.0);

  const int at = f.log.find(4, "Using RSSI determinator.\n");
  ASSERT_GE(at, 0);
  const std::vector<LogCall> expected = {
      {4, "Using RSSI determinator.\n"},
      {5, "Use more precise methods with switch count 2...\n"},
      {4, "Preferred mode = 3\n"},
      {5, "Determined Switch States: "},
      {5, "{1, 1} = "},
      {5, "**(0)"},
      {5, ", "},
      {5, "{1, 1} = "},
      {5, "**(1)"},
      {5, ", "},
      {5, "\n"},
      {4, "Determined mode: 3\n"},
      {5, "Switch status: \n"},
      {5, "Main => 0 (Main)\n"},
      {5, "Aux => 1 (Div)\n"},
      {5, "\n\n"},
  };
  const std::vector<LogCall> tail(f.log.calls.begin() + at, f.log.calls.end());
  EXPECT_EQ(tail, expected);
}

TEST(DetermineRssi, ASwitchDecidedByThePairsLogsItsPositionLabel) {
  // Indices 1 and 3 tie; position 1 of switch 0 wins both pairs, switch 1 is undecided.
  DetermineFixture f(2);
  f.labels[0].positions = {"Left", "Right"};
  f.one_sample_each({-70.0, -50.0, -70.0, -50.0}, {});
  EXPECT_EQ(f.Run(0), 4);
  EXPECT_NE(f.log.text().find("Preferred mode = 4\nDetermined Switch States: {0, 1} = Right, "
                              "{0, 0} = **(1), \nDetermined mode: 4\n"),
            std::string::npos);
}

TEST(DetermineRssi, NoTiesChoosesTheBestWeightedValueWithoutTieLines) {
  DetermineFixture f(2);
  f.one_sample_each({-60.0, -55.0, -54.0, -70.0}, {});
  EXPECT_EQ(f.Run(0), 3);
  EXPECT_FALSE(f.log.has(4, "Preferred mode = 3\n"));
  EXPECT_EQ(f.log.text().find("Use more precise"), std::string::npos);
}

TEST(DetermineRssi, ACompositionEndingOnADisabledModeTakesThePreferredMode) {
  // Index 3 is disabled and its row holds a strong stale sample; indices 1 and 2 tie above
  // index 0. With the pairs of index 3 left out, switch 0 sees only (0,1) and switch 1 only
  // (0,2), and position 1 wins both: the composition would be index 3, which is disabled,
  // so the preferred index 2 is taken.
  DetermineFixture f(2);
  f.one_sample_each({-70.0, -50.0, -50.0, -10.0}, {});
  f.disable(3);
  EXPECT_EQ(f.Run(0), 3);
  const std::string text = f.log.text();
  EXPECT_NE(text.find("Preferred mode = 3\nDetermined Switch States: {0, 1} = Div, {0, 1} = Div, "
                      "\nDetermined mode: 3\n"),
            std::string::npos)
      << text;
  EXPECT_DOUBLE_EQ(f.rssiOut, -50.0);
}

TEST(DetermineRssi, ADisabledModesStaleValueDecidesNoSwitch) {
  // Indices 0 and 3 tie; index 1 is disabled with a strong stale sample. Counted, (0,1)
  // would make position 1 of switch 0 win on that stale value; left out, only (2,3) decides
  // switch 0 and only (0,2) switch 1. The composition (index 1) is the disabled mode, so the
  // preferred index 3 is taken.
  DetermineFixture f(2);
  f.one_sample_each({-50.0, -10.0, -60.0, -50.0}, {});
  f.disable(1);
  EXPECT_EQ(f.Run(0), 4);
  EXPECT_NE(f.log.text().find("Determined Switch States: {0, 1} = Div, {1, 0} = Main, \n"
                              "Determined mode: 4\n"),
            std::string::npos)
      << f.log.text();
}

}  // namespace
}  // namespace zaltor::engine
