// The INI reader against a corpus of files with the reads Windows gives for them
// (ini-corpus/expected.tsv).
#if !defined(_WIN32)
#include <sstream>

#include "config_test_support.h"
#include "platform/utf16.h"

namespace zaltor::config {
namespace {

std::vector<std::string> split_tabs(const std::string& line) {
  std::vector<std::string> out;
  std::string field;
  std::istringstream in(line);
  while (std::getline(in, field, '\t')) out.push_back(field);
  return out;
}

std::string field_text(const std::string& f) {
  return f == "~" ? std::string() : f;
}

TEST(IniReaderCorpus, EveryExpectedReadMatches) {
  ASSERT_FALSE(testing::source_dir().empty()) << "ZALTOR_TEST_SOURCE_DIR is not set";
  const std::string dir = testing::source_dir() + "/tests/config/ini-corpus/";
  std::istringstream table(testing::read_text_file(dir + "expected.tsv"));
  auto reader = platform::make_ini_profile_reader();
  std::string line;
  int checked = 0;
  while (std::getline(table, line)) {
    if (line.empty() || line[0] == '#') continue;
    const auto f = split_tabs(line);
    ASSERT_EQ(f.size(), 8u) << line;
    SCOPED_TRACE(line);
    const std::string path = dir + f[1];
    const auto expected_return = static_cast<uint32_t>(std::stoul(f[6]));
    if (f[0] == "int") {
      EXPECT_EQ(reader->read_int(field_text(f[2]), f[3], std::stoi(f[4]), path), expected_return);
    } else if (f[0] == "str") {
      std::string value = "garbage";
      EXPECT_EQ(reader->read_string(field_text(f[2]), f[3], f[4], value,
                                    static_cast<uint32_t>(std::stoul(f[5])), path),
                expected_return);
      EXPECT_EQ(value, field_text(f[7]));
    } else {
      ASSERT_EQ(f[0], "names");
      std::string names = "garbage";
      EXPECT_EQ(reader->read_section_names(names, static_cast<uint32_t>(std::stoul(f[5])), path),
                expected_return);
      std::string shown = names;
      for (char& c : shown) {
        if (c == '\0') c = '|';
      }
      EXPECT_EQ(shown, field_text(f[7]));
    }
    ++checked;
  }
  EXPECT_GT(checked, 60);
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
#endif
