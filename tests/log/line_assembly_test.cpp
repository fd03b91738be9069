// Assembly of log calls into lines and the emitting end of the log.
#include <gtest/gtest.h>

#include <thread>

#include "log/line_buffer.h"
#include "log/log_event.h"
#include "log/service_log.h"
#include "service/host_fakes.h"
#include "service/multi_antenna_svc.h"

namespace zaltor::host_test {
namespace {

using service::CMultiAntennaSvc;

void call(log::LineBuffer& lines, RecordingWriter& writer, uint8_t level, const char* fmt, ...)
    ZALTOR_PRINTF(4, 5);
void call(log::LineBuffer& lines, RecordingWriter& writer, uint8_t level, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  lines.assemble(level, fmt, ap, writer);
  va_end(ap);
}

TEST(LineAssembly, TextWithoutLineEndWaitsAndTheFinishingCallEmitsTheWholeLine) {
  FakePlatform fp;
  CMultiAntennaSvc svc("", "", fp.platform);
  svc.log().write(4, "abc");
  EXPECT_TRUE(fp.trace.events().empty());
  svc.log().write(4, "def\n");
  const auto events = fp.trace.events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].line, "abcdef\n");
  EXPECT_EQ(events[0].descriptor.level, 4);
  EXPECT_EQ(events[0].descriptor.id, 4);
}

TEST(LineAssembly, DetailLineIsEmittedOnlyByAFollowingEmptyLineWithOneLineEndRemoved) {
  FakePlatform fp;
  CMultiAntennaSvc svc("", "", fp.platform);
  svc.log().write(5, "x\n");
  EXPECT_TRUE(fp.trace.events().empty());
  svc.log().write(5, "\n");
  const auto events = fp.trace.events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].line, "x\n");
  EXPECT_EQ(events[0].descriptor.level, 5);
}

TEST(LineAssembly, LoneLineEndIsNotWrittenToTheProviderButIsEchoedInConsoleMode) {
  FakePlatform fp;
  CMultiAntennaSvc svc("", "", fp.platform);
  svc.log().write(4, "\n");
  EXPECT_TRUE(fp.trace.events().empty());
  EXPECT_EQ(fp.console.text(), "");
  svc.set_console(true);
  svc.log().write(4, "\n");
  EXPECT_TRUE(fp.trace.events().empty());
  EXPECT_EQ(fp.console.text(), "4: \n");
}

TEST(LineAssembly, EmittedLineTakesTheLevelOfTheFinishingCall) {
  RecordingWriter writer;
  log::LineBuffer lines;
  call(lines, writer, 2, "begun at %d, ", 2);
  call(lines, writer, 3, "finished at %d\n", 3);
  ASSERT_EQ(writer.lines.size(), 1u);
  EXPECT_EQ(writer.lines[0].first, 3);
  EXPECT_EQ(writer.lines[0].second, "begun at 2, finished at 3\n");
}

TEST(LineAssembly, DetailTextAfterOtherLevelsWaitsForTheEmptyLine) {
  RecordingWriter writer;
  log::LineBuffer lines;
  call(lines, writer, 5, "a\n");
  call(lines, writer, 5, "b\n");
  EXPECT_TRUE(writer.lines.empty());
  EXPECT_EQ(lines.pending(), "a\nb\n");
  call(lines, writer, 4, "c\n");  // any other level finishes the line at once
  ASSERT_EQ(writer.lines.size(), 1u);
  EXPECT_EQ(writer.lines[0].second, "a\nb\nc\n");
  EXPECT_EQ(lines.pending(), "");
}

TEST(LineAssembly, DetailLoneLineEndWithNothingPendingWaitsThenEmitsALoneLineEnd) {
  RecordingWriter writer;
  log::LineBuffer lines;
  call(lines, writer, 5, "\n");
  EXPECT_TRUE(writer.lines.empty());
  call(lines, writer, 5, "\n");
  ASSERT_EQ(writer.lines.size(), 1u);
  EXPECT_EQ(writer.lines[0].second, "\n");
}

TEST(LineAssembly, TextBeyondTheRoomIsCutButKeepsItsLineEnd) {
  RecordingWriter writer;
  log::LineBuffer lines;
  const std::string big(5000, 'a');
  call(lines, writer, 4, "%s", big.c_str());
  EXPECT_EQ(lines.pending().size(), log::LineBuffer::kCapacity - 1);
  call(lines, writer, 4, "more%s\n", big.c_str());
  ASSERT_EQ(writer.lines.size(), 1u);
  const std::string& line = writer.lines[0].second;
  EXPECT_EQ(line.size(), log::LineBuffer::kCapacity - 1);
  EXPECT_EQ(line.back(), '\n');
  EXPECT_EQ(line.substr(0, 10), std::string(10, 'a'));
  // The buffer is free again.
  call(lines, writer, 4, "next\n");
  ASSERT_EQ(writer.lines.size(), 2u);
  EXPECT_EQ(writer.lines[1].second, "next\n");
}

TEST(LineAssembly, FullBufferStillTakesTheEmptyLineOfDetailText) {
  RecordingWriter writer;
  log::LineBuffer lines;
  const std::string big(5000, 'b');
  call(lines, writer, 5, "%s", big.c_str());
  call(lines, writer, 5, "\n");
  call(lines, writer, 5, "\n");
  ASSERT_EQ(writer.lines.size(), 1u);
  EXPECT_EQ(writer.lines[0].second.back(), '\n');
  EXPECT_LE(writer.lines[0].second.size(), log::LineBuffer::kCapacity - 1);
}

TEST(LineAssembly, CutNeverSplitsAUtf8Character) {
  RecordingWriter writer;
  log::LineBuffer lines;
  const std::string fill(4094, 'c');
  call(lines, writer, 4, "%s", fill.c_str());
  call(lines, writer, 4, "\xC3\xA9\xC3\xA9");  // two two-byte characters, one byte of room
  EXPECT_EQ(lines.pending(), fill);
}

TEST(LineAssembly, ConcurrentCallsKeepTheBufferIntact) {
  RecordingWriter writer;
  log::LineBuffer lines;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        call(lines, writer, static_cast<uint8_t>(1 + (i % 5)), "thread %d call %d %s", t, i,
             (i % 3 == 0) ? "\n" : "");
      }
    });
  }
  for (auto& th : threads) th.join();
  size_t total = lines.pending().size();
  for (const auto& [level, line] : writer.lines) {
    EXPECT_LE(line.size(), log::LineBuffer::kCapacity - 1);
    EXPECT_GE(level, 1);
    EXPECT_LE(level, 5);
    total += line.size();
  }
  EXPECT_GT(writer.lines.size(), 0u);
  EXPECT_GT(total, 0u);
}

TEST(LogEntry, WithTheProviderUnregisteredNothingIsWrittenAndTheAnswerIsMinusOne) {
  FakePlatform fp;
  fp.trace.register_status = 8;
  CMultiAntennaSvc svc("", "", fp.platform);
  EXPECT_EQ(fp.console.text(), "Provider not registered. EventRegister failed with 8\n");
  EXPECT_EQ(svc.WriteLogEntry("line\n", 4), -1);
  EXPECT_TRUE(fp.trace.events().empty());
}

TEST(LogEntry, AnswersTheWriteStatus) {
  FakePlatform fp;
  fp.trace.write_status = 534;
  CMultiAntennaSvc svc("", "", fp.platform);
  EXPECT_EQ(svc.WriteLogEntry("line\n", 2), 534);
  EXPECT_EQ(svc.WriteLogEntry("\n", 2), -1);
}

TEST(LogEntry, ALevelThatNoSessionRecordsIsNotWrittenButStillEchoed) {
  FakePlatform fp;
  fp.trace.listening_level = 4;  // a session that records up to information
  CMultiAntennaSvc svc("", "", fp.platform);
  svc.set_console(true);
  EXPECT_EQ(svc.WriteLogEntry("detail\n", 5), 0);  // as the write answers with nobody listening
  EXPECT_EQ(svc.WriteLogEntry("info\n", 4), 0);
  EXPECT_EQ(fp.trace.enabled_queries(), 2);
  const auto events = fp.trace.events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].line, "info\n");
  EXPECT_EQ(fp.console.text(), "5: detail\n4: info\n");

  fp.trace.listening_level = 0;  // the session ends
  svc.log().write(4, "gone\n");
  EXPECT_EQ(fp.trace.events().size(), 1u);
}

TEST(LogEntry, ConsoleEchoComesFirstWithTheLevel) {
  FakePlatform fp;
  CMultiAntennaSvc svc("", "", fp.platform);
  svc.set_console(true);
  svc.WriteLogEntry("hello\n", 3);
  svc.WriteLogEntry("no line end", 0);
  EXPECT_EQ(fp.console.text(), "3: hello\n0: no line end");
  ASSERT_EQ(fp.trace.events().size(), 2u);
}

TEST(LogEntry, DescriptorsFollowTheLevelsWithLevelZeroAsInformation) {
  for (uint8_t level = 0; level <= 5; ++level) {
    const auto d = log::log_event_descriptor(level);
    EXPECT_EQ(d.id, level);
    EXPECT_EQ(d.version, 0);
    EXPECT_EQ(d.channel, 16);
    EXPECT_EQ(d.level, level == 0 ? 4 : level);
    EXPECT_EQ(d.opcode, 0);
    EXPECT_EQ(d.task, 0);
    EXPECT_EQ(d.keyword, 0x8000000000000000ULL);
  }
}

TEST(LogEntry, ProviderIsRegisteredAtConstructionAndUnregisteredAtDestruction) {
  FakePlatform fp;
  {
    CMultiAntennaSvc svc("", "", fp.platform);
    ASSERT_EQ(fp.trace.registered.size(), 1u);
    EXPECT_EQ(platform::to_string(fp.trace.registered[0]),
              "{F5F415CB-6614-45C6-9453-C5A0D2CD3C5C}");
    EXPECT_TRUE(fp.trace.unregistered.empty());
  }
  ASSERT_EQ(fp.trace.unregistered.size(), 1u);
  EXPECT_EQ(fp.trace.unregistered[0], 0x5151u);
}

TEST(LogEntry, FailedRegistrationIsNotUnregistered) {
  FakePlatform fp;
  fp.trace.register_status = 5;
  { CMultiAntennaSvc svc("", "", fp.platform); }
  EXPECT_TRUE(fp.trace.unregistered.empty());
}

}  // namespace
}  // namespace zaltor::host_test
