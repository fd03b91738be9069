#include "engine/signal_counters.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "platform/rssi_mean.h"

namespace zaltor::engine {

using platform::Clock;
using platform::CounterId;
using platform::CounterQuery;
using platform::Counters;
using platform::kMaxPorts;
using platform::kPortNames;
using platform::kPositionNames;
using platform::kRssiPortSlots;
using platform::mean_of_signal_readings;
using platform::RssiMean;
namespace {

constexpr const char* kThroughputTemplate = "\\Network Interface(%s)\\Bytes Total/sec";
constexpr const char* kLinkSpeedTemplate = "\\Network Interface(%s)\\Current Bandwidth";

// The counter's magnitude as signed dBm; 0 (no reading) becomes -200. Out-of-range values
// are held to the 32-bit range rather than wrapping.
int32_t rssi_from_counter(int64_t v) {
  if (v == 0) return kRssiAbsent;
  const int64_t neg =
      v == std::numeric_limits<int64_t>::min() ? std::numeric_limits<int64_t>::max() : -v;
  return static_cast<int32_t>(std::clamp<int64_t>(neg, std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}

void fill(int32_t* values, size_t length, size_t count, int32_t v) {
  for (size_t i = 0; i < std::min(length, count); ++i) values[i] = v;
}

}  // namespace

void SignalCounters::SetUpCounters(const std::string& instance_name) {
  const std::string throughput_path = format(kThroughputTemplate, instance_name.c_str());
  const std::string speed_path = format(kLinkSpeedTemplate, instance_name.c_str());
  log_.write(kLogInfo, "Counter Path: %s\n", throughput_path.c_str());

  uint32_t error = 0;
  state_.set_counter_query(counters_.open_query(error));
  CounterQuery* query = state_.counter_query();
  if (query == nullptr) {
    log_.write(kLogWarning, "PdhOpenQuery failed with 0x%x\n", error);
    state_.set_rssi_per_antenna(false);
    return;
  }
  // The network interface counters are Windows' own and translated with it, so their fixed
  // English paths are added as English ones; the Wi-Fi driver's RSSI counter set has only
  // the names it is published under.
  auto add = [&](const std::string& path, CounterId& id, uint8_t level, bool english) {
    id = 0;
    const uint32_t e =
        english ? query->add_english_counter(path, id) : query->add_counter(path, id);
    if (e != 0) {
      id = 0;
      log_.write(level, "PdhAddCounter %s failed with 0x%x\n", path.c_str(), e);
    }
  };
  CounterId throughput = 0;
  CounterId link_speed = 0;
  std::array<CounterId, kRssiPortSlots> rssi{};
  add(throughput_path, throughput, kLogInfo, true);
  add(speed_path, link_speed, kLogInfo, true);
  for (size_t i = 0; i < rssi.size(); ++i) {
    add(state_.switches().counter_path[i], rssi[i], kLogWarning, false);
  }
  state_.set_counter_ids(throughput, link_speed, rssi);
  state_.set_throughput_available(throughput != 0 && link_speed != 0);
  state_.set_rssi_per_antenna(rssi[0] != 0);
  query->collect();  // rate counters need a first sample
}

Status SignalCounters::ReadThroughput(LinkReading& reading) {
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  CounterQuery* query = state_.counter_query();
  const uint32_t e = query != nullptr ? query->collect() : kCounterInvalidHandle;
  if (e != 0) {
    log_.write(kLogInfo, "PdhCollectQueryData failed with 0x%x\n", e);
    return kStatusCounterCollect;
  }
  if (!state_.throughput_available()) {
    reading.throughput_bps = -1;
    reading.link_speed_mbps = -1.0;
    return SWITCH_OK;
  }
  int64_t v = 0;
  uint32_t fe = query->formatted_large(state_.throughput_counter(), v);
  if (fe != 0) {
    log_.write(kLogInfo, "PdhGetFormattedCounterValue failed with 0x%x.\n", fe);
    return kStatusThroughputValue;
  }
  reading.throughput_bps = v;
  fe = query->formatted_large(state_.link_speed_counter(), v);
  if (fe != 0) {
    log_.write(kLogInfo, "PdhGetFormattedCounterValue failed with 0x%x.\n", fe);
    return kStatusThroughputValue;
  }
  reading.link_speed_mbps = static_cast<double>(v) / 1000000.0;
  return SWITCH_OK;
}

Status SignalCounters::read_into(int32_t count, int32_t* values) {
  CounterQuery* query = state_.counter_query();
  const uint32_t e = query != nullptr ? query->collect() : kCounterInvalidHandle;
  if (count < 1 || e != 0) return SWITCH_OK;  // a failed collection leaves the values as they were
  const int32_t n = std::min(count, kRssiPortSlots);
  for (int32_t i = 0; i < n; ++i) {
    int64_t v = 0;
    if (query->formatted_large(state_.rssi_counter(static_cast<size_t>(i)), v) != 0) {
      return kStatusRssiValue;
    }
    values[i] = rssi_from_counter(v);
  }
  return SWITCH_OK;
}

Status SignalCounters::ReadRssi(int32_t count, int32_t* values) {
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  return read_into(count, values);
}

bool SignalCounters::sweep_attempt(int32_t ports, int32_t* values) {
  if (!state_.ready() || ports < 1) return false;
  return read_into(ports, values) == SWITCH_OK;
}

int32_t SignalCounters::switch_number() {
  // The firmware's number; when it cannot be read the stored SwitchCount stands.
  int32_t n = state_.switch_count();
  sw_.GetSwitchNumber(n);
  return n;
}

Status SignalCounters::GetRssiAllPorts(int32_t* values, size_t length) {
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  const int32_t n = switch_number();
  if (!state_.rssi_per_antenna()) {
    log_.write(kLogInfo, "Not support all antenna RSSI.\n");
    return kStatusRssiNotSupported;
  }
  fill(values, length, length, kRssiAbsent);

  if (state_.user_mode() == static_cast<uint32_t>(kModeAuto)) {
    // Automatic mode: report the loop's stored results; the switches stay untouched.
    const int32_t ports = std::clamp(n, 0, kMaxPorts);
    for (int32_t s = 0; s < 2; ++s) {
      for (int32_t p = 0; p < ports; ++p) {
        const size_t at = static_cast<size_t>(s * ports + p);
        if (at < length) {
          values[at] = state_.auto_sweep(static_cast<size_t>(s), static_cast<size_t>(p));
        }
      }
    }
    return SWITCH_OK;
  }

  const int32_t m = std::min(n, kRssiPortSlots);
  const size_t width = static_cast<size_t>(std::max(m, 0));
  // The latest reading of the sweep: a failed collection leaves it as it was, and before
  // the first read every port is -200.
  std::vector<int32_t> reading(kRssiPortSlots, kRssiAbsent);
  for (int32_t s = 0; s < 2; ++s) {
    for (int32_t sw = 0; sw < m; ++sw) sw_.SetSwitchPosition(sw, s);
    clock_.sleep_ms(state_.time_to_wait_for_rssi_stable());
    log_.write(kLogDetail, "Getting RSSI for %s at all ports: \n",
               kPositionNames[static_cast<size_t>(s)]);
    bool done = false;
    for (int a = 1; a <= kRssiAttempts && !done; ++a) {
      if (!sweep_attempt(m, reading.data())) {
        log_.write(kLogDetail, "#%2d) Error while getting rssi! \n", a);
        clock_.sleep_ms(state_.rssi_collect_interval());
        continue;
      }
      done = true;
      log_.write(kLogDetail, "%2d) Current RSSI: ", a);
      for (int32_t p = 0; p < m; ++p) {
        const int32_t v = reading[static_cast<size_t>(p)];
        log_.write(kLogDetail, "%s (%d), ", kPortNames[static_cast<size_t>(p)], v);
        const size_t at = static_cast<size_t>(s) * width + static_cast<size_t>(p);
        if (at < length) values[at] = v;
      }
      log_.write(kLogDetail, "\n");
      log_.write(kLogDetail, "\n\n");
    }
    if (!done) {
      log_.write(kLogDetail, "\n\n");
      fill(values, length, 2 * width, kRssiAbsent);
      log_.write(kLogWarning, "Failed while getting rssi for state %d!\n", s);
      return kStatusRssiUnreadable;
    }
  }
  return SWITCH_OK;
}

Status SignalCounters::GetRssiCurrentMode(int32_t* values, size_t length) {
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  const int32_t n = switch_number();
  if (!state_.rssi_per_antenna()) {
    log_.write(kLogInfo, "Not support all antenna RSSI.\n");
    return kStatusRssiNotSupported;
  }
  fill(values, length, length, kRssiAbsent);
  const int32_t m = std::min(n, kRssiPortSlots);
  const size_t width = static_cast<size_t>(std::max(m, 0));
  const auto mode = static_cast<int32_t>(state_.user_mode());
  // The automatic loop calls this constantly: only a fixed mode logs the sweep.
  const bool fixed = mode != kModeAuto;
  if (fixed) log_.write(kLogDetail, "Getting RSSI for Current Mode (%d): \n", mode);

  std::vector<int32_t> reading(kRssiPortSlots, kRssiAbsent);
  for (int a = 1; a <= kRssiAttempts; ++a) {
    if (!sweep_attempt(m, reading.data())) {
      if (fixed) log_.write(kLogDetail, "#%2d) Error while getting rssi! \n", a);
      clock_.sleep_ms(state_.rssi_collect_interval());
      continue;
    }
    if (fixed) log_.write(kLogDetail, "%2d) Current RSSI: ", a);
    for (int32_t p = 0; p < m; ++p) {
      const int32_t v = reading[static_cast<size_t>(p)];
      if (fixed) log_.write(kLogDetail, "%s (%d), ", kPortNames[static_cast<size_t>(p)], v);
      if (static_cast<size_t>(p) < length) values[p] = v;
    }
    if (fixed) log_.write(kLogDetail, "\n\n");
    return SWITCH_OK;
  }
  fill(values, length, 2 * width, kRssiAbsent);
  if (fixed) log_.write(kLogWarning, "Failed while getting rssi for Current Mode (%d): \n", mode);
  return kStatusRssiUnreadable;
}

Status SignalCounters::GetAverageRssi(int32_t& average) {
  average = kRssiAbsent;
  if (!state_.ready()) return SWITCH_ERR_NOT_READY;
  const int32_t n = switch_number();
  const size_t count = static_cast<size_t>(std::max(n, 0));
  // Ports with a counter start as -200 (a failed collection reads as an absent value);
  // ports without one never have a reading and are left out like -95.
  std::vector<int32_t> readings(count, kRssiNoSignal);
  for (size_t i = 0; i < std::min<size_t>(count, kRssiPortSlots); ++i) readings[i] = kRssiAbsent;
  if (const Status s = ReadRssi(n, readings.data()); s != SWITCH_OK) return s;
  const RssiMean mean = mean_of_signal_readings(readings.data(), static_cast<int32_t>(count));
  if (!mean.valid()) return kAverageRssiDivideByZero;
  average = mean.value;
  return SWITCH_OK;
}

void SignalCounters::store_auto_sweep(int32_t row, int32_t port, int32_t rssi) {
  if (row < 0 || row > 1 || port < 0 || port >= kMaxPorts) return;
  state_.set_auto_sweep(static_cast<size_t>(row), static_cast<size_t>(port), rssi);
}

}  // namespace zaltor::engine
