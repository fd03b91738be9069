// AES in CBC mode through OpenSSL's block-cipher functions, answering the statuses that CNG
// answers.
//
// The service decrypts one small file at start-up, so it uses OpenSSL's AES functions
// (AES_set_*_key, AES_cbc_encrypt) rather than the EVP interface: linked statically, they
// bring a few kilobytes of code, where EVP would bring OpenSSL's provider machinery (about
// two megabytes of code that the running service would keep resident). OpenSSL 3 marks these
// functions deprecated, hence OPENSSL_SUPPRESS_DEPRECATED below; they stay in its API.
//
// Decryption with block padding follows CNG as Wine implements it (dlls/bcrypt, function
// key_symmetric_decrypt): a ciphertext whose length is not a multiple of the block length
// fails with STATUS_INVALID_BUFFER_SIZE (0xC0000206), already on the size query; only the
// last byte of the last block is checked as the pad length, and a value above the block
// length fails with STATUS_UNSUCCESSFUL (0xC0000001), which is what BCryptDecrypt answers
// there for a bad padding.
// Must precede OpenSSL's headers: see the file's comment.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/aes.h>
#include <openssl/crypto.h>

#include <cstring>
#include <vector>

#include "platform/posix/posix_backends.h"

namespace zaltor::platform {
namespace {

constexpr uint32_t kBlock = 16;
constexpr uint32_t kKeyObjectLength = 32;  // what the key object buffer must hold here

bool valid_key_length(size_t key_len) {
  return key_len == 16 || key_len == 24 || key_len == 32;
}

// Runs the raw CBC transform (no padding) over whole blocks; `iv` is left as it was.
bool cbc(bool encrypt, const std::vector<uint8_t>& key, const uint8_t* iv, const uint8_t* in,
         uint32_t len, uint8_t* out) {
  AES_KEY schedule;
  const int bits = static_cast<int>(key.size() * 8);
  const int set = encrypt ? AES_set_encrypt_key(key.data(), bits, &schedule)
                          : AES_set_decrypt_key(key.data(), bits, &schedule);
  if (set != 0) return false;
  unsigned char chain[kBlock];
  std::memcpy(chain, iv, kBlock);
  if (len > 0) AES_cbc_encrypt(in, out, len, &schedule, chain, encrypt ? AES_ENCRYPT : AES_DECRYPT);
  OPENSSL_cleanse(&schedule, sizeof schedule);
  return true;
}

class OpenSslKey final : public CryptoKey {
 public:
  explicit OpenSslKey(std::vector<uint8_t> key) : key_(std::move(key)) {}

  uint32_t decrypt(const uint8_t* input, uint32_t input_len, uint8_t* iv, uint32_t iv_len,
                   uint8_t* output, uint32_t output_len, uint32_t& result_len,
                   bool block_padding) override {
    result_len = input_len;
    if (input_len % kBlock != 0) return kCryptoInvalidBufferSize;
    if (output == nullptr) return kCryptoSuccess;
    if (block_padding) {
      if (output_len + kBlock < input_len || input_len < kBlock) return kCryptoBufferTooSmall;
    } else if (output_len < input_len) {
      return kCryptoBufferTooSmall;
    }
    if (iv == nullptr || iv_len != kBlock) return kCryptoInvalidParameter;
    std::vector<uint8_t> plain(input_len);
    if (!cbc(false, key_, iv, input, input_len, plain.data())) return kCryptoUnsuccessful;
    if (block_padding) {
      const uint8_t pad = plain[input_len - 1];
      if (pad > kBlock) return kCryptoUnsuccessful;
      result_len = input_len - pad;
      if (output_len < result_len) return kCryptoBufferTooSmall;
    }
    if (result_len > 0) std::memcpy(output, plain.data(), result_len);
    std::memcpy(iv, input + input_len - kBlock, kBlock);
    return kCryptoSuccess;
  }

  uint32_t encrypt(const uint8_t* input, uint32_t input_len, uint8_t* iv, uint32_t iv_len,
                   uint8_t* output, uint32_t output_len, uint32_t& result_len,
                   bool block_padding) override {
    if (block_padding) {
      result_len = (input_len + kBlock) & ~(kBlock - 1);
    } else {
      result_len = input_len;
      if (input_len % kBlock != 0) return kCryptoInvalidBufferSize;
    }
    if (output == nullptr) return kCryptoSuccess;
    if (output_len < result_len) return kCryptoBufferTooSmall;
    if (iv == nullptr || iv_len != kBlock) return kCryptoInvalidParameter;
    // PKCS#7: every pad byte holds the pad length; a whole block when the text fills blocks.
    std::vector<uint8_t> plain(input, input + input_len);
    const auto pad = static_cast<uint8_t>(result_len - input_len);
    plain.insert(plain.end(), pad, pad);
    if (!cbc(true, key_, iv, plain.data(), result_len, output)) return kCryptoUnsuccessful;
    if (result_len >= kBlock) std::memcpy(iv, output + result_len - kBlock, kBlock);
    return kCryptoSuccess;
  }

 private:
  std::vector<uint8_t> key_;
};

class OpenSslAes final : public CryptoAlgorithm {
 public:
  uint32_t get_property(CryptoProperty property, uint32_t& value) override {
    value = property == CryptoProperty::kObjectLength ? kKeyObjectLength : kBlock;
    return kCryptoSuccess;
  }

  uint32_t set_chaining_mode_cbc() override { return kCryptoSuccess; }

  uint32_t generate_symmetric_key(uint8_t* key_object, uint32_t key_object_len,
                                  const uint8_t* secret, uint32_t secret_len,
                                  std::unique_ptr<CryptoKey>& key) override {
    if (key_object != nullptr && key_object_len < kKeyObjectLength) return kCryptoBufferTooSmall;
    if (secret == nullptr || !valid_key_length(secret_len)) return kCryptoInvalidParameter;
    key = std::make_unique<OpenSslKey>(std::vector<uint8_t>(secret, secret + secret_len));
    return kCryptoSuccess;
  }
};

class OpenSslCrypto final : public Crypto {
 public:
  uint32_t open_algorithm(const std::string& name,
                          std::unique_ptr<CryptoAlgorithm>& algorithm) override {
    if (name != "AES") return kCryptoNotFound;
    algorithm = std::make_unique<OpenSslAes>();
    return kCryptoSuccess;
  }
};

}  // namespace

std::unique_ptr<Crypto> make_openssl_crypto() {
  return std::make_unique<OpenSslCrypto>();
}

}  // namespace zaltor::platform
