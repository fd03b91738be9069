#pragma once
// Registering the configuration version: "ver.txt" beside the executable is copied into the
// registry value "ConfigVersion", checked and removed; without the file the registered
// version is only read. Every message goes to the log at level 3.

#include "platform/status.h"

namespace zaltor {
class Log;
}

namespace zaltor::platform {
class FileSystem;
class Registry;
}  // namespace zaltor::platform

namespace zaltor::config {

inline constexpr const char* kVersionFileName = "ver.txt";
inline constexpr const char* kVersionKeyPath = "SOFTWARE\\ZALTOR\\ZALTOR MultiAntenna";
inline constexpr const char* kVersionValueName = "ConfigVersion";

// 0 or kStatusVersionRegOpen (43), kStatusVersionFileOpen (44), kStatusVersionParam (45),
// kStatusVersionRegWrite (46), kStatusVersionRegRead (47), kStatusVersionCheck (48). The key
// handle is dropped at the end of the call.
Status register_config_version(platform::FileSystem& files, platform::Registry& registry, Log& log);

}  // namespace zaltor::config
