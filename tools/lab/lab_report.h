#pragma once
// The lab's report: one self-contained HTML page (inline SVG and CSS, no script, nothing
// fetched) with, per scenario, the truth of every mode over time, and per configuration the
// mode in use, the measuring periods, the passes and the averages each pass measured; the
// configurations' figures side by side.

#include <string>
#include <vector>

#include "lab/lab_output.h"

namespace zaltor::lab {

// The page for `rows` (scenarios in the order given, each with its configurations).
// `scenario_texts` holds each row's scenario text (for the truth). False with `error` when
// a scenario cannot be read again.
bool render_report(const std::vector<RunRow>& rows, const std::vector<std::string>& scenario_texts,
                   const std::string& model, std::string& html, std::string& error);

// Renders and writes the page to `path`; the scenarios are read from their files.
bool write_report(const std::string& path, const std::vector<RunRow>& rows,
                  const std::string& model, std::string& error);

}  // namespace zaltor::lab
