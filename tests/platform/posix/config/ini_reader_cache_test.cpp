// The Linux INI reader keeps the parsed file between lookups: every change of the file is
// still seen, and files that cannot be configurations read as empty.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

#include "config/config_test_support.h"
#include "platform/posix/posix_backends.h"

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

TEST(IniReaderCache, ASettledFileIsParsedOnceAndAnotherFileIsParsedAnew) {
  TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  dir.write("c.ini", "[S]\nK=c\nL=l\n");
  dir.write("d.ini", "[S]\nK=d\n");
  std::this_thread::sleep_for(std::chrono::milliseconds(120));  // past the racy window
  const uint64_t before = platform::ini_files_parsed();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(value_of(*reader, dir.file("c.ini"), "K"), "c");
    EXPECT_EQ(value_of(*reader, dir.file("c.ini"), "L"), "l");
  }
  EXPECT_EQ(platform::ini_files_parsed() - before, 1u) << "six lookups, one parse";
  EXPECT_EQ(value_of(*reader, dir.file("d.ini"), "K"), "d");
  EXPECT_EQ(platform::ini_files_parsed() - before, 2u) << "the other file is parsed for itself";
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

TEST(IniReaderCache, LookupsInALargeFileParseItOnce) {
  TempDir dir;
  std::string text;
  for (int s = 0; s < 2000; ++s) {
    text += "[Other" + std::to_string(s) + "]\n";
    for (int k = 0; k < 100; ++k) text += "Key" + std::to_string(k) + "=some value\n";
  }
  text += "[S]\nK=last\n";
  dir.write("big.ini", text);                                   // about 4 MB
  std::this_thread::sleep_for(std::chrono::milliseconds(120));  // past the racy window
  auto reader = platform::make_ini_profile_reader();
  const uint64_t before = platform::ini_files_parsed();
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(value_of(*reader, dir.file("big.ini"), "K"), "last");
  // One parse and 2000 indexed lookups: reading and scanning the file for every lookup took
  // seconds (bench/config_load.cpp measures a whole load).
  EXPECT_EQ(platform::ini_files_parsed() - before, 1u);
}

// Opens descriptors until none is left (under a lowered limit) for a scope.
class NoDescriptorsLeft {
 public:
  NoDescriptorsLeft() {
    ::getrlimit(RLIMIT_NOFILE, &saved_);
    rlimit low = saved_;
    low.rlim_cur = 256;
    ::setrlimit(RLIMIT_NOFILE, &low);
    for (int fd; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) held_.push_back(fd);
  }
  ~NoDescriptorsLeft() {
    for (int fd : held_) ::close(fd);
    ::setrlimit(RLIMIT_NOFILE, &saved_);
  }
  NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
  NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;

 private:
  rlimit saved_{};
  std::vector<int> held_;
};

TEST(IniReaderCache, AReadThatFailsRightAfterTheLastIsNotKeptAsTheFile) {
  TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  const std::string path = dir.file("e.ini");
  dir.write("e.ini", "[S]\nK=1\n");
  EXPECT_EQ(value_of(*reader, path, "K"), "1");
  {
    // Within moments of the last read the reader reads the file again to compare; that
    // read fails here.
    NoDescriptorsLeft none;
    EXPECT_EQ(value_of(*reader, path, "K"), "absent");
  }
  EXPECT_EQ(value_of(*reader, path, "K"), "1") << "the failed read stood for the file";
}

}  // namespace
}  // namespace zaltor::config
