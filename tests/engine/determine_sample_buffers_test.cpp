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
  buffers.rssi_row(2, 3)[0] = -42.0;  // begins at 2 * (3 + 1)
  buffers.rate_row(2, 3)[1] = 54.0;
  EXPECT_EQ(buffers.rssi()[8], -42.0);
  EXPECT_EQ(buffers.rate()[9], 54.0);
  EXPECT_EQ(buffers.rssi_row(2, 3).size(), 4u);
}

TEST(DetermineSampleBuffers, ResetRefillsBothBuffers) {
  SampleBuffers buffers(2);
  buffers.rssi_row(1, 2)[0] = -50.0;
  buffers.rate_row(1, 2)[0] = 100.0;
  buffers.reset();
  EXPECT_EQ(buffers.rssi()[3], -200.0);
  EXPECT_EQ(buffers.rate()[3], 0.0);
}

TEST(DetermineSampleBuffers, RowsNeverReachOutsideTheAllocation) {
  SampleBuffers buffers(1);  // 32 entries
  EXPECT_EQ(buffers.rssi_row(15, 1).size(), 2u);
  EXPECT_EQ(buffers.rssi_row(15, 4).size(), 0u);  // begins at 75
  EXPECT_EQ(buffers.rssi_row(6, 4).size(), 2u);   // begins at 30
  EXPECT_TRUE(buffers.rssi_row(-1, 1).empty());
}

TEST(DetermineSampleBuffers, CreateGivesSharedBuffersAndACapacityOfAtLeastOne) {
  auto buffers = SampleBuffers::create(0);
  ASSERT_NE(buffers, nullptr);
  EXPECT_EQ(buffers->capacity(), 1);
}

}  // namespace
}  // namespace zaltor::engine
