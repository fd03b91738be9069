// The Linux file system backend as the configuration code uses it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "config/config_test_support.h"
#include "platform/posix/posix_backends.h"

namespace zaltor::config {
namespace {

using testing::TempDir;

TEST(PosixFileSystem, ProgramDirectoryIsTheExecutablesDirectory) {
  auto files = platform::make_posix_file_system();
  std::string dir;
  ASSERT_EQ(files->program_directory(dir), 0u);
  char exe[4096] = {};
  ASSERT_GT(::readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  EXPECT_EQ(dir + "/" + std::filesystem::path(exe).filename().string(), std::string(exe));
  EXPECT_EQ(files->join(dir, "Conf.bin"), dir + "/Conf.bin");
}

TEST(PosixFileSystem, AppendWritesTheByteOrderMarkOnlyOnceAndKeepsLineFeeds) {
  TempDir dir;
  auto files = platform::make_posix_file_system();
  const std::string path = dir.file("log.txt");
  EXPECT_EQ(files->append_utf8_text(path, "one\n"), 0);
  EXPECT_EQ(files->append_utf8_text(path, "two\n"), 0);
  EXPECT_EQ(dir.read("log.txt"), "\xEF\xBB\xBFone\ntwo\n");
  dir.write("empty.txt", "");
  EXPECT_EQ(files->append_utf8_text(dir.file("empty.txt"), "x"), 0);
  EXPECT_EQ(dir.read("empty.txt"), "\xEF\xBB\xBFx");
  std::string text;
  EXPECT_EQ(files->read_utf8_text(path, text), 0);
  EXPECT_EQ(text, "one\ntwo\n");
}

TEST(PosixFileSystem, ReadBinaryNamesTheFailingStep) {
  TempDir dir;
  auto files = platform::make_posix_file_system();
  std::vector<uint8_t> data;
  platform::FileSystem::ReadStep step = platform::FileSystem::ReadStep::kRead;
  EXPECT_EQ(files->read_binary(dir.file("none"), data, step), ENOENT);
  EXPECT_EQ(step, platform::FileSystem::ReadStep::kOpen);
  dir.write_bytes("b", {1, 2, 3, 0, 255});
  EXPECT_EQ(files->read_binary(dir.file("b"), data, step), 0);
  EXPECT_EQ(data, (std::vector<uint8_t>{1, 2, 3, 0, 255}));
}

TEST(PosixFileSystem, ADirectoryIsAFileThatCannotBeOpened) {
  TempDir dir;
  auto files = platform::make_posix_file_system();
  std::vector<uint8_t> data;
  platform::FileSystem::ReadStep step = platform::FileSystem::ReadStep::kRead;
  EXPECT_EQ(files->read_binary(dir.path(), data, step), EISDIR);
  EXPECT_EQ(step, platform::FileSystem::ReadStep::kOpen);
  EXPECT_TRUE(data.empty());
  std::string text = "left over";
  EXPECT_EQ(files->read_utf8_text(dir.path(), text), EISDIR);
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(files->check_input_file(dir.path()), EISDIR);
  EXPECT_EQ(files->check_input_file(dir.file("none")), ENOENT);
}

TEST(PosixFileSystem, AFifoIsAFileThatCannotBeOpenedAndNoReadWaitsForAWriter) {
  TempDir dir;
  auto files = platform::make_posix_file_system();
  const std::string path = dir.file("fifo");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  auto reads = std::async(std::launch::async, [&] {
    std::vector<uint8_t> data;
    platform::FileSystem::ReadStep step = platform::FileSystem::ReadStep::kRead;
    const int binary = files->read_binary(path, data, step);
    std::string text;
    const int utf8 = files->read_utf8_text(path, text);
    return std::make_pair(binary, utf8);
  });
  if (reads.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    ADD_FAILURE() << "a read of a FIFO waits for a writer";
    // Let the waiting open go, so that the test ends.
    for (int i = 0;
         i < 2 && reads.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready;) {
      const int fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK);
      if (fd >= 0) {
        ::close(fd);
        ++i;
      }
    }
    reads.wait();
    return;
  }
  const auto [binary, utf8] = reads.get();
  EXPECT_EQ(binary, EISDIR);
  EXPECT_EQ(utf8, EISDIR);
  EXPECT_EQ(files->check_input_file(path), EISDIR);
}

TEST(PosixFileSystem, AFileBeyondTheLimitFailsAsAnAllocationWithNothingRead) {
  TempDir dir;
  auto files = platform::make_posix_file_system();
  const std::string path = dir.file("huge");
  { std::ofstream create(path); }
  std::filesystem::resize_file(path, uintmax_t{3} << 30);  // sparse
  std::vector<uint8_t> data;
  platform::FileSystem::ReadStep step = platform::FileSystem::ReadStep::kRead;
  EXPECT_EQ(files->read_binary(path, data, step), ENOMEM);
  EXPECT_EQ(step, platform::FileSystem::ReadStep::kAllocate);
  EXPECT_TRUE(data.empty());
  std::string text;
  EXPECT_EQ(files->read_utf8_text(path, text), EFBIG);
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(files->check_input_file(path), EFBIG);
  std::filesystem::resize_file(path, platform::kMaxInputFileBytes);
  EXPECT_EQ(files->check_input_file(path), 0);
}

TEST(PosixFileSystem, WriteTextRemoveAndExists) {
  TempDir dir;
  auto files = platform::make_posix_file_system();
  size_t written = 0;
  EXPECT_EQ(files->write_text(dir.file("t"), "a\nb\n", written), 0);
  EXPECT_EQ(written, 4u);
  EXPECT_EQ(dir.read("t"), "a\nb\n");
  EXPECT_TRUE(files->exists(dir.file("t")));
  EXPECT_EQ(files->remove(dir.file("t")), 0u);
  EXPECT_FALSE(files->exists(dir.file("t")));
  EXPECT_EQ(files->remove(dir.file("t")), static_cast<uint32_t>(ENOENT));
}

}  // namespace
}  // namespace zaltor::config
