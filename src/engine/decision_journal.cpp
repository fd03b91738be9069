#include "engine/decision_journal.h"

#include <algorithm>

namespace zaltor::engine {

const char* trigger_name(Trigger trigger) {
  switch (trigger) {
    case Trigger::kStart:
      return "start";
    case Trigger::kTimer:
      return "timer";
    case Trigger::kMonitor:
      return "monitor";
    case Trigger::kLid:
      return "lid";
    case Trigger::kPower:
      return "power";
    case Trigger::kDevice:
      return "device";
    case Trigger::kWlan:
      return "wlan";
    case Trigger::kUser:
      return "user";
  }
  return "start";
}

const char* outcome_name(Outcome outcome) {
  switch (outcome) {
    case Outcome::kChosen:
      return "chosen";
    case Outcome::kFallbackBelowThreshold:
      return "fallback-below-threshold";
    case Outcome::kFallbackFailedMeasurement:
      return "fallback-failed-measurement";
    case Outcome::kFallbackMismatch:
      return "fallback-mismatch";
    case Outcome::kNotConnected:
      return "not-connected";
    case Outcome::kRunLimit:
      return "run-limit";
    case Outcome::kInvalidDeterminator:
      return "invalid-determinator";
  }
  return "chosen";
}

const char* determinator_name(int32_t determinator_mode) {
  switch (determinator_mode) {
    case 0:
      return "Hybrid";
    case 1:
      return "RSSI";
    case 2:
      return "Bandwidth";
    case 3:
      return "DoubleCheck";
    default:
      return "invalid";
  }
}

void DecisionJournal::publish(const DecisionRecord& record) {
  std::lock_guard<std::mutex> hold(lock_);
  DecisionRecord& slot = ring_[count_ % kCapacity];
  slot = record;
  slot.sequence = ++count_;
}

bool DecisionJournal::last(DecisionRecord& out) const {
  std::lock_guard<std::mutex> hold(lock_);
  if (count_ == 0) return false;
  out = ring_[(count_ - 1) % kCapacity];
  return true;
}

std::vector<DecisionRecord> DecisionJournal::history(size_t n) const {
  std::lock_guard<std::mutex> hold(lock_);
  const uint64_t take = std::min<uint64_t>({n, count_, kCapacity});
  std::vector<DecisionRecord> out;
  out.reserve(static_cast<size_t>(take));
  for (uint64_t s = count_ - take; s < count_; ++s) out.push_back(ring_[s % kCapacity]);
  return out;
}

uint64_t DecisionJournal::published() const {
  std::lock_guard<std::mutex> hold(lock_);
  return count_;
}

}  // namespace zaltor::engine
