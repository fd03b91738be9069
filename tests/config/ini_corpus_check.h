#pragma once
// Reads every row of ini-corpus/expected.tsv with a profile reader and checks the answer
// and the value. The Linux reader and the Windows functions are held to the same table.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "config_test_support.h"
#include "platform/profile.h"

namespace zaltor::config::testing {

inline std::vector<std::string> split_tabs(const std::string& line) {
  std::vector<std::string> out;
  std::string field;
  std::istringstream in(line);
  while (std::getline(in, field, '\t')) out.push_back(field);
  return out;
}

inline std::string corpus_field(const std::string& f) {
  return f == "~" ? std::string() : f;
}

// `dir` ends with the platform's separator; the table names files relative to it.
inline void check_ini_corpus(platform::ProfileReader& reader, const std::string& dir) {
  std::istringstream table(read_text_file(dir + "expected.tsv"));
  std::string line;
  int checked = 0;
  while (std::getline(table, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const auto f = split_tabs(line);
    ASSERT_EQ(f.size(), 8u) << line;
    SCOPED_TRACE(line);
    const std::string path = dir + f[1];
    const auto expected_return = static_cast<uint32_t>(std::stoul(f[6]));
    if (f[0] == "int") {
      EXPECT_EQ(reader.read_int(corpus_field(f[2]), f[3], std::stoi(f[4]), path), expected_return);
    } else if (f[0] == "str") {
      std::string value = "garbage";
      EXPECT_EQ(reader.read_string(corpus_field(f[2]), f[3], f[4], value,
                                   static_cast<uint32_t>(std::stoul(f[5])), path),
                expected_return);
      EXPECT_EQ(value, corpus_field(f[7]));
    } else {
      ASSERT_EQ(f[0], "names");
      std::string names = "garbage";
      EXPECT_EQ(reader.read_section_names(names, static_cast<uint32_t>(std::stoul(f[5])), path),
                expected_return);
      std::string shown = names;
      for (char& c : shown) {
        if (c == '\0') c = '|';
      }
      EXPECT_EQ(shown, corpus_field(f[7]));
    }
    ++checked;
  }
  EXPECT_GT(checked, 60);
}

}  // namespace zaltor::config::testing
