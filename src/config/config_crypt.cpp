#include "config/config_crypt.h"

#include <memory>
#include <new>

#include "config/config_key.h"
#include "platform/crypto.h"
#include "platform/file_system.h"
#include "platform/log.h"

namespace zaltor::config {
namespace {

// Both labels name the cipher file, also where the plain file is meant; the texts are kept.
constexpr const char* kCipherLabel = "cipher data file";

// A symmetric key with the key object buffer it was made in: CNG keeps using that buffer
// until the key is destroyed, so the buffer is declared first and goes last.
struct PreparedKey {
  std::unique_ptr<uint8_t[]> object;
  std::unique_ptr<platform::CryptoKey> key;
};

// The CNG steps up to a ready key and a fresh copy of the IV; false after printing why.
bool prepare_key(platform::Crypto& crypto, Console* console, PreparedKey& prepared,
                 std::vector<uint8_t>& iv, uint32_t& status) {
  auto report = [&](const char* fmt, uint32_t st) {
    status = st;
    if (console != nullptr) console->print(fmt, st);
  };
  std::unique_ptr<platform::CryptoAlgorithm> aes;
  uint32_t st = crypto.open_algorithm("AES", aes);
  if (st != 0) {
    report("**** Error 0x%x returned by BCryptOpenAlgorithmProvider\n", st);
    return false;
  }
  uint32_t object_len = 0;
  st = aes->get_property(platform::CryptoProperty::kObjectLength, object_len);
  if (st != 0) {
    report("**** Error 0x%x returned by BCryptGetProperty\n", st);
    return false;
  }
  prepared.object.reset(new (std::nothrow) uint8_t[object_len == 0 ? 1 : object_len]);
  if (!prepared.object) {
    status = platform::kCryptoNoMemory;
    if (console != nullptr) console->print("**** memory allocation failed\n");
    return false;
  }
  uint32_t block_len = 0;
  st = aes->get_property(platform::CryptoProperty::kBlockLength, block_len);
  if (st != 0) {
    report("**** Error 0x%x returned by BCryptGetProperty\n", st);
    return false;
  }
  if (block_len > kConfigIvBytes) {
    status = platform::kCryptoInvalidParameter;
    if (console != nullptr)
      console->print("**** block length is longer than the provided IV length\n");
    return false;
  }
  st = aes->set_chaining_mode_cbc();
  if (st != 0) {
    report("**** Error 0x%x returned by BCryptSetProperty\n", st);
    return false;
  }
  const auto& material = config_key_material();
  st = aes->generate_symmetric_key(prepared.object.get(), object_len, material.data(),
                                   static_cast<uint32_t>(kConfigKeyBytes), prepared.key);
  if (st != 0) {
    report("**** Error 0x%x returned by BCryptGenerateSymmetricKey\n", st);
    return false;
  }
  // Decryption updates the IV in place: work on a copy.
  iv.assign(material.begin() + kConfigKeyBytes, material.begin() + kConfigKeyBytes + block_len);
  return true;
}

}  // namespace

bool decrypt_config_bytes(platform::Crypto& crypto, Console& console,
                          const std::vector<uint8_t>& cipher, std::vector<uint8_t>& plain) {
  plain.clear();
  PreparedKey prepared;
  std::vector<uint8_t> iv;
  uint32_t st = 0;
  if (!prepare_key(crypto, &console, prepared, iv, st)) return false;
  platform::CryptoKey* key = prepared.key.get();
  const auto in_len = static_cast<uint32_t>(cipher.size());
  const uint8_t* in = cipher.empty() ? iv.data() : cipher.data();  // never a null input
  uint32_t out_len = 0;
  st = key->decrypt(in, in_len, iv.data(), static_cast<uint32_t>(iv.size()), nullptr, 0, out_len,
                    true);
  if (st != 0) {
    console.print("**** Error 0x%x returned by BCryptDecrypt\n", st);
    return false;
  }
  std::vector<uint8_t> out(out_len == 0 ? 1 : out_len, 0);
  uint32_t result_len = 0;
  st = key->decrypt(in, in_len, iv.data(), static_cast<uint32_t>(iv.size()), out.data(), out_len,
                    result_len, true);
  if (st != 0) {
    console.print("**** Error 0x%x returned by BCryptDecrypt\n", st);
    return false;
  }
  out.resize(result_len);
  plain = std::move(out);
  return true;
}

bool decrypt_config_file(platform::FileSystem& files, platform::Crypto& crypto, Console& console,
                         const std::string& cipher_path, const std::string& plain_path) {
  std::vector<uint8_t> cipher;
  platform::FileSystem::ReadStep step = platform::FileSystem::ReadStep::kOpen;
  const int err = files.read_binary(cipher_path, cipher, step);
  if (err != 0 && step == platform::FileSystem::ReadStep::kOpen) {
    console.print("**** Error 0x%x %s open failed\n", static_cast<unsigned>(err), kCipherLabel);
    return false;
  }
  if (err != 0 && step == platform::FileSystem::ReadStep::kSeek) {
    console.print("**** Error 0x%x %s seek failed\n", static_cast<unsigned>(err), kCipherLabel);
    return false;
  }
  // A buffer that cannot be had (the file is larger than any configuration, or memory ran
  // out) is reported and the steps carry on without it: the decryption then fails.
  if (err != 0 && step == platform::FileSystem::ReadStep::kAllocate) {
    console.print("**** memory allocation failed\n");
    cipher.clear();
  }
  // A failed read carries on with what was read; the decryption then fails.
  std::vector<uint8_t> plain;
  if (!decrypt_config_bytes(crypto, console, cipher, plain)) return false;
  size_t written = 0;
  const std::string_view text(reinterpret_cast<const char*>(plain.data()), plain.size());
  const int werr = files.write_text(plain_path, text, written);
  if (werr != 0 && written == 0) {
    console.print("**** Error 0x%x %s open failed\n", static_cast<unsigned>(werr), kCipherLabel);
    return false;
  }
  if (written != plain.size()) {
    console.print("**** %s open failed\n", kCipherLabel);
    return false;
  }
  return true;
}

uint32_t encrypt_config_bytes(platform::Crypto& crypto, const std::vector<uint8_t>& plain,
                              std::vector<uint8_t>& cipher) {
  cipher.clear();
  PreparedKey prepared;
  std::vector<uint8_t> iv;
  uint32_t st = 0;
  if (!prepare_key(crypto, nullptr, prepared, iv, st)) return st;
  platform::CryptoKey* key = prepared.key.get();
  const auto in_len = static_cast<uint32_t>(plain.size());
  const uint8_t* in = plain.empty() ? iv.data() : plain.data();
  uint32_t out_len = 0;
  st = key->encrypt(in, in_len, iv.data(), static_cast<uint32_t>(iv.size()), nullptr, 0, out_len,
                    true);
  if (st != 0) return st;
  std::vector<uint8_t> out(out_len, 0);
  uint32_t result_len = 0;
  st = key->encrypt(in, in_len, iv.data(), static_cast<uint32_t>(iv.size()), out.data(), out_len,
                    result_len, true);
  if (st != 0) return st;
  out.resize(result_len);
  cipher = std::move(out);
  return 0;
}

}  // namespace zaltor::config
