#include "engine/port_health.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "platform/switch_table.h"

namespace zaltor::engine {

namespace {

constexpr int32_t kNoSignalDbm = -95;
using platform::kPositionNames;

bool is_line_fault(Status s) {
  return s == SWITCH_ERR_CTRL_REJECTED || s == SWITCH_ERR_CTRL_IO || s == SWITCH_ERR_VERIFY ||
         s == SWITCH_ERR_NO_POSITION;
}

const char* fault_text(Status s) {
  switch (s) {
    case SWITCH_ERR_CTRL_REJECTED:
      return "refused by the firmware";
    case SWITCH_ERR_CTRL_IO:
      return "failed";
    case SWITCH_ERR_VERIFY:
      return "did not read back as written";
    default:
      return "left the lines in no position";
  }
}

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
  char text[160];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  return text;
}

std::string position_text(bool had_signal, double mean) {
  return had_signal ? format("%.1f dBm", mean) : std::string("no signal");
}

}  // namespace

const char* port_state_name(PortState state) {
  switch (state) {
    case PortState::kUnknown:
      return "unknown";
    case PortState::kOk:
      return "ok";
    case PortState::kNoSignal:
      return "no-signal";
    case PortState::kNotSwitching:
      return "not-switching";
    case PortState::kLineFault:
      return "line-fault";
  }
  return "unknown";
}

void PortHealth::begin_pass() {
  std::lock_guard<std::mutex> hold(lock_);
  for (Port& p : ports_) {
    p.readings.fill(0);
    p.signals.fill(0);
    p.sum.fill(0);
  }
}

void PortHealth::sample(int modeIndex, int ports, const int32_t* values) {
  std::lock_guard<std::mutex> hold(lock_);
  const int n = std::clamp(ports, 0, platform::kRssiPortSlots);
  for (int k = 0; k < n; ++k) {
    Port& p = ports_[static_cast<size_t>(k)];
    const auto pos = static_cast<size_t>((modeIndex >> k) & 1);
    const int32_t v = values[k];
    ++p.readings[pos];
    // -95 is no signal; anything at or below it (the no-value -200) is no reading either.
    if (v > kNoSignalDbm) {
      ++p.signals[pos];
      p.sum[pos] += v;
    }
  }
}

void PortHealth::end_pass() {
  std::lock_guard<std::mutex> hold(lock_);
  for (Port& p : ports_) {
    if (p.readings[0] == 0 || p.readings[1] == 0) continue;  // not measured in both
    ++p.sweeps;
    for (size_t pos = 0; pos < 2; ++pos) {
      p.last_had_signal[pos] = p.signals[pos] > 0;
      p.last_mean[pos] = p.signals[pos] > 0 ? static_cast<double>(p.sum[pos]) / p.signals[pos] : 0;
    }
    const bool none = !p.last_had_signal[0] && !p.last_had_signal[1];
    p.no_signal_streak = none ? p.no_signal_streak + 1 : 0;
    if (p.last_had_signal[0] && p.last_had_signal[1]) {
      p.differed = std::fabs(p.last_mean[0] - p.last_mean[1]) >= kSameDb;
      p.same_streak = p.differed ? 0 : p.same_streak + 1;
    } else {
      // A position without a signal differs from one with; with neither, nothing is known.
      p.differed = !none;
      p.same_streak = 0;
    }
  }
}

void PortHealth::write(int ports, const std::array<Status, platform::kMaxPorts>& results) {
  std::lock_guard<std::mutex> hold(lock_);
  const int n = std::clamp(ports, 0, platform::kMaxPorts);
  for (int k = 0; k < n; ++k) {
    Port& p = ports_[static_cast<size_t>(k)];
    const Status s = results[static_cast<size_t>(k)];
    const bool failed = is_line_fault(s);
    p.failed_writes = ((p.failed_writes << 1) | (failed ? 1u : 0u)) & ((1u << kLineWindow) - 1);
    ++p.writes;
    if (failed) p.last_failure = s;
  }
}

std::vector<PortReport> PortHealth::report(int ports) const {
  std::lock_guard<std::mutex> hold(lock_);
  const int n = std::clamp(ports, 0, platform::kMaxPorts);
  std::vector<PortReport> out;
  out.reserve(static_cast<size_t>(n));
  for (int k = 0; k < n; ++k) {
    const Port& p = ports_[static_cast<size_t>(k)];
    PortReport r;
    r.port = k;
    bool other_differed = false;
    for (int o = 0; o < n; ++o) {
      if (o != k && ports_[static_cast<size_t>(o)].differed) other_differed = true;
    }
    const int window = std::min(p.writes, kLineWindow);
    if (p.failed_writes != 0) {
      r.state = PortState::kLineFault;
      r.detail =
          format("%d of the last %d line writes %s (status %u)", std::popcount(p.failed_writes),
                 window, fault_text(p.last_failure), p.last_failure);
    } else if (k >= platform::kRssiPortSlots) {
      r.state = PortState::kUnknown;
      r.detail = "no RSSI counter for this port";
    } else if (p.sweeps == 0) {
      r.state = PortState::kUnknown;
      r.detail = "not measured in both positions yet";
    } else if (p.no_signal_streak >= kNoSignalPasses) {
      r.state = PortState::kNoSignal;
      r.detail = format("no signal in Main or Div for %d passes", p.no_signal_streak);
    } else if (p.same_streak >= kNotSwitchingSweeps && other_differed) {
      r.state = PortState::kNotSwitching;
      r.detail = format(
          "Main %.1f dBm and Div %.1f dBm within %.1f dB for %d sweeps while "
          "other ports change",
          p.last_mean[0], p.last_mean[1], kSameDb, p.same_streak);
    } else {
      r.state = PortState::kOk;
      r.detail =
          format("%s %s, %s %s over %d sweeps", kPositionNames[0],
                 position_text(p.last_had_signal[0], p.last_mean[0]).c_str(), kPositionNames[1],
                 position_text(p.last_had_signal[1], p.last_mean[1]).c_str(), p.sweeps);
    }
    out.push_back(std::move(r));
  }
  return out;
}

}  // namespace zaltor::engine
