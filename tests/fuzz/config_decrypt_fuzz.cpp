// Fuzzes the decryption of "Conf.bin" over the OpenSSL backend: any input is decrypted as
// a ciphertext (failing with a printed message, never otherwise), and encrypting it and
// decrypting the result must give it back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "config/config_crypt.h"
#include "platform/log.h"
#include "platform/posix/posix_backends.h"

namespace {

class NullConsole final : public zaltor::Console {
 public:
  void write(std::string_view) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto crypto = zaltor::platform::make_openssl_crypto();
  NullConsole console;
  const std::vector<uint8_t> input(data, data + size);
  std::vector<uint8_t> plain;
  zaltor::config::decrypt_config_bytes(*crypto, console, input, plain);

  std::vector<uint8_t> cipher;
  if (zaltor::config::encrypt_config_bytes(*crypto, input, cipher) != 0) std::abort();
  if (cipher.size() % 16 != 0 || cipher.size() <= input.size()) std::abort();
  std::vector<uint8_t> back;
  if (!zaltor::config::decrypt_config_bytes(*crypto, console, cipher, back)) std::abort();
  if (back != input) std::abort();
  return 0;
}
