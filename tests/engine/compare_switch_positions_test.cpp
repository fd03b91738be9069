#include <gtest/gtest.h>

#include "engine/switch_compare.h"

namespace zaltor::engine {
namespace {

ModeValues Values(std::initializer_list<double> v) {
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
  CompareSwitchPositions(Values({-60.0, -55.0, -55.0, -70.0}), states, 2);
  EXPECT_TRUE(states.zeroBetter[0]);
  EXPECT_TRUE(states.oneBetter[0]);
  EXPECT_TRUE(states.zeroBetter[1]);
  EXPECT_TRUE(states.oneBetter[1]);
  EXPECT_EQ(ComposeChoice(states, 2, 2), 2);
}

TEST(CompareSwitchPositions, OnlyOnePositionWinningDecidesTheSwitch) {
  // Position 0 of switch 0 wins both of its pairs; switch 1's pairs are equal.
  SwitchStates states;
  CompareSwitchPositions(Values({-50.0, -60.0, -50.0, -60.0}), states, 2);
  EXPECT_TRUE(states.zeroBetter[0]);
  EXPECT_FALSE(states.oneBetter[0]);
  EXPECT_FALSE(states.zeroBetter[1]);
  EXPECT_FALSE(states.oneBetter[1]);
  EXPECT_EQ(SwitchPosition(states, 0, 3), 0);
  EXPECT_EQ(SwitchPosition(states, 1, 3), 1);  // undecided: bit 1 of the preferred
  EXPECT_EQ(SwitchPosition(states, 1, 1), 0);
  EXPECT_EQ(ComposeChoice(states, 2, 3), 2);
}

TEST(CompareSwitchPositions, TwoArrayFormSetsAFlagWhenEitherArrayHolds) {
  // Array A: switch 0 position 1 wins; array B: switch 0 position 0 wins and switch 1
  // position 1 wins.
  const ModeValues a = Values({10.0, 20.0, 10.0, 20.0});
  const ModeValues b = Values({-40.0, -50.0, -30.0, -50.0});
  SwitchStates one;
  CompareSwitchPositions(a, one, 2);
  EXPECT_FALSE(one.zeroBetter[0]);
  EXPECT_TRUE(one.oneBetter[0]);
  EXPECT_FALSE(one.oneBetter[1]);

  SwitchStates both;
  CompareSwitchPositions(a, b, both, 2);
  EXPECT_TRUE(both.zeroBetter[0]);
  EXPECT_TRUE(both.oneBetter[0]);
  EXPECT_FALSE(both.zeroBetter[1]);
  EXPECT_TRUE(both.oneBetter[1]);
}

TEST(CompareSwitchPositions, DisabledModeIsLeftOutOfEveryPair) {
  // Mode index 3 is disabled; whatever its entry holds (here a value far above the rest)
  // must not make position 1 of either switch win.
  const ModeValues values = Values({-50.0, -60.0, -60.0, 0.0});
  SwitchStates counted;
  CompareSwitchPositions(values, counted, 2);
  EXPECT_TRUE(counted.oneBetter[0]);
  EXPECT_TRUE(counted.oneBetter[1]);

  SwitchStates leftOut;
  CompareSwitchPositions(values, leftOut, 2, ModeMask{1} << 3);
  EXPECT_TRUE(leftOut.zeroBetter[0]);
  EXPECT_FALSE(leftOut.oneBetter[0]);
  EXPECT_TRUE(leftOut.zeroBetter[1]);
  EXPECT_FALSE(leftOut.oneBetter[1]);

  SwitchStates twoArrays;
  CompareSwitchPositions(values, values, twoArrays, 2, ModeMask{1} << 3);
  EXPECT_FALSE(twoArrays.oneBetter[0]);
  EXPECT_FALSE(twoArrays.oneBetter[1]);
}

TEST(CompareSwitchPositions, FourSwitchesCompareEveryPairOfSixteenModes) {
  ModeValues values{};
  for (int m = 0; m < 16; ++m) values[static_cast<size_t>(m)] = (m & 8) ? -40.0 : -60.0;
  values[4] = -59.0;   // beats its switch-1 partner 6 and its switch-0 partner 5
  values[11] = -39.0;  // beats its switch-1 partner 9 and its switch-0 partner 10
  SwitchStates states;
  CompareSwitchPositions(values, states, 4);
  EXPECT_TRUE(states.zeroBetter[0]);   // (4,5)
  EXPECT_TRUE(states.oneBetter[0]);    // (10,11)
  EXPECT_TRUE(states.zeroBetter[1]);   // (4,6)
  EXPECT_TRUE(states.oneBetter[1]);    // (9,11)
  EXPECT_TRUE(states.zeroBetter[2]);   // (11,15)
  EXPECT_TRUE(states.oneBetter[2]);    // (0,4)
  EXPECT_FALSE(states.zeroBetter[3]);  // every mode with switch 3 at position 1 is higher
  EXPECT_TRUE(states.oneBetter[3]);
  // Switches 0..2 undecided take bits 0..2 of the preferred 0b0101; switch 3 takes 1.
  EXPECT_EQ(ComposeChoice(states, 4, 0b0101), 0b1101);
}

TEST(CompareSwitchPositions, EqualValuesSetNoFlag) {
  ModeValues values{};
  values.fill(-50.0);
  SwitchStates states;
  CompareSwitchPositions(values, states, 4);
  for (int k = 0; k < 4; ++k) {
    EXPECT_FALSE(states.zeroBetter[static_cast<size_t>(k)]);
    EXPECT_FALSE(states.oneBetter[static_cast<size_t>(k)]);
  }
  EXPECT_EQ(ComposeChoice(states, 4, 9), 9);
}

TEST(CompareSwitchPositions, ResetsEarlierFlags) {
  SwitchStates states;
  states.zeroBetter = {true, true, true, true};
  states.oneBetter = {true, true, true, true};
  CompareSwitchPositions(Values({-50.0, -50.0}), states, 1);
  EXPECT_FALSE(states.zeroBetter[0]);
  EXPECT_FALSE(states.oneBetter[0]);
  EXPECT_FALSE(states.zeroBetter[1]);
}

}  // namespace
}  // namespace zaltor::engine
