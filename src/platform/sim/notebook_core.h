#pragma once
// The simulated notebook's state, shared by its hardware seams, its timeline and its
// WLAN service thread. One plain std::mutex guards it; it is never held across a clock
// wait (posting to an event only wakes a waiter, it never waits).

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/clock.h"
#include "platform/sim/hardware_call_time.h"
#include "platform/sim/scenario.h"
#include "platform/system_events.h"
#include "platform/wlan.h"

namespace zaltor::platform::sim {

// The message queue of one event window.
struct WindowQueue {
  std::deque<WindowMessage> messages;
  std::unique_ptr<Event> wake;  // auto-reset: set after each post
  bool lid_registered = false;
  bool power_registered = false;
};

struct WlanRegistration {
  uint64_t session = 0;
  uint32_t sources = 0;
  WlanCallback callback;
};

class NotebookCore {
 public:
  NotebookCore(Clock& clock, nlohmann::json doc, Scenario scenario);

  Clock& clock() { return clock_; }

  // Spends the time of one hardware call (kHardwareCallMs unless a test chose otherwise).
  // Never with `mutex` held: other threads take part in the clock's schedule meanwhile.
  void spend_call_time() {
    const int64_t ms = call_ms_.load(std::memory_order_relaxed);
    if (ms > 0) clock_.sleep_ms(ms);
  }
  void set_call_ms(int64_t ms) { call_ms_.store(ms, std::memory_order_relaxed); }

  // Everything below is guarded by `mutex`.
  std::mutex mutex;
  // The scenario as it stands now. Its firmware lines are brought up to date only when a
  // patch is merged over it: every control write changes them, and only a patch reads them.
  nlohmann::json doc;
  Scenario scenario;
  // Counts the patches applied: what a seam looked up in `scenario` stays valid while this
  // stays the same.
  uint64_t generation = 0;
  std::vector<std::shared_ptr<WindowQueue>> windows;
  bool windows_closed = false;  // a window made after the close gets its destroy at once
  std::vector<WlanRegistration> wlan_registrations;
  std::deque<std::pair<uint32_t, uint32_t>> wlan_pending;  // (source, code)
  // Told of every "DEVS" write: the notebook's time and the mode the switches form after it.
  // Called with `mutex` held: it must neither wait nor call into the notebook.
  std::function<void(int64_t at_ms, int mode)> switch_observer;

  // With `mutex` held:
  uint32_t status_word_locked() const;
  void set_lines_locked(uint32_t lines);
  // Writes the control lines and the mode they form to the scenario's linesFile when they
  // changed since the last write (the first call always writes).
  void publish_lines_locked();
  // 0 Main, 1 Div, 2 any other line state, of the switch whose control-line ID is `id`.
  int position_locked(int id) const;
  // The mode the switches form (1 + sum of position_i << i), 0 when one stands in no mode.
  int mode_locked() const;
  // One Gaussian sample of mean 0 and deviation 1 from the seeded generator.
  double gaussian_locked();
  void post_window_locked(const WindowMessage& m, bool lid_only, bool power_only);
  void post_wlan_locked(uint32_t source, uint32_t code);

  // Merges `patch` over the scenario (RFC 7386), checks the result and raises the
  // notifications of what changed. False with `error` when the result is not valid; the
  // notebook then stays as it was.
  bool apply_patch(const nlohmann::json& patch, std::string& error);

  // The WLAN service thread's body: delivers queued notifications until stopped.
  void run_wlan_service();
  void stop_wlan_service();

  uint64_t new_session_id() { return next_session_.fetch_add(1, std::memory_order_relaxed); }

 private:
  Clock& clock_;
  std::mt19937_64 rng_;
  std::unique_ptr<Event> wlan_wake_;
  std::atomic<bool> wlan_stop_{false};
  std::atomic<uint64_t> next_session_{1};
  std::atomic<int64_t> call_ms_{kHardwareCallMs};
  uint32_t published_ = 0xFFFFFFFFu;  // lines | mode << 8 last written; guarded by `mutex`
};

// The counter instance name of a WLAN interface description.
std::string counter_instance_name(const std::string& description);
// The character that stands for `c` of a description in its counter instance name.
char counter_instance_char(char c);

}  // namespace zaltor::platform::sim
