#pragma once
// Factories of the operating-system backends that serve Linux: files, INI profiles,
// cryptography (OpenSSL) and the registry substitute under ZALTOR_STATE_DIR.

#include <memory>
#include <string>

#include "platform/crypto.h"
#include "platform/file_system.h"
#include "platform/profile.h"
#include "platform/registry.h"

namespace zaltor::platform {

std::unique_ptr<FileSystem> make_posix_file_system();
std::unique_ptr<ProfileReader> make_ini_profile_reader();
std::unique_ptr<Crypto> make_openssl_crypto();
// The registry substitute rooted at ZALTOR_STATE_DIR (default /var/lib/zaltor-multiantenna).
std::unique_ptr<Registry> make_state_dir_registry();
// The same rooted at `root`.
std::unique_ptr<Registry> make_state_dir_registry(const std::string& root);

}  // namespace zaltor::platform
