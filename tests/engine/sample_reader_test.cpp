// The reader that measurement and the monitor share returns what it read.
#include "engine/sample_reader.h"

#include <gtest/gtest.h>

#include "engine/engine_harness.h"

namespace zaltor::engine {
namespace {

using testing::antennas;
using testing::EngineOnNotebook;

TEST(SampleReader, ReturnsTheAntennasReadingsAndTheirMean) {
  EngineOnNotebook nb(antennas(-50, -61));
  ASSERT_EQ(nb.Init(), 0);
  SampleReader reader(nb.worker());
  ASSERT_EQ(reader.antennas(), 2);
  const RssiSample s = reader.ReadRssi(2);
  ASSERT_TRUE(s.read);
  EXPECT_EQ(s.antennas, 2);
  EXPECT_EQ(s.readings[0], -50);
  EXPECT_EQ(s.readings[1], -61);
  EXPECT_EQ(s.mean.terms, 2);
  EXPECT_EQ(s.mean.silent, 0);
  EXPECT_EQ(s.mean.value, -55);  // -111 / 2, truncated
}

TEST(SampleReader, ASilentAntennaIsCountedButLeftOutOfTheMean) {
  EngineOnNotebook nb(antennas(-95, -61));
  ASSERT_EQ(nb.Init(), 0);
  const RssiSample s = SampleReader(nb.worker()).ReadRssi(2);
  ASSERT_TRUE(s.read);
  EXPECT_EQ(s.mean.silent, 1);
  EXPECT_EQ(s.mean.terms, 1);
  EXPECT_EQ(s.mean.value, -61);
}

TEST(SampleReader, ReturnsTheLinkRate) {
  EngineOnNotebook nb(testing::all_rates(433.3));
  ASSERT_EQ(nb.Init(), 0);
  const RateSample r = SampleReader(nb.worker()).read_rate();
  ASSERT_TRUE(r.read);
  EXPECT_DOUBLE_EQ(r.mbps, 433.3);
}

TEST(SampleReader, NothingIsReadBeforeInit) {
  EngineOnNotebook nb;
  EXPECT_FALSE(SampleReader(nb.worker()).ReadRssi(2).read);
  EXPECT_FALSE(SampleReader(nb.worker()).read_rate().read);
}

}  // namespace
}  // namespace zaltor::engine
