// The configuration code on the Windows functions (run under Wine on the build machine):
// the INI corpus through GetPrivateProfile*, the build's Conf.bin through CNG, a whole load
// and the version registration on the real registry.
#include <windows.h>

#include "config/config_crypt.h"
#include "config/config_loader.h"
#include "config/config_test_support.h"
#include "config/ini_corpus_check.h"
#include "config/version_registration.h"
#include "platform/win32/win32_backends.h"

namespace zaltor::config {
namespace {

using testing::RecordingConsole;
using testing::RecordingLog;
using testing::TempDir;

// The Windows form of a path the test environment gives (a Unix path under Wine).
std::string windows_path(const std::string& path) {
  std::wstring w(path.begin(), path.end());
  wchar_t full[MAX_PATH] = {};
  const DWORD n = GetFullPathNameW(w.c_str(), MAX_PATH, full, nullptr);
  if (n == 0 || n >= MAX_PATH) return path;
  std::wstring out(full, n);
  return std::string(out.begin(), out.end());
}

std::string source_dir() {
  return windows_path(testing::source_dir());
}

std::vector<uint8_t> conf_bin() {
  const std::string bin = testing::read_text_file(windows_path(testing::bin_dir()) + "\\Conf.bin");
  return std::vector<uint8_t>(bin.begin(), bin.end());
}

using testing::DirFileSystem;

TEST(PrivateProfileCorpus, EveryExpectedReadMatches) {
  ASSERT_FALSE(testing::source_dir().empty()) << "ZALTOR_TEST_SOURCE_DIR is not set";
  auto reader = platform::make_private_profile_reader();
  testing::check_ini_corpus(*reader, source_dir() + "\\tests\\config\\ini-corpus\\");
}

class CngConfigTest : public ::testing::Test {
 protected:
  std::unique_ptr<platform::Crypto> crypto_ = platform::make_cng_crypto();
  RecordingConsole console_;
};

TEST_F(CngConfigTest, TheBuildsConfBinDecryptsToTheSample) {
  const std::vector<uint8_t> cipher = conf_bin();
  ASSERT_FALSE(cipher.empty());
  const std::string ini = testing::read_text_file(source_dir() + "\\samples\\Conf.ini");
  ASSERT_FALSE(ini.empty());
  std::vector<uint8_t> plain;
  ASSERT_TRUE(decrypt_config_bytes(*crypto_, console_, cipher, plain)) << console_.out;
  EXPECT_EQ(std::string(plain.begin(), plain.end()), ini);
  // CNG's encryption gives the very bytes that the build made with OpenSSL.
  std::vector<uint8_t> again;
  ASSERT_EQ(encrypt_config_bytes(*crypto_, std::vector<uint8_t>(ini.begin(), ini.end()), again),
            0u);
  EXPECT_EQ(again, cipher);
}

// The statuses below are the ones the Linux backend answers for the same damage.
TEST_F(CngConfigTest, ACutConfBinFailsOnTheSizeQuery) {
  std::vector<uint8_t> cipher = conf_bin();
  ASSERT_GT(cipher.size(), 16u);
  cipher.pop_back();
  std::vector<uint8_t> plain;
  EXPECT_FALSE(decrypt_config_bytes(*crypto_, console_, cipher, plain));
  EXPECT_EQ(console_.out, "**** Error 0xc0000206 returned by BCryptDecrypt\n");
}

TEST_F(CngConfigTest, AConfBinWithABadPadLengthIsUnsuccessful) {
  std::vector<uint8_t> cipher = conf_bin();
  ASSERT_GT(cipher.size(), 32u);
  // The last byte of the next-to-last block turns the last plaintext byte (the pad length)
  // into a value above the block length.
  cipher[cipher.size() - 17] ^= 0x80;
  std::vector<uint8_t> plain;
  EXPECT_FALSE(decrypt_config_bytes(*crypto_, console_, cipher, plain));
  EXPECT_EQ(console_.out, "**** Error 0xc0000001 returned by BCryptDecrypt\n");
}

TEST_F(CngConfigTest, AnEmptyCiphertextIsTooSmall) {
  std::vector<uint8_t> cipher, plain;
  EXPECT_FALSE(decrypt_config_bytes(*crypto_, console_, cipher, plain));
  EXPECT_EQ(console_.out, "**** Error 0xc0000023 returned by BCryptDecrypt\n");
}

TEST_F(CngConfigTest, AKeyObjectBufferBelowTheObjectLengthIsRefused) {
  std::unique_ptr<platform::CryptoAlgorithm> aes;
  ASSERT_EQ(crypto_->open_algorithm("AES", aes), 0u);
  uint32_t object_len = 0, block_len = 0;
  ASSERT_EQ(aes->get_property(platform::CryptoProperty::kObjectLength, object_len), 0u);
  ASSERT_EQ(aes->get_property(platform::CryptoProperty::kBlockLength, block_len), 0u);
  EXPECT_EQ(block_len, 16u);
  ASSERT_GT(object_len, 1u);
  EXPECT_EQ(aes->set_chaining_mode_cbc(), 0u);
  std::vector<uint8_t> object(object_len - 1);
  const uint8_t secret[16] = {};
  std::unique_ptr<platform::CryptoKey> key;
  EXPECT_EQ(aes->generate_symmetric_key(object.data(), object_len - 1, secret, 16, key),
            platform::kCryptoBufferTooSmall);
  std::unique_ptr<platform::CryptoAlgorithm> none;
  EXPECT_NE(crypto_->open_algorithm("NoSuchCipher", none), 0u);
}

// Only Conf.bin in the program directory: the load decrypts it into Conf.ini (CR LF, read
// with GetPrivateProfile*), succeeds for the sample's board and removes Conf.ini again.
TEST(Win32ConfigLoad, TheBuildsConfBinLoadsAndItsPlainFileIsGoneAfterwards) {
  TempDir dir;
  dir.write_bytes("Conf.bin", conf_bin());
  DirFileSystem files(dir.path());
  auto profiles = platform::make_private_profile_reader();
  auto crypto = platform::make_cng_crypto();
  RecordingLog log;
  RecordingConsole console;
  LoadContext ctx;
  ctx.files = &files;
  ctx.profiles = profiles.get();
  ctx.crypto = crypto.get();
  ctx.log = &log;
  ctx.console = &console;
  Configuration cfg;
  EXPECT_EQ(load_configuration(ctx, "AB12XY", 2, cfg), SWITCH_OK) << log.text() << console.out;
  EXPECT_EQ(console.out, "");
  EXPECT_FALSE(dir.exists("Conf.ini"));
  EXPECT_TRUE(dir.exists("Conf.bin"));
}

TEST(Win32ConfigLoad, DecryptedPlainFileHasCarriageReturnLineFeeds) {
  TempDir dir;
  dir.write_bytes("Conf.bin", conf_bin());
  auto files = platform::make_win32_file_system();
  auto crypto = platform::make_cng_crypto();
  RecordingConsole console;
  ASSERT_TRUE(
      decrypt_config_file(*files, *crypto, console, dir.file("Conf.bin"), dir.file("Conf.ini")));
  const std::string text = dir.read("Conf.ini");
  EXPECT_NE(text.find("[Version]\r\n"), std::string::npos);
  EXPECT_EQ(text.find("]\n"), std::string::npos) << "every line feed follows a carriage return";
  auto profiles = platform::make_private_profile_reader();
  EXPECT_EQ(profiles->read_int("Version", "TargetVersionMajor", 2147483647, dir.file("Conf.ini")),
            2u);
}

// The version registration on the registry of the Wine prefix.
class Win32VersionRegistration : public ::testing::Test {
 protected:
  void TearDown() override {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\ZALTOR\\ZALTOR MultiAntenna");
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\ZALTOR\\ZALTOR MultiAntenna");
  }
  void create_key() {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\ZALTOR\\ZALTOR MultiAntenna", 0,
                              nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
  }
  TempDir dir_;
  DirFileSystem files_{dir_.path()};
  std::unique_ptr<platform::Registry> registry_ = platform::make_win32_registry();
  RecordingLog log_;
};

TEST_F(Win32VersionRegistration, AMissingKeyIsAnIncompleteInstallation) {
  TearDown();
  EXPECT_EQ(register_config_version(files_, *registry_, log_), kStatusVersionRegOpen);
  EXPECT_EQ(log_.text(), "ZALTOR MultiAntenna is not installed properly.\n");
}

TEST_F(Win32VersionRegistration, TheFirstWordOfVerTxtIsRegisteredAndTheFileRemoved) {
  create_key();
  dir_.write("ver.txt", "3.1.4 and more\r\n");
  EXPECT_EQ(register_config_version(files_, *registry_, log_), SWITCH_OK) << log_.text();
  EXPECT_EQ(log_.text(), "Config Version written: \"3.1.4\"\n");
  EXPECT_FALSE(dir_.exists("ver.txt"));
  RecordingLog again;
  EXPECT_EQ(register_config_version(files_, *registry_, again), SWITCH_OK);
  EXPECT_EQ(again.text(), "Config Version in reg key: \"3.1.4\"\n");
}

TEST_F(Win32VersionRegistration, NoVerTxtAndNoValueIsAReadError) {
  create_key();
  EXPECT_EQ(register_config_version(files_, *registry_, log_), kStatusVersionRegRead);
  EXPECT_EQ(log_.text(), "Regkey read error 2\n");
}

}  // namespace
}  // namespace zaltor::config
