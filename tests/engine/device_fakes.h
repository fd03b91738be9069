#pragma once
// Scripted fakes of the hardware seams for the device logic tests: a firmware with a
// status word, device lists, a WLAN session, counters, a board query, a clock that records
// sleeps without waiting, and a recording log and console.

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "engine/shared_state.h"
#include "platform/board_query.h"
#include "platform/clock.h"
#include "platform/control_device.h"
#include "platform/counters.h"
#include "platform/device_list.h"
#include "platform/log.h"
#include "platform/switch_table.h"
#include "platform/wlan.h"

namespace zaltor::testing {

// Changes the switch table that `state` holds: `edit` gets a copy, which is then set.
template <typename Edit>
void edit_switches(engine::DeviceState& state, Edit edit) {
  platform::SwitchTable table = state.switches();
  edit(table);
  state.set_switches(table);
}

struct LogLine {
  uint8_t level;
  std::string text;
  bool operator==(const LogLine&) const = default;
};

class RecordingLog final : public Log {
 public:
  void vwrite(uint8_t level, const char* fmt, va_list ap) override {
    std::lock_guard<std::mutex> g(m_);
    lines.push_back({level, vformat(fmt, ap)});
  }
  std::vector<LogLine> lines;
  bool contains(uint8_t level, const std::string& text) const {
    for (const auto& l : lines) {
      if (l.level == level && l.text == text) return true;
    }
    return false;
  }
  bool contains_text(const std::string& text) const {
    for (const auto& l : lines) {
      if (l.text == text) return true;
    }
    return false;
  }

 private:
  std::mutex m_;
};

class RecordingConsole final : public Console {
 public:
  void write(std::string_view text) override { lines.emplace_back(text); }
  std::vector<std::string> lines;
};

// Sleeps return at once; each is recorded and may run a script step.
class FakeClock final : public platform::Clock {
 public:
  int64_t now_ms() override { return now_; }
  void sleep_ms(int64_t ms) override {
    sleeps.push_back(ms);
    now_ += ms;
    if (on_sleep) on_sleep(sleeps.size());
  }
  std::unique_ptr<platform::Mutex> make_mutex() override { return nullptr; }
  std::unique_ptr<platform::Event> make_event(bool) override { return nullptr; }
  std::unique_ptr<platform::Thread> start_thread(const char*, std::function<void()>) override {
    return nullptr;
  }
  void attach_current_thread() override {}
  void detach_current_thread() override {}

  std::vector<int64_t> sleeps;
  std::function<void(size_t)> on_sleep;  // called with the number of sleeps so far

 private:
  int64_t now_ = 0;
};

// The firmware behind the control device: status word = lines | count << 8 | present << 16
// | extra bits. "DEVS" takes the eight line bits of the value written.
struct FakeFirmware {
  uint32_t lines = 0;
  uint32_t switch_count = 2;
  bool present = true;
  uint32_t extra_bits = 0;
  bool status_fails = false;
  bool control_fails = false;
  uint32_t control_result = 1;
  bool short_reply = false;
  int status_fails_from_call = -1;  // the n-th "DSTS" (1-based) and later fail
  std::vector<std::vector<uint8_t>> requests;
  std::vector<uint32_t> codes;
  std::vector<uint32_t> capacities;  // reply capacity offered with each request
  std::vector<uint32_t> written;     // control values of "DEVS"
  int status_calls = 0;

  uint32_t word() const {
    return (lines & 0xFF) | ((switch_count & 0xFF) << 8) | (present ? 0x10000u : 0u) | extra_bits;
  }
  int line(int bit) const { return static_cast<int>((lines >> bit) & 1u); }
  void set_line(int bit, int level) {
    lines = level ? (lines | (1u << bit)) : (lines & ~(1u << bit));
  }
  size_t control_requests() const { return written.size(); }
};

class FakeDeviceHandle final : public platform::ControlDeviceHandle {
 public:
  explicit FakeDeviceHandle(FakeFirmware& fw) : fw_(fw) {}
  bool io_control(uint32_t code, const uint8_t* in, uint32_t in_len, uint8_t* out,
                  uint32_t out_capacity, uint32_t& returned) override {
    returned = 0;
    fw_.codes.push_back(code);
    fw_.capacities.push_back(out_capacity);
    fw_.requests.emplace_back(in, in + in_len);
    if (in_len < 4) return false;
    const std::string method(reinterpret_cast<const char*>(in), 4);
    uint32_t result = 0;
    if (method == "DSTS") {
      ++fw_.status_calls;
      if (fw_.status_fails) return false;
      if (fw_.status_fails_from_call > 0 && fw_.status_calls >= fw_.status_fails_from_call) {
        return false;
      }
      result = fw_.word();
    } else if (method == "DEVS") {
      if (fw_.control_fails || in_len < 16) return false;
      uint32_t value = 0;
      std::memcpy(&value, in + 12, 4);
      fw_.written.push_back(value);
      fw_.lines = value & 0xFF;
      result = fw_.control_result;
    } else {
      return false;
    }
    if (out_capacity < 4) return false;
    const uint32_t n = fw_.short_reply ? 2 : 4;
    for (uint32_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(result >> (8 * i));
    returned = n;
    return true;
  }

 private:
  FakeFirmware& fw_;
};

class FakeControlDevice final : public platform::ControlDevice {
 public:
  explicit FakeControlDevice(FakeFirmware& fw) : fw_(fw) {}
  std::unique_ptr<platform::ControlDeviceHandle> open(const std::string& path,
                                                      uint32_t& error) override {
    opened_path = path;
    if (open_fails) {
      error = 2;
      return nullptr;
    }
    return std::make_unique<FakeDeviceHandle>(fw_);
  }
  bool open_fails = false;
  std::string opened_path;

 private:
  FakeFirmware& fw_;
};

// Counters: each path added gets an id; values and failures are scripted per path.
class FakeCounterQuery final : public platform::CounterQuery {
 public:
  uint32_t add_counter(const std::string& path, platform::CounterId& counter) override {
    added.push_back(path);
    auto it = add_errors.find(path);
    if (path.empty() || it != add_errors.end()) {
      counter = 7;  // the caller must not keep a counter of a failed add
      return it != add_errors.end() ? it->second : 0xC0000BB8;
    }
    counter = static_cast<platform::CounterId>(added.size());
    ids[path] = counter;
    return 0;
  }
  uint32_t add_english_counter(const std::string& path, platform::CounterId& counter) override {
    added_english.push_back(path);
    return add_counter(path, counter);
  }
  uint32_t collect() override {
    ++collects;
    if (!collect_results.empty()) {
      const uint32_t r = collect_results.front();
      collect_results.erase(collect_results.begin());
      return r;
    }
    return collect_error;
  }
  uint32_t formatted_large(platform::CounterId counter, int64_t& value) override {
    ++formats;
    for (const auto& [path, id] : ids) {
      if (id != counter) continue;
      auto fe = format_errors.find(path);
      if (fe != format_errors.end() && fe->second.count > 0) {
        --fe->second.count;
        return fe->second.code;
      }
      auto seq = value_sequences.find(path);
      if (seq != value_sequences.end() && !seq->second.empty()) {
        value = seq->second.front();
        seq->second.erase(seq->second.begin());
        return 0;
      }
      value = values[path];
      return 0;
    }
    return 0xC0000BB9;  // no such counter
  }

  struct Failure {
    uint32_t code;
    int count;  // how many formats of this path fail from now
  };
  std::vector<std::string> added;
  std::vector<std::string> added_english;  // the paths added by their English names
  std::map<std::string, platform::CounterId> ids;
  std::map<std::string, uint32_t> add_errors;
  std::map<std::string, int64_t> values;
  std::map<std::string, std::vector<int64_t>> value_sequences;
  std::map<std::string, Failure> format_errors;
  std::vector<uint32_t> collect_results;  // consumed first
  uint32_t collect_error = 0;
  int collects = 0;
  int formats = 0;
};

class FakeCounters final : public platform::Counters {
 public:
  std::unique_ptr<platform::CounterQuery> open_query(uint32_t& error) override {
    if (open_error != 0) {
      error = open_error;
      return nullptr;
    }
    auto q = std::make_unique<FakeCounterQuery>();
    if (prepare) prepare(*q);
    query = q.get();
    return q;
  }
  uint32_t open_error = 0;
  std::function<void(FakeCounterQuery&)> prepare;
  FakeCounterQuery* query = nullptr;  // the last query handed out
};

struct FakeDevice {
  std::string hardware_id;
  std::string description;
  std::string friendly_name;
  uint32_t hardware_id_error = 0;
  uint32_t description_error = 0;
  std::optional<uint32_t> devnode_status = 0u;
};

class FakeDeviceList final : public platform::DeviceList {
 public:
  explicit FakeDeviceList(std::vector<FakeDevice> devices) : devices_(std::move(devices)) {}
  bool has_device(uint32_t index) override { return index < devices_.size(); }
  uint32_t registry_property(uint32_t index, platform::DeviceProperty property,
                             std::string& value) override {
    const FakeDevice& d = devices_.at(index);
    switch (property) {
      case platform::DeviceProperty::kHardwareId:
        if (d.hardware_id_error) return d.hardware_id_error;
        value = d.hardware_id;
        return 0;
      case platform::DeviceProperty::kDeviceDesc:
        if (d.description_error) return d.description_error;
        value = d.description;
        return 0;
      case platform::DeviceProperty::kFriendlyName:
        value = d.friendly_name;
        return 0;
    }
    return 1;
  }
  bool devnode_status(uint32_t index, uint32_t& status) override {
    const FakeDevice& d = devices_.at(index);
    if (!d.devnode_status) return false;
    status = *d.devnode_status;
    return true;
  }

 private:
  std::vector<FakeDevice> devices_;
};

class FakeDeviceLists final : public platform::DeviceLists {
 public:
  std::unique_ptr<platform::DeviceList> present_devices(platform::DeviceClass cls,
                                                        const std::string& enumerator) override {
    requests.emplace_back(cls, enumerator);
    auto it = lists.find({cls, enumerator});
    if (it == lists.end()) return nullptr;
    return std::make_unique<FakeDeviceList>(it->second);
  }
  std::map<std::pair<platform::DeviceClass, std::string>, std::vector<FakeDevice>> lists;
  std::vector<std::pair<platform::DeviceClass, std::string>> requests;
};

class FakeWlanSession final : public platform::WlanSession {
 public:
  uint32_t enum_interfaces(std::vector<platform::WlanInterfaceInfo>& out) override {
    ++enum_calls;
    if (enum_error != 0) return enum_error;
    out = interfaces;
    return 0;
  }
  uint32_t query_connection_state(const platform::Guid&, uint32_t& state) override {
    state = platform::kWlanConnected;
    return 0;
  }
  uint32_t query_channel(const platform::Guid& iface, uint32_t& out) override {
    channel_queries.push_back(iface);
    if (channel_error != 0) return channel_error;
    out = channel;
    return 0;
  }
  uint32_t register_notification(uint32_t, platform::WlanCallback) override { return 0; }

  std::vector<platform::WlanInterfaceInfo> interfaces;
  uint32_t enum_error = 0;
  uint32_t channel = 0;
  uint32_t channel_error = 0;
  int enum_calls = 0;
  std::vector<platform::Guid> channel_queries;
};

// A board query that answers as scripted: the first step that has a failure (negative)
// fails, else the products. Counts its queries.
class FakeBoardQuery final : public platform::BoardQuery {
 public:
  struct Script {
    int32_t locator = 0, connect = 0, blanket = 0, query = 0;
    std::vector<std::string> products;
  };
  platform::BoardProducts base_board_products() override {
    ++queries;
    platform::BoardProducts answer;
    const std::pair<platform::BoardQueryStep, int32_t> steps[] = {
        {platform::BoardQueryStep::kInitializeCom, init_hr},
        {platform::BoardQueryStep::kCreateLocator, script.locator},
        {platform::BoardQueryStep::kConnect, script.connect},
        {platform::BoardQueryStep::kSetProxyBlanket, script.blanket},
        {platform::BoardQueryStep::kExecQuery, script.query},
    };
    for (const auto& [step, hr] : steps) {
      if (hr < 0) {
        answer.failed_step = step;
        answer.hr = hr;
        return answer;
      }
    }
    answer.products = script.products;
    return answer;
  }
  int32_t init_hr = 0;
  Script script;
  int queries = 0;
};

}  // namespace zaltor::testing
