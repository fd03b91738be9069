// The lab's HTML report: its structure, and that a browser renders it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "lab/lab_fixture.h"
#include "lab/lab_report.h"

namespace zaltor::lab::testing {
namespace {

size_t count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

const char* const kReportRadio = R"({"rssi": [{"Main": -60, "Div": -52}, {"Main": -62, "Div": -55}],
  "noise": 1, "seed": 3, "rateMbps": null, "fading": {"depthDb": 4, "periodSeconds": 30},
  "throughputBps": 1})";

std::string two_config_report() {
  const std::string scenario =
      scenario_text(900, kReportRadio, R"("about": "A <test> scenario & its \"truth\".")");
  std::vector<RunRow> rows;
  for (double w : {0.0, 5.0}) {
    const RunResult r = run_lab(scenario, config_text(w));
    EXPECT_TRUE(r.ok) << r.error;
    rows.push_back({"dir/fading.json", w == 0 ? "plain.ini" : "weighted.ini", r.figures, r.trace});
  }
  std::string html, error;
  EXPECT_TRUE(render_report(rows, {scenario, scenario}, "AB12XY", html, error)) << error;
  return html;
}

TEST(LabReport, OnePageWithTheTruthAndEveryConfigurationSideBySide) {
  const std::string html = two_config_report();
  EXPECT_EQ(html.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_NE(html.find("</html>"), std::string::npos);
  EXPECT_EQ(count(html, "<section class=\"scenario\""), 1u);
  EXPECT_EQ(count(html, "<svg class=\"truth\""), 1u);
  EXPECT_EQ(count(html, "<svg class=\"run\""), 2u);
  EXPECT_EQ(count(html, "<table class=\"figures\""), 1u);
  EXPECT_EQ(count(html, "<table class=\"summary\""), 1u);
  EXPECT_EQ(count(html, "<polyline class=\"mode\""), 4u);  // the truth of four modes
  EXPECT_GT(count(html, "<rect class=\"measuring\""), 0u);
  EXPECT_GT(count(html, "<line class=\"pass"), 10u);
  EXPECT_GT(count(html, "<circle class=\"measured\""), 40u);
  EXPECT_NE(html.find("<th>plain.ini</th><th>weighted.ini</th>"), std::string::npos);
  EXPECT_NE(html.find("fading.json"), std::string::npos);
  // Text from the files is escaped.
  EXPECT_NE(html.find("A &lt;test&gt; scenario &amp; its &quot;truth&quot;."), std::string::npos);
  // Self-contained: nothing fetched, nothing run.
  EXPECT_EQ(html.find("<script"), std::string::npos);
  EXPECT_EQ(html.find("http://"), std::string::npos);
  EXPECT_EQ(html.find("https://"), std::string::npos);
  EXPECT_EQ(html.find("src="), std::string::npos);
}

std::string find_chromium() {
  for (const char* name : {"chromium", "chromium-browser", "google-chrome"}) {
    for (const char* dir : {"/usr/bin", "/usr/local/bin", "/bin"}) {
      const std::string p = std::string(dir) + "/" + name;
      if (::access(p.c_str(), X_OK) == 0) return p;
    }
  }
  return "";
}

TEST(LabReport, HeadlessChromiumRendersIt) {
  const std::string chromium = find_chromium();
  if (chromium.empty()) {
    GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh installs it)";
  }
  const auto dir =
      std::filesystem::temp_directory_path() / ("lab-report-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  const std::string page = (dir / "report.html").string();
  std::ofstream(page) << two_config_report();
  const std::string dom = (dir / "dom.html").string();
  const std::string log = (dir / "chromium.log").string();
  const std::string cmd = "timeout 120 '" + chromium +
                          "' --headless --no-sandbox --disable-gpu --user-data-dir='" +
                          (dir / "profile").string() + "' --dump-dom 'file://" + page + "' >'" +
                          dom + "' 2>'" + log + "'";
  const int status = std::system(cmd.c_str());
  ASSERT_TRUE(WIFEXITED(status)) << cmd;
  EXPECT_EQ(WEXITSTATUS(status), 0) << cmd;
  std::ifstream in(dom);
  const std::string rendered((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  // The browser parsed the whole page into its document: every plot is an SVG element.
  EXPECT_EQ(count(rendered, "<svg class=\"truth\""), 1u);
  EXPECT_EQ(count(rendered, "<svg class=\"run\""), 2u);
  EXPECT_NE(rendered.find("weighted.ini"), std::string::npos);
  std::ifstream log_in(log);
  const std::string log_text((std::istreambuf_iterator<char>(log_in)),
                             std::istreambuf_iterator<char>());
  EXPECT_EQ(log_text.find("CONSOLE"), std::string::npos) << log_text;
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
}

}  // namespace
}  // namespace zaltor::lab::testing
