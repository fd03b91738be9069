// The device logic is called from the RPC, automatic-mode, monitor and event threads at
// once. This runs such a mix (under ThreadSanitizer in the tsan build) over a firmware that,
// like the real device, handles one request at a time. Readers may see a switch half-way
// between positions, which reads as mode 99 and never fails; writers from several threads
// are serialised by the switch's device lock, so no write sequence loses another's line or
// ends in 7.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <mutex>
#include <thread>

#include "engine/adapter_discovery.h"
#include "engine/antenna_switch.h"
#include "engine/device_fakes.h"

namespace zaltor::engine {
namespace {

using platform::kMaxPorts;

using zaltor::testing::FakeClock;
using zaltor::testing::FakeDeviceHandle;
using zaltor::testing::FakeDeviceLists;
using zaltor::testing::FakeFirmware;
using zaltor::testing::RecordingLog;

class SerialHandle final : public platform::ControlDeviceHandle {
 public:
  explicit SerialHandle(FakeFirmware& fw) : inner_(fw) {}
  bool io_control(uint32_t code, const uint8_t* in, uint32_t in_len, uint8_t* out,
                  uint32_t out_capacity, uint32_t& returned) override {
    bool ok = false;
    {
      std::lock_guard<std::mutex> g(m_);
      ok = inner_.io_control(code, in, in_len, out, out_capacity, returned);
    }
    // Between two requests another thread may come in, as on the real device.
    std::this_thread::yield();
    return ok;
  }

 private:
  std::mutex m_;
  FakeDeviceHandle inner_;
};

TEST(SwitchConcurrency, ModesAndReadsFromSeveralThreads) {
  FakeFirmware fw;
  DeviceState state;
  state.set_control_device(std::make_unique<SerialHandle>(fw));
  state.set_ready(true);
  state.set_switch_count(2);
  state.set_mode_count(4);
  RecordingLog log;  // locks each line
  AntennaSwitch sw(state, log);

  std::atomic<int> bad{0};
  auto setter = [&](int first) {
    for (int i = 0; i < 200; ++i) {
      std::array<Status, kMaxPorts> results{};
      sw.SetMode(1 + (first + i) % 4, results);
      for (Status s : results) {
        if (s != SWITCH_OK) ++bad;
      }
    }
  };
  auto reader = [&] {
    FakeDeviceLists devices;  // each thread its own seams for the config set selection
    FakeClock clock;
    AdapterDiscovery discovery(state, devices, clock, log);
    for (int i = 0; i < 200; ++i) {
      int32_t mode = 0;
      if (sw.GetCurrentMode(mode) != SWITCH_OK) ++bad;
      int32_t count = 0;
      if (sw.GetSwitchNumber(count) != SWITCH_OK || count != 2) ++bad;
      state.set_lid_open((i % 2) == 0);
      state.set_lid_notification_registered(true);
      const uint32_t set = discovery.SelectConfigSet();
      if (set != 0 && set != 3) ++bad;
    }
  };
  std::thread a(setter, 0), c(reader), d(reader);
  a.join();
  c.join();
  d.join();
  EXPECT_EQ(bad.load(), 0);

  // Afterwards the switches stand in one of the modes, and it reads back as itself.
  std::array<Status, kMaxPorts> results{};
  sw.SetMode(2, results);
  int32_t mode = 0;
  EXPECT_EQ(sw.GetCurrentMode(mode), SWITCH_OK);
  EXPECT_EQ(mode, 2);
}

TEST(SwitchConcurrency, WritersOnSeveralThreadsNeitherLoseLinesNorEndIn7) {
  FakeFirmware fw;
  DeviceState state;
  state.set_control_device(std::make_unique<SerialHandle>(fw));
  state.set_ready(true);
  state.set_switch_count(2);
  state.set_mode_count(4);
  RecordingLog log;
  AntennaSwitch sw(state, log);

  std::atomic<int> bad{0};
  auto modes = [&](int first) {
    for (int i = 0; i < 300; ++i) {
      std::array<Status, kMaxPorts> results{};
      sw.SetMode(1 + (first + i) % 4, results);
      for (Status s : results) {
        if (s != SWITCH_OK) ++bad;
      }
    }
  };
  auto positions = [&](int sw_index) {
    for (int i = 0; i < 300; ++i) {
      if (sw.SetSwitchPosition(sw_index, i % 2) != SWITCH_OK) ++bad;
    }
  };
  auto lines = [&] {
    for (int i = 0; i < 300; ++i) {
      if (sw.SetControlBit(i % 2, i % 3 == 0 ? 1 : 0, (i % 4) < 2 ? kLineX : kLineY) != SWITCH_OK) {
        ++bad;
      }
    }
  };
  std::thread a(modes, 0), b(modes, 1), c(positions, 0), d(positions, 1), e(lines);
  a.join();
  b.join();
  c.join();
  d.join();
  e.join();
  EXPECT_EQ(bad.load(), 0) << "every write read back what it wrote";

  std::array<Status, kMaxPorts> results{};
  sw.SetMode(3, results);
  int32_t mode = 0;
  EXPECT_EQ(sw.GetCurrentMode(mode), SWITCH_OK);
  EXPECT_EQ(mode, 3);
}

TEST(SwitchConcurrency, ConditionalModeWritesNothingOnceItsConditionFails) {
  FakeFirmware fw;
  DeviceState state;
  state.set_control_device(std::make_unique<FakeDeviceHandle>(fw));
  state.set_ready(true);
  state.set_switch_count(2);
  state.set_mode_count(4);
  RecordingLog log;
  AntennaSwitch sw(state, log);

  std::array<Status, kMaxPorts> results{};
  results.fill(99);
  EXPECT_FALSE(sw.set_mode_if([] { return false; }, 2, results));
  EXPECT_EQ(fw.control_requests(), 0u);
  EXPECT_EQ(results[0], 99u) << "the results are left alone";
  EXPECT_TRUE(sw.set_mode_if([] { return true; }, 2, results));
  EXPECT_EQ(results[0], SWITCH_OK);
  EXPECT_EQ(results[1], SWITCH_OK);
  int32_t mode = 0;
  EXPECT_EQ(sw.GetCurrentMode(mode), SWITCH_OK);
  EXPECT_EQ(mode, 2);
}

}  // namespace
}  // namespace zaltor::engine
