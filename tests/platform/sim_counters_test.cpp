// The simulated performance counters: RSSI per switch position, link rate per mode.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/sim/sim_notebook.h"

namespace zaltor::platform::sim {
namespace {

constexpr const char* kRssiA = "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna A";
constexpr const char* kRssiB = "\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna B";
constexpr const char* kBandwidth =
    "\\Network Interface(Wireless AX [R2] 160MHz)\\Current Bandwidth";
constexpr const char* kBytes = "\\Network Interface(Wireless AX [R2] 160MHz)\\Bytes Total/sec";

class SimCounters : public ::testing::Test {
 protected:
  void make(const std::string& text) {
    std::string error;
    nb_ = make_sim_notebook_from_text(text, error);
    ASSERT_NE(nb_, nullptr) << error;
    uint32_t err = 1;
    query_ = nb_->counters().open_query(err);
    ASSERT_NE(query_, nullptr);
    EXPECT_EQ(err, 0u);
  }
  CounterId add(const char* path) {
    CounterId id = 0;
    EXPECT_EQ(query_->add_counter(path, id), 0u) << path;
    EXPECT_NE(id, 0u);
    return id;
  }
  int64_t read(CounterId id) {
    int64_t v = -1;
    EXPECT_EQ(query_->formatted_large(id, v), 0u);
    return v;
  }
  void set_lines(uint32_t lines) {
    std::string error;
    ASSERT_TRUE(nb_->apply_patch({{"firmware", {{"lines", lines}}}}, error)) << error;
  }
  std::unique_ptr<SimNotebook> nb_;
  std::unique_ptr<CounterQuery> query_;
};

TEST_F(SimCounters, RssiFollowsTheSwitchPositionOfItsPort) {
  make("");  // port 0: Main -55, Div -62; port 1: Main -70, Div -58
  const CounterId a = add(kRssiA);
  const CounterId b = add(kRssiB);
  set_lines(0x33);  // both Main
  ASSERT_EQ(query_->collect(), 0u);
  EXPECT_EQ(read(a), 55);
  EXPECT_EQ(read(b), 70);
  set_lines(0x11);  // switch 0 Main, switch 1 Div
  ASSERT_EQ(query_->collect(), 0u);
  EXPECT_EQ(read(a), 55);
  EXPECT_EQ(read(b), 58);
  set_lines(0x00);  // both Div
  ASSERT_EQ(query_->collect(), 0u);
  EXPECT_EQ(read(a), 62);
  EXPECT_EQ(read(b), 58);
}

TEST_F(SimCounters, ASwitchInNeitherPositionReadsNoSignal) {
  make("");
  const CounterId a = add(kRssiA);
  const CounterId b = add(kRssiB);
  set_lines(0x31);  // switch 0 Main; switch 1: X = 0, Y = 1
  ASSERT_EQ(query_->collect(), 0u);
  EXPECT_EQ(read(a), 55);
  EXPECT_EQ(read(b), 95);
}

TEST_F(SimCounters, ValuesAreSampledAtCollectionNotAtRead) {
  make("");
  const CounterId a = add(kRssiA);
  set_lines(0x33);
  ASSERT_EQ(query_->collect(), 0u);
  set_lines(0x00);
  EXPECT_EQ(read(a), 55) << "the last sample stands until the next collection";
  ASSERT_EQ(query_->collect(), 0u);
  EXPECT_EQ(read(a), 62);
}

TEST_F(SimCounters, LinkRateFollowsTheModeTheSwitchesForm) {
  make("");  // rates 866.7, 650.0, 780.0, 400.0
  const CounterId bw = add(kBandwidth);
  const CounterId bytes = add(kBytes);
  const std::vector<std::pair<uint32_t, int64_t>> cases = {
      {0x33, 866700000}, {0x22, 650000000}, {0x11, 780000000}, {0x00, 400000000}, {0x31, 0}};
  for (const auto& [lines, rate] : cases) {
    set_lines(lines);
    ASSERT_EQ(query_->collect(), 0u);
    EXPECT_EQ(read(bw), rate) << "lines " << lines;
    EXPECT_EQ(read(bytes), 12000000);
  }
}

TEST_F(SimCounters, ASecondAdapterOfAKindIsPublishedWithAnUnderscore) {
  make(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) #2",
            "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": true, "channel": 36}]}})");
  const CounterId bytes = add("\\Network Interface(Wireless AX [R2] _2)\\Bytes Total/sec");
  const CounterId bw = add("\\Network Interface(Wireless AX [R2] _2)\\Current Bandwidth");
  ASSERT_EQ(query_->collect(), 0u);
  EXPECT_GT(read(bytes), 0);
  EXPECT_GT(read(bw), 0);
}

TEST_F(SimCounters, ADisconnectedInterfaceCarriesNothing) {
  make(R"({"wlan": {"interfaces": [{"description": "Wireless AX (R2) 160MHz",
            "guid": "{6A1B2C3D-1111-2222-3333-444455556666}", "connected": false, "channel": 36}]}})");
  const CounterId bw = add(kBandwidth);
  const CounterId bytes = add(kBytes);
  ASSERT_EQ(query_->collect(), 0u);
  EXPECT_EQ(read(bw), 0);
  EXPECT_EQ(read(bytes), 0);
}

TEST_F(SimCounters, UnknownPathsFailToAddAsWindowsWould) {
  make(R"({"counters": {"B": null}})");  // an object is merged: null removes a letter
  CounterId id = 5;
  EXPECT_EQ(query_->add_counter("\\Intel-Wifi- Rssi Per Antenna\\Rssi Antenna B", id), 0xC0000BB9u);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(query_->add_counter("\\Network Interface(x)\\Packets/sec", id), 0xC0000BB9u);
  EXPECT_EQ(query_->add_counter("\\No Such Object\\Rssi Antenna A", id), 0xC0000BB8u);
  EXPECT_EQ(query_->add_counter("garbage", id), 0xC0000BC0u);
  EXPECT_EQ(id, 0u);
}

TEST_F(SimCounters, WithoutCounterLettersTheRssiObjectDoesNotExist) {
  make(R"({"counters": {"A": null, "B": null}})");
  CounterId id = 0;
  EXPECT_EQ(query_->add_counter(kRssiA, id), 0xC0000BB8u);
}

TEST_F(SimCounters, AnUnknownInterfaceAddsButHasNoData) {
  make("");
  const CounterId bw = add("\\Network Interface(Wireless AX (R2) 160MHz)\\Current Bandwidth");
  ASSERT_EQ(query_->collect(), 0u);
  int64_t v = 0;
  EXPECT_EQ(query_->formatted_large(bw, v), 0xC0000BC6u) << "the instance name uses brackets";
}

TEST_F(SimCounters, ReadsBeforeTheFirstCollectionAndBadHandlesFail) {
  make("");
  const CounterId a = add(kRssiA);
  int64_t v = 0;
  EXPECT_EQ(query_->formatted_large(a, v), 0xC0000BC6u);
  EXPECT_EQ(query_->formatted_large(0, v), 0xC0000BBCu);
  EXPECT_EQ(query_->formatted_large(a + 1, v), 0xC0000BBCu);
}

TEST_F(SimCounters, AnEmptyQueryHasNoData) {
  make("");
  EXPECT_EQ(query_->collect(), 0x800007D5u);
}

TEST_F(SimCounters, NoiseIsSeededAndDeterministic) {
  const char* text = R"({"radio": {"noise": 3.0, "seed": 42}})";
  auto sample = [&](const char* scenario) {
    make(scenario);
    const CounterId a = add(kRssiA);
    std::vector<int64_t> values;
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(query_->collect(), 0u);
      values.push_back(read(a));
    }
    return values;
  };
  const auto first = sample(text);
  EXPECT_EQ(sample(text), first);
  EXPECT_NE(sample(R"({"radio": {"noise": 3.0, "seed": 43}})"), first);
  double mean = 0;
  bool varies = false;
  for (int64_t v : first) {
    mean += static_cast<double>(v) / static_cast<double>(first.size());
    varies = varies || v != first[0];
  }
  EXPECT_TRUE(varies);
  EXPECT_NEAR(mean, 55.0, 2.0);
}

TEST_F(SimCounters, NoSignalStaysExactUnderNoise) {
  make(
      R"({"radio": {"noise": 5.0, "rssi": [{"Main": -95, "Div": -95}, {"Main": -70, "Div": -58}]}})");
  const CounterId a = add(kRssiA);
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(query_->collect(), 0u);
    EXPECT_EQ(read(a), 95);
  }
}

TEST_F(SimCounters, ACounterLetterRemovedLaterHasNoData) {
  make("");
  const CounterId b = add(kRssiB);
  std::string error;
  ASSERT_TRUE(nb_->apply_patch(nlohmann::json::parse(R"({"counters": {"B": null}})"), error))
      << error;
  ASSERT_EQ(query_->collect(), 0u);
  int64_t v = 0;
  EXPECT_EQ(query_->formatted_large(b, v), 0xC0000BC6u);
}

}  // namespace
}  // namespace zaltor::platform::sim
