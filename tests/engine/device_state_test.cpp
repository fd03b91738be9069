#include <gtest/gtest.h>

#include "config/settings.h"
#include "engine/shared_state.h"
#include "platform/status.h"

namespace zaltor::engine {
namespace {

TEST(DeviceState, StartsNotReadyWithTheLidOpenAndNoReadingsStored) {
  DeviceState state;
  EXPECT_FALSE(state.ready());
  EXPECT_FALSE(state.configured());
  EXPECT_EQ(state.control_device(), nullptr);
  EXPECT_EQ(state.wlan(), nullptr);
  EXPECT_EQ(state.counter_query(), nullptr);
  EXPECT_EQ(state.user_mode(), static_cast<uint32_t>(kModeUnknown));
  EXPECT_TRUE(state.lid_open());
  for (size_t row = 0; row < 2; ++row) {
    for (size_t port = 0; port < static_cast<size_t>(platform::kMaxPorts); ++port) {
      EXPECT_EQ(state.auto_sweep(row, port), kRssiAbsent) << row << "," << port;
    }
  }
}

TEST(DeviceState, TheSweepWaitsFollowTheConfigSetInForceAndAreZeroOutsideTheSets) {
  DeviceState state;
  EXPECT_EQ(state.time_to_wait_for_rssi_stable(), 0);  // no settings: built-in waits of 0 ms
  config::ConfigSettings settings;
  settings.TimeToWaitForRSSIStable[0] = 300;
  settings.TimeToWaitForRSSIStable[2] = 700;
  settings.RSSICollectInterval[2] = 50;
  state.set_settings(&settings);
  EXPECT_TRUE(state.configured());
  EXPECT_EQ(state.time_to_wait_for_rssi_stable(), 300);
  state.set_active_config_set(2);
  EXPECT_EQ(state.time_to_wait_for_rssi_stable(), 700);
  EXPECT_EQ(state.rssi_collect_interval(), 50);
  state.set_active_config_set(config::kConfigSets);
  EXPECT_EQ(state.time_to_wait_for_rssi_stable(), 0);
  EXPECT_EQ(state.rssi_collect_interval(), 0);
}

TEST(DeviceState, APendingDeviceChangeIsTakenOnce) {
  DeviceState state;
  EXPECT_FALSE(state.take_device_change_pending());
  state.set_device_change_pending(true);
  EXPECT_TRUE(state.take_device_change_pending());
  EXPECT_FALSE(state.device_change_pending());
  EXPECT_FALSE(state.take_device_change_pending());
}

TEST(DeviceState, TheCounterIdsAreSetTogether) {
  DeviceState state;
  state.set_counter_ids(7, 8, {11, 0, 13});
  EXPECT_EQ(state.throughput_counter(), 7u);
  EXPECT_EQ(state.link_speed_counter(), 8u);
  EXPECT_EQ(state.rssi_counter(0), 11u);
  EXPECT_EQ(state.rssi_counter(1), 0u);
  EXPECT_EQ(state.rssi_counter(2), 13u);
}

TEST(SharedState, ReadsTheDeviceStatesReadinessModeAndConfigSet) {
  SharedState shared;
  EXPECT_FALSE(shared.initialised());
  shared.mark_initialised();
  EXPECT_TRUE(shared.device().ready());
  EXPECT_TRUE(shared.initialised());
  shared.set_user_mode(3);
  EXPECT_EQ(shared.device().user_mode(), 3u);
  shared.device().set_active_config_set(4);
  EXPECT_EQ(shared.active_config_set(), 4u);
  EXPECT_EQ(shared.active_config_set_field().load(), 4u);
  uint32_t connection = 0;
  EXPECT_FALSE(shared.query_connection_state(connection));  // no WLAN client
}

}  // namespace
}  // namespace zaltor::engine
