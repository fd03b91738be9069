#pragma once
// The decision journal: one structured record per decision pass of the auto loop, beside
// the log lines of that pass, so that the service can say why it chose a mode without
// anyone reading level-5 log text.
//
// A record says when the pass ran, what started it, the config set in force, per mode the
// measurement (successes, average RSSI and rate, weight, weighted value, disabled), the
// determinator, the mode found on the device, the mode chosen, how it was chosen and the
// sleep that followed. The journal keeps the last kCapacity records in a fixed ring.
//
// Cost on the decision pass: the auto loop fills one record in place while it works and
// publish copies it into the ring under a short lock; nothing is allocated per pass.
// Readers (the diagnostics interface) copy records out under the same lock.
//
// API for other users (the lab, tests): Trigger and Outcome with their names, publish,
// last, history, published. Records are plain values.

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "engine/mode_results.h"

namespace zaltor::engine {

// What started a decision pass. A re-evaluation request carries the cause given to its
// raise; the pass that consumes the request records it.
enum class Trigger : uint8_t {
  kStart,    // the first pass of the Auto period that the service's start began
  kTimer,    // the pass began after an uninterrupted sleep
  kMonitor,  // the Wi-Fi statistics monitor saw the signal or the rate drop
  kLid,      // the lid was opened or closed
  kPower,    // the power source changed
  kDevice,   // a device arrived or went away
  kWlan,     // a WLAN connection notification
  kUser,     // the first pass of an Auto period the user chose after a fixed mode
};

// How the pass ended.
enum class Outcome : uint8_t {
  kChosen,                     // the determinator chose
  kFallbackBelowThreshold,     // every enabled mode below the threshold: DefaultMode
  kFallbackFailedMeasurement,  // a mode had no successful sample: DefaultMode
  kFallbackMismatch,           // DoubleCheck's two choices differed: DefaultMode
  kNotConnected,               // the WLAN interface was not connected: DefaultMode
  kRunLimit,                   // AutoModeRunCount ran out: Auto left for DefaultMode
  kInvalidDeterminator,        // DeterminatorMode names no determinator: DefaultMode
};

const char* trigger_name(Trigger trigger);
const char* outcome_name(Outcome outcome);
// "Hybrid", "RSSI", "Bandwidth", "DoubleCheck", or "invalid".
const char* determinator_name(int32_t determinator_mode);

// One mode in a record. rssi and weighted are kNoRssiValue when there is no value (a
// failed or disabled mode, or weighted when a fallback ended the pass before weighting).
struct ModeRecord {
  bool disabled = false;
  uint32_t samples = 0;
  double rssi = kNoRssiValue;  // dBm
  double rate = 0.0;           // Mbps
  double weight = 0.0;         // RSSIWeightForMode, dB
  double weighted = kNoRssiValue;
};

struct DecisionRecord {
  uint64_t sequence = 0;  // 1 for the first record of the process; set by publish
  int64_t time_ms = 0;    // the notebook's clock when the pass began
  Trigger trigger = Trigger::kStart;
  uint32_t configSet = 0;
  int32_t determinator = 0;  // DeterminatorMode
  int32_t currentMode = 0;   // found on the device at the start of the pass; 99 unknown
  int32_t mode_count = 0;    // entries of `modes` in use (0 when nothing was measured)
  std::array<ModeRecord, kMaxModes> modes{};
  int32_t chosen = 0;  // the mode set at the end of the pass
  Outcome outcome = Outcome::kChosen;
  int32_t sleepMs = 0;  // the sleep that followed (0: none)
};

class DecisionJournal {
 public:
  static constexpr size_t kCapacity = 64;

  // Copies `record` into the ring (the oldest goes) and numbers it.
  void publish(const DecisionRecord& record);
  // The newest record; false before the first.
  bool last(DecisionRecord& out) const;
  // The newest `n` records (at most kCapacity), oldest first.
  std::vector<DecisionRecord> history(size_t n) const;
  // How many records were ever published.
  uint64_t published() const;

 private:
  mutable std::mutex lock_;  // held only to copy a record in or out
  std::array<DecisionRecord, kCapacity> ring_{};
  uint64_t count_ = 0;
};

}  // namespace zaltor::engine
