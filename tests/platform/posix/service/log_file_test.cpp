// The worker log's file on the Linux file system: its byte order mark and its failures.
#include <gtest/gtest.h>

#include <cstdarg>

#include "log/worker_log.h"
#include "platform/posix/posix_backends.h"
#include "service/host_fakes.h"
#include "service/multi_antenna_svc.h"

namespace zaltor::host_test {
namespace {

using service::CMultiAntennaSvc;

constexpr const char* kUtf8Bom = "\xEF\xBB\xBF";

uint32_t write_file_of(log::WorkerLog& wlog, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const uint32_t r = wlog.write_file(fmt, ap);
  va_end(ap);
  return r;
}

TEST(LogFile, IsUtf8WithAByteOrderMarkWhenNewAndCreatedAnewWhenDeleted) {
  TempDir dir;
  FakePlatform fp;
  auto files = platform::make_posix_file_system();
  CMultiAntennaSvc svc("", "", fp.platform);
  svc.set_console(true);
  auto mutex = fp.clock.make_mutex();
  log::LogFile file{dir.file("rflog.txt"), mutex.get(), files.get()};
  log::WorkerLog wlog(svc.log_context(), file);
  wlog.write(4, "Gr\xC3\xBC\xC3\x9F %s\n", "\xE2\x82\xAC");
  wlog.write(5, "second\n");
  EXPECT_EQ(read_file(file.name),
            std::string(kUtf8Bom) + "Gr\xC3\xBC\xC3\x9F \xE2\x82\xAC\nsecond\n");
  ASSERT_EQ(files->remove(file.name), 0u);
  wlog.write(4, "new\n");
  EXPECT_EQ(read_file(file.name), std::string(kUtf8Bom) + "new\n");
}

TEST(LogFile, UnopenableFileAnswers31) {
  FakePlatform fp;
  auto files = platform::make_posix_file_system();
  auto mutex = fp.clock.make_mutex();
  CMultiAntennaSvc svc("", "", fp.platform);
  log::LogFile file{"/nonexistent-dir-of-the-test/rflog.txt", mutex.get(), files.get()};
  log::WorkerLog wlog(svc.log_context(), file);
  EXPECT_EQ(write_file_of(wlog, "x\n"), 31u);
  mutex->unlock();
}

}  // namespace
}  // namespace zaltor::host_test
