// The INI reader against a corpus of files with the reads Windows gives for them
// (tests/config/ini-corpus/expected.tsv).
#include "config/config_test_support.h"
#include "config/ini_corpus_check.h"
#include "platform/posix/posix_backends.h"
#include "platform/utf16.h"

namespace zaltor::config {
namespace {

TEST(IniReaderCorpus, EveryExpectedReadMatches) {
  ASSERT_FALSE(testing::source_dir().empty()) << "ZALTOR_TEST_SOURCE_DIR is not set";
  auto reader = platform::make_ini_profile_reader();
  testing::check_ini_corpus(*reader, testing::source_dir() + "/tests/config/ini-corpus/");
}

TEST(IniReader, UtfSixteenFileWithByteOrderMarkIsRead) {
  testing::TempDir dir;
  const std::u16string text = u"[S]\r\nk=\u00e9t\u00e9\r\n";
  std::vector<uint8_t> bytes{0xFF, 0xFE};
  for (char16_t c : text) {
    bytes.push_back(static_cast<uint8_t>(c & 0xFF));
    bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  dir.write_bytes("u16.ini", bytes);
  auto reader = platform::make_ini_profile_reader();
  std::string value;
  EXPECT_EQ(reader->read_string("S", "k", "", value, 256, dir.file("u16.ini")), 3u);
  EXPECT_EQ(value, "\xC3\xA9t\xC3\xA9");
}

TEST(IniReader, ChangedFileIsReadAgain) {
  testing::TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  dir.write("c.ini", "[S]\nk=1\n");
  EXPECT_EQ(reader->read_int("S", "k", 0, dir.file("c.ini")), 1u);
  dir.write("c.ini", "[S]\nk=2\n");
  EXPECT_EQ(reader->read_int("S", "k", 0, dir.file("c.ini")), 2u);
}

TEST(IniReader, CountsAreInUtf16Units) {
  testing::TempDir dir;
  auto reader = platform::make_ini_profile_reader();
  dir.write("w.ini", "[S]\nk=\xF0\x9F\x98\x80x\n");  // U+1F600 is two UTF-16 units
  std::string value;
  EXPECT_EQ(reader->read_string("S", "k", "", value, 256, dir.file("w.ini")), 3u);
  EXPECT_EQ(platform::utf8_to_utf16(value).size(), 3u);
}

}  // namespace
}  // namespace zaltor::config
