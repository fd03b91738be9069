#include "lab/lab_fixture.h"

#include "rig/notebook_rig.h"

#include <cstdio>

namespace zaltor::lab::testing {

std::string scenario_text(int stop_after_s, const std::string& radio, const std::string& extra) {
  std::string s = "{\"stopAfter\": " + std::to_string(stop_after_s) + R"(,
    "board": {"products": ["AB12XY"]},
    "firmware": {"switchCount": 2, "lines": 51},
    "wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
             "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": true, "channel": 6}]},
    "bluetooth": {"BTHENUM": [], "BTHLE": []},
    "counters": {"A": 0, "B": 1},
    "radio": )" + radio;
  if (!extra.empty()) s += ", " + extra;
  return s + "}";
}

std::string config_text(double weight2) {
  char w[32];
  std::snprintf(w, sizeof w, "%.2f", weight2);
  return std::string(R"ini([Version]
TargetVersionMajor=2
TargetVersionMinor=0

[Settings.AB12]
ForceUseModeSwitching=1
AutoModeRunCount=0
DeterminatorMode=1
BaseSleepIntervalBetweenEval=60000
RSSICollectInterval=1000
RSSICollectCount=3
TimeToWaitForRSSIStable=1000
DefaultMode=1
RSSIThresholdForSwitchToDefaultMode=-85.0
RSSIWeightForMode_1=0.0
RSSIWeightForMode_2=)ini") +
         w + R"ini(
RSSIWeightForMode_3=0.0
RSSIWeightForMode_4=0.0
DisableMode_1=0
DisableMode_2=0
DisableMode_3=0
DisableMode_4=0
DeterminatorStableTimesForExp=0
IntervalTimeExpX=2.0
IntervalTimeExpY=0.0
IntervalTimeExpYIncr=1.0
WifiStatMonitorInterval=5000
RSSIDeltaToTriggerScan=10.0
MCSDeltaToTriggerScan=1000.0

)ini" + rig::two_switch_gpio();
}

RunResult run_lab(const std::string& scenario, const std::string& config) {
  return run_one_text(scenario, "test.json", std::vector<uint8_t>(config.begin(), config.end()),
                      "test.ini", "AB12XY");
}

}  // namespace zaltor::lab::testing
