// The simulated radio that moves: drift, periodic blockage, seeded fading, and rates that
// follow the RSSI through the MCS-like table when the scenario gives none.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "platform/clock.h"
#include "platform/sim/radio_model.h"
#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

Scenario load(const std::string& radio_patch) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  const std::string text = "{\"firmware\": {\"switchCount\": 2}, \"radio\": " + radio_patch + "}";
  EXPECT_TRUE(load_scenario(text, doc, s, error)) << error;
  return s;
}

std::string refusal(const std::string& radio_patch) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  EXPECT_FALSE(load_scenario("{\"radio\": " + radio_patch + "}", doc, s, error));
  return error;
}

TEST(SimRadio, WithoutNewMembersEveryReadingIsTheScenarioValue) {
  const Scenario s = load(R"({"rssi": [{"Main": -55, "Div": -62}, {"Main": -70, "Div": -58}]})");
  for (double t : {0.0, 10.0, 5000.0}) {
    EXPECT_EQ(port_rssi_at(s, 0, 0, t), -55);
    EXPECT_EQ(port_rssi_at(s, 0, 1, t), -62);
    EXPECT_EQ(port_rssi_at(s, 1, 1, t), -58);
    EXPECT_EQ(port_rssi_at(s, 1, 2, t), kNoSignalDbm);
  }
  EXPECT_FALSE(s.rate_from_rssi);
  EXPECT_EQ(mode_rate_at(s, 3, 2, 0), s.rate_mbps[2]);
}

TEST(SimRadio, AReadingWeakerThanMinus95IsPublishedAsItIsNotAsNoSignal) {
  // Only -95 itself marks a silent antenna; a scenario's -100 stays -100, as it always read.
  const Scenario s = load(R"({"rssi": [{"Main": -100, "Div": -62}, {"Main": -95, "Div": -58}]})");
  EXPECT_EQ(port_rssi_at(s, 0, 0, 0), -100);
  EXPECT_EQ(port_rssi_at(s, 1, 0, 0), kNoSignalDbm);
}

TEST(SimRadio, DriftMovesEveryPortLinearlyUntilItsLimit) {
  const Scenario s = load(R"({"rssi": [{"Main": -50, "Div": -60}, {"Main": -95, "Div": -95}],
      "drift": {"start": 60, "dbPerMinute": -6, "limitDbm": -80}})");
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 0, 0, 30), -50);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 0, 0, 120), -56);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 0, 1, 120), -66);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 0, 0, 6000), -80);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 0, 1, 6000), -80);
  EXPECT_EQ(port_rssi_at(s, 1, 0, 120), kNoSignalDbm);  // no signal stays no signal

  const Scenario back = load(R"({"rssi": [{"Main": -80, "Div": -60}, {"Main": -95, "Div": -95}],
      "drift": {"start": 0, "dbPerMinute": 3, "limitDbm": -55}})");
  EXPECT_DOUBLE_EQ(port_rssi_at(back, 0, 0, 600), -55);
  EXPECT_DOUBLE_EQ(port_rssi_at(back, 0, 1, 60), -57);
}

TEST(SimRadio, BlockageTakesItsLossForItsDurationEveryPeriod) {
  const Scenario s = load(R"({"rssi": [{"Main": -50, "Div": -50}, {"Main": -60, "Div": -60}],
      "blockage": [{"port": 1, "period": 60, "duration": 10, "offset": 5, "lossDb": 20},
                   {"port": 0, "position": "Div", "period": 30, "duration": 30, "lossDb": 3}]})");
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 1, 0, 4.9), -60);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 1, 0, 5), -80);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 1, 1, 14.9), -80);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 1, 0, 15), -60);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 1, 0, 66), -80);
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 0, 0, 6), -50);  // only port 0's Div element is blocked
  EXPECT_DOUBLE_EQ(port_rssi_at(s, 0, 1, 6), -53);
}

TEST(SimRadio, FadingIsSeededBoundedAndMoves) {
  const std::string radio =
      R"({"rssi": [{"Main": -60, "Div": -60}, {"Main": -60, "Div": -60}], "seed": 7,
      "fading": {"depthDb": 6, "periodSeconds": 20}})";
  const Scenario a = load(radio);
  const Scenario b = load(radio);
  nlohmann::json other = nlohmann::json::parse(radio);
  other["seed"] = 8;
  const Scenario c = load(other.dump());
  double lo = 200, hi = -200, sum = 0;
  bool differs = false;
  const int n = 2000;
  for (int i = 0; i < n; ++i) {
    const double t = i * 0.5;
    const double v = port_rssi_at(a, 0, 0, t);
    EXPECT_EQ(v, port_rssi_at(b, 0, 0, t));
    differs = differs || std::fabs(v - port_rssi_at(c, 0, 0, t)) > 0.5;
    lo = std::min(lo, v);
    hi = std::max(hi, v);
    sum += v;
  }
  EXPECT_TRUE(differs);
  // The two elements of a port fade independently.
  EXPECT_NE(port_rssi_at(a, 0, 0, 3.0) - port_rssi_at(a, 0, 1, 3.0), 0.0);
  EXPECT_GE(lo, -66.0001);
  EXPECT_LE(hi, -53.9999);
  EXPECT_GT(hi - lo, 6.0);
  EXPECT_NEAR(sum / n, -60, 1.0);
}

TEST(SimRadio, RateFollowsTheRssiWithoutRateMbps) {
  EXPECT_EQ(rate_for_rssi(-40), 780.0);
  EXPECT_EQ(rate_for_rssi(-60), 585.0);
  EXPECT_EQ(rate_for_rssi(-72), 234.0);
  EXPECT_EQ(rate_for_rssi(-88), 29.3);
  EXPECT_EQ(rate_for_rssi(-95), 0.0);
  // A scenario removes the default rates with null.
  const Scenario s = load(R"({"rssi": [{"Main": -50, "Div": -75}, {"Main": -70, "Div": -95}],
      "rateMbps": null})");
  EXPECT_TRUE(s.rate_from_rssi);
  EXPECT_DOUBLE_EQ(mode_rssi_at(s, 1, 2, 0), -60);  // Main/Main: mean of -50 and -70
  EXPECT_DOUBLE_EQ(mode_rssi_at(s, 4, 2, 0), -75);  // Div/Div: port 1 has no signal
  EXPECT_EQ(mode_rate_at(s, 1, 2, 0), 585.0);
  EXPECT_EQ(mode_rate_at(s, 4, 2, 0), 175.5);
}

TEST(SimRadio, CountersPublishTheMovingRadioAtTheNotebooksTime) {
  std::string error;
  auto nb = make_sim_notebook_from_text(R"({"clock": {"mode": "virtual"},
      "firmware": {"switchCount": 2, "lines": 51}, "counters": {"A": 0},
      "radio": {"rssi": [{"Main": -50, "Div": -50}, {"Main": -60, "Div": -60}], "noise": 0,
                "rateMbps": null, "drift": {"start": 0, "dbPerMinute": -10, "limitDbm": -90}}})",
                                        error);
  ASSERT_NE(nb, nullptr) << error;
  ClockAttachment attached(nb->clock());
  uint32_t err = 0;
  auto q = nb->counters().open_query(err);
  ASSERT_NE(q, nullptr);
  CounterId a = 0;
  CounterId bw = 0;
  ASSERT_EQ(q->add_counter("\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna A", a), 0u);
  ASSERT_EQ(q->add_counter("\\Network Interface(Wireless AX [R2] 160MHz)\\Current Bandwidth", bw),
            0u);
  nb->clock().sleep_ms(60000 - nb->clock().now_ms() - kHardwareCallMs);
  ASSERT_EQ(q->collect(), 0u);  // at 60 s: -60 and -70, mean -65
  int64_t v = 0;
  ASSERT_EQ(q->formatted_large(a, v), 0u);
  EXPECT_EQ(v, 60);
  ASSERT_EQ(q->formatted_large(bw, v), 0u);
  EXPECT_EQ(v, 526500000);
}

TEST(SimRadio, WrongMovingMembersAreRefusedByName) {
  EXPECT_NE(refusal(R"({"drift": {"start": 0}})").find("radio.drift.dbPerMinute"),
            std::string::npos);
  EXPECT_NE(refusal(R"({"drift": {"start": 0, "dbPerMinute": 1, "limitDbm": 5}})")
                .find("radio.drift.limitDbm"),
            std::string::npos);
  EXPECT_NE(refusal(R"({"blockage": [{"port": 9, "period": 1, "duration": 1, "lossDb": 1}]})")
                .find("radio.blockage[0].port"),
            std::string::npos);
  EXPECT_NE(refusal(R"({"blockage": [{"port": 0, "period": 0, "duration": 0, "lossDb": 1}]})")
                .find("radio.blockage[0].period"),
            std::string::npos);
  EXPECT_NE(refusal(R"({"blockage": [{"port": 0, "position": "Aux", "period": 1, "duration": 1,
                                        "lossDb": 1}]})")
                .find("radio.blockage[0].position"),
            std::string::npos);
  EXPECT_NE(refusal(R"({"fading": {"depthDb": 99}})").find("radio.fading.depthDb"),
            std::string::npos);
  EXPECT_NE(refusal(R"({"fading": {"depth": 3}})").find("radio.fading.depth"), std::string::npos);
}

}  // namespace
}  // namespace zaltor::platform::sim
