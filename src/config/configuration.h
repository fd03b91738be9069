#pragma once
// The loaded configuration and what loading it needs.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "config/settings.h"
#include "platform/switch_table.h"

namespace zaltor {
class Log;
class Console;
}  // namespace zaltor

namespace zaltor::platform {
class FileSystem;
class ProfileReader;
class Crypto;
class Registry;
}  // namespace zaltor::platform

namespace zaltor::config {

// Everything the loader fills; written once on the start path, read without locks later.
struct Configuration {
  ConfigSettings settings;
  ConfigKeySourceMap sources;
  platform::SwitchTable switches;
  std::array<bool, kConfigSets> enabled{};  // override sets found in the file
  int32_t last_found_set = 0;               // set number of the last enabling section met
};

// The seams the loader works through.
struct LoadContext {
  platform::FileSystem* files = nullptr;
  platform::ProfileReader* profiles = nullptr;
  platform::Crypto* crypto = nullptr;
  Log* log = nullptr;
  Console* console = nullptr;       // decryption errors go to standard output
  std::string console_config_name;  // console mode's plain file name; empty otherwise
};

// Names and files of the configuration.
inline constexpr const char* kCipherFileName = "Conf.bin";
inline constexpr const char* kPlainFileName = "Conf.ini";
inline constexpr const char* kSettingsPrefix = "Settings.";
inline constexpr size_t kSettingsPrefixLength = 9;

// The ordered list of sections a key is looked up in, most specific first.
using SectionList = std::vector<std::string>;

}  // namespace zaltor::config
