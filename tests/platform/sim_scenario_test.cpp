// Loading scenarios: the default, merging a file over it, and refusing every mistake with
// a message that names the member.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "platform/sim/scenario.h"
#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

Scenario load_ok(const std::string& text) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  EXPECT_TRUE(load_scenario(text, doc, s, error)) << error;
  return s;
}

std::string load_error(const std::string& text) {
  nlohmann::json doc;
  Scenario s;
  std::string error;
  EXPECT_FALSE(load_scenario(text, doc, s, error)) << text;
  return error;
}

TEST(SimScenario, DefaultIsATwoSwitchAB12XYNotebookOnChannel36) {
  const Scenario s = load_ok("");
  EXPECT_EQ(s.clock_mode, "scaled");
  EXPECT_DOUBLE_EQ(s.speed, 4.0);
  EXPECT_FALSE(s.stop_after_s.has_value());
  EXPECT_EQ(s.products, std::vector<std::string>{"AB12XY"});
  EXPECT_FALSE(s.query_error.has_value());
  EXPECT_TRUE(s.firmware.present);
  EXPECT_EQ(s.firmware.switch_count, 2u);
  EXPECT_EQ(s.firmware.lines, 0x33u);  // both switches in "Main"
  EXPECT_EQ(s.firmware.extra_bits, 0u);
  EXPECT_EQ(s.firmware.control_result, 1u);
  ASSERT_EQ(s.pci_nics.size(), 1u);
  EXPECT_NE(s.pci_nics[0].hardware_id->find("VEN_8086"), std::string::npos);
  EXPECT_EQ(*s.pci_nics[0].description, "Wireless AX (R2)");
  ASSERT_EQ(s.interfaces.size(), 1u);
  EXPECT_EQ(s.interfaces[0].description, "Wireless AX (R2) 160MHz");
  EXPECT_TRUE(s.interfaces[0].connected);
  EXPECT_EQ(s.interfaces[0].channel, 36u);
  ASSERT_EQ(s.bluetooth.at("BTHENUM").size(), 1u);
  EXPECT_TRUE(s.bluetooth.at("BTHENUM")[0].connected);
  EXPECT_TRUE(s.bluetooth.at("BTHLE").empty());
  EXPECT_TRUE(s.lid_notifications);
  EXPECT_TRUE(s.lid_open);
  EXPECT_EQ(s.power_source, 0u);
  EXPECT_EQ(s.counters, (std::map<char, int>{{'A', 0}, {'B', 1}}));
  ASSERT_EQ(s.rate_mbps.size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    for (size_t j = i + 1; j < 4; ++j) EXPECT_NE(s.rate_mbps[i], s.rate_mbps[j]);
  }
  // A signal drop, then the lid closes and opens again, all a few minutes in.
  ASSERT_EQ(s.timeline.size(), 3u);
  EXPECT_TRUE(s.timeline[0].patch.contains("radio"));
  EXPECT_EQ(s.timeline[1].patch["lid"]["open"], false);
  EXPECT_EQ(s.timeline[2].patch["lid"]["open"], true);
  EXPECT_LT(s.timeline[0].at_s, s.timeline[1].at_s);
  EXPECT_LT(s.timeline[1].at_s, s.timeline[2].at_s);
  EXPECT_LE(s.timeline[2].at_s, 600);
}

TEST(SimScenario, AFileIsMergedOverTheDefault) {
  const Scenario s = load_ok(R"({"firmware": {"extraBits": 131072}, "clock": {"mode": "virtual"},
                                 "stopAfter": 90, "board": {"queryError": "0x80041003"}})");
  EXPECT_EQ(s.firmware.extra_bits, 131072u);
  EXPECT_TRUE(s.firmware.present);
  EXPECT_EQ(s.firmware.switch_count, 2u);
  EXPECT_EQ(s.clock_mode, "virtual");
  EXPECT_DOUBLE_EQ(s.speed, 4.0);
  ASSERT_TRUE(s.stop_after_s.has_value());
  EXPECT_DOUBLE_EQ(*s.stop_after_s, 90);
  ASSERT_TRUE(s.query_error.has_value());
  EXPECT_EQ(static_cast<uint32_t>(*s.query_error), 0x80041003u);
  EXPECT_EQ(s.products, std::vector<std::string>{"AB12XY"});
}

TEST(SimScenario, ArraysAreReplacedWhole) {
  const Scenario s =
      load_ok(R"({"radio": {"rssi": [{"Main": -40, "Div": -41}, {"Main": -42, "Div": -43},
                                                    {"Main": -44, "Div": -45}]},
                                 "bluetooth": {"BTHLE": [{"hardwareId": "BTHLE\\Dev_a", "connected": false}]},
                                 "timeline": []})");
  ASSERT_EQ(s.rssi.size(), 3u);
  EXPECT_EQ(s.rssi[2].div, -45);
  EXPECT_EQ(s.bluetooth.at("BTHENUM").size(), 1u) << "the other enumerator keeps its default";
  ASSERT_EQ(s.bluetooth.at("BTHLE").size(), 1u);
  EXPECT_FALSE(s.bluetooth.at("BTHLE")[0].connected);
  EXPECT_FALSE(s.bluetooth.at("BTHLE")[0].description.has_value());
  EXPECT_TRUE(s.timeline.empty());
}

TEST(SimScenario, TimelineIsOrderedByTime) {
  const Scenario s = load_ok(R"({"timeline": [{"at": 30, "patch": {"power": {"source": 1}}},
                                              {"at": 10, "patch": {"lid": {"open": false}}},
                                              {"at": 30, "patch": {"power": {"source": 0}}}]})");
  ASSERT_EQ(s.timeline.size(), 3u);
  EXPECT_DOUBLE_EQ(s.timeline[0].at_s, 10);
  EXPECT_EQ(s.timeline[1].patch["power"]["source"], 1);
  EXPECT_EQ(s.timeline[2].patch["power"]["source"], 0);
}

struct BadCase {
  const char* text;
  const char* message;
};

class SimScenarioErrors : public ::testing::TestWithParam<BadCase> {};

TEST_P(SimScenarioErrors, AreRefusedNamingTheMember) {
  const std::string error = load_error(GetParam().text);
  EXPECT_EQ(error.rfind(GetParam().message, 0), 0u) << "got: " << error;
}

INSTANTIATE_TEST_SUITE_P(
    Members, SimScenarioErrors,
    ::testing::Values(
        BadCase{"{bad", "scenario: not valid JSON: "},
        BadCase{"[1]", "scenario: expected an object at the top level"},
        BadCase{R"({"bogus": 1})", "scenario: bogus: unknown member"},
        BadCase{R"({"firmware": {"sparkle": true}})", "scenario: firmware.sparkle: unknown member"},
        BadCase{R"({"firmware": {"present": 1}})",
                "scenario: firmware.present: expected true or false"},
        BadCase{R"({"firmware": {"switchCount": 256}})",
                "scenario: firmware.switchCount: expected an integer from 0 to 255"},
        BadCase{R"({"firmware": {"lines": -1}})", "scenario: firmware.lines: expected an integer"},
        BadCase{R"({"firmware": {"lines": 1.5}})", "scenario: firmware.lines: expected an integer"},
        BadCase{R"({"firmware": {"extraBits": 65536}})",
                "scenario: firmware.extraBits: only bits 17-31"},
        BadCase{R"({"firmware": {"controlResult": "one"}})", "scenario: firmware.controlResult: "},
        BadCase{R"({"radio": {"rssi": [{"Main": -50, "Div": -60}, {"Main": -50, "Div": -60},
                                       {"Main": "x", "Div": -60}]}})",
                "scenario: radio.rssi[2].Main: expected an integer from -127 to 0"},
        BadCase{R"({"radio": {"rssi": [{"Main": -50}]}})", "scenario: radio.rssi[0].Div: missing"},
        BadCase{R"({"radio": {"noise": -1}})", "scenario: radio.noise: "},
        BadCase{R"({"radio": {"rateMbps": [1, "x"]}})", "scenario: radio.rateMbps[1]: "},
        BadCase{R"({"radio": {"throughputBps": -5}})", "scenario: radio.throughputBps: "},
        BadCase{R"({"counters": {"AB": 0}})",
                "scenario: counters.AB: a counter is named by one letter"},
        BadCase{R"({"counters": {"1": 0}})",
                "scenario: counters.1: a counter is named by one letter"},
        BadCase{R"({"counters": {"C": 4}})",
                "scenario: counters.C: expected an integer from 0 to 3"},
        BadCase{R"({"counters": {"C": 2}})",
                "scenario: counters.C: antenna port 2 has no radio.rssi entry"},
        BadCase{R"({"counters": []})", "scenario: counters: expected an object"},
        BadCase{R"({"clock": {"mode": "fast"}})", "scenario: clock.mode: "},
        BadCase{R"({"clock": {"speed": 0}})", "scenario: clock.speed: "},
        BadCase{R"({"stopAfter": "soon"})", "scenario: stopAfter: expected a number"},
        BadCase{R"({"board": {"products": "AB12XY"}})",
                "scenario: board.products: expected an array"},
        BadCase{R"({"board": {"products": [7]}})",
                "scenario: board.products[0]: expected a string"},
        BadCase{R"({"board": {"queryError": "80041003"}})", "scenario: board.queryError: "},
        BadCase{R"({"board": {"queryError": "0x00000001"}})", "scenario: board.queryError: "},
        BadCase{R"({"pciNics": [{"hardwareId": 5}]})",
                "scenario: pciNics[0].hardwareId: expected a string"},
        BadCase{R"({"wlan": {"interfaces": [{"description": "x"}]}})",
                "scenario: wlan.interfaces[0].guid: missing"},
        BadCase{R"({"wlan": {"interfaces": [{"description": "x", "guid": "nope"}]}})",
                "scenario: wlan.interfaces[0].guid: expected a GUID"},
        BadCase{
            R"({"wlan": {"interfaces": [{"description": "x", "guid": "{6A1B2C3D-1111-2222-3333-444455556666}",
                                             "channel": -3}]}})",
            "scenario: wlan.interfaces[0].channel: "},
        BadCase{R"({"bluetooth": {"BTHXX": []}})", "scenario: bluetooth.BTHXX: unknown member"},
        BadCase{R"({"bluetooth": {"BTHLE": [{"connected": "yes"}]}})",
                "scenario: bluetooth.BTHLE[0].connected: expected true or false"},
        BadCase{R"({"power": {"source": 3}})", "scenario: power.source: "},
        BadCase{R"({"lid": {"open": null}})", "scenario: lid.open: missing"},
        BadCase{R"({"timeline": {}})", "scenario: timeline: expected an array"},
        BadCase{R"({"timeline": [{"at": -1, "patch": {}}]})", "scenario: timeline[0].at: "},
        BadCase{R"({"timeline": [{"at": 1}]})", "scenario: timeline[0].patch: missing"},
        BadCase{R"({"timeline": [{"at": 1, "patch": {"clock": {"mode": "virtual"}}}]})",
                "scenario: timeline[0].patch.clock: cannot change while the notebook runs"},
        BadCase{
            R"({"timeline": [{"at": 10, "patch": {}},
                                 {"at": 5, "patch": {"radio": {"rssi": [{"Main": -50, "Div": 5}]}}}]})",
            "scenario: timeline[1].patch: radio.rssi[0].Div: expected an integer from -127 to 0"},
        BadCase{
            R"({"timeline": [{"at": 1, "patch": {"radio": {"rssi": [{"Main": -50, "Div": -60}]}}}]})",
            "scenario: timeline[0].patch: counters.B: antenna port 1 has no radio.rssi entry"}));

TEST(SimScenario, MakeNotebookReportsAnUnreadableFile) {
  std::string error;
  EXPECT_EQ(make_sim_notebook("/nonexistent/dir/scenario.json", error), nullptr);
  EXPECT_EQ(error, "scenario: cannot read /nonexistent/dir/scenario.json");
}

TEST(SimScenario, MakeNotebookReadsAFileAndRefusesABadOne) {
  const std::string path = ::testing::TempDir() + "sim_scenario_test.json";
  {
    std::ofstream f(path);
    f << R"({"clock": {"mode": "virtual"}, "firmware": {"switchCount": 1, "lines": 17}})";
  }
  std::string error;
  auto nb = make_sim_notebook(path, error);
  ASSERT_NE(nb, nullptr) << error;
  EXPECT_EQ(nb->lines(), 17u);
  EXPECT_EQ(nb->mode(), 1);
  {
    std::ofstream f(path);
    f << R"({"radio": {"rssi": [{"Main": -50, "Div": -60}, {"Main": -50, "Div": -60}, {"Main": 3, "Div": -60}]}})";
  }
  EXPECT_EQ(make_sim_notebook(path, error), nullptr);
  EXPECT_EQ(error.rfind("scenario: radio.rssi[2].Main: ", 0), 0u) << error;
  {
    std::ofstream f(path);  // empty: every default
  }
  EXPECT_NE(make_sim_notebook(path, error), nullptr) << error;
  std::remove(path.c_str());
}

TEST(SimScenario, MakeNotebookWithoutAFileUsesTheDefault) {
  std::string error;
  auto nb = make_sim_notebook("", error);
  ASSERT_NE(nb, nullptr) << error;
  EXPECT_EQ(nb->scenario().products, std::vector<std::string>{"AB12XY"});
}

}  // namespace
}  // namespace zaltor::platform::sim
