#pragma once
// Fakes for the control interface's tests: a scripted control target that counts its calls,
// a clock that records sleeps and attachments, and a log that records its lines.

#include <atomic>
#include <cstdarg>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/control_client.h"
#include "platform/log.h"
#include "platform/rpc_runtime.h"
#include "rpc/average_rssi.h"
#include "rpc/control_endpoint.h"
#include "rpc/control_interface.h"
#include "rpc/control_procedures.h"
#include "rpc/control_target.h"

namespace zaltor::rpc::test {

// A clock in real time whose sleeps return at once (recorded, with an optional hook) and
// which tells whether the calling thread is attached.
class TestClock final : public platform::Clock {
 public:
  TestClock() : real_(platform::make_real_clock()) {}
  int64_t now_ms() override { return real_->now_ms(); }
  void sleep_ms(int64_t ms) override {
    std::function<void(int64_t)> hook;
    {
      std::lock_guard<std::mutex> g(m_);
      sleeps_.push_back(ms);
      hook = on_sleep_;
    }
    if (hook) hook(ms);
  }
  std::unique_ptr<platform::Mutex> make_mutex() override { return real_->make_mutex(); }
  std::unique_ptr<platform::Event> make_event(bool manual) override {
    return real_->make_event(manual);
  }
  std::unique_ptr<platform::Thread> start_thread(const char* name,
                                                 std::function<void()> body) override {
    return real_->start_thread(name, std::move(body));
  }
  void attach_current_thread() override {
    ++depth();
    attaches_.fetch_add(1);
  }
  void detach_current_thread() override { --depth(); }

  static bool attached() { return depth() > 0; }
  int attaches() const { return attaches_.load(); }
  std::vector<int64_t> sleeps() {
    std::lock_guard<std::mutex> g(m_);
    return sleeps_;
  }
  void on_sleep(std::function<void(int64_t)> hook) {
    std::lock_guard<std::mutex> g(m_);
    on_sleep_ = std::move(hook);
  }

 private:
  static int& depth() {
    thread_local int d = 0;
    return d;
  }
  std::unique_ptr<platform::Clock> real_;
  std::mutex m_;
  std::vector<int64_t> sleeps_;
  std::function<void(int64_t)> on_sleep_;
  std::atomic<int> attaches_{0};
};

// Records every log call as one formatted line.
class RecordingLog final : public Log {
 public:
  void vwrite(uint8_t level, const char* fmt, va_list ap) override {
    std::lock_guard<std::mutex> g(m_);
    lines_.push_back(std::to_string(level) + ":" + vformat(fmt, ap));
  }
  std::vector<std::string> lines() {
    std::lock_guard<std::mutex> g(m_);
    return lines_;
  }

 private:
  std::mutex m_;
  std::vector<std::string> lines_;
};

// A target whose answers the test scripts; every operation is counted and its arguments
// recorded ("GetControlBit(3,4)").
class FakeTarget final : public ControlTarget {
 public:
  std::atomic<bool> is_initialised{true};
  std::atomic<uint32_t> scripted_user_mode{99};
  std::atomic<int32_t> switch_count{2};
  std::atomic<int32_t> scripted_mode_count{4};
  std::atomic<bool> rssi_pa{false};
  std::atomic<uint32_t> scripted_auto_state{1};
  // Scripted answers of the operations.
  std::atomic<uint32_t> status{0};
  std::atomic<int32_t> out_value{0};
  std::vector<int32_t> readings{-60, -70};  // per antenna, for the average
  std::vector<int32_t> sweep{-51, -52, -53, -54, -55, -56};
  std::atomic<bool> attached_in_every_call{true};

  bool initialised() override { return is_initialised.load(); }
  uint32_t user_mode() override { return scripted_user_mode.load(); }
  int32_t switchCount() override { return switch_count.load(); }
  int32_t mode_count() override { return scripted_mode_count.load(); }
  bool rssi_pa_requested() override { return rssi_pa.load(); }
  uint32_t auto_state() override { return scripted_auto_state.load(); }

  Status GetSwitchNumber(int32_t& count) override {
    record("GetSwitchNumber");
    count = out_value.load();
    return status.load();
  }
  AverageRssi GetAverageRssi() override {
    record("GetAverageRssi");
    if (!initialised()) return AverageRssi{SWITCH_ERR_NOT_READY, kRssiAbsent, false};
    if (status.load() != 0) return AverageRssi{status.load(), kRssiAbsent, false};
    std::vector<int32_t> r;
    {
      std::lock_guard<std::mutex> g(m_);
      r = readings;
    }
    return average_rssi_of(r.data(), static_cast<int32_t>(r.size()));
  }
  Status GetCurrentMode(int32_t& mode) override {
    record("GetCurrentMode");
    mode = out_value.load();
    return status.load();
  }
  Status GetSwitchPosition(int32_t index, int32_t& position) override {
    record("GetSwitchPosition(" + std::to_string(index) + ")");
    position = out_value.load();
    return status.load();
  }
  Status GetControlBit(int32_t id, int32_t& level, int32_t offset) override {
    record("GetControlBit(" + std::to_string(id) + "," + std::to_string(offset) + ")");
    level = out_value.load();
    return status.load();
  }
  Status SetUserMode(int32_t mode) override {
    record("SetUserMode(" + std::to_string(mode) + ")");
    return status.load();
  }
  Status SetSwitchPosition(int32_t index, int32_t position) override {
    record("SetSwitchPosition(" + std::to_string(index) + "," + std::to_string(position) + ")");
    return status.load();
  }
  Status SetControlBit(int32_t id, int32_t level, int32_t offset) override {
    record("SetControlBit(" + std::to_string(id) + "," + std::to_string(level) + "," +
           std::to_string(offset) + ")");
    return status.load();
  }
  Status GetRssiAllPorts(int32_t* values, size_t length) override {
    record("GetRssiAllPorts(" + std::to_string(length) + ")");
    return fill(values);
  }
  Status GetRssiCurrentMode(int32_t* values, size_t length) override {
    record("GetRssiCurrentMode(" + std::to_string(length) + ")");
    return fill(values);
  }

  std::vector<std::string> calls() {
    std::lock_guard<std::mutex> g(m_);
    return calls_;
  }
  size_t call_count() {
    std::lock_guard<std::mutex> g(m_);
    return calls_.size();
  }
  // Runs inside every operation (after it is recorded), on the calling thread.
  void set_on_call(std::function<void()> hook) {
    std::lock_guard<std::mutex> g(m_);
    on_call_ = std::move(hook);
  }
  void set_readings(std::vector<int32_t> r) {
    std::lock_guard<std::mutex> g(m_);
    readings = std::move(r);
  }

 private:
  // Writes the whole sweep, as a real one may, whatever length the caller gave.
  Status fill(int32_t* values) {
    for (size_t i = 0; i < sweep.size() && i < kRssiSweepCapacity; ++i) values[i] = sweep[i];
    return status.load();
  }
  void record(std::string call) {
    if (!TestClock::attached()) attached_in_every_call = false;
    std::function<void()> hook;
    {
      std::lock_guard<std::mutex> g(m_);
      calls_.push_back(std::move(call));
      hook = on_call_;
    }
    if (hook) hook();
  }
  std::mutex m_;
  std::function<void()> on_call_;
  std::vector<std::string> calls_;
};

}  // namespace zaltor::rpc::test
