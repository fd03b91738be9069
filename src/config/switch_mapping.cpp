#include "config/switch_mapping.h"

#include <algorithm>

#include "platform/log.h"
#include "platform/profile.h"

namespace zaltor::config {
namespace {

constexpr uint32_t kTextBufferChars = 256;

// The first non-empty text of `key` along the list, with its section recorded.
bool read_text_key(IniSource& src, const SectionList& sections, const std::string& key,
                   std::string& text) {
  for (const std::string& section : sections) {
    if (src.profiles.read_string(section, key, "", text, kTextBufferChars, src.path) > 0) {
      src.sources[key] = section.size() > kSettingsPrefixLength
                             ? section.substr(kSettingsPrefixLength)
                             : std::string();
      return true;
    }
  }
  return false;
}

int32_t read_or_unset(IniSource& src, const SectionList& sections, const std::string& key) {
  int32_t v = 0;
  return read_int_key(src, sections, key, v) == SWITCH_OK ? v : -1;
}

}  // namespace

Status read_switch_mapping(IniSource& src, const SectionList& sections, int32_t port_count,
                           platform::SwitchTable& table, Log& log) {
  SectionList gpio;
  for (const std::string& s : sections) gpio.push_back(s + ".GPIO");
  if (port_count < 1) return SWITCH_OK;
  const int ports = std::min(port_count, platform::kMaxPorts);

  bool duplicate = false;
  int unusable = 0;
  for (int i = 0; i < ports; ++i) {
    const auto pi = static_cast<size_t>(i);
    const char* port = platform::kPortNames[pi];
    std::string text;
    if (!read_text_key(src, gpio, format("Port_%s_PCW", port), text)) {
      log.write(kLogError, "PCW Entries not found for Port %s\n", port);
      return SWITCH_ERR_RSSI_PA;
    }
    // Counter instance letters are ASCII; the first byte is the letter.
    const char letter = text[0];
    for (int j = 0; j < i; ++j) {
      if (table.pcw[static_cast<size_t>(j)] == letter) {
        log.write(kLogError, "PCW Entries duplicated! %d with %d - %c\n", j, i, letter);
        return SWITCH_ERR_RSSI_PA;
      }
    }
    table.pcw[pi] = letter;
    table.counter_path[pi] = format(kRssiCounterPathFormat, letter);

    const int32_t id = read_or_unset(src, gpio, format("Sw_%s_ID", port));
    table.switch_id[pi] = id;
    if (id < 0) {
      log.write(kLogError, "All switches on port %s will not work!\n", port);
      continue;
    }
    for (int j = 0; j < i; ++j) {
      if (table.switch_id[static_cast<size_t>(j)] == id) {
        log.write(kLogError, "GPIO port mapping duplicated! Please check!\n");
        duplicate = true;
        break;
      }
    }
    // From the first duplicate on, no port's positions are read.
    if (duplicate) continue;

    for (int k = 0; k < platform::kPositionCount; ++k) {
      const char* position = platform::kPositionNames[static_cast<size_t>(k)];
      const int32_t x = read_or_unset(src, gpio, format("Sw_%s_%s_X", port, position));
      const int32_t y = read_or_unset(src, gpio, format("Sw_%s_%s_Y", port, position));
      table.positions[pi][static_cast<size_t>(k)] = {x, y};
      if (x < 0 && y < 0) {
        ++unusable;
        log.write(kLogError, "Switch - %s %s will not work!\n", port, position);
      }
    }
  }
  if (unusable > 0) {
    log.write(kLogError, "Some GPIO configurations seems not valid, please check!\n");
    return kSwitchErrInvalidPosition;
  }
  return SWITCH_OK;
}

}  // namespace zaltor::config
