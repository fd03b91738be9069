// Configuration files that are not what they should be: a directory where a file belongs,
// files of gigabytes (sparse, so they take no disk space). Each ends the load with its
// usual result and a message, never with an exception or with gigabytes held in memory.
#include <filesystem>

#include "config/config_loader.h"
#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::LoadFixture;

constexpr uintmax_t kOneGiB = uintmax_t{1} << 30;

// A file of `size` bytes that holds no data blocks.
void make_sparse(const std::string& path, uintmax_t size) {
  { std::ofstream create(path, std::ios::binary); }
  std::filesystem::resize_file(path, size);
}

TEST(HostileConfigFiles, AHugeCipherFileFailsItsAllocationAndTheVersionCheck) {
  LoadFixture f;
  make_sparse(f.dir.file("Conf.bin"), kOneGiB);
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  EXPECT_EQ(f.console.out.rfind("**** memory allocation failed\n", 0), 0u) << f.console.out;
  EXPECT_TRUE(f.log.has("Invalid or missing major target version.\n")) << f.log.text();
}

TEST(HostileConfigFiles, ACipherFileThatIsADirectoryFailsToOpen) {
  LoadFixture f;
  std::filesystem::create_directory(f.dir.file("Conf.bin"));
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  EXPECT_EQ(f.console.out.rfind("**** Error 0x", 0), 0u) << f.console.out;
  EXPECT_NE(f.console.out.find(" cipher data file open failed\n"), std::string::npos)
      << f.console.out;
  EXPECT_TRUE(f.log.has("Invalid or missing major target version.\n")) << f.log.text();
}

TEST(HostileConfigFiles, APlainFileThatIsADirectoryIsNamedAndFailsTheVersionCheck) {
  LoadFixture f;
  std::filesystem::create_directory(f.dir.file("Conf.ini"));
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  ASSERT_EQ(f.log.lines.size(), 2u) << f.log.text();
  EXPECT_EQ(f.log.lines[0].text,
            "Config file " + f.dir.file("Conf.ini") + " cannot be read: it is a directory\n");
  EXPECT_EQ(f.log.lines[0].level, kLogError);
  EXPECT_EQ(f.log.lines[1].text, "Invalid or missing major target version.\n");
  EXPECT_TRUE(f.dir.exists("Conf.ini")) << "a file that was there is never removed";
}

TEST(HostileConfigFiles, AHugePlainFileIsNamedAndNeverRead) {
  LoadFixture f;
  make_sparse(f.dir.file("Conf.ini"), 4 * kOneGiB);
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  ASSERT_EQ(f.log.lines.size(), 2u) << f.log.text();
  EXPECT_EQ(f.log.lines[0].text, "Config file " + f.dir.file("Conf.ini") +
                                     " cannot be read: it is larger than 67108864 bytes\n");
  EXPECT_EQ(f.log.lines[1].text, "Invalid or missing major target version.\n");
}

TEST(HostileConfigFiles, AHugeConsoleConfigurationIsNamedAndNeverRead) {
  LoadFixture f;
  make_sparse(f.dir.file("big.ini"), 2 * kOneGiB);
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context("big.ini"), "AB12XY", 2, cfg), kStatusConfigVersion);
  EXPECT_TRUE(f.log.has("Config file " + f.dir.file("big.ini") +
                        " cannot be read: it is larger than 67108864 bytes\n"))
      << f.log.text();
  EXPECT_TRUE(f.log.has("Invalid or missing major target version.\n")) << f.log.text();
}

}  // namespace
}  // namespace zaltor::config
