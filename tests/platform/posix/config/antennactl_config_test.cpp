// antennactl's config commands, run as a separate process.
#include <sys/wait.h>

#include <cstdio>

#include "config/config_test_support.h"

namespace zaltor::config {
namespace {

struct ToolRun {
  int exit_code;
  std::string output;
};

ToolRun antennactl(const std::string& args) {
  const std::string cmd = "'" + testing::bin_dir() + "/antennactl' " + args + " 2>&1";
  ToolRun r{-1, {}};
  std::FILE* p = ::popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  char buf[4096];
  size_t n = 0;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.output.append(buf, n);
  const int status = ::pclose(p);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return r;
}

std::string q(const std::string& path) {
  return "'" + path + "'";
}

class AntennactlConfig : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(testing::bin_dir().empty()) << "ZALTOR_TEST_BIN_DIR is not set";
    ASSERT_FALSE(testing::source_dir().empty()) << "ZALTOR_TEST_SOURCE_DIR is not set";
    sample_ = testing::source_dir() + "/samples/Conf.ini";
  }
  testing::TempDir dir_;
  std::string sample_;
};

TEST_F(AntennactlConfig, EncryptThenDecryptGivesTheSameText) {
  ToolRun r = antennactl("config encrypt " + q(sample_) + " " + q(dir_.file("x.bin")));
  ASSERT_EQ(r.exit_code, 0) << r.output;
  EXPECT_EQ(dir_.read("x.bin"), testing::read_text_file(testing::bin_dir() + "/Conf.bin"));
  r = antennactl("config decrypt " + q(dir_.file("x.bin")) + " " + q(dir_.file("x.ini")));
  ASSERT_EQ(r.exit_code, 0) << r.output;
  EXPECT_EQ(dir_.read("x.ini"), testing::read_text_file(sample_));
}

TEST_F(AntennactlConfig, CheckAcceptsTheBuiltConfBin) {
  const ToolRun r = antennactl("config check " + q(testing::bin_dir() + "/Conf.bin") +
                               " --model AB12XY --switches 2");
  EXPECT_EQ(r.exit_code, 0) << r.output;
  EXPECT_NE(r.output.find("5: Service start.\n"), std::string::npos);
  EXPECT_NE(r.output.find("5: Config set 3 [LidClosed]:\n"), std::string::npos);
  EXPECT_NE(r.output.find("Configuration accepted (result 0)"), std::string::npos);
  EXPECT_NE(r.output.find("an encrypted"), std::string::npos);
}

TEST_F(AntennactlConfig, CheckAcceptsThePlainSample) {
  const ToolRun r = antennactl("config check " + q(sample_) + " --model AB12XY --switches 2");
  EXPECT_EQ(r.exit_code, 0) << r.output;
  EXPECT_NE(r.output.find("a plain"), std::string::npos);
}

TEST_F(AntennactlConfig, CheckRefusesAnotherModelWithItsCode) {
  const ToolRun r = antennactl("config check " + q(sample_) + " --model ZZ99 --switches 2");
  EXPECT_EQ(r.exit_code, 1) << r.output;
  EXPECT_NE(r.output.find("2: PCW Entries not found for Port Main\n"), std::string::npos);
  EXPECT_NE(r.output.find("Configuration refused (result 41)"), std::string::npos);
}

TEST_F(AntennactlConfig, MissingFileIsAClearFailure) {
  const ToolRun r =
      antennactl("config check " + q(dir_.file("nope.bin")) + " --model AB12XY --switches 2");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.output.find("cannot read"), std::string::npos) << r.output;
  const ToolRun d =
      antennactl("config decrypt " + q(dir_.file("nope.bin")) + " " + q(dir_.file("o.ini")));
  EXPECT_EQ(d.exit_code, 1);
  EXPECT_NE(d.output.find("cannot read"), std::string::npos) << d.output;
}

TEST_F(AntennactlConfig, ADirectoryIsAFileThatCannotBeRead) {
  std::filesystem::create_directory(dir_.file("d.ini"));
  for (const std::string& cmd :
       {"config check " + q(dir_.file("d.ini")) + " --model AB12XY --switches 2",
        "config decrypt " + q(dir_.file("d.ini")) + " " + q(dir_.file("o.ini")),
        "config encrypt " + q(dir_.file("d.ini")) + " " + q(dir_.file("o.bin"))}) {
    const ToolRun r = antennactl(cmd);
    EXPECT_EQ(r.exit_code, 1) << cmd << "\n" << r.output;
    EXPECT_EQ(r.output, "antennactl: cannot read " + dir_.file("d.ini") + ": Is a directory\n")
        << cmd;
  }
}

TEST_F(AntennactlConfig, AHugeFileIsRefusedUnread) {
  const std::string path = dir_.file("huge.bin");
  { std::ofstream create(path); }
  std::filesystem::resize_file(path, uintmax_t{3} << 30);  // sparse
  for (const std::string& cmd : {"config check " + q(path) + " --model AB12XY --switches 2",
                                 "config decrypt " + q(path) + " " + q(dir_.file("o.ini")),
                                 "config encrypt " + q(path) + " " + q(dir_.file("o.bin"))}) {
    const ToolRun r = antennactl(cmd);
    EXPECT_EQ(r.exit_code, 1) << cmd << "\n" << r.output;
    EXPECT_EQ(r.output, "antennactl: cannot read " + path + ": larger than 67108864 bytes\n")
        << cmd;
  }
}

TEST_F(AntennactlConfig, TruncatedCiphertextIsRefused) {
  std::string bin = testing::read_text_file(testing::bin_dir() + "/Conf.bin");
  bin.resize(bin.size() - 7);
  dir_.write("t.bin", bin);
  const ToolRun r =
      antennactl("config check " + q(dir_.file("t.bin")) + " --model AB12XY --switches 2");
  EXPECT_EQ(r.exit_code, 1) << r.output;
  EXPECT_NE(r.output.find("**** Error 0xc0000206 returned by BCryptDecrypt\n"), std::string::npos);
  EXPECT_NE(r.output.find("Configuration refused (result 42)"), std::string::npos);
  const ToolRun d =
      antennactl("config decrypt " + q(dir_.file("t.bin")) + " " + q(dir_.file("o.ini")));
  EXPECT_EQ(d.exit_code, 1);
  EXPECT_NE(d.output.find("0xc0000206"), std::string::npos) << d.output;
}

TEST_F(AntennactlConfig, WrongKeyIsRefused) {
  // A configuration encrypted with another key: openssl with a different key and IV.
  const std::string cmd =
      "openssl enc -aes-128-cbc -K 00112233445566778899aabbccddeeff -iv "
      "0f0e0d0c0b0a09080706050403020100 -in " +
      q(sample_) + " -out " + q(dir_.file("w.bin"));
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  const ToolRun r =
      antennactl("config check " + q(dir_.file("w.bin")) + " --model AB12XY --switches 2");
  EXPECT_EQ(r.exit_code, 1) << r.output;
  EXPECT_NE(r.output.find("Configuration refused (result 42)"), std::string::npos);
}

TEST_F(AntennactlConfig, BinaryGarbageIsRefused) {
  std::string junk;
  for (int i = 0; i < 1000; ++i) junk.push_back(static_cast<char>((i * 37 + 11) & 0xFF));
  dir_.write("g.bin", junk);
  const ToolRun r =
      antennactl("config check " + q(dir_.file("g.bin")) + " --model AB12XY --switches 2");
  EXPECT_EQ(r.exit_code, 1) << r.output;
  EXPECT_NE(r.output.find("Configuration refused (result 42)"), std::string::npos);
}

TEST_F(AntennactlConfig, HugeSectionListIsRefused) {
  std::string ini = testing::read_text_file(sample_);
  for (int i = 0; i < 5000; ++i) ini += "[Padding.Section." + std::to_string(i) + "]\n";
  dir_.write("huge.ini", ini);
  const ToolRun r =
      antennactl("config check " + q(dir_.file("huge.ini")) + " --model AB12XY --switches 2");
  EXPECT_EQ(r.exit_code, 1) << r.output;
  EXPECT_NE(r.output.find("Section list longer than 65536 characters"), std::string::npos);
  EXPECT_NE(r.output.find("Configuration refused (result 40)"), std::string::npos);
}

TEST_F(AntennactlConfig, BadUsageExitsTwo) {
  EXPECT_EQ(antennactl("config").exit_code, 2);
  EXPECT_EQ(antennactl("config check " + q(sample_) + " --model AB12XY").exit_code, 2);
  EXPECT_EQ(antennactl("config check " + q(sample_) + " --model AB12XY --switches 9").exit_code, 2);
  EXPECT_EQ(antennactl("config encrypt onlyone").exit_code, 2);
}

}  // namespace
}  // namespace zaltor::config
