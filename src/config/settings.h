#pragma once
// The settings record: every tuning key of the configuration, held once per config set
// (index 0 is the default set, 1..9 the override sets). Field names are the keys.
// Written only while the configuration loads, before any engine thread exists; read
// without locks afterwards.

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace zaltor::config {

constexpr int kConfigSets = 10;
constexpr int kMaxModes = 16;
constexpr int32_t kAbsentInt = 2147483647;  // a key that is not there

template <typename T>
using PerSet = std::array<T, kConfigSets>;
template <typename T>
using PerSetPerMode = std::array<std::array<T, kMaxModes>, kConfigSets>;

struct ConfigSettings {
  PerSet<int32_t> BaseSleepIntervalBetweenEval{};
  PerSet<int32_t> RSSICollectInterval{};
  PerSet<int32_t> RSSICollectCount{};
  PerSet<int32_t> TimeToWaitForRSSIStable{};
  PerSet<int32_t> DefaultMode{};
  PerSet<double> RSSIThresholdForSwitchToDefaultMode{};
  PerSetPerMode<double> rssi_weight_for_mode{};  // key _1 is element 0
  PerSetPerMode<int32_t> disable_mode{};         // key _1 is element 0
  PerSet<int32_t> DeterminatorStableTimesForExp{};
  PerSet<double> IntervalTimeExpX{};
  PerSet<double> IntervalTimeExpY{};
  PerSet<double> IntervalTimeExpYIncr{};
  PerSet<double> RSSIDeltaToTriggerScan{};
  PerSet<double> MCSDeltaToTriggerScan{};
  PerSet<int32_t> WifiStatMonitorInterval{};
  int32_t ForceUseModeSwitching = 0;
  int32_t AutoModeRunCount = 0;
  int32_t DeterminatorMode = 0;

  // Derived while loading.
  int32_t MaxRSSICollectCount = 0;           // largest RSSICollectCount of the enabled sets
  PerSet<int32_t> current_sleep_interval{};  // starts at BaseSleepIntervalBetweenEval
};

// Config sets the engine selects.
enum ConfigSet : uint32_t {
  kConf24G = 0,
  kConf5G = 1,
  kConfBtCoexist = 2,
  kConfLidClosed = 3,
};

// For every key found: the section that supplied it, without the leading "Settings.".
// Override keys are entered as the key name followed by "." and the set digit.
using ConfigKeySourceMap = std::map<std::string, std::string>;

}  // namespace zaltor::config
