#include "config/version_registration.h"

#include <cctype>
#include <string>

#include "platform/file_system.h"
#include "platform/log.h"
#include "platform/registry.h"
#include "platform/utf16.h"

namespace zaltor::config {
namespace {

constexpr uint32_t kReadBackBytes = 2048;
constexpr size_t kVersionWordChars = 1023;  // a 1024-character buffer with its terminator

// The first blank-delimited word of the text, at most kVersionWordChars characters.
std::string first_word(const std::string& text) {
  size_t b = 0;
  while (b < text.size() && std::isspace(static_cast<unsigned char>(text[b]))) ++b;
  size_t e = b;
  while (e < text.size() && !std::isspace(static_cast<unsigned char>(text[e]))) ++e;
  std::u16string word = platform::utf8_to_utf16(text.substr(b, e - b));
  if (word.size() > kVersionWordChars) word.resize(kVersionWordChars);
  return platform::utf16_to_utf8(word);
}

}  // namespace

Status register_config_version(platform::FileSystem& files, platform::Registry& registry,
                               Log& log) {
  std::string dir;
  files.program_directory(dir);
  const std::string version_path = files.join(dir, kVersionFileName);

  uint32_t error = 0;
  auto key = registry.open_local_machine(kVersionKeyPath, error);
  if (!key) {
    if (error == platform::kRegistryNotFound) {
      log.write(kLogWarning, "ZALTOR MultiAntenna is not installed properly.\n");
    } else {
      log.write(kLogWarning, "Regkey open error %d\n", static_cast<int>(error));
    }
    return kStatusVersionRegOpen;
  }

  std::string registered;
  if (!files.exists(version_path)) {
    error = key->read_string(kVersionValueName, kReadBackBytes, registered);
    if (error != 0) {
      log.write(kLogWarning, "Regkey read error %d\n", static_cast<int>(error));
      return kStatusVersionRegRead;
    }
    log.write(kLogWarning, "Config Version in reg key: \"%s\"\n", registered.c_str());
    return SWITCH_OK;
  }

  std::string text;
  if (files.read_utf8_text(version_path, text) != 0) {
    log.write(kLogWarning, "Version file open failed.\n");
    return kStatusVersionFileOpen;
  }
  const std::string version = first_word(text);
  if (version.empty()) {
    log.write(kLogWarning, "Invalid version param.\n");
    return kStatusVersionParam;
  }

  // The size covers the characters and one byte of the terminator; the registry still
  // gives the whole string back.
  const auto chars = static_cast<uint32_t>(platform::utf8_to_utf16(version).size());
  error = key->write_string(kVersionValueName, version, chars * 2 + 1);
  if (error != 0) {
    log.write(kLogWarning, "Regkey write error %d\n", static_cast<int>(error));
    return kStatusVersionRegWrite;
  }
  error = key->read_string(kVersionValueName, kReadBackBytes, registered);
  if (error != 0) {
    log.write(kLogWarning, "Regkey read error %d\n", static_cast<int>(error));
    return kStatusVersionRegRead;
  }
  if (registered != version) {
    log.write(kLogWarning, "Check failed. Expected \"%s\", get \"%s\"\n", version.c_str(),
              registered.c_str());
    return kStatusVersionCheck;
  }
  log.write(kLogWarning, "Config Version written: \"%s\"\n", registered.c_str());
  if (files.exists(version_path)) files.remove(version_path);
  return SWITCH_OK;
}

}  // namespace zaltor::config
