#pragma once
// Fakes and helpers shared by the configuration tests.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "config/configuration.h"
#include "platform/crypto.h"
#include "platform/file_system.h"
#include "platform/log.h"
#include "platform/profile.h"
#include "support/program_dir_files.h"
#include "support/this_platform.h"

namespace zaltor::config::testing {

// This platform's own backends of the seams the configuration code uses: the tests run
// the same way over the Linux files, INI reader and OpenSSL and over the Win32 files,
// GetPrivateProfile* and CNG (under Wine).
using test_support::platform_crypto;
using test_support::platform_file_system;
using test_support::platform_profile_reader;

struct LogLine {
  uint8_t level;
  std::string text;
};

class RecordingLog final : public Log {
 public:
  void vwrite(uint8_t level, const char* fmt, va_list ap) override {
    lines.push_back({level, vformat(fmt, ap)});
  }
  std::string text() const {
    std::string all;
    for (const auto& l : lines) all += l.text;
    return all;
  }
  bool has(const std::string& text) const {
    for (const auto& l : lines) {
      if (l.text == text) return true;
    }
    return false;
  }
  std::vector<LogLine> lines;
};

class RecordingConsole final : public Console {
 public:
  void write(std::string_view text) override { out.append(text); }
  std::string out;
};

// A fresh directory under the system's temporary directory, removed at the end.
class TempDir {
 public:
  TempDir() {
    std::random_device rd;
    for (;;) {
      path_ =
          std::filesystem::temp_directory_path() / ("zaltor-config-test-" + std::to_string(rd()));
      if (std::filesystem::create_directory(path_)) break;
    }
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string path() const { return path_.string(); }
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream out(file(name), std::ios::binary | std::ios::trunc);
    out << text;
  }
  void write_bytes(const std::string& name, const std::vector<uint8_t>& data) const {
    std::ofstream out(file(name), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()),
              static_cast<std::streamsize>(data.size()));
  }
  bool exists(const std::string& name) const { return std::filesystem::exists(path_ / name); }
  std::string read(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
  }

 private:
  std::filesystem::path path_;
};

// This platform's file system with the program directory placed in a test directory.
class DirFileSystem final : public test_support::ProgramDirFiles {
 public:
  explicit DirFileSystem(std::string dir)
      : ProgramDirFiles(platform_file_system(), std::move(dir)) {}
};

// Everything a load needs, over a test directory.
struct LoadFixture {
  TempDir dir;
  DirFileSystem files{dir.path()};
  std::unique_ptr<platform::ProfileReader> profiles = platform_profile_reader();
  std::unique_ptr<platform::Crypto> crypto = platform_crypto();
  RecordingLog log;
  RecordingConsole console;

  LoadContext context(const std::string& console_name = "") {
    LoadContext ctx;
    ctx.files = &files;
    ctx.profiles = profiles.get();
    ctx.crypto = crypto.get();
    ctx.log = &log;
    ctx.console = &console;
    ctx.console_config_name = console_name;
    return ctx;
  }
};

inline std::string source_dir() {
  const char* dir = std::getenv("ZALTOR_TEST_SOURCE_DIR");
  return dir != nullptr ? dir : "";
}

// The build's bin/ directory; the test executable itself lives there too, which serves when
// the variable is not passed on.
inline std::string bin_dir() {
  const char* dir = std::getenv("ZALTOR_TEST_BIN_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  std::error_code ec;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::string() : self.parent_path().string();
}

inline std::string read_text_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  return all.str();
}

// A minimal valid configuration for the AB12 family, two switches.
inline const char* k_minimal_ini =
    "[Version]\nTargetVersionMajor=2\nTargetVersionMinor=0\n"
    "[Settings.AB12]\nBaseSleepIntervalBetweenEval=10000\nRSSICollectInterval=1000\n"
    "RSSICollectCount=3\nTimeToWaitForRSSIStable=2000\nDefaultMode=1\n"
    "RSSIThresholdForSwitchToDefaultMode=-85.0\n"
    "[Settings.AB12.GPIO]\nPort_Main_PCW=A\nPort_Aux_PCW=B\nSw_Main_ID=0\nSw_Aux_ID=1\n"
    "Sw_Main_Main_X=1\nSw_Main_Main_Y=1\nSw_Main_Div_X=0\nSw_Main_Div_Y=0\n"
    "Sw_Main_Off_X=1\nSw_Main_Off_Y=0\nSw_Aux_Main_X=1\nSw_Aux_Main_Y=1\n"
    "Sw_Aux_Div_X=0\nSw_Aux_Div_Y=0\nSw_Aux_Off_X=1\nSw_Aux_Off_Y=0\n";

}  // namespace zaltor::config::testing
