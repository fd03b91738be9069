// The system log event sink, the plain-thread pool and the standard-output console.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "log/log_event.h"
#include "notify_socket.h"
#include "platform/posix/posix_backends.h"
#include "service/host_fakes.h"

namespace zaltor::host_test {
namespace {

// Splits a journald native datagram into its fields.
std::map<std::string, std::string> journal_fields(const std::string& d) {
  std::map<std::string, std::string> fields;
  size_t i = 0;
  while (i < d.size()) {
    const size_t eol = d.find('\n', i);
    const std::string head = d.substr(i, eol - i);
    const size_t eq = head.find('=');
    if (eq != std::string::npos) {
      fields[head.substr(0, eq)] = head.substr(eq + 1);
      i = eol + 1;
      continue;
    }
    uint64_t n = 0;
    for (int k = 0; k < 8; ++k) n |= uint64_t{static_cast<uint8_t>(d[eol + 1 + k])} << (8 * k);
    fields[head] = d.substr(eol + 9, n);
    i = eol + 9 + n + 1;
  }
  return fields;
}

TEST(SystemLogEventTrace, EventsGoToTheJournalWithPriorityEventIdAndProvider) {
  TempDir dir;
  NotifySocket journal(dir.file("journal"));
  auto trace = platform::make_system_log_event_trace("ZaltorMultiAntennaSvc", journal.path());
  platform::EventTrace::Handle handle = 0;
  ASSERT_EQ(trace->register_provider(log::kLogProviderId, handle), 0u);
  ASSERT_NE(handle, 0u);
  ASSERT_EQ(trace->write(handle, log::log_event_descriptor(2), "first\nsecond\n"), 0u);
  ASSERT_EQ(trace->write(handle, log::log_event_descriptor(0), "info\n"), 0u);
  ASSERT_EQ(trace->write(handle, log::log_event_descriptor(5), "detail"), 0u);

  auto f = journal_fields(journal.receive(5000));
  EXPECT_EQ(f["MESSAGE"], "first\nsecond");
  EXPECT_EQ(f["PRIORITY"], "3");
  EXPECT_EQ(f["SYSLOG_IDENTIFIER"], "ZaltorMultiAntennaSvc");
  EXPECT_EQ(f["ZALTOR_EVENT_ID"], "2");
  EXPECT_EQ(f["ZALTOR_EVENT_LEVEL"], "2");
  EXPECT_EQ(f["ZALTOR_PROVIDER_ID"], "{F5F415CB-6614-45C6-9453-C5A0D2CD3C5C}");
  f = journal_fields(journal.receive(5000));
  EXPECT_EQ(f["MESSAGE"], "info");
  EXPECT_EQ(f["PRIORITY"], "6");
  EXPECT_EQ(f["ZALTOR_EVENT_ID"], "0");
  EXPECT_EQ(f["ZALTOR_EVENT_LEVEL"], "4");
  f = journal_fields(journal.receive(5000));
  EXPECT_EQ(f["MESSAGE"], "detail");
  EXPECT_EQ(f["PRIORITY"], "7");
}

TEST(SystemLogEventTrace, UnknownHandlesAreInvalid) {
  TempDir dir;
  NotifySocket journal(dir.file("journal"));
  auto trace = platform::make_system_log_event_trace("test", journal.path());
  platform::EventTrace::Handle handle = 0;
  ASSERT_EQ(trace->register_provider(log::kLogProviderId, handle), 0u);
  EXPECT_EQ(trace->write(handle + 1, log::log_event_descriptor(4), "x\n"), 6u);
  EXPECT_EQ(trace->unregister(handle), 0u);
  EXPECT_EQ(trace->unregister(handle), 6u);
  EXPECT_EQ(trace->write(handle, log::log_event_descriptor(4), "x\n"), 6u);
  EXPECT_TRUE(journal.drain().empty());
}

TEST(SystemLogEventTrace, EveryLevelOfARegisteredProviderIsRecorded) {
  TempDir dir;
  NotifySocket journal(dir.file("journal"));
  auto trace = platform::make_system_log_event_trace("test", journal.path());
  platform::EventTrace::Handle handle = 0;
  ASSERT_EQ(trace->register_provider(log::kLogProviderId, handle), 0u);
  for (uint8_t level = 0; level <= 5; ++level) {
    EXPECT_TRUE(trace->enabled(handle, log::log_event_descriptor(level)));
  }
  EXPECT_FALSE(trace->enabled(handle + 1, log::log_event_descriptor(4)));
  EXPECT_EQ(trace->unregister(handle), 0u);
  EXPECT_FALSE(trace->enabled(handle, log::log_event_descriptor(4)));
}

TEST(SystemLogEventTrace, WithoutAJournalEventsGoToSyslog) {
  TempDir dir;
  auto trace = platform::make_system_log_event_trace("test", dir.file("no-journal"));
  platform::EventTrace::Handle handle = 0;
  ASSERT_EQ(trace->register_provider(log::kLogProviderId, handle), 0u);
  EXPECT_EQ(trace->write(handle, log::log_event_descriptor(4), "to syslog\n"), 0u);
}

void count_call(void* context) {
  ++*static_cast<std::atomic<int>*>(context);
}

TEST(PlainThreadPool, EachSubmissionRunsTheCallbackOnAThreadStartedByTheClock) {
  FakeClock clock;
  std::atomic<int> runs{0};
  {
    auto pool = platform::make_thread_pool(clock);
    EXPECT_EQ(pool->create_work(nullptr, &runs), nullptr);
    pool->submit(nullptr);  // nothing to run
    auto* work = pool->create_work(&count_call, &runs);
    ASSERT_NE(work, nullptr);
    pool->submit(work);
    pool->submit(work);
    EXPECT_EQ(clock.threads_started(), 2);
    while (runs.load() < 2) std::this_thread::yield();
  }
  EXPECT_EQ(runs.load(), 2);
}

}  // namespace
}  // namespace zaltor::host_test
