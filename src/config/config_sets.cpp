#include "config/config_sets.h"

#include <algorithm>
#include <cctype>

#include "platform/log.h"
#include "platform/profile.h"

namespace zaltor::config {
namespace {

// "%d" of the C library's scanf family on a zero-terminated text: blanks, an optional
// sign, decimal digits (the low 32 bits kept). False when no digit follows.
bool scan_decimal(const char* s, int32_t& value) {
  while (*s != '\0' && std::isspace(static_cast<unsigned char>(*s))) ++s;
  bool minus = false;
  if (*s == '+' || *s == '-') minus = *s++ == '-';
  if (*s < '0' || *s > '9') return false;
  uint32_t total = 0;
  for (; *s >= '0' && *s <= '9'; ++s) total = total * 10 + static_cast<uint32_t>(*s - '0');
  value = static_cast<int32_t>(minus ? 0u - total : total);
  return true;
}

}  // namespace

const char* set_label(int set) {
  switch (set) {
    case kConf5G:
      return "5GHz";
    case kConfBtCoexist:
      return "BTCoexist";
    case kConfLidClosed:
      return "LidClosed";
    default:
      return "N/A";
  }
}

int32_t find_enabled_sets(platform::ProfileReader& profiles, const std::string& path,
                          const SectionList& sections, std::array<bool, kConfigSets>& enabled,
                          bool& too_long) {
  too_long = false;
  uint32_t size = 8;
  std::string list;
  uint32_t got = profiles.read_section_names(list, size, path);
  while (got == size - 2) {
    if (got + 100 > kMaxSectionListChars) {
      too_long = true;
      break;
    }
    size = got + 100;
    got = profiles.read_section_names(list, size, path);
  }
  // The buffer as the names sit in it: each name and its zero, then the final zero.
  std::string buffer = list;
  buffer.push_back('\0');
  buffer.push_back('\0');

  int32_t last = 0;
  size_t pos = 0;
  while (pos < list.size() && buffer[pos] != '\0') {
    const std::string name(buffer.c_str() + pos);
    for (const std::string& base : sections) {
      if (name.find(base) == std::string::npos) continue;
      // The number is read one character past the base name's length, counted from the
      // start of the section name (for a name equal to the base: the next name in the list).
      int32_t n = 0;
      if (!scan_decimal(buffer.c_str() + pos + base.size() + 1, n)) continue;
      if (static_cast<uint32_t>(n) >= kConfigSets) continue;
      enabled[static_cast<size_t>(n)] = true;
      last = n;
      break;
    }
    pos += name.size() + 1;
  }
  return last;
}

Status read_override_settings(IniSource& src, const SectionList& sections,
                              const std::array<bool, kConfigSets>& enabled, ConfigSettings& s) {
  for (int set = 1; set < kConfigSets; ++set) {
    const auto i = static_cast<size_t>(set);
    if (!enabled[i]) {
      s.RSSICollectCount[i] = s.RSSICollectCount[0];
      s.BaseSleepIntervalBetweenEval[i] = s.BaseSleepIntervalBetweenEval[0];
      s.RSSICollectInterval[i] = s.RSSICollectInterval[0];
      s.TimeToWaitForRSSIStable[i] = s.TimeToWaitForRSSIStable[0];
      s.DefaultMode[i] = s.DefaultMode[0];
      s.RSSIThresholdForSwitchToDefaultMode[i] = s.RSSIThresholdForSwitchToDefaultMode[0];
      s.rssi_weight_for_mode[i] = s.rssi_weight_for_mode[0];
      s.disable_mode[i] = s.disable_mode[0];
      s.current_sleep_interval[i] = s.BaseSleepIntervalBetweenEval[i];
      continue;
    }
    SectionList overrides;
    for (const std::string& base : sections)
      overrides.push_back(format("%s.%d", base.c_str(), set));

    auto int_from = [&](const SectionList& list, const std::string& key, PerSet<int32_t>& field) {
      int32_t v = 0;
      field[i] = read_int_key(src, list, key, v) == SWITCH_OK ? v : field[0];
    };
    auto real_from = [&](const SectionList& list, const std::string& key, PerSet<double>& field) {
      double v = 0.0;
      field[i] = read_real_key(src, list, key, v) == SWITCH_OK ? v : field[0];
    };

    int_from(overrides, "RSSICollectCount", s.RSSICollectCount);
    s.MaxRSSICollectCount = std::max(s.MaxRSSICollectCount, s.RSSICollectCount[i]);
    int_from(overrides, "BaseSleepIntervalBetweenEval", s.BaseSleepIntervalBetweenEval);
    int_from(overrides, "RSSICollectInterval", s.RSSICollectInterval);
    int_from(overrides, "TimeToWaitForRSSIStable", s.TimeToWaitForRSSIStable);
    int_from(overrides, "DefaultMode", s.DefaultMode);
    real_from(overrides, "RSSIThresholdForSwitchToDefaultMode",
              s.RSSIThresholdForSwitchToDefaultMode);
    for (int m = 0; m < kMaxModes; ++m) {
      const auto k = static_cast<size_t>(m);
      double w = 0.0;
      s.rssi_weight_for_mode[i][k] =
          read_real_key(src, overrides, weight_key(m + 1), w) == SWITCH_OK
              ? w
              : s.rssi_weight_for_mode[0][k];
    }
    for (int m = 0; m < kMaxModes; ++m) {
      const auto k = static_cast<size_t>(m);
      int32_t d = 0;
      s.disable_mode[i][k] = read_int_key(src, overrides, disable_key(m + 1), d) == SWITCH_OK
                                 ? d
                                 : s.disable_mode[0][k];
    }
    // These keys are read from the plain sections: they are not overridable per set.
    int_from(sections, "DeterminatorStableTimesForExp", s.DeterminatorStableTimesForExp);
    real_from(sections, "IntervalTimeExpX", s.IntervalTimeExpX);
    real_from(sections, "IntervalTimeExpY", s.IntervalTimeExpY);
    real_from(sections, "IntervalTimeExpYIncr", s.IntervalTimeExpYIncr);
    real_from(sections, "RSSIDeltaToTriggerScan", s.RSSIDeltaToTriggerScan);
    real_from(sections, "MCSDeltaToTriggerScan", s.MCSDeltaToTriggerScan);
    int_from(sections, "WifiStatMonitorInterval", s.WifiStatMonitorInterval);
    s.current_sleep_interval[i] = s.BaseSleepIntervalBetweenEval[i];
  }
  return SWITCH_OK;
}

}  // namespace zaltor::config
