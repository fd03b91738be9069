// Fuzzes scenario files: each input is loaded as a scenario (merged over the default and
// checked, timeline included) and, when it loads, a simulated notebook is built from it and
// its timeline patches are applied in order, as the notebook's timeline would.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/sim/scenario.h"
#include "platform/sim/sim_notebook.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zaltor::platform::sim;
  const std::string text(reinterpret_cast<const char*>(data), size);
  nlohmann::json doc;
  Scenario scenario;
  std::string error;
  if (!load_scenario(text, doc, scenario, error)) {
    if (error.empty()) std::abort();  // every refusal says why
    return 0;
  }
  // A lines file would be written where the input says: not from a fuzzer.
  if (!scenario.lines_file.empty()) return 0;
  auto notebook = make_sim_notebook_from_text(text, error);
  if (!notebook) std::abort();  // it loaded above
  for (const TimelineEntry& entry : scenario.timeline) {
    // Each patch was checked at load in this order: it must apply.
    if (!notebook->apply_patch(entry.patch, error)) std::abort();
  }
  (void)notebook->mode();
  (void)notebook->lines();
  return 0;
}
