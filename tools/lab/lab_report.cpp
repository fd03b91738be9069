#include "lab/lab_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

#include "lab/lab_run.h"
#include "lab/lab_truth.h"

namespace zaltor::lab {
namespace {

// One colour per mode (up to sixteen), readable on white.
const char* const kModeColours[] = {
    "#1f77b4", "#d62728", "#2ca02c", "#ff7f0e", "#9467bd", "#8c564b", "#e377c2", "#7f7f7f",
    "#bcbd22", "#17becf", "#393b79", "#637939", "#8c6d31", "#843c39", "#7b4173", "#3182bd"};

const char* colour(int mode) {
  if (mode < 1 || mode > 16) return "#cccccc";
  return kModeColours[mode - 1];
}

std::string escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string num(double v, int decimals = 1) {
  char b[64];
  std::snprintf(b, sizeof b, "%.*f", decimals, v);
  return b;
}

constexpr double kWidth = 960;  // plot width in px
constexpr double kLeft = 56;    // room for the axis labels
constexpr int kSamples = 480;   // truth samples per plot

struct Axis {
  double t_end_s;
  double x(double t_s) const { return kLeft + (t_end_s > 0 ? t_s / t_end_s : 0) * kWidth; }
};

std::string time_label(double s) {
  if (s >= 7200) return num(s / 3600, 1) + " h";
  if (s >= 120) return num(s / 60, 0) + " min";
  return num(s, 0) + " s";
}

std::string time_ticks(const Axis& a, double y0, double y1) {
  std::string svg;
  for (int i = 0; i <= 8; ++i) {
    const double t = a.t_end_s * i / 8;
    const double x = a.x(t);
    svg += "<line class=\"grid\" x1=\"" + num(x) + "\" y1=\"" + num(y0) + "\" x2=\"" + num(x) +
           "\" y2=\"" + num(y1) + "\"/>";
    svg += "<text class=\"tick\" x=\"" + num(x) + "\" y=\"" + num(y1 + 12) +
           "\" text-anchor=\"middle\">" + time_label(t) + "</text>";
  }
  return svg;
}

// The truth of every mode (RSSI lines) with the best mode as a band above.
std::string truth_plot(const Truth& truth, const Axis& a, double& lo, double& hi) {
  std::vector<std::vector<double>> rssi(static_cast<size_t>(truth.modes()));
  std::vector<int> best;
  std::vector<double> rate, values;
  lo = -40;
  hi = -95;
  for (int i = 0; i <= kSamples; ++i) {
    const auto t_ms = static_cast<int64_t>(a.t_end_s * 1000.0 * i / kSamples);
    truth.at(t_ms, rate, values);
    best.push_back(Truth::best(rate, values));
    for (size_t m = 0; m < values.size(); ++m) {
      rssi[m].push_back(values[m]);
      lo = std::min(lo, values[m]);
      hi = std::max(hi, values[m]);
    }
  }
  lo = std::floor(lo / 5) * 5 - 5;
  hi = std::ceil(hi / 5) * 5 + 5;
  const double top = 28, h = 180;
  auto y = [&](double v) { return top + (hi - v) / (hi - lo) * h; };
  std::string svg = "<svg class=\"truth\" width=\"" + num(kLeft + kWidth + 20) + "\" height=\"" +
                    num(top + h + 24) + "\" role=\"img\"><title>truth per mode</title>";
  // The best mode over time.
  for (int i = 0; i < kSamples; ++i) {
    const double x0 = a.x(a.t_end_s * i / kSamples), x1 = a.x(a.t_end_s * (i + 1) / kSamples);
    svg += "<rect class=\"best\" x=\"" + num(x0) + "\" y=\"4\" width=\"" + num(x1 - x0 + 0.3) +
           "\" height=\"14\" fill=\"" + colour(best[static_cast<size_t>(i)]) + "\"/>";
  }
  svg += "<text class=\"label\" x=\"4\" y=\"15\">best</text>";
  for (double v = lo; v <= hi; v += 10) {
    svg += "<line class=\"grid\" x1=\"" + num(kLeft) + "\" y1=\"" + num(y(v)) + "\" x2=\"" +
           num(kLeft + kWidth) + "\" y2=\"" + num(y(v)) + "\"/><text class=\"tick\" x=\"" +
           num(kLeft - 4) + "\" y=\"" + num(y(v) + 4) + "\" text-anchor=\"end\">" + num(v, 0) +
           "</text>";
  }
  svg += time_ticks(a, top, top + h);
  for (size_t m = 0; m < rssi.size(); ++m) {
    std::string pts;
    for (int i = 0; i <= kSamples; ++i) {
      pts +=
          num(a.x(a.t_end_s * i / kSamples)) + "," + num(y(rssi[m][static_cast<size_t>(i)])) + " ";
    }
    svg += "<polyline class=\"mode\" fill=\"none\" stroke=\"" +
           std::string(colour(static_cast<int>(m) + 1)) + "\" points=\"" + pts + "\"/>";
  }
  svg += "<text class=\"tick\" x=\"4\" y=\"" + num(top + h / 2) + "\">dBm</text></svg>";
  return svg;
}

// One configuration's run: the mode in use (band), the measuring periods (grey over it),
// the passes (ticks, red for a fallback) and the averages each pass measured (dots).
std::string run_plot(const RunRow& row, const Axis& a, double lo, double hi) {
  const double band_top = 4, band_height = 16, pass_y = 24, top = 40, h = 110;
  auto y = [&](double v) { return top + (hi - std::clamp(v, lo, hi)) / (hi - lo) * h; };
  std::string svg = "<svg class=\"run\" width=\"" + num(kLeft + kWidth + 20) + "\" height=\"" +
                    num(top + h + 24) + "\" role=\"img\"><title>" + escape(base_name(row.config)) +
                    "</title>";
  const Trace& t = row.trace;
  const double end = static_cast<double>(t.end_ms) / 1000.0;
  int in_use = t.initial_mode;
  double since = 0;
  std::string grey;
  double measuring_since = -1;
  auto band = [&](double from, double to, int mode) {
    if (to <= from) return;
    svg += "<rect class=\"inuse\" x=\"" + num(a.x(from)) + "\" y=\"" + num(band_top) +
           "\" width=\"" + num(std::max(0.3, a.x(to) - a.x(from))) + "\" height=\"" +
           num(band_height) + "\" fill=\"" + colour(mode) + "\"/>";
  };
  for (const auto& e : t.switches) {
    const double at = static_cast<double>(e.at_ms) / 1000.0;
    if (e.measuring) {
      if (measuring_since < 0) measuring_since = at;
      continue;
    }
    if (measuring_since >= 0) {
      grey += "<rect class=\"measuring\" x=\"" + num(a.x(measuring_since)) + "\" y=\"" +
              num(band_top) + "\" width=\"" + num(std::max(0.5, a.x(at) - a.x(measuring_since))) +
              "\" height=\"" + num(band_height) + "\"/>";
      measuring_since = -1;
    }
    if (e.mode != in_use) {
      band(since, at, in_use);
      since = at;
      in_use = e.mode;
    }
  }
  band(since, end, in_use);
  if (measuring_since >= 0) {
    grey += "<rect class=\"measuring\" x=\"" + num(a.x(measuring_since)) + "\" y=\"" +
            num(band_top) + "\" width=\"" + num(std::max(0.5, a.x(end) - a.x(measuring_since))) +
            "\" height=\"" + num(band_height) + "\"/>";
  }
  svg += grey;
  svg += "<text class=\"label\" x=\"4\" y=\"16\">in use</text>";
  svg += "<text class=\"label\" x=\"4\" y=\"34\">passes</text>";
  for (const auto& p : t.passes) {
    const double x = a.x(static_cast<double>(p.start_ms) / 1000.0);
    svg += "<line class=\"" + std::string(p.fallback ? "pass fallback" : "pass") + "\" x1=\"" +
           num(x) + "\" y1=\"" + num(pass_y) + "\" x2=\"" + num(x) + "\" y2=\"" + num(pass_y + 10) +
           "\"/>";
  }
  for (double v = lo; v <= hi; v += 10) {
    svg += "<line class=\"grid\" x1=\"" + num(kLeft) + "\" y1=\"" + num(y(v)) + "\" x2=\"" +
           num(kLeft + kWidth) + "\" y2=\"" + num(y(v)) + "\"/><text class=\"tick\" x=\"" +
           num(kLeft - 4) + "\" y=\"" + num(y(v) + 4) + "\" text-anchor=\"end\">" + num(v, 0) +
           "</text>";
  }
  svg += time_ticks(a, top, top + h);
  // At most a few thousand dots: a long run shows every n-th pass.
  const size_t stride = std::max<size_t>(1, t.passes.size() / 600);
  for (size_t i = 0; i < t.passes.size(); i += stride) {
    const auto& p = t.passes[i];
    const double at = static_cast<double>(p.end_ms >= 0 ? p.end_ms : p.start_ms) / 1000.0;
    for (const auto& m : p.measured) {
      svg += "<circle class=\"measured\" cx=\"" + num(a.x(at)) + "\" cy=\"" + num(y(m.rssi)) +
             "\" r=\"2.2\" fill=\"" + colour(m.mode) + "\"/>";
    }
  }
  svg += "<text class=\"tick\" x=\"4\" y=\"" + num(top + h / 2) + "\">measured</text></svg>";
  return svg;
}

std::string figures_table(const std::vector<const RunRow*>& runs) {
  std::string h = "<table class=\"figures\"><thead><tr><th>figure</th>";
  for (const RunRow* r : runs) h += "<th>" + escape(base_name(r->config)) + "</th>";
  h += "</tr></thead><tbody>";
  auto row = [&](const char* name, auto value) {
    h += std::string("<tr><td>") + name + "</td>";
    for (const RunRow* r : runs) h += "<td>" + value(r->figures) + "</td>";
    h += "</tr>";
  };
  row("rateShare", [](const Figures& f) { return num(f.rateShare, 4); });
  row("rssiLossDb", [](const Figures& f) { return num(f.rssiLossDb, 2); });
  row("measuringShare", [](const Figures& f) { return num(f.measuringShare * 100, 1) + " %"; });
  row("reactionSeconds mean / max",
      [](const Figures& f) { return num(f.reaction_mean, 1) + " / " + num(f.reaction_max, 1); });
  row("passes", [](const Figures& f) { return std::to_string(f.passes); });
  row("modeChanges", [](const Figures& f) { return std::to_string(f.modeChanges); });
  row("fallbacks", [](const Figures& f) { return std::to_string(f.fallbacks); });
  row("secondsPerMode", [](const Figures& f) {
    std::string s;
    for (size_t m = 0; m < f.secondsPerMode.size(); ++m) {
      s += std::string(m ? " " : "") + "<span style=\"color:" + colour(static_cast<int>(m) + 1) +
           "\">" + num(f.secondsPerMode[m], 0) + "</span>";
    }
    return s;
  });
  return h + "</tbody></table>";
}

const char* const kStyle = R"css(
body { font: 14px/1.4 system-ui, sans-serif; margin: 24px; color: #222; max-width: 1100px; }
h1 { font-size: 22px; } h2 { font-size: 18px; margin-top: 36px; border-bottom: 1px solid #ddd; }
h3 { font-size: 14px; margin: 12px 0 2px; }
p.about { color: #555; margin: 2px 0 8px; }
table { border-collapse: collapse; margin: 8px 0; }
td, th { border: 1px solid #ddd; padding: 3px 8px; text-align: right; }
td:first-child, th:first-child { text-align: left; }
.grid { stroke: #eee; } .tick { font-size: 10px; fill: #777; } .label { font-size: 11px; fill: #444; }
.mode { stroke-width: 1.5; } .measuring { fill: #000; fill-opacity: 0.35; }
.pass { stroke: #444; stroke-width: 1; } .pass.fallback { stroke: #d00; stroke-width: 2; }
.legend span { display: inline-block; margin-right: 14px; }
.legend i { display: inline-block; width: 12px; height: 12px; margin-right: 4px; vertical-align: -1px; }
td.good { background: #e6f4e6; } td.fair { background: #fdf6dc; } td.poor { background: #fbe3e3; }
)css";

}  // namespace

bool render_report(const std::vector<RunRow>& rows, const std::vector<std::string>& scenario_texts,
                   const std::string& model, std::string& html, std::string& error) {
  // Scenarios in the order first seen, each with its runs.
  std::vector<std::string> order;
  std::map<std::string, std::vector<size_t>> by_scenario;
  for (size_t i = 0; i < rows.size(); ++i) {
    if (!by_scenario.count(rows[i].scenario)) order.push_back(rows[i].scenario);
    by_scenario[rows[i].scenario].push_back(i);
  }
  std::vector<std::string> configs;
  for (const auto& r : rows) {
    if (std::find(configs.begin(), configs.end(), r.config) == configs.end()) {
      configs.push_back(r.config);
    }
  }

  html =
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Antenna lab report"
      "</title><style>" +
      std::string(kStyle) + "</style></head><body>\n<h1>Antenna lab: " + escape(model) + "</h1>\n";
  // The summary: rateShare of every scenario and configuration.
  html += "<table class=\"summary\"><thead><tr><th>scenario</th>";
  for (const auto& c : configs) html += "<th>" + escape(base_name(c)) + "</th>";
  html += "</tr></thead><tbody>";
  for (const auto& s : order) {
    html += "<tr><td><a href=\"#s" + std::to_string(&s - order.data()) + "\">" +
            escape(base_name(s)) + "</a></td>";
    for (const auto& c : configs) {
      const RunRow* hit = nullptr;
      for (size_t i : by_scenario[s]) {
        if (rows[i].config == c) hit = &rows[i];
      }
      if (hit == nullptr) {
        html += "<td></td>";
        continue;
      }
      const double share = hit->figures.rateShare;
      const char* cls = share >= 0.99 ? "good" : share >= 0.95 ? "fair" : "poor";
      html += std::string("<td class=\"") + cls + "\" title=\"rateShare\">" + num(share, 4) +
              "<br><small>" + num(hit->figures.rssiLossDb, 2) + " dB, " +
              num(hit->figures.measuringShare * 100, 1) + " % measuring</small></td>";
    }
    html += "</tr>";
  }
  html += "</tbody></table>\n<p class=\"legend\">";
  int modes = 0;
  for (const auto& r : rows)
    modes = std::max(modes, static_cast<int>(r.figures.secondsPerMode.size()));
  for (int m = 1; m <= modes; ++m) {
    html += "<span><i style=\"background:" + std::string(colour(m)) + "\"></i>mode " +
            std::to_string(m) + "</span>";
  }
  html += "<span><i style=\"background:#000;opacity:.35\"></i>measuring</span></p>\n";

  for (size_t si = 0; si < order.size(); ++si) {
    const auto& s = order[si];
    const size_t first = by_scenario[s].front();
    Truth truth;
    if (!load_truth_for_run(scenario_texts[first], model, truth, error)) {
      error = "scenario " + s + ": " + error;
      return false;
    }
    const nlohmann::json doc = nlohmann::json::parse(scenario_texts[first], nullptr, false);
    std::string about;
    if (doc.is_object() && doc.contains("about") && doc["about"].is_string()) about = doc["about"];
    Axis a{static_cast<double>(rows[first].trace.end_ms) / 1000.0};
    html += "<section class=\"scenario\" id=\"s" + std::to_string(si) + "\"><h2>" +
            escape(base_name(s)) + "</h2>";
    if (!about.empty()) html += "<p class=\"about\">" + escape(about) + "</p>";
    double lo = 0, hi = 0;
    html += "<h3>Truth: RSSI of every mode, and the best mode</h3>" + truth_plot(truth, a, lo, hi);
    std::vector<const RunRow*> runs;
    for (size_t i : by_scenario[s]) {
      runs.push_back(&rows[i]);
      html += "<h3>" + escape(base_name(rows[i].config)) + "</h3>" + run_plot(rows[i], a, lo, hi);
    }
    html += figures_table(runs) + "</section>\n";
  }
  html += "</body></html>\n";
  return true;
}

bool write_report(const std::string& path, const std::vector<RunRow>& rows,
                  const std::string& model, std::string& error) {
  std::vector<std::string> texts;
  for (const auto& r : rows) {
    std::vector<uint8_t> data;
    if (!read_whole_file(r.scenario, data)) {
      error = "scenario " + r.scenario + ": cannot be read";
      return false;
    }
    texts.emplace_back(data.begin(), data.end());
  }
  std::string html;
  if (!render_report(rows, texts, model, html, error)) return false;
  std::ofstream out(path, std::ios::binary);
  out << html;
  if (!out) {
    error = "report " + path + ": cannot be written";
    return false;
  }
  return true;
}

}  // namespace zaltor::lab
