#include "engine/port_health.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace zaltor::engine {

namespace {

constexpr int32_t kNoSignalDbm = -95;
constexpr const char* kPositionNames[2] = {"Main", "Div"};

bool IsLineFault(Status s) {
  return s == SWITCH_ERR_CTRL_REJECTED || s == SWITCH_ERR_CTRL_IO || s == SWITCH_ERR_VERIFY ||
         s == SWITCH_ERR_NO_POSITION;
}

const char* FaultText(Status s) {
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

std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* fmt, ...) {
  char text[160];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  return text;
}

std::string PositionText(bool hadSignal, double mean) {
  return hadSignal ? Format("%.1f dBm", mean) : std::string("no signal");
}

}  // namespace

const char* PortStateName(PortState state) {
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

void PortHealth::BeginPass() {
  std::lock_guard<std::mutex> hold(lock_);
  for (Port& p : ports_) {
    p.readings.fill(0);
    p.signals.fill(0);
    p.sum.fill(0);
  }
}

void PortHealth::Sample(int modeIndex, int ports, const int32_t* values) {
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

void PortHealth::EndPass() {
  std::lock_guard<std::mutex> hold(lock_);
  for (Port& p : ports_) {
    if (p.readings[0] == 0 || p.readings[1] == 0) continue;  // not measured in both
    ++p.sweeps;
    for (size_t pos = 0; pos < 2; ++pos) {
      p.lastHadSignal[pos] = p.signals[pos] > 0;
      p.lastMean[pos] = p.signals[pos] > 0 ? static_cast<double>(p.sum[pos]) / p.signals[pos] : 0;
    }
    const bool none = !p.lastHadSignal[0] && !p.lastHadSignal[1];
    p.noSignalStreak = none ? p.noSignalStreak + 1 : 0;
    if (p.lastHadSignal[0] && p.lastHadSignal[1]) {
      p.differed = std::fabs(p.lastMean[0] - p.lastMean[1]) >= kSameDb;
      p.sameStreak = p.differed ? 0 : p.sameStreak + 1;
    } else {
      // A position without a signal differs from one with; with neither, nothing is known.
      p.differed = !none;
      p.sameStreak = 0;
    }
  }
}

void PortHealth::Write(int ports, const std::array<Status, platform::kMaxPorts>& results) {
  std::lock_guard<std::mutex> hold(lock_);
  const int n = std::clamp(ports, 0, platform::kMaxPorts);
  for (int k = 0; k < n; ++k) {
    Port& p = ports_[static_cast<size_t>(k)];
    const Status s = results[static_cast<size_t>(k)];
    const bool failed = IsLineFault(s);
    p.failedWrites = ((p.failedWrites << 1) | (failed ? 1u : 0u)) & ((1u << kLineWindow) - 1);
    ++p.writes;
    if (failed) p.lastFailure = s;
  }
}

std::vector<PortReport> PortHealth::Report(int ports) const {
  std::lock_guard<std::mutex> hold(lock_);
  const int n = std::clamp(ports, 0, platform::kMaxPorts);
  std::vector<PortReport> out;
  out.reserve(static_cast<size_t>(n));
  for (int k = 0; k < n; ++k) {
    const Port& p = ports_[static_cast<size_t>(k)];
    PortReport r;
    r.port = k;
    bool otherDiffered = false;
    for (int o = 0; o < n; ++o) {
      if (o != k && ports_[static_cast<size_t>(o)].differed) otherDiffered = true;
    }
    const int window = std::min(p.writes, kLineWindow);
    if (p.failedWrites != 0) {
      r.state = PortState::kLineFault;
      r.detail =
          Format("%d of the last %d line writes %s (status %u)", std::popcount(p.failedWrites),
                 window, FaultText(p.lastFailure), p.lastFailure);
    } else if (k >= platform::kRssiPortSlots) {
      r.state = PortState::kUnknown;
      r.detail = "no RSSI counter for this port";
    } else if (p.sweeps == 0) {
      r.state = PortState::kUnknown;
      r.detail = "not measured in both positions yet";
    } else if (p.noSignalStreak >= kNoSignalPasses) {
      r.state = PortState::kNoSignal;
      r.detail = Format("no signal in Main or Div for %d passes", p.noSignalStreak);
    } else if (p.sameStreak >= kNotSwitchingSweeps && otherDiffered) {
      r.state = PortState::kNotSwitching;
      r.detail = Format(
          "Main %.1f dBm and Div %.1f dBm within %.1f dB for %d sweeps while "
          "other ports change",
          p.lastMean[0], p.lastMean[1], kSameDb, p.sameStreak);
    } else {
      r.state = PortState::kOk;
      r.detail = Format("%s %s, %s %s over %d sweeps", kPositionNames[0],
                        PositionText(p.lastHadSignal[0], p.lastMean[0]).c_str(), kPositionNames[1],
                        PositionText(p.lastHadSignal[1], p.lastMean[1]).c_str(), p.sweeps);
    }
    out.push_back(std::move(r));
  }
  return out;
}

}  // namespace zaltor::engine
