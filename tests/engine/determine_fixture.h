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
  std::string Text() const {
    std::string all;
    for (const auto& c : calls) all += c.text;
    return all;
  }
  // Position of the first call equal to {level, text}, or -1.
  int Find(uint8_t level, const std::string& text) const {
    for (size_t i = 0; i < calls.size(); ++i) {
      if (calls[i].level == level && calls[i].text == text) return static_cast<int>(i);
    }
    return -1;
  }
  bool Has(uint8_t level, const std::string& text) const { return Find(level, text) >= 0; }
  void Clear() { calls.clear(); }

  std::vector<LogCall> calls;
};

class DetermineFixture {
 public:
  // Every set gets the same basic values; tests change what they need.
  explicit DetermineFixture(int switchCount, int32_t collectCount = 1)
      : switchCount_(switchCount), buffers_(collectCount) {
    for (int s = 0; s < config::kConfigSets; ++s) {
      settings.RSSICollectCount[static_cast<size_t>(s)] = collectCount;
      settings.DefaultMode[static_cast<size_t>(s)] = 1;
      settings.RSSIThresholdForSwitchToDefaultMode[static_cast<size_t>(s)] = -90.0;
    }
    settings.MaxRSSICollectCount = collectCount;
    settings.DeterminatorMode = kDeterminatorRssi;
    history.Clear();
  }

  int modeCount() const { return 1 << switchCount_; }

  // The samples of one mode index, laid out for the active set's collect count.
  void Samples(int modeIndex, const std::vector<double>& rssi, const std::vector<double>& rate) {
    const int32_t n = settings.RSSICollectCount[activeSet];
    auto rssiRow = buffers_.RssiRow(modeIndex, n);
    auto rateRow = buffers_.RateRow(modeIndex, n);
    for (size_t j = 0; j < rssi.size(); ++j) rssiRow[j] = rssi[j];
    for (size_t j = 0; j < rate.size(); ++j) rateRow[j] = rate[j];
    counts[static_cast<size_t>(modeIndex)] = static_cast<uint32_t>(rssi.size());
  }

  // One sample per mode: the RSSI values become the averages and, with weight 0, the
  // weighted values.
  void OneSampleEach(const std::vector<double>& rssi, const std::vector<double>& rate) {
    for (size_t i = 0; i < rssi.size(); ++i) {
      Samples(static_cast<int>(i), {rssi[i]}, {rate.empty() ? 100.0 : rate[i]});
    }
  }

  void Disable(int modeIndex) {
    settings.DisableMode[activeSet][static_cast<size_t>(modeIndex)] = 1;
    counts[static_cast<size_t>(modeIndex)] = 1;  // as the auto loop marks a disabled mode
  }

  DetermineInput Input() {
    return DetermineInput{settings, activeSet, modeCount(), switchCount_, labels, history, log};
  }

  int32_t Run(int32_t currentIndex = 0) {
    return DetermineMode(Input(), buffers_, counts, currentIndex, rssiOut, fallback, results);
  }

  SampleBuffers& buffers() { return buffers_; }

  config::ConfigSettings settings;
  SwitchLabels labels = DefaultSwitchLabels();
  RssiHistory history;
  RecordingLog log;
  std::size_t activeSet = 0;
  SuccessCounts counts{};
  ModeResults results;
  double rssiOut = 0.0;
  bool fallback = false;

 private:
  int switchCount_;
  SampleBuffers buffers_;
};

}  // namespace zaltor::engine::testing
