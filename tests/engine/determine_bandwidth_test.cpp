#include <gtest/gtest.h>

#include "engine/determine_fixture.h"

namespace zaltor::engine {
namespace {

using testing::DetermineFixture;

TEST(DetermineBandwidth, HighestAverageRateWins) {
  DetermineFixture f(2, 2);
  f.settings.DeterminatorMode = kDeterminatorBandwidth;
  f.samples(0, {-40.0, -40.0}, {300.0, 300.0});
  f.samples(1, {-70.0, -70.0}, {400.0, 500.0});
  f.samples(2, {-50.0, -50.0}, {440.0, 440.0});
  f.samples(3, {-60.0, -60.0}, {100.0, 100.0});
  EXPECT_EQ(f.Run(0), 2);
  EXPECT_TRUE(f.log.has(4, "Using Bandwidth determinator.\n"));
  EXPECT_TRUE(f.log.has(4, "Determined mode: 2\n"));
  EXPECT_DOUBLE_EQ(f.rssiOut, -70.0);
  EXPECT_EQ(f.log.text().find("Preferred mode"), std::string::npos);
}

TEST(DetermineBandwidth, AllRatesEqualChoosesTheLastEnabledMode) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorBandwidth;
  f.one_sample_each({-40.0, -50.0, -60.0, -70.0}, {144.0, 144.0, 144.0, 144.0});
  EXPECT_EQ(f.Run(0), 4);
  EXPECT_NE(f.log.text().find("Use more precise methods with switch count 2...\n"
                              "Preferred mode = 4\n"
                              "Determined Switch States: {0, 0} = **(1), {0, 0} = **(1), \n"
                              "Determined mode: 4\n"),
            std::string::npos)
      << f.log.text();
}

TEST(DetermineBandwidth, AllRatesEqualWithTheLastModeDisabledChoosesTheLastEnabledOne) {
  DetermineFixture f(2);
  f.settings.DeterminatorMode = kDeterminatorBandwidth;
  f.one_sample_each({-40.0, -50.0, -60.0, -70.0}, {144.0, 144.0, 144.0, 144.0});
  f.disable(3);
  EXPECT_EQ(f.Run(0), 3);
  EXPECT_TRUE(f.log.has(4, "Preferred mode = 3\n"));
}

TEST(DetermineBandwidth, AllRatesEqualWithSixteenModes) {
  DetermineFixture f(4);
  f.settings.DeterminatorMode = kDeterminatorBandwidth;
  f.one_sample_each(std::vector<double>(16, -50.0), std::vector<double>(16, 866.7));
  f.disable(15);
  f.disable(14);
  EXPECT_EQ(f.Run(0), 14);
  EXPECT_TRUE(f.log.has(5, "Use more precise methods with switch count 4...\n"));
}

}  // namespace
}  // namespace zaltor::engine
