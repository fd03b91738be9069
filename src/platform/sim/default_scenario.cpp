// The built-in default scenario: a two-switch "AB12XY" notebook on a 5 GHz link, with a
// Bluetooth headset, running four times as fast as real time so that two decision passes
// show within a minute. A few minutes in, the main antenna's signal drops and the lid is
// closed and opened again.
#include "platform/sim/scenario.h"

namespace zaltor::platform::sim {

const char* default_scenario_text() {
  return R"json({
  "clock": { "mode": "scaled", "speed": 4.0 },
  "board": { "products": ["AB12XY"], "queryError": null },
  "firmware": {
    "openFails": false, "present": true, "switchCount": 2, "lines": 51,
    "extraBits": 0, "statusFails": false, "controlFails": false, "controlResult": 1,
    "shortReply": false
  },
  "pciNics": [
    { "hardwareId": "PCI\\VEN_8086&DEV_2725&SUBSYS_00248086",
      "description": "Wireless AX (R2)", "friendlyName": "Wireless AX (R2)" }
  ],
  "wlan": {
    "interfaces": [
      { "description": "Wireless AX (R2) 160MHz",
        "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": true, "channel": 36 }
    ]
  },
  "bluetooth": {
    "BTHENUM": [
      { "hardwareId": "BTHENUM\\Dev_001122334455", "description": "Headset",
        "friendlyName": "Headset", "connected": true }
    ],
    "BTHLE": []
  },
  "lid": { "notifications": true, "open": true },
  "power": { "source": 0 },
  "counters": { "A": 0, "B": 1 },
  "radio": {
    "rssi": [ { "Main": -55, "Div": -62 }, { "Main": -70, "Div": -58 } ],
    "noise": 0.0, "seed": 1,
    "rateMbps": [ 866.7, 650.0, 780.0, 400.0 ],
    "throughputBps": 12000000
  },
  "timeline": [
    { "at": 150, "patch": { "radio": { "rssi": [ { "Main": -78, "Div": -62 }, { "Main": -70, "Div": -58 } ] } } },
    { "at": 240, "patch": { "lid": { "open": false } } },
    { "at": 300, "patch": { "lid": { "open": true } } }
  ]
})json";
}

}  // namespace zaltor::platform::sim
