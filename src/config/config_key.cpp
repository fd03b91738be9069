#include "config/config_key.h"

#include "zaltor_config_key.h"  // generated from ZALTOR_CONFIG_KEY

namespace zaltor::config {

const std::array<uint8_t, kConfigKeyBytes + kConfigIvBytes>& config_key_material() {
  static constexpr std::array<uint8_t, kConfigKeyBytes + kConfigIvBytes> kMaterial = {
      ZALTOR_CONFIG_KEY_BYTES};
  return kMaterial;
}

}  // namespace zaltor::config
