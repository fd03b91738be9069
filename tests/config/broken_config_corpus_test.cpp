// A corpus of damaged configurations, each loaded as the service loads it: plain, and
// encrypted into Conf.bin. broken/expected.tsv gives the result and a line of the log.
#include <sstream>

#include "config/config_crypt.h"
#include "config/config_loader.h"
#include "config_test_support.h"

namespace zaltor::config {
namespace {

struct Expectation {
  std::string file;
  Status result;
  std::string log_line;
};

std::vector<Expectation> expectations(const std::string& dir) {
  std::vector<Expectation> out;
  std::istringstream table(testing::read_text_file(dir + "expected.tsv"));
  std::string line;
  while (std::getline(table, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    Expectation e;
    std::string result;
    std::getline(fields, e.file, '\t');
    std::getline(fields, result, '\t');
    std::getline(fields, e.log_line, '\t');
    e.result = static_cast<Status>(std::stoul(result));
    const size_t nl = e.log_line.find("\\n");
    // Built anew rather than replaced in place: GCC 12's -O3 warns falsely (-Wrestrict)
    // about the in-place replace.
    if (nl != std::string::npos) {
      e.log_line = e.log_line.substr(0, nl) + '\n' + e.log_line.substr(nl + 2);
    }
    out.push_back(e);
  }
  return out;
}

class BrokenConfigCorpus : public ::testing::TestWithParam<bool> {};

TEST_P(BrokenConfigCorpus, EachFileLoadsOrFailsAsExpected) {
  const bool encrypted = GetParam();
  ASSERT_FALSE(testing::source_dir().empty()) << "ZALTOR_TEST_SOURCE_DIR is not set";
  const std::string dir = testing::source_dir() + "/tests/config/broken/";
  const auto all = expectations(dir);
  ASSERT_GT(all.size(), 15u);
  for (const Expectation& e : all) {
    SCOPED_TRACE(e.file);
    testing::LoadFixture f;
    const std::string text = testing::read_text_file(dir + e.file);
    if (encrypted) {
      std::vector<uint8_t> cipher;
      ASSERT_EQ(
          encrypt_config_bytes(*f.crypto, std::vector<uint8_t>(text.begin(), text.end()), cipher),
          0u);
      f.dir.write_bytes("Conf.bin", cipher);
    } else {
      f.dir.write("Conf.ini", text);
    }
    Configuration cfg;
    EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), e.result);
    if (!e.log_line.empty()) {
      EXPECT_TRUE(f.log.has(e.log_line)) << f.log.text();
    }
    if (encrypted) {
      // The decrypted file stays only after a version failure.
      EXPECT_EQ(f.dir.exists("Conf.ini"), e.result == kStatusConfigVersion);
      EXPECT_TRUE(f.console.out.empty());
    } else {
      EXPECT_TRUE(f.dir.exists("Conf.ini"));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(PlainAndEncrypted, BrokenConfigCorpus, ::testing::Values(false, true));

}  // namespace
}  // namespace zaltor::config
