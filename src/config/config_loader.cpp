#include "config/config_loader.h"

#include <cerrno>

#include "config/config_crypt.h"
#include "config/config_sets.h"
#include "config/settings_reader.h"
#include "config/switch_mapping.h"
#include "platform/file_system.h"
#include "platform/log.h"
#include "platform/profile.h"
#include "platform/utf16.h"

namespace zaltor::config {
namespace {

constexpr size_t kPathChars = 260;
constexpr int32_t kTargetMajor = 2;
constexpr int32_t kTargetMinor = 0;

bool is_digit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

// False, after naming the file in the log, when the plain file is there but cannot be read
// as a configuration: a directory, or larger than kMaxInputFileBytes. A missing file is
// left to the version check, as before.
bool plain_file_is_readable(platform::FileSystem& files, Log& log, const std::string& path) {
  const int kind = files.check_input_file(path);
  if (kind == EISDIR) {
    log.write(kLogError, "Config file %s cannot be read: it is a directory\n", path.c_str());
    return false;
  }
  if (kind == EFBIG) {
    log.write(kLogError, "Config file %s cannot be read: it is larger than %llu bytes\n",
              path.c_str(), static_cast<unsigned long long>(platform::kMaxInputFileBytes));
    return false;
  }
  return true;
}

}  // namespace

SectionList build_section_search_list(const std::string& model) {
  std::u16string s = platform::utf8_to_utf16(std::string(kSettingsPrefix) + model);
  if (s.size() > kPathChars - 1) s.resize(kPathChars - 1);
  SectionList list{platform::utf16_to_utf8(s)};
  while (s.size() > kSettingsPrefixLength + 1) {
    s.pop_back();
    list.push_back(platform::utf16_to_utf8(s));
    if (is_digit(s.back())) break;
  }
  return list;
}

Status load_configuration(const LoadContext& ctx, const std::string& model, int32_t switch_count,
                          Configuration& cfg) {
  platform::FileSystem& files = *ctx.files;
  Log& log = *ctx.log;

  std::string dir;
  files.program_directory(dir);  // on failure the paths start at the root, as on Windows
  const std::string cipher_path = files.join(dir, kCipherFileName);

  std::string plain_path;
  bool made_here = false;
  if (!ctx.console_config_name.empty()) {
    plain_path = files.join(dir, ctx.console_config_name);
    log.write(kLogInfo, "Config file: %s\n", ctx.console_config_name.c_str());
  } else {
    plain_path = files.join(dir, kPlainFileName);
    if (!files.exists(plain_path)) {
      // The outcome is not checked: a failed decryption shows as a missing version.
      decrypt_config_file(files, *ctx.crypto, *ctx.console, cipher_path, plain_path);
      made_here = true;
    }
  }
  auto drop_plain = [&] {
    if (made_here) files.remove(plain_path);
  };

  platform::ProfileReader& profiles = *ctx.profiles;
  // A directory or a file beyond any configuration is an unreadable file: the profile
  // functions then find no key, which the version check reports. It is named here and
  // never handed to the reader, which would hold it whole in memory.
  int32_t major = kAbsentInt;
  int32_t minor = kAbsentInt;
  if (plain_file_is_readable(files, log, plain_path)) {
    major = static_cast<int32_t>(
        profiles.read_int("Version", "TargetVersionMajor", kAbsentInt, plain_path));
    minor = static_cast<int32_t>(
        profiles.read_int("Version", "TargetVersionMinor", kAbsentInt, plain_path));
  }
  // Version failures leave a decrypted file in place; the next start uses it as it is.
  if (major == kAbsentInt) {
    log.write(kLogError, "Invalid or missing major target version.\n");
    return kStatusConfigVersion;
  }
  if (major != kTargetMajor) {
    log.write(kLogError, "Config major target version mismatch (%d, expected %d)\n", major,
              kTargetMajor);
    return kStatusConfigVersion;
  }
  if (minor == kAbsentInt) {
    log.write(kLogError, "Invalid or missing minor target version.\n");
    return kStatusConfigVersion;
  }
  if (minor != kTargetMinor) {
    log.write(kLogError, "Config minor target version mismatch (%d, expected maximum is %d)\n",
              minor, kTargetMinor);
    return kStatusConfigVersion;
  }

  const SectionList sections = build_section_search_list(model);
  IniSource src{profiles, plain_path, cfg.sources};

  Status st = read_switch_mapping(src, sections, switch_count, cfg.switches, log);
  if (st != SWITCH_OK) {
    drop_plain();
    return st;
  }
  st = read_default_settings(src, sections, cfg.settings);
  if (st != SWITCH_OK) {
    drop_plain();
    return st;
  }
  cfg.enabled.fill(false);
  bool too_long = false;
  cfg.last_found_set = find_enabled_sets(profiles, plain_path, sections, cfg.enabled, too_long);
  if (too_long) {
    log.write(kLogError, "Section list longer than %u characters, configuration refused\n",
              kMaxSectionListChars);
    drop_plain();
    return kStatusConfigKeyMissing;
  }
  st = read_override_settings(src, sections, cfg.enabled, cfg.settings);
  if (st != SWITCH_OK) {
    drop_plain();
    return st;
  }
  drop_plain();

  if (cfg.settings.MaxRSSICollectCount < 1) {
    log.write(kLogError, "Invalid MaxRSSICollectCount (%d)\n", cfg.settings.MaxRSSICollectCount);
    return kStatusConfigKeyMissing;
  }
  return SWITCH_OK;
}

}  // namespace zaltor::config
