#include "config/settings_reader.h"

#include <cstdlib>

#include "platform/log.h"
#include "platform/profile.h"

namespace zaltor::config {
namespace {

constexpr uint32_t kRealBufferChars = 512;

void record_source(IniSource& src, const std::string& section, const std::string& key) {
  const std::string value =
      section.size() > kSettingsPrefixLength ? section.substr(kSettingsPrefixLength) : "";
  // Keys of an override section ("....N") are entered with the section's ".N".
  if (section.size() >= 2 && section[section.size() - 2] == '.') {
    src.sources[key + section.substr(section.size() - 2)] = value;
  } else {
    src.sources[key] = value;
  }
}

}  // namespace

std::string weight_key(int mode) {
  return format("RSSIWeightForMode_%d", mode);
}
std::string disable_key(int mode) {
  return format("DisableMode_%d", mode);
}

Status read_int_key(IniSource& src, const SectionList& sections, const std::string& key,
                    int32_t& dest) {
  if (sections.empty()) return kStatusConfigKeyMissing;
  for (const std::string& section : sections) {
    dest = static_cast<int32_t>(src.profiles.read_int(section, key, kAbsentInt, src.path));
    if (dest != kAbsentInt) {
      record_source(src, section, key);
      return SWITCH_OK;
    }
  }
  return kStatusConfigKeyMissing;
}

Status read_real_key(IniSource& src, const SectionList& sections, const std::string& key,
                     double& dest) {
  if (sections.empty()) return kStatusConfigKeyMissing;
  for (const std::string& section : sections) {
    std::string text;
    src.profiles.read_string(section, key, "2147483647", text, kRealBufferChars, src.path);
    dest = std::strtod(text.c_str(), nullptr);
    // A NaN compares unequal too, so it counts as found.
    if (!(dest == static_cast<double>(kAbsentInt))) {
      record_source(src, section, key);
      return SWITCH_OK;
    }
  }
  return kStatusConfigKeyMissing;
}

Status read_default_settings(IniSource& src, const SectionList& sections, ConfigSettings& s) {
  // Read straight into the fields with the result ignored: an absent key leaves 2147483647.
  read_int_key(src, sections, "ForceUseModeSwitching", s.ForceUseModeSwitching);
  read_int_key(src, sections, "AutoModeRunCount", s.AutoModeRunCount);

  int32_t determinator = 0;
  read_int_key(src, sections, "DeterminatorMode", determinator);
  s.DeterminatorMode = static_cast<uint32_t>(determinator) <= 2 ? determinator : 0;

  struct RequiredInt {
    const char* key;
    int32_t& field;
  };
  const RequiredInt required[] = {
      {"BaseSleepIntervalBetweenEval", s.BaseSleepIntervalBetweenEval[0]},
      {"RSSICollectInterval", s.RSSICollectInterval[0]},
      {"RSSICollectCount", s.RSSICollectCount[0]},
      {"TimeToWaitForRSSIStable", s.TimeToWaitForRSSIStable[0]},
      {"DefaultMode", s.DefaultMode[0]},
  };
  for (const RequiredInt& r : required) {
    const Status st = read_int_key(src, sections, r.key, r.field);
    if (st != SWITCH_OK) return st;
  }
  const Status st = read_real_key(src, sections, "RSSIThresholdForSwitchToDefaultMode",
                                  s.RSSIThresholdForSwitchToDefaultMode[0]);
  if (st != SWITCH_OK) return st;

  auto optional_int = [&](const std::string& key, int32_t& field) {
    if (read_int_key(src, sections, key, field) != SWITCH_OK) field = 0;
  };
  auto optional_real = [&](const std::string& key, double& field) {
    if (read_real_key(src, sections, key, field) != SWITCH_OK) field = 0.0;
  };
  for (int m = 1; m <= kMaxModes; ++m)
    optional_real(weight_key(m), s.rssi_weight_for_mode[0][m - 1]);
  for (int m = 1; m <= kMaxModes; ++m) optional_int(disable_key(m), s.disable_mode[0][m - 1]);
  optional_int("DeterminatorStableTimesForExp", s.DeterminatorStableTimesForExp[0]);
  optional_real("IntervalTimeExpX", s.IntervalTimeExpX[0]);
  optional_real("IntervalTimeExpY", s.IntervalTimeExpY[0]);
  optional_real("IntervalTimeExpYIncr", s.IntervalTimeExpYIncr[0]);
  optional_real("RSSIDeltaToTriggerScan", s.RSSIDeltaToTriggerScan[0]);
  optional_real("MCSDeltaToTriggerScan", s.MCSDeltaToTriggerScan[0]);
  optional_int("WifiStatMonitorInterval", s.WifiStatMonitorInterval[0]);

  s.MaxRSSICollectCount = s.RSSICollectCount[0];
  s.current_sleep_interval[0] = s.BaseSleepIntervalBetweenEval[0];
  return SWITCH_OK;
}

}  // namespace zaltor::config
