#include "config/config_report.h"

#include <algorithm>
#include <cstring>

#include "config/config_sets.h"
#include "config/settings_reader.h"
#include "platform/log.h"

namespace zaltor::config {
namespace {

const char* determinator_name(int32_t mode) {
  switch (mode) {
    case 1:
      return "RSSI";
    case 2:
      return "MCS";
    default:
      return "Hybrid";
  }
}

// What an integer conversion prints for a real argument on x64 Windows, where the real
// travels in a 64-bit slot and "%d" takes its low 32 bits.
int32_t low_bits_of(double v) {
  uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  return static_cast<int32_t>(static_cast<uint32_t>(bits & 0xFFFFFFFFu));
}

class Report {
 public:
  Report(Log& log, const Configuration& cfg) : log_(log), cfg_(cfg) {}

  const char* src(const std::string& key) const {
    const auto it = cfg_.sources.find(key);
    return it == cfg_.sources.end() ? "" : it->second.c_str();
  }

  template <typename... Args>
  void line(const char* fmt, Args... args) {
    if constexpr (sizeof...(Args) == 0) {
      log_.write(kLogDetail, "%s", fmt);
    } else {
      log_.write(kLogDetail, fmt, args...);
    }
  }

  void main_part(int modes, int ports) {
    const ConfigSettings& s = cfg_.settings;
    line("Service start.\n");
    line("Info:\n");
    line("ModeCount: %d\n", modes);
    line("SwitchCount: %d\n", ports);
    line("\n");
    line("Configuration:\n");
    line("[%s] AutoModeRunCount = %d%s\n", src("AutoModeRunCount"), s.AutoModeRunCount,
         s.AutoModeRunCount < 1 ? " (Infinite)" : "");
    line("[%s] ForceUseModeSwitching = %s\n", src("ForceUseModeSwitching"),
         s.ForceUseModeSwitching != 0 ? "True" : "False");
    line("[%s] DeterminatorMode = %d(%s)\n", src("DeterminatorMode"), s.DeterminatorMode,
         determinator_name(s.DeterminatorMode));
    line("\nRSSI Report Path / Port / Bit Mapping:\n");
    for (int i = 0; i < std::min(ports, platform::kMaxPorts); ++i) {
      const auto p = static_cast<size_t>(i);
      const std::string key = std::string("Port_") + platform::kPortNames[p] + "_PCW";
      line(" [%s] Mode Bit %d - %4s: Ctrl Bit = %d/%d, PCW Path = %s\n", src(key), i,
           platform::kPortNames[p], cfg_.switches.switch_id[p], cfg_.switches.switch_id[p] + 4,
           cfg_.switches.counter_path[p].c_str());
    }
    line("\n[%s] RSSICollectCount = %d\n", src("RSSICollectCount"), s.RSSICollectCount[0]);
    line("[%s] BaseSleepIntervalBetweenEval = %d\n", src("BaseSleepIntervalBetweenEval"),
         s.BaseSleepIntervalBetweenEval[0]);
    line("[%s] RSSICollectInterval = %d\n", src("RSSICollectInterval"), s.RSSICollectInterval[0]);
    line("[%s] TimeToWaitForRSSIStable = %d\n", src("TimeToWaitForRSSIStable"),
         s.TimeToWaitForRSSIStable[0]);
    line("[%s] RSSIThresholdForSwitchToDefaultMode = %.3lf\n",
         src("RSSIThresholdForSwitchToDefaultMode"), s.RSSIThresholdForSwitchToDefaultMode[0]);
    line("[%s] DefaultMode = %d\n", src("DefaultMode"), s.DefaultMode[0]);
    line("\n");
    fixed_keys(0, 0, "");
    line("\nRSSI Weights:\n");
    for (int m = 1; m <= modes; ++m) {
      line(" [%s] Mode_%d = %.2lf\n", src(weight_key(m)), m,
           s.rssi_weight_for_mode[0][static_cast<size_t>(m - 1)]);
    }
    line("\nDisabled Modes:\n");
    for (int m = 1; m <= modes; ++m) {
      line(" [%s] Mode_%d = %s\n", src(disable_key(m)), m,
           s.disable_mode[0][static_cast<size_t>(m - 1)] != 0 ? "YES" : "no");
    }
    line("\n");
  }

  // The seven keys that exist per set but are read from the plain sections. With set == 0
  // every line is written; otherwise only lines whose value differs from set 0's.
  int fixed_keys(int set, int written, const char*) {
    const ConfigSettings& s = cfg_.settings;
    const auto i = static_cast<size_t>(set);
    auto want = [&](auto a, auto b) { return set == 0 || a != b; };
    if (want(s.DeterminatorStableTimesForExp[i], s.DeterminatorStableTimesForExp[0])) {
      line("[%s] DeterminatorStableTimesForExp = %d\n", src("DeterminatorStableTimesForExp"),
           s.DeterminatorStableTimesForExp[i]);
      ++written;
    }
    struct Real {
      const char* fmt;
      const char* key;
      const PerSet<double>& v;
    };
    const Real reals1[] = {
        {"[%s] IntervalTimeExpX = %.3lf\n", "IntervalTimeExpX", s.IntervalTimeExpX},
        {"[%s] IntervalTimeExpY = %.3lf\n", "IntervalTimeExpY", s.IntervalTimeExpY},
        {"[%s] IntervalTimeExpYIncr = %.3lf\n", "IntervalTimeExpYIncr", s.IntervalTimeExpYIncr},
    };
    for (const Real& r : reals1) {
      if (want(r.v[i], r.v[0])) {
        line(r.fmt, src(r.key), r.v[i]);
        ++written;
      }
    }
    if (want(s.WifiStatMonitorInterval[i], s.WifiStatMonitorInterval[0])) {
      line("[%s] WifiStatMonitorInterval = %d\n", src("WifiStatMonitorInterval"),
           s.WifiStatMonitorInterval[i]);
      ++written;
    }
    const Real reals2[] = {
        {"[%s] RSSIDeltaToTriggerScan = %.3lf\n", "RSSIDeltaToTriggerScan",
         s.RSSIDeltaToTriggerScan},
        {"[%s] MCSDeltaToTriggerScan = %.3lf\n", "MCSDeltaToTriggerScan", s.MCSDeltaToTriggerScan},
    };
    for (const Real& r : reals2) {
      if (want(r.v[i], r.v[0])) {
        line(r.fmt, src(r.key), r.v[i]);
        ++written;
      }
    }
    return written;
  }

  void override_part(int modes) {
    const ConfigSettings& s = cfg_.settings;
    line("Additional overriden params:\n");
    for (int set = 1; set <= cfg_.last_found_set && set < kConfigSets; ++set) {
      const auto i = static_cast<size_t>(set);
      if (!cfg_.enabled[i]) continue;
      line("Config set %d [%s]:\n", set, set_label(set));
      int written = 0;
      auto key_of = [&](const char* name) { return format("%s.%d", name, set); };
      auto int_line = [&](const char* fmt, const char* name, const PerSet<int32_t>& v) {
        if (v[i] == v[0]) return;
        line(fmt, src(key_of(name)), v[i]);
        ++written;
      };
      int_line("[%s] GetRSSICollectCount = %d\n", "RSSICollectCount", s.RSSICollectCount);
      int_line("[%s] BaseSleepIntervalBetweenEval = %d\n", "BaseSleepIntervalBetweenEval",
               s.BaseSleepIntervalBetweenEval);
      int_line("[%s] RSSICollectInterval = %d\n", "RSSICollectInterval", s.RSSICollectInterval);
      int_line("[%s] TimeToWaitForRSSIStable = %d\n", "TimeToWaitForRSSIStable",
               s.TimeToWaitForRSSIStable);
      if (s.RSSIThresholdForSwitchToDefaultMode[i] != s.RSSIThresholdForSwitchToDefaultMode[0]) {
        line("[%s] RSSIThresholdForSwitchToDefaultMode = %d\n",
             src(key_of("RSSIThresholdForSwitchToDefaultMode")),
             low_bits_of(s.RSSIThresholdForSwitchToDefaultMode[i]));
        ++written;
      }
      int_line("[%s] DefaultMode = %d\n", "DefaultMode", s.DefaultMode);
      written = fixed_keys(set, written, "");

      bool heading = false;
      for (int m = 1; m <= modes; ++m) {
        const auto k = static_cast<size_t>(m - 1);
        if (s.rssi_weight_for_mode[i][k] == s.rssi_weight_for_mode[0][k]) continue;
        if (!heading) line("RSSI Weights:\n");
        heading = true;
        line(" [%s] Mode_%d = %.2lf\n", src(format("RSSIWeightForMode_%d.%d", m, set)), m,
             s.rssi_weight_for_mode[i][k]);
        ++written;
      }
      heading = false;
      for (int m = 1; m <= modes; ++m) {
        const auto k = static_cast<size_t>(m - 1);
        if (s.disable_mode[i][k] == s.disable_mode[0][k]) continue;
        if (!heading) line("Disabled Modes:\n");
        heading = true;
        line(" [%s] Mode_%d = %s\n", src(format("DisableMode_%d.%d", m, set)), m,
             s.disable_mode[i][k] != 0 ? "YES" : "no");
        ++written;
      }
      if (written == 0) line("<Identical to default settings.>\n");
    }
  }

 private:
  Log& log_;
  const Configuration& cfg_;
};

}  // namespace

void write_config_report(Log& log, const Configuration& cfg, uint32_t mode_count,
                         int32_t switch_count) {
  const int modes = static_cast<int>(std::min<uint32_t>(mode_count, kMaxModes));
  Report r(log, cfg);
  r.main_part(modes, switch_count);
  if (cfg.last_found_set != 0) r.override_part(modes);
  r.line("\n\n");
}

}  // namespace zaltor::config
