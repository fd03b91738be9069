#pragma once
// "Conf.bin" is the AES-128-CBC encryption, with PKCS#7 padding, of the whole "Conf.ini"
// text: no header, no length, no checksum. The key and IV come from the key material.

#include <cstdint>
#include <string>
#include <vector>

namespace zaltor {
class Console;
}

namespace zaltor::platform {
class Crypto;
class FileSystem;
}  // namespace zaltor::platform

namespace zaltor::config {

// Decrypts `cipher_path` into `plain_path` (written in text mode). Every problem is printed
// to `console` as a "**** ..." line. True when the plain file was written in full.
bool decrypt_config_file(platform::FileSystem& files, platform::Crypto& crypto, Console& console,
                         const std::string& cipher_path, const std::string& plain_path);

// Decrypts `cipher` into `plain` with the same steps and messages; true on success.
bool decrypt_config_bytes(platform::Crypto& crypto, Console& console,
                          const std::vector<uint8_t>& cipher, std::vector<uint8_t>& plain);

// Encrypts `plain` the same way; 0 or the failing step's status.
uint32_t encrypt_config_bytes(platform::Crypto& crypto, const std::vector<uint8_t>& plain,
                              std::vector<uint8_t>& cipher);

}  // namespace zaltor::config
