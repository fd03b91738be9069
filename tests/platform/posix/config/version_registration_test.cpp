// Registering the configuration version in the registry.
#include "config/version_registration.h"

#include <filesystem>

#include "config/config_test_support.h"
#include "platform/posix/posix_backends.h"

namespace zaltor::config {
namespace {

using testing::DirFileSystem;
using testing::RecordingLog;
using testing::TempDir;

class VersionRegistrationTest : public ::testing::Test {
 protected:
  void make_key() {
    std::filesystem::create_directories(state_.path() + "/SOFTWARE/ZALTOR/ZALTOR MultiAntenna");
  }
  std::string value_path() const {
    return state_.path() + "/SOFTWARE/ZALTOR/ZALTOR MultiAntenna/ConfigVersion";
  }
  Status run() {
    auto registry = platform::make_state_dir_registry(state_.path());
    return register_config_version(files_, *registry, log_);
  }
  void expect_all_level_3() const {
    for (const auto& l : log_.lines) EXPECT_EQ(l.level, kLogWarning);
  }

  TempDir program_;
  TempDir state_;
  DirFileSystem files_{program_.path()};
  RecordingLog log_;
};

TEST_F(VersionRegistrationTest, KeyMissingReportsNotInstalledAndReadsNothing) {
  program_.write("ver.txt", "1.2.3\n");
  EXPECT_EQ(run(), kStatusVersionRegOpen);
  ASSERT_EQ(log_.lines.size(), 1u);
  EXPECT_EQ(log_.lines[0].text, "ZALTOR MultiAntenna is not installed properly.\n");
  EXPECT_TRUE(program_.exists("ver.txt"));
  expect_all_level_3();
}

TEST_F(VersionRegistrationTest, VersionFileWordIsWrittenConfirmedAndRemoved) {
  make_key();
  program_.write("ver.txt", "CFG-2.0.7 more text\nsecond line\n");
  EXPECT_EQ(run(), SWITCH_OK);
  EXPECT_TRUE(log_.has("Config Version written: \"CFG-2.0.7\"\n"));
  EXPECT_EQ(testing::read_text_file(value_path()), "CFG-2.0.7");
  EXPECT_FALSE(program_.exists("ver.txt"));
  expect_all_level_3();
}

TEST_F(VersionRegistrationTest, EmptyVersionFileIsInvalidAndStays) {
  make_key();
  program_.write("ver.txt", "");
  EXPECT_EQ(run(), kStatusVersionParam);
  EXPECT_TRUE(log_.has("Invalid version param.\n"));
  EXPECT_TRUE(program_.exists("ver.txt"));
}

TEST_F(VersionRegistrationTest, NoVersionFileAndNoValueIsAReadError) {
  make_key();
  EXPECT_EQ(run(), kStatusVersionRegRead);
  EXPECT_TRUE(log_.has("Regkey read error 2\n"));
}

TEST_F(VersionRegistrationTest, NoVersionFileLogsTheRegisteredVersion) {
  make_key();
  testing::TempDir unused;
  {
    std::ofstream out(value_path());
    out << "CFG-1.0";
  }
  EXPECT_EQ(run(), SWITCH_OK);
  EXPECT_TRUE(log_.has("Config Version in reg key: \"CFG-1.0\"\n"));
  expect_all_level_3();
}

TEST_F(VersionRegistrationTest, UnreadableVersionFileFailsToOpen) {
  make_key();
  std::filesystem::create_directory(program_.file("ver.txt"));  // exists, but not a file
  EXPECT_EQ(run(), kStatusVersionFileOpen);
  EXPECT_TRUE(log_.has("Version file open failed.\n"));
}

// A registry whose key records what is written and can answer another value.
class FakeKey final : public platform::RegistryKey {
 public:
  uint32_t read_string(const std::string&, uint32_t bytes, std::string& value) override {
    read_buffer_bytes = bytes;
    value = answer.empty() ? stored : answer;
    return read_error;
  }
  uint32_t write_string(const std::string& name, const std::string& value,
                        uint32_t bytes) override {
    written_name = name;
    stored = value;
    written_bytes = bytes;
    return write_error;
  }
  std::string stored, answer, written_name;
  uint32_t written_bytes = 0, read_buffer_bytes = 0, read_error = 0, write_error = 0;
};

class FakeRegistry final : public platform::Registry {
 public:
  std::unique_ptr<platform::RegistryKey> open_local_machine(const std::string& path,
                                                            uint32_t& error) override {
    opened = path;
    error = open_error;
    if (open_error != 0) return nullptr;
    return std::make_unique<Forward>(key);
  }
  struct Forward final : platform::RegistryKey {
    explicit Forward(FakeKey& key) : k(key) {}
    uint32_t read_string(const std::string& n, uint32_t b, std::string& v) override {
      return k.read_string(n, b, v);
    }
    uint32_t write_string(const std::string& n, const std::string& v, uint32_t b) override {
      return k.write_string(n, v, b);
    }
    FakeKey& k;
  };
  FakeKey key;
  std::string opened;
  uint32_t open_error = 0;
};

TEST_F(VersionRegistrationTest, DataSizeIsTwiceTheCharactersPlusOneByte) {
  program_.write("ver.txt", "1.25\n");
  FakeRegistry reg;
  EXPECT_EQ(register_config_version(files_, reg, log_), SWITCH_OK);
  EXPECT_EQ(reg.opened, "SOFTWARE\\ZALTOR\\ZALTOR MultiAntenna");
  EXPECT_EQ(reg.key.written_name, "ConfigVersion");
  EXPECT_EQ(reg.key.written_bytes, 9u);
  EXPECT_EQ(reg.key.read_buffer_bytes, 2048u);
}

TEST_F(VersionRegistrationTest, OtherOpenErrorIsReportedWithItsCode) {
  FakeRegistry reg;
  reg.open_error = 5;
  EXPECT_EQ(register_config_version(files_, reg, log_), kStatusVersionRegOpen);
  EXPECT_TRUE(log_.has("Regkey open error 5\n"));
}

TEST_F(VersionRegistrationTest, WriteFailureIsReported) {
  program_.write("ver.txt", "1.25\n");
  FakeRegistry reg;
  reg.key.write_error = 5;
  EXPECT_EQ(register_config_version(files_, reg, log_), kStatusVersionRegWrite);
  EXPECT_TRUE(log_.has("Regkey write error 5\n"));
  EXPECT_TRUE(program_.exists("ver.txt"));
}

TEST_F(VersionRegistrationTest, DifferentReadBackFailsTheCheck) {
  program_.write("ver.txt", "1.25\n");
  FakeRegistry reg;
  reg.key.answer = "1.2";
  EXPECT_EQ(register_config_version(files_, reg, log_), kStatusVersionCheck);
  EXPECT_TRUE(log_.has("Check failed. Expected \"1.25\", get \"1.2\"\n"));
  EXPECT_TRUE(program_.exists("ver.txt"));
}

TEST(StateDirRegistry, OddDataSizeKeepsTheWholeString) {
  TempDir state;
  std::filesystem::create_directories(state.path() + "/A/B");
  auto reg = platform::make_state_dir_registry(state.path());
  uint32_t error = 99;
  auto key = reg->open_local_machine("A\\B", error);
  ASSERT_TRUE(key);
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(key->write_string("V", "abc", 7), 0u);
  std::string v;
  EXPECT_EQ(key->read_string("V", 2048, v), 0u);
  EXPECT_EQ(v, "abc");
  EXPECT_EQ(key->write_string("V", "abcdef", 4), 0u);  // two characters
  EXPECT_EQ(key->read_string("V", 2048, v), 0u);
  EXPECT_EQ(v, "ab");
  EXPECT_EQ(key->read_string("V", 4, v), platform::kRegistryMoreData);
  EXPECT_EQ(key->read_string("Missing", 2048, v), platform::kRegistryNotFound);
  EXPECT_FALSE(reg->open_local_machine("A\\C", error));
  EXPECT_EQ(error, platform::kRegistryNotFound);
  EXPECT_FALSE(std::filesystem::exists(state.path() + "/A/C"));  // never created
}

TEST_F(VersionRegistrationTest, AHugeVersionFileCannotBeOpenedAndStays) {
  make_key();
  const std::string path = program_.file("ver.txt");
  { std::ofstream create(path); }
  std::filesystem::resize_file(path, uintmax_t{2} << 30);  // sparse: gigabytes of nothing
  EXPECT_EQ(run(), kStatusVersionFileOpen);
  ASSERT_EQ(log_.lines.size(), 1u);
  EXPECT_EQ(log_.lines[0].text, "Version file open failed.\n");
  EXPECT_TRUE(program_.exists("ver.txt"));
  EXPECT_FALSE(std::filesystem::exists(value_path()));
}

TEST_F(VersionRegistrationTest, AVersionFileThatIsADirectoryCannotBeOpened) {
  make_key();
  std::filesystem::create_directory(program_.file("ver.txt"));
  EXPECT_EQ(run(), kStatusVersionFileOpen);
  ASSERT_EQ(log_.lines.size(), 1u);
  EXPECT_EQ(log_.lines[0].text, "Version file open failed.\n");
}

TEST_F(VersionRegistrationTest, AHugeRegisteredValueIsMoreDataNotMemory) {
  make_key();
  { std::ofstream create(value_path()); }
  std::filesystem::resize_file(value_path(), uintmax_t{2} << 30);
  EXPECT_EQ(run(), kStatusVersionRegRead);
  ASSERT_EQ(log_.lines.size(), 1u);
  EXPECT_EQ(log_.lines[0].text, "Regkey read error 234\n");
}

}  // namespace
}  // namespace zaltor::config
