#pragma once
// Shared set-up of the decision tests: a settings record, labels, the history ring, a log
// that records every call with its level, and sample buffers filled per mode.

#include <cstdarg>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/settings.h"
#include "engine/determine_mode.h"
#include "engine/sample_buffers.h"
#include "engine/switch_labels.h"
#include "platform/log.h"

namespace zaltor::engine::testing {

struct LogCall {
  uint8_t level;
  std::string text;
  bool operator==(const LogCall&) const = default;
};

class RecordingLog final : public Log {
 public:
  void vwrite(uint8_t level, const char* fmt, va_list ap) override {
    calls.push_back({level, vformat(fmt, ap)});
  }
  // Every recorded text, in order, without the levels.
  std::string text() const {
    std::string all;
    for (const auto& c : calls) all += c.text;
    return all;
  }
  // Position of the first call equal to {level, text}, or -1.
  int find(uint8_t level, const std::string& text) const {
    for (size_t i = 0; i < calls.size(); ++i) {
      if (calls[i].level == level && calls[i].text == text) return static_cast<int>(i);
    }
    return -1;
  }
  bool has(uint8_t level, const std::string& text) const { return find(level, text) >= 0; }
  void clear() { calls.clear(); }

  std::vector<LogCall> calls;
};

class DetermineFixture {
 public:
  // Every set gets the same basic values; tests change what they need.
  explicit DetermineFixture(int switchCount, int32_t collect_count = 1)
      : switch_count_(switchCount), buffers_(collect_count) {
    for (int s = 0; s < config::kConfigSets; ++s) {
      settings.RSSICollectCount[static_cast<size_t>(s)] = collect_count;
      settings.DefaultMode[static_cast<size_t>(s)] = 1;
      settings.RSSIThresholdForSwitchToDefaultMode[static_cast<size_t>(s)] = -90.0;
    }
    settings.MaxRSSICollectCount = collect_count;
    settings.DeterminatorMode = kDeterminatorRssi;
    history.clear();
  }

  int mode_count() const { return 1 << switch_count_; }

  // The samples of one mode index, laid out for the active set's collect count.
  void samples(int modeIndex, const std::vector<double>& rssi, const std::vector<double>& rate) {
    const int32_t n = settings.RSSICollectCount[active_set];
    auto rssi_row = buffers_.rssi_row(modeIndex, n);
    auto rate_row = buffers_.rate_row(modeIndex, n);
    for (size_t j = 0; j < rssi.size(); ++j) rssi_row[j] = rssi[j];
    for (size_t j = 0; j < rate.size(); ++j) rate_row[j] = rate[j];
    counts[static_cast<size_t>(modeIndex)] = static_cast<uint32_t>(rssi.size());
  }

  // One sample per mode: the RSSI values become the averages and, with weight 0, the
  // weighted values.
  void one_sample_each(const std::vector<double>& rssi, const std::vector<double>& rate) {
    for (size_t i = 0; i < rssi.size(); ++i) {
      samples(static_cast<int>(i), {rssi[i]}, {rate.empty() ? 100.0 : rate[i]});
    }
  }

  void disable(int modeIndex) {
    settings.disable_mode[active_set][static_cast<size_t>(modeIndex)] = 1;
    counts[static_cast<size_t>(modeIndex)] = 1;  // as the auto loop marks a disabled mode
  }

  DetermineInput input() {
    return DetermineInput{settings, active_set, mode_count(), switch_count_, labels, history, log};
  }

  int32_t Run(int32_t currentIndex = 0) {
    return DetermineMode(input(), buffers_, counts, currentIndex, rssiOut, fallback, results);
  }

  SampleBuffers& buffers() { return buffers_; }

  config::ConfigSettings settings;
  SwitchLabels labels = default_switch_labels();
  RssiHistory history;
  RecordingLog log;
  std::size_t active_set = 0;
  SuccessCounts counts{};
  ModeResults results;
  double rssiOut = 0.0;
  bool fallback = false;

 private:
  int switch_count_;
  SampleBuffers buffers_;
};

}  // namespace zaltor::engine::testing
