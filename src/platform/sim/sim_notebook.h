#pragma once
// The simulated notebook: a clock and every hardware seam, built from a scenario.
//
//   std::string error;
//   auto notebook = make_sim_notebook(path_or_empty, error);  // null: error names the member
//   notebook->start();  // the timeline and the WLAN service begin
//
// The notebook owns its clock; the clock outlives everything else of the notebook. Event
// windows and WLAN sessions handed out must be dropped before the notebook.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/board_query.h"
#include "platform/clock.h"
#include "platform/control_device.h"
#include "platform/counters.h"
#include "platform/device_list.h"
#include "platform/sim/hardware_call_time.h"
#include "platform/sim/scenario.h"
#include "platform/system_events.h"
#include "platform/wlan.h"

namespace zaltor::platform::sim {

class NotebookCore;

class SimNotebook {
 public:
  SimNotebook(std::unique_ptr<Clock> clock, nlohmann::json doc, Scenario scenario);
  ~SimNotebook();
  SimNotebook(const SimNotebook&) = delete;
  SimNotebook& operator=(const SimNotebook&) = delete;

  Clock& clock() { return *clock_; }
  ControlDevice& control_device() { return *control_device_; }
  BoardQuery& board() { return *board_; }
  DeviceLists& devices() { return *devices_; }
  Wlan& wlan() { return *wlan_; }
  Counters& counters() { return *counters_; }
  SystemEvents& system_events() { return *system_events_; }

  // Starts the clock threads of the notebook: the timeline (which also ends the run at
  // stopAfter) and the WLAN service that delivers notifications. Once only.
  void start();
  // What runs when the notebook's clock reaches stopAfter (on the timeline thread). By
  // default nothing: the service sets a hook that flushes and ends the process.
  void set_stop_hook(std::function<void()> hook);

  // Tells `observer` of every "DEVS" write with the notebook's time and the mode the
  // switches form after it (tools that watch what the engine does with the switches). The
  // observer runs with the notebook's lock held: it must neither wait nor call the notebook.
  void set_switch_observer(std::function<void(int64_t at_ms, int mode)> observer);

  // What one hardware call costs on the notebook's clock (kHardwareCallMs by default).
  // Only for tests of the engine's own timing, which count its waits to the millisecond
  // and so want hardware that answers at once; 0 means such instantaneous hardware, where
  // a loop that calls the hardware without ever waiting stops a virtual clock.
  void set_hardware_call_ms(int64_t ms);

  // The notebook's state, for tests and tools.
  Scenario scenario();
  uint32_t lines();
  // 0 "Main", 1 "Div", 2 neither, of the switch with control-line ID `id`.
  int position(int id);
  // The mode the switches form now: 1 + sum of position_i << i; 0 when one is in neither.
  int mode();
  // Applies a JSON Merge Patch now, with the notifications of what changed; false with
  // `error` naming the member when the result is not a valid scenario.
  bool apply_patch(const nlohmann::json& patch, std::string& error);
  // Sends every event window its destroy message: their message loops end. A window
  // made afterwards gets its destroy message at once.
  void close_windows();

 private:
  void run_timeline();

  std::unique_ptr<Clock> clock_;
  std::shared_ptr<NotebookCore> core_;
  std::unique_ptr<ControlDevice> control_device_;
  std::unique_ptr<BoardQuery> board_;
  std::unique_ptr<DeviceLists> devices_;
  std::unique_ptr<Wlan> wlan_;
  std::unique_ptr<Counters> counters_;
  std::unique_ptr<SystemEvents> system_events_;
  std::unique_ptr<Event> stop_;
  std::function<void()> stop_hook_;  // guarded by the core's mutex
  std::unique_ptr<Thread> timeline_thread_;
  std::unique_ptr<Thread> wlan_thread_;
};

// Builds the notebook from a scenario file (empty path: the built-in default scenario).
// Null with `error` ("scenario: <member>: <what>") when the file cannot be read or is wrong.
std::unique_ptr<SimNotebook> make_sim_notebook(const std::string& scenario_path_or_empty,
                                               std::string& error);
// The same from scenario text (empty: the default scenario).
std::unique_ptr<SimNotebook> make_sim_notebook_from_text(const std::string& text,
                                                         std::string& error);

}  // namespace zaltor::platform::sim
