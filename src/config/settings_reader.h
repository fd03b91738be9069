#pragma once
// Reading settings keys through a section search list.

#include <cstdint>
#include <string>

#include "config/configuration.h"
#include "platform/status.h"

namespace zaltor::config {

// One INI file being read, with the key source map that records where keys came from.
struct IniSource {
  platform::ProfileReader& profiles;
  const std::string& path;
  ConfigKeySourceMap& sources;
};

// Reads an integer key from the first section of `sections` that has it; the destination
// takes every read at once, so it holds 2147483647 when no section has the key.
// 0 when found, kStatusConfigKeyMissing (40) when the list is empty or no section has it.
Status read_int_key(IniSource& src, const SectionList& sections, const std::string& key,
                    int32_t& dest);
// The same for a real key, read as text (buffer of 512 characters, default "2147483647")
// and converted like the C library's wide-string-to-double conversion.
Status read_real_key(IniSource& src, const SectionList& sections, const std::string& key,
                     double& dest);

// Fills set 0 of `settings` in the fixed order; 0 or the first failing code.
Status read_default_settings(IniSource& src, const SectionList& sections, ConfigSettings& settings);

// "RSSIWeightForMode_%d" / "DisableMode_%d" for mode 1..16.
std::string weight_key(int mode);
std::string disable_key(int mode);

}  // namespace zaltor::config
