#include "platform/sim/radio_model.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace zaltor::platform::sim {
namespace {

// SplitMix64: a seed and a port give the same fading with every standard library.
uint64_t mix(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

// A uniform value in [0, 1) from the seed, the port and which draw it is.
double draw(uint64_t seed, size_t port, int which) {
  const uint64_t h = mix(mix(seed) ^ mix(0x100u + port * 8u + static_cast<uint64_t>(which)));
  return static_cast<double>(h >> 11) * (1.0 / 9007199254740992.0);
}

double drift_db(const Drift& d, double t_s) {
  if (d.db_per_minute == 0 || t_s <= d.start_s) return 0;
  return d.db_per_minute * (t_s - d.start_s) / 60.0;
}

// Each antenna element (a port in one position) fades on its own: elements a few
// centimetres apart see different multipath.
double fading_db(const Scenario& s, size_t port, int position, double t_s) {
  const Fading& f = s.fading;
  if (f.depth_db <= 0 || f.period_s <= 0) return 0;
  const size_t element = port * 2 + static_cast<size_t>(position);
  const double p1 = f.period_s * (0.7 + 0.6 * draw(s.seed, element, 0));
  const double p2 = f.period_s * (0.3 + 0.3 * draw(s.seed, element, 1));
  const double ph1 = 2 * std::numbers::pi * draw(s.seed, element, 2);
  const double ph2 = 2 * std::numbers::pi * draw(s.seed, element, 3);
  const double wave = std::sin(2 * std::numbers::pi * t_s / p1 + ph1) +
                      0.5 * std::sin(2 * std::numbers::pi * t_s / p2 + ph2);
  return f.depth_db * wave / 1.5;
}

double blockage_db(const Scenario& s, size_t port, int position, double t_s) {
  double loss = 0;
  for (const Blockage& b : s.blockages) {
    if (b.port != port || t_s < b.offset_s) continue;
    if (b.position >= 0 && b.position != position) continue;
    const double into = std::fmod(t_s - b.offset_s, b.period_s);
    if (into < b.duration_s) loss += b.loss_db;
  }
  return loss;
}

struct McsStep {
  double min_dbm;
  double mbps;
};
// Two spatial streams, 80 MHz, long guard interval: MCS 9 down to MCS 0.
constexpr McsStep kMcs[] = {{-57, 780.0}, {-59, 702.0}, {-64, 585.0}, {-65, 526.5}, {-66, 468.0},
                            {-70, 351.0}, {-74, 234.0}, {-77, 175.5}, {-79, 117.0}, {-82, 58.5}};
// Below MCS 0's sensitivity a link still holds its lowest rate until the signal is gone.
constexpr double kLowestMbps = 29.3;

}  // namespace

double port_rssi_at(const Scenario& s, size_t port, int position, double t_s) {
  if (port >= s.rssi.size()) return kNoSignalDbm;
  const AntennaRssi& r = s.rssi[port];
  const double base = position == 0 ? r.main : position == 1 ? r.div : kNoSignalDbm;
  // -95 marks no signal; any other reading, weaker ones included, is published as it is.
  if (base == kNoSignalDbm) return kNoSignalDbm;
  double v = base;
  const double drift = drift_db(s.drift, t_s);
  if (drift < 0) v = std::max(std::min(v, s.drift.limit_dbm), v + drift);
  if (drift > 0) v = std::min(std::max(v, s.drift.limit_dbm), v + drift);
  v += fading_db(s, port, position, t_s) - blockage_db(s, port, position, t_s);
  // A signal that drift, fading or blockage take to -95 or below is gone.
  if (v != base && v <= kNoSignalDbm) return kNoSignalDbm;
  return std::min(v, 0.0);
}

bool mode_reading(const Scenario& s, int mode, double& dbm) {
  if (mode < 1 || static_cast<size_t>(mode) > s.mode_rssi.size()) return false;
  const double v = s.mode_rssi[static_cast<size_t>(mode - 1)];
  dbm = v <= kNoSignalDbm ? kNoSignalDbm : v;
  return true;
}

double mode_rssi_at(const Scenario& s, int mode, size_t ports, double t_s) {
  if (mode < 1) return kNoSignalDbm;
  double direct = 0;
  if (mode_reading(s, mode, direct)) return direct;
  ports = std::min<size_t>(ports, 4);  // a mode has a bit for each of at most four switches
  double sum = 0;
  int n = 0;
  for (size_t p = 0; p < ports; ++p) {
    const int position = static_cast<int>((static_cast<unsigned>(mode - 1) >> p) & 1u);
    const double v = port_rssi_at(s, p, position, t_s);
    if (v <= kNoSignalDbm) continue;
    sum += v;
    ++n;
  }
  return n == 0 ? kNoSignalDbm : sum / n;
}

double rate_for_rssi(double rssi_dbm) {
  if (rssi_dbm <= kNoSignalDbm) return 0;
  for (const McsStep& m : kMcs) {
    if (rssi_dbm >= m.min_dbm) return m.mbps;
  }
  return kLowestMbps;
}

double mode_rate_at(const Scenario& s, int mode, size_t ports, double t_s) {
  if (mode < 1) return 0;
  if (s.rate_from_rssi) return rate_for_rssi(mode_rssi_at(s, mode, ports, t_s));
  const auto at = static_cast<size_t>(mode - 1);
  return at < s.rate_mbps.size() ? s.rate_mbps[at] : 0;
}

}  // namespace zaltor::platform::sim
