// Performance counters of the Wi-Fi driver and the network interface, computed from the
// switch positions and the radio at the moment of each collection.
//
// The RSSI counter set exists while the scenario lists at least one counter letter. A
// network interface instance that does not exist (or no longer exists) adds fine, as on
// Windows, but its values are invalid data. A -95 dBm reading means no signal and gets
// no noise, so that the marker stays exact.
#include <algorithm>
#include <cmath>

#include "platform/sim/radio_model.h"
#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {
namespace {

char lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lower(std::string s) {
  for (char& c : s) c = lower(c);
  return s;
}

// Whether the counter instance name of `description` is `instance` (lower case), whatever
// the case; compared in place, as every collection looks the interface up again.
bool instance_is(const std::string& description, const std::string& instance) {
  if (description.size() != instance.size()) return false;
  for (size_t i = 0; i < instance.size(); ++i) {
    if (lower(counter_instance_char(description[i])) != instance[i]) return false;
  }
  return true;
}

struct SimCounter {
  enum Kind { kRssi, kBandwidth, kBytesTotal } kind = kRssi;
  char letter = 0;       // kRssi
  std::string instance;  // the network interface counters, in lower case
  bool valid = false;    // the last sample holds a value
  int64_t value = 0;
  // The interface of `instance` as last looked up, and the notebook's generation then
  // (0: not looked up yet).
  const SimInterface* interface = nullptr;
  uint64_t looked_up = 0;
};

class SimCounterQuery final : public CounterQuery {
 public:
  explicit SimCounterQuery(NotebookCore& core) : core_(core) {}

  uint32_t add_counter(const std::string& path, CounterId& counter) override {
    counter = 0;
    // "\Object(Instance)\Counter" or "\Object\Counter"
    if (path.size() < 4 || path[0] != '\\') return kPdhBadCounterName;
    const size_t obj_end = path.find_first_of("(\\", 1);
    if (obj_end == std::string::npos) return kPdhBadCounterName;
    const std::string object = lower(path.substr(1, obj_end - 1));
    std::string instance;
    bool has_instance = false;
    size_t counter_start = obj_end + 1;
    if (path[obj_end] == '(') {
      const size_t close = path.find(")\\", obj_end);
      if (close == std::string::npos) return kPdhBadCounterName;
      instance = path.substr(obj_end + 1, close - obj_end - 1);
      has_instance = true;
      counter_start = close + 2;
    }
    const std::string name = lower(path.substr(counter_start));
    SimCounter c;
    std::lock_guard<std::mutex> g(core_.mutex);
    if (object == "intel-wifi- rssi per antenna" && !core_.scenario.counters.empty()) {
      const std::string prefix = "rssi antenna ";
      if (has_instance || name.size() != prefix.size() + 1 ||
          name.compare(0, prefix.size(), prefix) != 0) {
        return kPdhNoCounter;
      }
      const char letter = path.back();
      if (core_.scenario.counters.count(letter) == 0) return kPdhNoCounter;
      c.kind = SimCounter::kRssi;
      c.letter = letter;
    } else if (object == "network interface") {
      if (name == "current bandwidth") {
        c.kind = SimCounter::kBandwidth;
      } else if (name == "bytes total/sec") {
        c.kind = SimCounter::kBytesTotal;
      } else {
        return kPdhNoCounter;
      }
      c.instance = lower(instance);
    } else {
      return kPdhNoObject;
    }
    counters_.push_back(c);
    counter = static_cast<CounterId>(counters_.size());
    return 0;
  }

  uint32_t collect() override {
    core_.spend_call_time();
    std::lock_guard<std::mutex> g(core_.mutex);
    if (counters_.empty()) return kPdhNoData;
    // One moment for every counter of the sample.
    const double t_s = now_s();
    const int mode = core_.mode_locked();
    for (auto& c : counters_) sample_locked(c, t_s, mode);
    return 0;
  }

  uint32_t formatted_large(CounterId counter, int64_t& value) override {
    std::lock_guard<std::mutex> g(core_.mutex);
    if (counter == 0 || counter > counters_.size()) return kPdhInvalidHandle;
    const SimCounter& c = counters_[counter - 1];
    if (!c.valid) return kPdhInvalidData;
    value = c.value;
    return 0;
  }

 private:
  // Looked up again only after a patch changed the scenario.
  const SimInterface* interface_locked(SimCounter& c) const {
    if (c.looked_up != core_.generation + 1) {
      c.interface = nullptr;
      for (const auto& i : core_.scenario.interfaces) {
        if (instance_is(i.description, c.instance)) {
          c.interface = &i;
          break;
        }
      }
      c.looked_up = core_.generation + 1;
    }
    return c.interface;
  }

  void sample_locked(SimCounter& c, double t_s, int mode) {
    const Scenario& s = core_.scenario;
    c.valid = false;
    if (c.kind == SimCounter::kRssi) {
      auto it = s.counters.find(c.letter);
      if (it == s.counters.end()) return;
      const int port = it->second;
      const int position = core_.position_locked(port);
      double dbm = 0;
      if (!mode_reading(s, mode, dbm)) {
        dbm = port_rssi_at(s, static_cast<size_t>(port), position, t_s);
      }
      if (dbm != kNoSignalDbm && s.noise > 0) dbm += s.noise * core_.gaussian_locked();
      c.value = std::max<int64_t>(0, std::llround(-dbm));
      c.valid = true;
      return;
    }
    const SimInterface* i = interface_locked(c);
    if (i == nullptr) return;
    if (c.kind == SimCounter::kBytesTotal) {
      c.value = i->connected ? s.throughput_bps : 0;
    } else {
      const double mbps = mode_rate_at(s, mode, s.firmware.switch_count, t_s);
      c.value = i->connected ? std::llround(mbps * 1e6) : 0;
    }
    c.valid = true;
  }

  // The notebook's clock in seconds (reading it never waits).
  double now_s() { return static_cast<double>(core_.clock().now_ms()) / 1000.0; }

  NotebookCore& core_;
  std::vector<SimCounter> counters_;
};

class SimCounters final : public Counters {
 public:
  explicit SimCounters(NotebookCore& core) : core_(core) {}
  std::unique_ptr<CounterQuery> open_query(uint32_t& error) override {
    error = 0;
    return std::make_unique<SimCounterQuery>(core_);
  }

 private:
  NotebookCore& core_;
};

}  // namespace

std::unique_ptr<Counters> make_sim_counters(NotebookCore& core) {
  return std::make_unique<SimCounters>(core);
}

}  // namespace zaltor::platform::sim
