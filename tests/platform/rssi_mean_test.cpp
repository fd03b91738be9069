#include "platform/rssi_mean.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace zaltor::platform {
namespace {

TEST(RssiMeanTest, SilentAntennasAreLeftOutAndTheMeanTruncatesTowardZero) {
  const int32_t readings[] = {-60, -95, -71};
  const RssiMean mean = mean_of_signal_readings(readings, 3);
  EXPECT_TRUE(mean.valid());
  EXPECT_EQ(mean.terms, 2);
  EXPECT_EQ(mean.silent, 1);
  EXPECT_EQ(mean.value, -65);  // -131 / 2 = -65.5
}

TEST(RssiMeanTest, AnAbsentReadingIsATermLikeAnyOtherValue) {
  const int32_t readings[] = {-200, -40};
  EXPECT_EQ(mean_of_signal_readings(readings, 2).value, -120);
}

TEST(RssiMeanTest, OnlyTheFirstCountReadingsCount) {
  const int32_t readings[] = {-50, -70, -10};
  EXPECT_EQ(mean_of_signal_readings(readings, 2).value, -60);
}

TEST(RssiMeanTest, NoTermsMeansNoMean) {
  const int32_t silent[] = {-95, -95};
  const RssiMean all_silent = mean_of_signal_readings(silent, 2);
  EXPECT_FALSE(all_silent.valid());
  EXPECT_EQ(all_silent.silent, 2);
  EXPECT_FALSE(mean_of_signal_readings(nullptr, 0).valid());
  EXPECT_FALSE(mean_of_signal_readings(silent, -1).valid());
}

}  // namespace
}  // namespace zaltor::platform
