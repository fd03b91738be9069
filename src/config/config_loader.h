#pragma once
// Loading the configuration at service start.

#include <cstdint>
#include <string>

#include "config/configuration.h"
#include "platform/status.h"

namespace zaltor::config {

// The section search list of a board model: "Settings.<model>" (at most 259 characters),
// then the name shortened one character at a time until it ends in a digit. A model without
// any digit stops at "Settings." plus one character: the prefix itself is never shortened,
// and there is no generic settings section.
SectionList build_section_search_list(const std::string& model);

// Loads the configuration for a board model and a switch (port) count:
//  - the plain file is the console configuration name in the program directory when one is
//    given, else "Conf.ini" there, decrypted from "Conf.bin" when it is not present (and
//    then deleted again after the load, except after a version failure);
//  - checks TargetVersionMajor 2 and TargetVersionMinor 0 of section "Version";
//  - reads the switch mapping, the default settings and the override sets.
// 0, kStatusConfigVersion (42), kStatusConfigKeyMissing (40) for a missing required key,
// a MaxRSSICollectCount below 1 or a section-name list too long to read, or the switch
// mapping's code (41, 38). `cfg` is filled as far as the load got.
Status load_configuration(const LoadContext& ctx, const std::string& model, int32_t switch_count,
                          Configuration& cfg);

}  // namespace zaltor::config
