#include <gtest/gtest.h>

#include "engine/switch_compare.h"

namespace zaltor::engine {
namespace {

ModeValues mode_values(std::initializer_list<double> v) {
  ModeValues values{};
  values.fill(-200.0);
  size_t i = 0;
  for (double x : v) values[i++] = x;
  return values;
}

TEST(CompareSwitchPositions, TieExampleSetsBothFlagsOnBothSwitches) {
  // Switch 0 pairs (0,1), (2,3): 1 beats 0, 2 beats 3. Switch 1 pairs (0,2), (1,3): 2 beats
  // 0, 1 beats 3.
  SwitchStates states;
  CompareSwitchPositions(mode_values({-60.0, -55.0, -55.0, -70.0}), states, 2);
  EXPECT_TRUE(states.zero_better[0]);
  EXPECT_TRUE(states.one_better[0]);
  EXPECT_TRUE(states.zero_better[1]);
  EXPECT_TRUE(states.one_better[1]);
  EXPECT_EQ(compose_choice(states, 2, 2), 2);
}

TEST(CompareSwitchPositions, OnlyOnePositionWinningDecidesTheSwitch) {
  // Position 0 of switch 0 wins both of its pairs; switch 1's pairs are equal.
  SwitchStates states;
  CompareSwitchPositions(mode_values({-50.0, -60.0, -50.0, -60.0}), states, 2);
  EXPECT_TRUE(states.zero_better[0]);
  EXPECT_FALSE(states.one_better[0]);
  EXPECT_FALSE(states.zero_better[1]);
  EXPECT_FALSE(states.one_better[1]);
  EXPECT_EQ(switch_position(states, 0, 3), 0);
  EXPECT_EQ(switch_position(states, 1, 3), 1);  // undecided: bit 1 of the preferred
  EXPECT_EQ(switch_position(states, 1, 1), 0);
  EXPECT_EQ(compose_choice(states, 2, 3), 2);
}

TEST(CompareSwitchPositions, TwoArrayFormSetsAFlagWhenEitherArrayHolds) {
  // Array A: switch 0 position 1 wins; array B: switch 0 position 0 wins and switch 1
  // position 1 wins.
  const ModeValues a = mode_values({10.0, 20.0, 10.0, 20.0});
  const ModeValues b = mode_values({-40.0, -50.0, -30.0, -50.0});
  SwitchStates one;
  CompareSwitchPositions(a, one, 2);
  EXPECT_FALSE(one.zero_better[0]);
  EXPECT_TRUE(one.one_better[0]);
  EXPECT_FALSE(one.one_better[1]);

  SwitchStates both;
  CompareSwitchPositions(a, b, both, 2);
  EXPECT_TRUE(both.zero_better[0]);
  EXPECT_TRUE(both.one_better[0]);
  EXPECT_FALSE(both.zero_better[1]);
  EXPECT_TRUE(both.one_better[1]);
}

TEST(CompareSwitchPositions, DisabledModeIsLeftOutOfEveryPair) {
  // Mode index 3 is disabled; whatever its entry holds (here a value far above the rest)
  // must not make position 1 of either switch win.
  const ModeValues values = mode_values({-50.0, -60.0, -60.0, 0.0});
  SwitchStates counted;
  CompareSwitchPositions(values, counted, 2);
  EXPECT_TRUE(counted.one_better[0]);
  EXPECT_TRUE(counted.one_better[1]);

  SwitchStates left_out;
  CompareSwitchPositions(values, left_out, 2, ModeMask{1} << 3);
  EXPECT_TRUE(left_out.zero_better[0]);
  EXPECT_FALSE(left_out.one_better[0]);
  EXPECT_TRUE(left_out.zero_better[1]);
  EXPECT_FALSE(left_out.one_better[1]);

  SwitchStates two_arrays;
  CompareSwitchPositions(values, values, two_arrays, 2, ModeMask{1} << 3);
  EXPECT_FALSE(two_arrays.one_better[0]);
  EXPECT_FALSE(two_arrays.one_better[1]);
}

TEST(CompareSwitchPositions, FourSwitchesCompareEveryPairOfSixteenModes) {
  ModeValues values{};
  for (int m = 0; m < 16; ++m) values[static_cast<size_t>(m)] = (m & 8) ? -40.0 : -60.0;
  values[4] = -59.0;   // beats its switch-1 partner 6 and its switch-0 partner 5
  values[11] = -39.0;  // beats its switch-1 partner 9 and its switch-0 partner 10
  SwitchStates states;
  CompareSwitchPositions(values, states, 4);
  EXPECT_TRUE(states.zero_better[0]);   // (4,5)
  EXPECT_TRUE(states.one_better[0]);    // (10,11)
  EXPECT_TRUE(states.zero_better[1]);   // (4,6)
  EXPECT_TRUE(states.one_better[1]);    // (9,11)
  EXPECT_TRUE(states.zero_better[2]);   // (11,15)
  EXPECT_TRUE(states.one_better[2]);    // (0,4)
  EXPECT_FALSE(states.zero_better[3]);  // every mode with switch 3 at position 1 is higher
  EXPECT_TRUE(states.one_better[3]);
  // Switches 0..2 undecided take bits 0..2 of the preferred 0b0101; switch 3 takes 1.
  EXPECT_EQ(compose_choice(states, 4, 0b0101), 0b1101);
}

TEST(CompareSwitchPositions, EqualValuesSetNoFlag) {
  ModeValues values{};
  values.fill(-50.0);
  SwitchStates states;
  CompareSwitchPositions(values, states, 4);
  for (int k = 0; k < 4; ++k) {
    EXPECT_FALSE(states.zero_better[static_cast<size_t>(k)]);
    EXPECT_FALSE(states.one_better[static_cast<size_t>(k)]);
  }
  EXPECT_EQ(compose_choice(states, 4, 9), 9);
}

TEST(CompareSwitchPositions, ResetsEarlierFlags) {
  SwitchStates states;
  states.zero_better = {true, true, true, true};
  states.one_better = {true, true, true, true};
  CompareSwitchPositions(mode_values({-50.0, -50.0}), states, 1);
  EXPECT_FALSE(states.zero_better[0]);
  EXPECT_FALSE(states.one_better[0]);
  EXPECT_FALSE(states.zero_better[1]);
}

}  // namespace
}  // namespace zaltor::engine
