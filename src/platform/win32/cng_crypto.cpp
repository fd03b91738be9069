// Symmetric cryptography through CNG (BCrypt). Statuses are the NTSTATUS values that the
// BCrypt functions answer, passed on unchanged.
//
// A key keeps its algorithm provider open, so the caller may drop the algorithm first. The
// key object lives in the caller's buffer, as with CNG itself: the caller keeps it until the
// key is destroyed. Without a buffer CNG keeps the key object itself.
#include <windows.h>
// bcrypt.h needs windows.h first.
#include <bcrypt.h>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::platform {
namespace {

// STATUS_BUFFER_TOO_SMALL: a key object buffer below the algorithm's object length.
constexpr NTSTATUS kBufferTooSmall = static_cast<NTSTATUS>(0xC0000023);

class Provider {
 public:
  explicit Provider(BCRYPT_ALG_HANDLE h) : handle(h) {}
  ~Provider() { BCryptCloseAlgorithmProvider(handle, 0); }
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;
  BCRYPT_ALG_HANDLE handle;
};

class CngKey final : public CryptoKey {
 public:
  CngKey(std::shared_ptr<Provider> provider, BCRYPT_KEY_HANDLE key)
      : provider_(std::move(provider)), key_(key) {}
  ~CngKey() override { BCryptDestroyKey(key_); }

  uint32_t decrypt(const uint8_t* input, uint32_t input_len, uint8_t* iv, uint32_t iv_len,
                   uint8_t* output, uint32_t output_len, uint32_t& result_len,
                   bool block_padding) override {
    ULONG result = 0;
    const NTSTATUS st = BCryptDecrypt(key_, const_cast<PUCHAR>(input), input_len, nullptr, iv,
                                      iv_len, output, output == nullptr ? 0 : output_len, &result,
                                      block_padding ? BCRYPT_BLOCK_PADDING : 0);
    result_len = result;
    return static_cast<uint32_t>(st);
  }

  uint32_t encrypt(const uint8_t* input, uint32_t input_len, uint8_t* iv, uint32_t iv_len,
                   uint8_t* output, uint32_t output_len, uint32_t& result_len,
                   bool block_padding) override {
    ULONG result = 0;
    const NTSTATUS st = BCryptEncrypt(key_, const_cast<PUCHAR>(input), input_len, nullptr, iv,
                                      iv_len, output, output == nullptr ? 0 : output_len, &result,
                                      block_padding ? BCRYPT_BLOCK_PADDING : 0);
    result_len = result;
    return static_cast<uint32_t>(st);
  }

 private:
  std::shared_ptr<Provider> provider_;
  BCRYPT_KEY_HANDLE key_;
};

class CngAlgorithm final : public CryptoAlgorithm {
 public:
  explicit CngAlgorithm(std::shared_ptr<Provider> provider) : provider_(std::move(provider)) {}

  uint32_t get_property(CryptoProperty property, uint32_t& value) override {
    DWORD v = 0;
    ULONG got = 0;
    const NTSTATUS st = BCryptGetProperty(
        provider_->handle,
        property == CryptoProperty::kObjectLength ? BCRYPT_OBJECT_LENGTH : BCRYPT_BLOCK_LENGTH,
        reinterpret_cast<PUCHAR>(&v), sizeof v, &got, 0);
    value = v;
    return static_cast<uint32_t>(st);
  }

  uint32_t set_chaining_mode_cbc() override {
    // "ChainingModeCBC" with its terminator: 32 bytes.
    static constexpr wchar_t kCbc[] = BCRYPT_CHAIN_MODE_CBC;
    return static_cast<uint32_t>(
        BCryptSetProperty(provider_->handle, BCRYPT_CHAINING_MODE,
                          reinterpret_cast<PUCHAR>(const_cast<wchar_t*>(kCbc)), sizeof kCbc, 0));
  }

  uint32_t generate_symmetric_key(uint8_t* key_object, uint32_t key_object_len,
                                  const uint8_t* secret, uint32_t secret_len,
                                  std::unique_ptr<CryptoKey>& key) override {
    DWORD object_len = 0;
    ULONG got = 0;
    NTSTATUS st =
        BCryptGetProperty(provider_->handle, BCRYPT_OBJECT_LENGTH,
                          reinterpret_cast<PUCHAR>(&object_len), sizeof object_len, &got, 0);
    if (!BCRYPT_SUCCESS(st)) return static_cast<uint32_t>(st);
    if (key_object != nullptr && key_object_len < object_len) {
      return static_cast<uint32_t>(kBufferTooSmall);
    }
    BCRYPT_KEY_HANDLE handle = nullptr;
    st = BCryptGenerateSymmetricKey(provider_->handle, &handle, key_object,
                                    key_object != nullptr ? key_object_len : 0,
                                    const_cast<PUCHAR>(secret), secret_len, 0);
    if (!BCRYPT_SUCCESS(st)) return static_cast<uint32_t>(st);
    key = std::make_unique<CngKey>(provider_, handle);
    return 0;
  }

 private:
  std::shared_ptr<Provider> provider_;
};

class CngCrypto final : public Crypto {
 public:
  uint32_t open_algorithm(const std::string& name,
                          std::unique_ptr<CryptoAlgorithm>& algorithm) override {
    BCRYPT_ALG_HANDLE handle = nullptr;
    const NTSTATUS st = BCryptOpenAlgorithmProvider(&handle, win32::wide(name).c_str(), nullptr, 0);
    if (!BCRYPT_SUCCESS(st)) return static_cast<uint32_t>(st);
    algorithm = std::make_unique<CngAlgorithm>(std::make_shared<Provider>(handle));
    return 0;
  }
};

}  // namespace

std::unique_ptr<Crypto> make_cng_crypto() {
  return std::make_unique<CngCrypto>();
}

}  // namespace zaltor::platform
