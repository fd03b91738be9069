// Encryption and decryption of configuration files.
#include "config/config_crypt.h"

#include "config/config_key.h"
#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::RecordingConsole;
using testing::TempDir;

class ConfigCryptTest : public ::testing::Test {
 protected:
  std::unique_ptr<platform::Crypto> crypto_ = testing::platform_crypto();
  RecordingConsole console_;
};

TEST_F(ConfigCryptTest, RoundTripOfManyLengths) {
  for (size_t len : {0u, 1u, 15u, 16u, 17u, 31u, 32u, 1000u}) {
    SCOPED_TRACE(len);
    std::vector<uint8_t> plain(len);
    for (size_t i = 0; i < len; ++i) plain[i] = static_cast<uint8_t>(i * 7 + 3);
    std::vector<uint8_t> cipher;
    ASSERT_EQ(encrypt_config_bytes(*crypto_, plain, cipher), 0u);
    EXPECT_EQ(cipher.size(), (len / 16 + 1) * 16);
    std::vector<uint8_t> back;
    ASSERT_TRUE(decrypt_config_bytes(*crypto_, console_, cipher, back));
    EXPECT_EQ(back, plain);
  }
  EXPECT_TRUE(console_.out.empty());
}

std::vector<uint8_t> from_hex(const std::string& hex) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// The published CBC examples (NIST SP 800-38A, F.2.1, F.2.3 and F.2.5, first two blocks)
// for each AES key length, both ways through the system's cipher without padding.
TEST_F(ConfigCryptTest, CbcKnownAnswersForEveryKeyLength) {
  const std::string iv = "000102030405060708090a0b0c0d0e0f";
  const std::string plain = "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51";
  const std::pair<const char*, const char*> cases[] = {
      {"2b7e151628aed2a6abf7158809cf4f3c",
       "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"},
      {"8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
       "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"},
      {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
       "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"},
  };
  for (const auto& [key_hex, cipher_hex] : cases) {
    SCOPED_TRACE(key_hex);
    std::unique_ptr<platform::CryptoAlgorithm> aes;
    ASSERT_EQ(crypto_->open_algorithm("AES", aes), platform::kCryptoSuccess);
    ASSERT_EQ(aes->set_chaining_mode_cbc(), platform::kCryptoSuccess);
    const std::vector<uint8_t> key_bytes = from_hex(key_hex);
    uint32_t object_length = 0;
    ASSERT_EQ(aes->get_property(platform::CryptoProperty::kObjectLength, object_length),
              platform::kCryptoSuccess);
    std::vector<uint8_t> key_object(object_length);
    std::unique_ptr<platform::CryptoKey> key;
    ASSERT_EQ(
        aes->generate_symmetric_key(key_object.data(), static_cast<uint32_t>(key_object.size()),
                                    key_bytes.data(), static_cast<uint32_t>(key_bytes.size()), key),
        platform::kCryptoSuccess);
    const std::vector<uint8_t> text = from_hex(plain);
    const std::vector<uint8_t> expected = from_hex(cipher_hex);
    std::vector<uint8_t> out(text.size());
    std::vector<uint8_t> chain = from_hex(iv);
    uint32_t written = 0;
    ASSERT_EQ(key->encrypt(text.data(), static_cast<uint32_t>(text.size()), chain.data(), 16,
                           out.data(), static_cast<uint32_t>(out.size()), written, false),
              platform::kCryptoSuccess);
    EXPECT_EQ(out, expected);
    chain = from_hex(iv);
    std::vector<uint8_t> back(text.size());
    ASSERT_EQ(key->decrypt(expected.data(), static_cast<uint32_t>(expected.size()), chain.data(),
                           16, back.data(), static_cast<uint32_t>(back.size()), written, false),
              platform::kCryptoSuccess);
    EXPECT_EQ(back, text);
  }
}

TEST_F(ConfigCryptTest, BuildsConfBinDecryptsToTheSample) {
  ASSERT_FALSE(testing::bin_dir().empty()) << "ZALTOR_TEST_BIN_DIR is not set";
  ASSERT_FALSE(testing::source_dir().empty()) << "ZALTOR_TEST_SOURCE_DIR is not set";
  const std::string bin = testing::read_text_file(testing::bin_dir() + "/Conf.bin");
  const std::string ini = testing::read_text_file(testing::source_dir() + "/samples/Conf.ini");
  ASSERT_FALSE(bin.empty());
  std::vector<uint8_t> plain;
  ASSERT_TRUE(decrypt_config_bytes(*crypto_, console_, std::vector<uint8_t>(bin.begin(), bin.end()),
                                   plain));
  EXPECT_EQ(std::string(plain.begin(), plain.end()), ini);
  // And our encryption gives the very same bytes as the build's.
  std::vector<uint8_t> cipher;
  ASSERT_EQ(encrypt_config_bytes(*crypto_, std::vector<uint8_t>(ini.begin(), ini.end()), cipher),
            0u);
  EXPECT_EQ(std::string(cipher.begin(), cipher.end()), bin);
}

TEST_F(ConfigCryptTest, TruncatedCiphertextFailsOnTheSizeQuery) {
  std::vector<uint8_t> cipher(33, 0x41), plain;
  EXPECT_FALSE(decrypt_config_bytes(*crypto_, console_, cipher, plain));
  EXPECT_EQ(console_.out, "**** Error 0xc0000206 returned by BCryptDecrypt\n");
}

TEST_F(ConfigCryptTest, EmptyCiphertextIsTooSmall) {
  std::vector<uint8_t> cipher, plain;
  EXPECT_FALSE(decrypt_config_bytes(*crypto_, console_, cipher, plain));
  EXPECT_EQ(console_.out, "**** Error 0xc0000023 returned by BCryptDecrypt\n");
}

TEST_F(ConfigCryptTest, PadLengthAboveTheBlockIsUnsuccessful) {
  std::vector<uint8_t> cipher;
  ASSERT_EQ(encrypt_config_bytes(*crypto_, std::vector<uint8_t>(20, 'x'), cipher), 0u);
  cipher[cipher.size() - 17] ^= 0x80;
  std::vector<uint8_t> plain;
  EXPECT_FALSE(decrypt_config_bytes(*crypto_, console_, cipher, plain));
  EXPECT_EQ(console_.out, "**** Error 0xc0000001 returned by BCryptDecrypt\n");
}

TEST_F(ConfigCryptTest, DecryptFileWritesThePlainText) {
  TempDir dir;
  auto files = testing::platform_file_system();
  std::vector<uint8_t> cipher;
  const std::string text = "[Version]\nTargetVersionMajor=2\n";
  ASSERT_EQ(encrypt_config_bytes(*crypto_, std::vector<uint8_t>(text.begin(), text.end()), cipher),
            0u);
  dir.write_bytes("Conf.bin", cipher);
  EXPECT_TRUE(
      decrypt_config_file(*files, *crypto_, console_, dir.file("Conf.bin"), dir.file("Conf.ini")));
  // The plain file is written in text mode: Windows ends its lines with CR LF.
  const std::string eol = test_support::kTextModeLineEnd;
  EXPECT_EQ(dir.read("Conf.ini"), "[Version]" + eol + "TargetVersionMajor=2" + eol);
}

TEST_F(ConfigCryptTest, UnwritablePlainFileReportsAnOpenFailure) {
  TempDir dir;
  auto files = testing::platform_file_system();
  std::vector<uint8_t> cipher;
  ASSERT_EQ(encrypt_config_bytes(*crypto_, std::vector<uint8_t>(5, 'a'), cipher), 0u);
  dir.write_bytes("Conf.bin", cipher);
  EXPECT_FALSE(decrypt_config_file(*files, *crypto_, console_, dir.file("Conf.bin"),
                                   dir.file("missing-dir/Conf.ini")));
  EXPECT_EQ(console_.out, "**** Error 0x2 cipher data file open failed\n");
}

// A provider whose steps fail on demand, to see each step's message.
class FailingCrypto final : public platform::Crypto {
 public:
  enum Step { kOpen, kObjectLength, kBlockLength, kLongBlock, kChaining, kKey };
  explicit FailingCrypto(Step step) : step_(step) {}
  uint32_t open_algorithm(const std::string&,
                          std::unique_ptr<platform::CryptoAlgorithm>& a) override {
    if (step_ == kOpen) return 0xC0000225;
    a = std::make_unique<Alg>(step_);
    return 0;
  }

 private:
  struct Alg final : platform::CryptoAlgorithm {
    explicit Alg(Step s) : step(s) {}
    uint32_t get_property(platform::CryptoProperty p, uint32_t& v) override {
      if (p == platform::CryptoProperty::kObjectLength) {
        v = 8;
        return step == kObjectLength ? 0xC0000002 : 0;
      }
      v = step == kLongBlock ? 17 : 16;
      return step == kBlockLength ? 0xC0000003 : 0;
    }
    uint32_t set_chaining_mode_cbc() override { return step == kChaining ? 0xC0000004 : 0; }
    uint32_t generate_symmetric_key(uint8_t*, uint32_t, const uint8_t*, uint32_t,
                                    std::unique_ptr<platform::CryptoKey>&) override {
      return 0xC0000005;
    }
    Step step;
  };
  Step step_;
};

TEST_F(ConfigCryptTest, EveryFailingStepPrintsItsMessage) {
  const std::pair<FailingCrypto::Step, const char*> cases[] = {
      {FailingCrypto::kOpen, "**** Error 0xc0000225 returned by BCryptOpenAlgorithmProvider\n"},
      {FailingCrypto::kObjectLength, "**** Error 0xc0000002 returned by BCryptGetProperty\n"},
      {FailingCrypto::kBlockLength, "**** Error 0xc0000003 returned by BCryptGetProperty\n"},
      {FailingCrypto::kLongBlock, "**** block length is longer than the provided IV length\n"},
      {FailingCrypto::kChaining, "**** Error 0xc0000004 returned by BCryptSetProperty\n"},
      {FailingCrypto::kKey, "**** Error 0xc0000005 returned by BCryptGenerateSymmetricKey\n"},
  };
  for (const auto& [step, message] : cases) {
    SCOPED_TRACE(message);
    FailingCrypto crypto(step);
    RecordingConsole console;
    std::vector<uint8_t> cipher(16, 1), plain;
    EXPECT_FALSE(decrypt_config_bytes(crypto, console, cipher, plain));
    EXPECT_EQ(console.out, message);
  }
}

}  // namespace
}  // namespace zaltor::config
