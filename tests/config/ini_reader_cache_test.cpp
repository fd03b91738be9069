// The Linux INI reader keeps the parsed file between lookups: every change of the file is
// still seen, and files that cannot be configurations read as empty.
#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::TempDir;

std::string value_of(platform::ProfileReader& reader, const std::string& path,
                     const std::string& key) {
  std::string value;
  reader.read_string("S", key, "absent", value, 64, path);
  return value;
}

TEST(IniReaderCache, AChangeOfTheSameSizeRightAfterAReadIsSeen) {
  TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  const std::string path = dir.file("a.ini");
  dir.write("a.ini", "[S]\nK=1\n");
  EXPECT_EQ(value_of(*reader, path, "K"), "1");
  // Same size, most likely within the same timestamp tick.
  dir.write("a.ini", "[S]\nK=2\n");
  EXPECT_EQ(value_of(*reader, path, "K"), "2");
  dir.write("a.ini", "[S]\nK=3\n");
  EXPECT_EQ(value_of(*reader, path, "K"), "3");
}

TEST(IniReaderCache, AChangeThatKeepsTheModificationTimeIsSeen) {
  TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  const std::string path = dir.file("b.ini");
  dir.write("b.ini", "[S]\nK=1\n");
  struct stat before {};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(120));  // past the racy window
  EXPECT_EQ(value_of(*reader, path, "K"), "1");
  EXPECT_EQ(value_of(*reader, path, "K"), "1");
  dir.write("b.ini", "[S]\nK=9\n");
  const timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);  // the change time still moves
  EXPECT_EQ(value_of(*reader, path, "K"), "9");
}

TEST(IniReaderCache, ASettledFileIsReadFromTheCacheAndAnotherFileIsNot) {
  TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  dir.write("c.ini", "[S]\nK=c\n");
  dir.write("d.ini", "[S]\nK=d\n");
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(value_of(*reader, dir.file("c.ini"), "K"), "c");
    EXPECT_EQ(value_of(*reader, dir.file("d.ini"), "K"), "d");
  }
  std::filesystem::remove(dir.file("c.ini"));
  EXPECT_EQ(value_of(*reader, dir.file("c.ini"), "K"), "absent");
}

TEST(IniReaderCache, ADirectoryOrAHugeFileReadsAsEmpty) {
  TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  std::filesystem::create_directory(dir.file("dir.ini"));
  EXPECT_EQ(value_of(*reader, dir.file("dir.ini"), "K"), "absent");
  EXPECT_EQ(reader->read_int("S", "K", 7, dir.file("dir.ini")), 7u);
  std::string names = "left over";
  EXPECT_EQ(reader->read_section_names(names, 100, dir.file("dir.ini")), 0u);
  EXPECT_TRUE(names.empty());

  dir.write("huge.ini", "[S]\nK=1\n");
  std::filesystem::resize_file(dir.file("huge.ini"), uintmax_t{5} << 30);  // sparse
  EXPECT_EQ(value_of(*reader, dir.file("huge.ini"), "K"), "absent");
}

TEST(IniReaderCache, LookupsInALargeFileAreQuick) {
  TempDir dir;
  std::string text;
  for (int s = 0; s < 2000; ++s) {
    text += "[Other" + std::to_string(s) + "]\n";
    for (int k = 0; k < 100; ++k) text += "Key" + std::to_string(k) + "=some value\n";
  }
  text += "[S]\nK=last\n";
  dir.write("big.ini", text);  // about 4 MB
  auto reader = platform::make_ini_profile_reader();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(value_of(*reader, dir.file("big.ini"), "K"), "last");
  // One parse and 2000 indexed lookups; reading and scanning the file for every lookup took
  // seconds.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
}

}  // namespace
}  // namespace zaltor::config
#endif
