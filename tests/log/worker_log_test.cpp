// The worker log call and its log file.
#include <gtest/gtest.h>

#include <thread>

#include "log/worker_log.h"
#include "service/host_fakes.h"
#include "service/multi_antenna_svc.h"

namespace zaltor::host_test {
namespace {

using service::CMultiAntennaSvc;

constexpr const char* kBom = "\xEF\xBB\xBF";

struct WorkerLogTest : ::testing::Test {
  FakePlatform fp;
  CMultiAntennaSvc svc{"", "", fp.platform};
  std::unique_ptr<platform::Mutex> mutex = fp.clock.make_mutex();
  log::LogFile file{"rflog.txt", mutex.get(), &fp.files};
  log::WorkerLog wlog{svc.log_context(), file};

  uint32_t write_file(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const uint32_t r = wlog.write_file(fmt, ap);
    va_end(ap);
    return r;
  }
};

TEST_F(WorkerLogTest, NothingIsWrittenToTheLogFileOutsideConsoleMode) {
  wlog.write(4, "line %d\n", 1);
  wlog.write(5, "detail\n");
  EXPECT_EQ(fp.files.appends(), 0);
  EXPECT_FALSE(fp.files.exists("rflog.txt"));
  EXPECT_EQ(fp.trace.events().size(), 1u);
}

TEST_F(WorkerLogTest, ConsoleModeAppendsTheTextOfEveryCallWithoutLevels) {
  svc.set_console(true);
  wlog.write(4, "abc");
  wlog.write(4, "def %d\n", 7);
  wlog.write(5, "x\n");
  EXPECT_EQ(fp.files.content("rflog.txt"), std::string(kBom) + "abcdef 7\nx\n");
  EXPECT_EQ(fp.console.text(), "4: abcdef 7\n");
}

TEST_F(WorkerLogTest, TheFileTakesTheWholeTextOfACallThatTheLineBufferCuts) {
  svc.set_console(true);
  const std::string big(5000, 'a');
  wlog.write(4, "%s\n", big.c_str());
  EXPECT_EQ(fp.files.content("rflog.txt"), std::string(kBom) + big + "\n");
  const auto events = fp.trace.events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].line, std::string(log::LineBuffer::kCapacity - 2, 'a') + "\n");
}

TEST_F(WorkerLogTest, WithTheProviderUnregisteredLinesAreStillAssembledAndTheFileWritten) {
  FakePlatform fp2;
  fp2.trace.register_status = 1;
  CMultiAntennaSvc svc2("", "", fp2.platform);
  svc2.set_console(true);
  log::LogFile file2{"rflog.txt", mutex.get(), &fp2.files};
  log::WorkerLog wlog2(svc2.log_context(), file2);
  wlog2.write(4, "abc");
  wlog2.write(4, "def\n");
  EXPECT_TRUE(fp2.trace.events().empty());
  EXPECT_EQ(fp2.console.text(),
            "Provider not registered. EventRegister failed with 1\n4: abcdef\n");
  EXPECT_EQ(fp2.files.content("rflog.txt"), std::string(kBom) + "abcdef\n");
}

TEST_F(WorkerLogTest, FileWriteAnswers31WhenTheFileCannotBeOpened) {
  fp.files.fail_append = true;
  EXPECT_EQ(write_file("text\n"), 31u);
  fp.files.fail_append = false;
  // The owner can take the kept mutex again.
  EXPECT_EQ(write_file("again\n"), 0u);
  EXPECT_EQ(fp.files.content("rflog.txt"), std::string(kBom) + "again\n");
  mutex->unlock();
}

TEST_F(WorkerLogTest, AfterAFailedOpenOtherThreadsWaitForTheKeptMutex) {
  fp.files.fail_append = true;
  ASSERT_EQ(write_file("lost\n"), 31u);
  fp.files.fail_append = false;
  auto done = fp.clock.make_event(true);
  std::thread other([&] {
    EXPECT_EQ(write_file("from the other thread\n"), 0u);
    done->set();
  });
  EXPECT_FALSE(done->wait(200));
  EXPECT_EQ(fp.files.content("rflog.txt"), "");
  mutex->unlock();  // only the owner can give it up
  EXPECT_TRUE(done->wait(platform::Clock::kInfinite));
  other.join();
  EXPECT_EQ(fp.files.content("rflog.txt"), std::string(kBom) + "from the other thread\n");
}

// Collects the text of every call it is given.
class CallText final : public Log {
 public:
  void vwrite(uint8_t level, const char* fmt, va_list ap) override {
    text += std::to_string(level) + ":" + vformat(fmt, ap);
  }
  std::string text;
};

TEST_F(WorkerLogTest, ADetachedLogDropsCallsUntilAttachedAndAgainAfterDetach) {
  svc.set_console(true);
  log::WorkerLog detached(file);
  detached.write(4, "before\n");
  detached.write_entry(4, "entry before\n");
  EXPECT_TRUE(fp.trace.events().empty());
  EXPECT_EQ(fp.console.text(), "");
  EXPECT_FALSE(fp.files.exists("rflog.txt"));

  detached.attach(svc.log_context());
  detached.write(4, "attached\n");
  EXPECT_EQ(fp.trace.events().size(), 1u);
  EXPECT_EQ(fp.files.content("rflog.txt"), std::string(kBom) + "attached\n");

  detached.detach();
  detached.write(4, "after\n");
  detached.write_entry(4, "entry after\n");
  EXPECT_EQ(fp.trace.events().size(), 1u);
  EXPECT_EQ(fp.files.content("rflog.txt"), std::string(kBom) + "attached\n");
}

TEST_F(WorkerLogTest, ARedirectionTakesEveryCallAsMadeUntilItEndsOrTheLogIsDetached) {
  svc.set_console(true);
  CallText calls;
  wlog.redirect(&calls);
  wlog.write(5, "Sleep: %d\n\n", 30);
  EXPECT_EQ(calls.text, "5:Sleep: 30\n\n");
  EXPECT_TRUE(fp.trace.events().empty());
  EXPECT_FALSE(fp.files.exists("rflog.txt"));

  wlog.redirect(nullptr);
  wlog.write(4, "back\n");
  EXPECT_EQ(fp.trace.events().size(), 1u);

  wlog.redirect(&calls);
  wlog.detach();
  wlog.write(4, "dropped\n");
  EXPECT_EQ(calls.text, "5:Sleep: 30\n\n");
}

}  // namespace
}  // namespace zaltor::host_test
