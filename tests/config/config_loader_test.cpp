// Loading the configuration: file choice, decryption, version checks, section list.
#include "config/config_loader.h"

#include "config/config_crypt.h"
#include "config_test_support.h"

namespace zaltor::config {
namespace {

using testing::k_minimal_ini;
using testing::LoadFixture;

std::vector<uint8_t> encrypt(platform::Crypto& crypto, const std::string& text) {
  std::vector<uint8_t> cipher;
  EXPECT_EQ(encrypt_config_bytes(crypto, std::vector<uint8_t>(text.begin(), text.end()), cipher),
            0u);
  return cipher;
}

TEST(SectionSearchList, ModelAB12XYRunsDownToTheDigit) {
  EXPECT_EQ(build_section_search_list("AB12XY"),
            (SectionList{"Settings.AB12XY", "Settings.AB12X", "Settings.AB12"}));
}

TEST(SectionSearchList, ModelEndingInDigitStillYieldsTwoSections) {
  EXPECT_EQ(build_section_search_list("AB12"), (SectionList{"Settings.AB12", "Settings.AB1"}));
}

TEST(SectionSearchList, ModelWithoutDigitStopsAtThePrefix) {
  EXPECT_EQ(build_section_search_list("XYZ"),
            (SectionList{"Settings.XYZ", "Settings.XY", "Settings.X"}));
}

TEST(SectionSearchList, LongModelIsCutTo259Characters) {
  const SectionList list = build_section_search_list(std::string(300, 'A') + "1");
  EXPECT_EQ(list.front().size(), 259u);
  EXPECT_GT(list.size(), 200u);  // no digit left after the cut: down to the prefix
  EXPECT_EQ(list.back(), "Settings.A");
}

TEST(ConfigLoader, PlainAndCipherBothPresentPlainWinsAndSurvives) {
  LoadFixture f;
  f.dir.write("Conf.ini", k_minimal_ini);
  f.dir.write_bytes("Conf.bin", encrypt(*f.crypto, "[Version]\nTargetVersionMajor=3\n"));
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), SWITCH_OK);
  EXPECT_TRUE(f.dir.exists("Conf.ini"));
  EXPECT_EQ(f.dir.read("Conf.ini"), k_minimal_ini);
  EXPECT_TRUE(f.files.removed.empty());
  EXPECT_TRUE(f.console.out.empty());
}

TEST(ConfigLoader, OnlyCipherPresentPlainIsMadeAndRemoved) {
  LoadFixture f;
  f.dir.write_bytes("Conf.bin", encrypt(*f.crypto, k_minimal_ini));
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), SWITCH_OK);
  ASSERT_EQ(f.files.written.size(), 1u);
  EXPECT_EQ(f.files.written[0], f.dir.file("Conf.ini"));
  ASSERT_EQ(f.files.removed.size(), 1u);
  EXPECT_EQ(f.files.removed[0], f.dir.file("Conf.ini"));
  EXPECT_FALSE(f.dir.exists("Conf.ini"));
  EXPECT_EQ(cfg.settings.RSSICollectCount[0], 3);
  EXPECT_EQ(cfg.switches.pcw[1], 'B');
  EXPECT_TRUE(f.console.out.empty());
}

TEST(ConfigLoader, MinorVersionOneFailsAndLeavesTheDecryptedFile) {
  LoadFixture f;
  f.dir.write_bytes("Conf.bin",
                    encrypt(*f.crypto, "[Version]\nTargetVersionMajor=2\nTargetVersionMinor=1\n"));
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  ASSERT_EQ(f.log.lines.size(), 1u);
  EXPECT_EQ(f.log.lines[0].text,
            "Config minor target version mismatch (1, expected maximum is 0)\n");
  EXPECT_EQ(f.log.lines[0].level, kLogError);
  EXPECT_TRUE(f.dir.exists("Conf.ini"));
}

TEST(ConfigLoader, VersionMessages) {
  struct Case {
    const char* version;
    const char* message;
  };
  const Case cases[] = {
      {"", "Invalid or missing major target version.\n"},
      {"TargetVersionMajor=3\nTargetVersionMinor=0\n",
       "Config major target version mismatch (3, expected 2)\n"},
      {"TargetVersionMajor=2\n", "Invalid or missing minor target version.\n"},
      {"TargetVersionMajor=2\nTargetVersionMinor=-1\n",
       "Config minor target version mismatch (-1, expected maximum is 0)\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    LoadFixture f;
    f.dir.write("Conf.ini", std::string("[Version]\n") + c.version);
    Configuration cfg;
    EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
    ASSERT_EQ(f.log.lines.size(), 1u);
    EXPECT_EQ(f.log.lines[0].text, c.message);
  }
}

TEST(ConfigLoader, CiphertextNotMultipleOfSixteenFailsAsMissingMajor) {
  LoadFixture f;
  std::vector<uint8_t> cipher = encrypt(*f.crypto, k_minimal_ini);
  cipher.resize(cipher.size() - 5);
  f.dir.write_bytes("Conf.bin", cipher);
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  EXPECT_EQ(f.console.out, "**** Error 0xc0000206 returned by BCryptDecrypt\n");
  EXPECT_TRUE(f.log.has("Invalid or missing major target version.\n"));
}

TEST(ConfigLoader, WrongPaddingFailsAsMissingMajor) {
  LoadFixture f;
  std::vector<uint8_t> cipher = encrypt(*f.crypto, k_minimal_ini);
  // Changing the next-to-last block turns the last plaintext byte into 0x11 + original.
  cipher[cipher.size() - 17] ^= 0xF0;
  f.dir.write_bytes("Conf.bin", cipher);
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  EXPECT_EQ(f.console.out, "**** Error 0xc0000001 returned by BCryptDecrypt\n");
  EXPECT_TRUE(f.log.has("Invalid or missing major target version.\n"));
}

TEST(ConfigLoader, MissingCipherFilePrintsOpenFailure) {
  LoadFixture f;
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigVersion);
  EXPECT_EQ(f.console.out, "**** Error 0x2 cipher data file open failed\n");
}

TEST(ConfigLoader, ConsoleConfigNameIsUsedLoggedAndKept) {
  LoadFixture f;
  f.dir.write("My.ini", k_minimal_ini);
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context("My.ini"), "AB12XY", 2, cfg), SWITCH_OK);
  ASSERT_FALSE(f.log.lines.empty());
  EXPECT_EQ(f.log.lines[0].text, "Config file: My.ini\n");
  EXPECT_EQ(f.log.lines[0].level, kLogInfo);
  EXPECT_TRUE(f.dir.exists("My.ini"));
  EXPECT_TRUE(f.files.written.empty());
}

TEST(ConfigLoader, MissingRequiredKeyRemovesTheDecryptedFile) {
  LoadFixture f;
  std::string ini = k_minimal_ini;
  ini.replace(ini.find("DefaultMode=1\n"), 14, "");
  f.dir.write_bytes("Conf.bin", encrypt(*f.crypto, ini));
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigKeyMissing);
  EXPECT_FALSE(f.dir.exists("Conf.ini"));
}

TEST(ConfigLoader, ModelWithoutSectionFailsWithMissingKey) {
  LoadFixture f;
  f.dir.write("Conf.ini", k_minimal_ini);
  Configuration cfg;
  // The mapping is found through no section: the PCW letter is missing.
  EXPECT_EQ(load_configuration(f.context(), "ZZ99", 2, cfg), SWITCH_ERR_RSSI_PA);
  EXPECT_TRUE(f.log.has("PCW Entries not found for Port Main\n"));
}

TEST(ConfigLoader, CollectCountZeroIsAnInvalidMaximum) {
  LoadFixture f;
  std::string ini = k_minimal_ini;
  ini.replace(ini.find("RSSICollectCount=3"), 18, "RSSICollectCount=0");
  f.dir.write("Conf.ini", ini);
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigKeyMissing);
  EXPECT_TRUE(f.log.has("Invalid MaxRSSICollectCount (0)\n"));
}

TEST(ConfigLoader, EnabledSetsAndLastFoundSetAreKept) {
  LoadFixture f;
  f.dir.write("Conf.ini",
              std::string(k_minimal_ini) +
                  "[Settings.AB12.3]\nDefaultMode=2\n[Settings.AB12.1]\nRSSICollectCount=9\n");
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), SWITCH_OK);
  EXPECT_TRUE(cfg.enabled[1]);
  EXPECT_TRUE(cfg.enabled[3]);
  EXPECT_EQ(cfg.last_found_set, 1);
  EXPECT_EQ(cfg.settings.MaxRSSICollectCount, 9);
}

TEST(ConfigLoader, TooManySectionsAreRefused) {
  LoadFixture f;
  std::string ini = k_minimal_ini;
  for (int i = 0; i < 4000; ++i) ini += "[Filler.Section.Number." + std::to_string(i) + "]\n";
  f.dir.write_bytes("Conf.bin", encrypt(*f.crypto, ini));
  Configuration cfg;
  EXPECT_EQ(load_configuration(f.context(), "AB12XY", 2, cfg), kStatusConfigKeyMissing);
  EXPECT_TRUE(f.log.has("Section list longer than 65536 characters, configuration refused\n"));
  EXPECT_FALSE(f.dir.exists("Conf.ini"));
}

}  // namespace
}  // namespace zaltor::config
