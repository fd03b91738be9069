#pragma once
// The configuration key material, built into the program from the build's
// ZALTOR_CONFIG_KEY: bytes 0-15 are the AES-128 key, bytes 16-31 the CBC IV. Never printed.

#include <array>
#include <cstddef>
#include <cstdint>

namespace zaltor::config {

constexpr std::size_t kConfigKeyBytes = 16;
constexpr std::size_t kConfigIvBytes = 16;

const std::array<uint8_t, kConfigKeyBytes + kConfigIvBytes>& config_key_material();

}  // namespace zaltor::config
