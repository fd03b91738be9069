// Fuzzes the Linux INI reader together with the configuration load and the configuration
// report: each input is written as "Conf.ini" into a program directory of its own, loaded
// for a model over the Linux file system, INI reader and OpenSSL, and, when it loads, its
// report is written to a log that formats every line and drops it.
#include <unistd.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "config/config_loader.h"
#include "config/config_report.h"
#include "platform/log.h"
#include "platform/posix/posix_backends.h"
#include "support/program_dir_files.h"

namespace {

using namespace zaltor;

class DroppingLog final : public Log {
 public:
  void vwrite(uint8_t, const char* fmt, va_list ap) override { (void)vformat(fmt, ap); }
};

class NullConsole final : public Console {
 public:
  void write(std::string_view) override {}
};

// A directory of this process's own, made once and removed when the run ends. Its name
// lives in a plain array, which outlives every exit handler.
char g_dir[] = "/tmp/zaltor-ini-fuzz-XXXXXX";
char g_file[sizeof g_dir + 16] = {};

const std::string& program_dir() {
  static const std::string kDir = [] {
    if (::mkdtemp(g_dir) == nullptr) std::abort();
    std::snprintf(g_file, sizeof g_file, "%s/Conf.ini", g_dir);
    std::atexit([] {
      std::remove(g_file);
      ::rmdir(g_dir);
    });
    return std::string(g_dir);
  }();
  return kDir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = program_dir() + "/Conf.ini";
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) std::abort();
  if (size > 0) std::fwrite(data, 1, size, f);
  std::fclose(f);

  test_support::ProgramDirFiles files(platform::make_posix_file_system(), program_dir());
  auto profiles = platform::make_ini_profile_reader();
  auto crypto = platform::make_openssl_crypto();
  DroppingLog log;
  NullConsole console;
  config::LoadContext ctx;
  ctx.files = &files;
  ctx.profiles = profiles.get();
  ctx.crypto = crypto.get();
  ctx.log = &log;
  ctx.console = &console;
  // The switch count follows the input, so that every mapping width is reached.
  const int32_t switches = size > 0 ? data[size - 1] % 5 : 2;
  config::Configuration cfg;
  if (config::load_configuration(ctx, "AB12XY", switches, cfg) == SWITCH_OK) {
    config::write_config_report(log, cfg, 1u << switches, switches);
  }
  return 0;
}
