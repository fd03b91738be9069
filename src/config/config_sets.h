#pragma once
// Override sets: which sets the file enables, and reading their values with fallbacks to
// the default set.

#include <array>
#include <cstdint>
#include <string>

#include "config/configuration.h"
#include "config/settings_reader.h"

namespace zaltor::config {

// The section-name list is asked for with a buffer of 8 characters that grows to the
// returned length plus 100 while the list does not fit. A list that still does not fit in
// this many characters is refused instead of growing the buffer without bound.
constexpr uint32_t kMaxSectionListChars = 65536;

// The report label of a set: "5GHz", "BTCoexist", "LidClosed", else "N/A".
const char* set_label(int set);

// Sets the flags of the sets whose override section the file has and answers the set number
// of the last enabling section met (0 when none). `too_long` is set when the section-name list
// exceeds kMaxSectionListChars; the flags then reflect the names that fitted.
int32_t find_enabled_sets(platform::ProfileReader& profiles, const std::string& path,
                          const SectionList& sections, std::array<bool, kConfigSets>& enabled,
                          bool& too_long);

// Fills sets 1..9: enabled sets from their override sections (falling back to set 0),
// the others as copies of set 0. Cannot fail.
Status read_override_settings(IniSource& src, const SectionList& sections,
                              const std::array<bool, kConfigSets>& enabled,
                              ConfigSettings& settings);

}  // namespace zaltor::config
