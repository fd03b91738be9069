// The cost of loading a large plain configuration at service start:
// - bm_load_ten_megabyte_configuration: one whole configuration load (version, switch mapping,
//   default and override settings) over the Linux file system and INI reader, from a
//   "Conf.ini" of about 10 MB whose model sections come last, with a fresh reader each
//   time as at a service start. The reader parses the file once per load; the load must
//   stay well under a second.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "config/config_loader.h"
#include "platform/log.h"
#include "platform/posix/posix_backends.h"
#include "platform/program_directory_files.h"

namespace zaltor::config {
namespace {

constexpr size_t kTargetBytes = 10u << 20;

class NullLog final : public Log {
 public:
  void vwrite(uint8_t, const char*, va_list) override {}
};

class NullConsole final : public Console {
 public:
  void write(std::string_view) override {}
};

// Sections of other models with every settings key and a long tail of notes, until the
// text reaches `bytes` (about 2,000 sections: the section list stays within what the loader
// takes); then the model's own sections and one override set.
std::string large_configuration(size_t bytes) {
  std::string text = "[Version]\nTargetVersionMajor=2\nTargetVersionMinor=0\n";
  for (int n = 0; text.size() < bytes; ++n) {
    text += "[Settings.ZZ" + std::to_string(n) + "QX]\n";
    text += "BaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\nRSSICollectCount=3\n";
    text += "TimeToWaitForRSSIStable=2000\nDefaultMode=1\n";
    text += "RSSIThresholdForSwitchToDefaultMode=-85.0\n";
    for (int m = 1; m <= 16; ++m) {
      text += "RSSIWeightForMode_" + std::to_string(m) + "=0.5\n";
      text += "DisableMode_" + std::to_string(m) + "=0\n";
    }
    for (int k = 0; k < 80; ++k) {
      text += "Note_" + std::to_string(k) + "=measured in the lab on a bench with the lid open\n";
    }
  }
  text +=
      "[Settings.AB12]\nBaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\n"
      "RSSICollectCount=3\nTimeToWaitForRSSIStable=2000\nDefaultMode=1\n"
      "RSSIThresholdForSwitchToDefaultMode=-85.0\n"
      "[Settings.AB12.1]\nRSSICollectCount=5\n"
      "[Settings.AB12.GPIO]\nPort_Main_PCW=A\nPort_Aux_PCW=B\nSw_Main_ID=0\nSw_Aux_ID=1\n"
      "Sw_Main_Main_X=1\nSw_Main_Main_Y=1\nSw_Main_Div_X=0\nSw_Main_Div_Y=0\n"
      "Sw_Main_Off_X=1\nSw_Main_Off_Y=0\nSw_Aux_Main_X=1\nSw_Aux_Main_Y=1\n"
      "Sw_Aux_Div_X=0\nSw_Aux_Div_Y=0\nSw_Aux_Off_X=1\nSw_Aux_Off_Y=0\n";
  return text;
}

void bm_load_ten_megabyte_configuration(benchmark::State& state) {
  std::random_device rd;
  const auto dir =
      std::filesystem::temp_directory_path() / ("zaltor-config-bench-" + std::to_string(rd()));
  std::filesystem::create_directories(dir);
  const std::string text = large_configuration(kTargetBytes);
  {
    std::ofstream out(dir / "Conf.ini", std::ios::binary);
    out << text;
  }
  auto real_files = platform::make_posix_file_system();
  platform::ProgramDirectoryFiles files(*real_files, dir.string());
  auto crypto = platform::make_openssl_crypto();
  NullLog log;
  NullConsole console;
  for (auto _ : state) {
    auto profiles = platform::make_ini_profile_reader();  // a fresh start each time
    LoadContext ctx;
    ctx.files = &files;
    ctx.profiles = profiles.get();
    ctx.crypto = crypto.get();
    ctx.log = &log;
    ctx.console = &console;
    Configuration cfg;
    const Status st = load_configuration(ctx, "AB12XY", 2, cfg);
    if (st != SWITCH_OK || cfg.settings.RSSICollectCount[1] != 5) {
      state.SkipWithError("the configuration did not load");
      break;
    }
    benchmark::DoNotOptimize(cfg);
  }
  state.counters["bytes"] = static_cast<double>(text.size());
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
}
BENCHMARK(bm_load_ten_megabyte_configuration)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zaltor::config

BENCHMARK_MAIN();
