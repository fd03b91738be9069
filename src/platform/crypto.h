#pragma once
// Symmetric cryptography in the steps of the Windows CNG API (BCrypt). Every step answers an
// NTSTATUS-style 32-bit status (0 = success) so that callers can print which step failed
// with which status.

#include <cstdint>
#include <memory>
#include <string>

namespace zaltor::platform {

// Status values shared by the backends.
constexpr uint32_t kCryptoSuccess = 0;
constexpr uint32_t kCryptoUnsuccessful = 0xC0000001;       // STATUS_UNSUCCESSFUL
constexpr uint32_t kCryptoInvalidParameter = 0xC000000D;   // STATUS_INVALID_PARAMETER
constexpr uint32_t kCryptoNoMemory = 0xC0000017;           // STATUS_NO_MEMORY
constexpr uint32_t kCryptoBufferTooSmall = 0xC0000023;     // STATUS_BUFFER_TOO_SMALL
constexpr uint32_t kCryptoNotFound = 0xC0000225;           // STATUS_NOT_FOUND
constexpr uint32_t kCryptoInvalidBufferSize = 0xC0000206;  // STATUS_INVALID_BUFFER_SIZE
constexpr uint32_t kCryptoNotSupported = 0xC00000BB;       // STATUS_NOT_SUPPORTED

enum class CryptoProperty { kObjectLength, kBlockLength };

class CryptoKey {
 public:
  virtual ~CryptoKey() = default;
  // BCryptDecrypt / BCryptEncrypt with an IV and, when `block_padding` is set,
  // BCRYPT_BLOCK_PADDING. A null `output` asks only for the size of the result, answered in
  // `result_len`. The IV is updated in place, as CNG does.
  virtual uint32_t decrypt(const uint8_t* input, uint32_t input_len, uint8_t* iv, uint32_t iv_len,
                           uint8_t* output, uint32_t output_len, uint32_t& result_len,
                           bool block_padding) = 0;
  virtual uint32_t encrypt(const uint8_t* input, uint32_t input_len, uint8_t* iv, uint32_t iv_len,
                           uint8_t* output, uint32_t output_len, uint32_t& result_len,
                           bool block_padding) = 0;
};

class CryptoAlgorithm {
 public:
  virtual ~CryptoAlgorithm() = default;
  // BCryptGetProperty with "ObjectLength" or "BlockLength" into a 4-byte value.
  virtual uint32_t get_property(CryptoProperty property, uint32_t& value) = 0;
  // BCryptSetProperty "ChainingMode" = "ChainingModeCBC".
  virtual uint32_t set_chaining_mode_cbc() = 0;
  // BCryptGenerateSymmetricKey into the caller's key object buffer, which must stay until
  // the key is destroyed (null: the backend keeps the key object itself).
  virtual uint32_t generate_symmetric_key(uint8_t* key_object, uint32_t key_object_len,
                                          const uint8_t* secret, uint32_t secret_len,
                                          std::unique_ptr<CryptoKey>& key) = 0;
};

class Crypto {
 public:
  virtual ~Crypto() = default;
  // BCryptOpenAlgorithmProvider with no implementation name and no flags ("AES").
  virtual uint32_t open_algorithm(const std::string& name,
                                  std::unique_ptr<CryptoAlgorithm>& algorithm) = 0;
};

}  // namespace zaltor::platform
