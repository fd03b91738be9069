#include <gtest/gtest.h>

#include "engine/sample_buffers.h"

namespace zaltor::engine {
namespace {

TEST(DetermineSampleBuffers, HoldSixteenRowsOfCapacityPlusOne) {
  SampleBuffers buffers(5);
  EXPECT_EQ(buffers.capacity(), 5);
  EXPECT_EQ(buffers.rssi().size(), 16u * 6u);
  EXPECT_EQ(buffers.rate().size(), 16u * 6u);
  for (double v : buffers.rssi()) EXPECT_EQ(v, -200.0);
  for (double v : buffers.rate()) EXPECT_EQ(v, 0.0);
}

TEST(DetermineSampleBuffers, RowsAreLaidOutByTheGivenCollectCount) {
  SampleBuffers buffers(5);
  buffers.RssiRow(2, 3)[0] = -42.0;  // begins at 2 * (3 + 1)
  buffers.RateRow(2, 3)[1] = 54.0;
  EXPECT_EQ(buffers.rssi()[8], -42.0);
  EXPECT_EQ(buffers.rate()[9], 54.0);
  EXPECT_EQ(buffers.RssiRow(2, 3).size(), 4u);
}

TEST(DetermineSampleBuffers, ResetRefillsBothBuffers) {
  SampleBuffers buffers(2);
  buffers.RssiRow(1, 2)[0] = -50.0;
  buffers.RateRow(1, 2)[0] = 100.0;
  buffers.Reset();
  EXPECT_EQ(buffers.rssi()[3], -200.0);
  EXPECT_EQ(buffers.rate()[3], 0.0);
}

TEST(DetermineSampleBuffers, RowsNeverReachOutsideTheAllocation) {
  SampleBuffers buffers(1);  // 32 entries
  EXPECT_EQ(buffers.RssiRow(15, 1).size(), 2u);
  EXPECT_EQ(buffers.RssiRow(15, 4).size(), 0u);  // begins at 75
  EXPECT_EQ(buffers.RssiRow(6, 4).size(), 2u);   // begins at 30
  EXPECT_TRUE(buffers.RssiRow(-1, 1).empty());
}

TEST(DetermineSampleBuffers, CreateGivesSharedBuffersAndACapacityOfAtLeastOne) {
  auto buffers = SampleBuffers::Create(0);
  ASSERT_NE(buffers, nullptr);
  EXPECT_EQ(buffers->capacity(), 1);
}

}  // namespace
}  // namespace zaltor::engine
