#include "platform/sim/notebook_core.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numbers>

namespace zaltor::platform::sim {
namespace {

using nlohmann::json;

// A uniform number in (0, 1], made by hand so that every standard library gives the
// same sequence for a seed.
double uniform(std::mt19937_64& rng) {
  return (static_cast<double>(rng() >> 11) + 1.0) * (1.0 / 9007199254740992.0);
}

const SimInterface* find_interface(const std::vector<SimInterface>& list, const Guid& g) {
  for (const auto& i : list) {
    if (i.guid == g) return &i;
  }
  return nullptr;
}

}  // namespace

char counter_instance_char(char c) {
  if (c == '(') return '[';
  if (c == ')') return ']';
  // Windows publishes these as "_" in a network interface's instance name.
  if (c == '#' || c == '/' || c == '\\') return '_';
  return c;
}

std::string counter_instance_name(const std::string& description) {
  std::string name = description;
  for (char& c : name) c = counter_instance_char(c);
  return name;
}

NotebookCore::NotebookCore(Clock& clock, nlohmann::json d, Scenario s)
    : doc(std::move(d)),
      scenario(std::move(s)),
      clock_(clock),
      rng_(scenario.seed),
      wlan_wake_(clock.make_event(false)) {
  std::lock_guard<std::mutex> g(mutex);
  // The timeline lives parsed in `scenario` and no patch may change it: without its entries
  // in `doc`, a patch costs the same however long the scenario's story is.
  doc["timeline"] = json::array();
  publish_lines_locked();
}

uint32_t NotebookCore::status_word_locked() const {
  const Firmware& f = scenario.firmware;
  return (f.lines & 0xFFu) | ((f.switch_count & 0xFFu) << 8) | (f.present ? 1u << 16 : 0u) |
         f.extra_bits;
}

void NotebookCore::set_lines_locked(uint32_t lines) {
  scenario.firmware.lines = lines & 0xFFu;
  publish_lines_locked();
}

int NotebookCore::position_locked(int id) const {
  const uint32_t lines = scenario.firmware.lines;
  const uint32_t x = (lines >> (id % 32)) & 1u;
  const uint32_t y = (lines >> ((id + 4) % 32)) & 1u;
  if (x == 1 && y == 1) return 0;
  if (x == 0 && y == 0) return 1;
  return 2;
}

int NotebookCore::mode_locked() const {
  const int switches = static_cast<int>(std::min<uint32_t>(scenario.firmware.switch_count, 4));
  int pattern = 0;
  for (int i = 0; i < switches; ++i) {
    const int p = position_locked(i);
    if (p > 1) return 0;
    pattern |= p << i;
  }
  return pattern + 1;
}

double NotebookCore::gaussian_locked() {
  const double u1 = uniform(rng_);
  const double u2 = uniform(rng_);
  return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * std::numbers::pi * u2);
}

void NotebookCore::post_window_locked(const WindowMessage& m, bool lid_only, bool power_only) {
  for (auto& w : windows) {
    if (lid_only && !w->lid_registered) continue;
    if (power_only && !w->power_registered) continue;
    w->messages.push_back(m);
    w->wake->set();
  }
}

void NotebookCore::post_wlan_locked(uint32_t source, uint32_t code) {
  wlan_pending.emplace_back(source, code);
  wlan_wake_->set();
}

bool NotebookCore::apply_patch(const nlohmann::json& patch, std::string& error) {
  if (!patch.is_object()) {
    error = "scenario: patch: expected an object";
    return false;
  }
  for (const char* fixed : {"clock", "timeline", "stopAfter", "linesFile"}) {
    if (patch.contains(fixed)) {
      error = std::string("scenario: patch.") + fixed + ": cannot change while the notebook runs";
      return false;
    }
  }
  std::lock_guard<std::mutex> g(mutex);
  doc["firmware"]["lines"] =
      scenario.firmware.lines;  // the live lines, as set_lines_locked left them
  json next = doc;
  next.merge_patch(patch);
  Scenario ns;
  if (!parse_scenario(next, ns, error)) return false;
  ns.timeline = std::move(scenario.timeline);
  const Scenario old = std::move(scenario);
  const json old_doc = std::move(doc);
  doc = std::move(next);
  scenario = std::move(ns);
  ++generation;
  if (scenario.seed != old.seed) rng_.seed(scenario.seed);

  if (scenario.lid_open != old.lid_open) {
    WindowMessage m;
    m.kind = WindowMessage::kPowerSettingChange;
    m.setting = PowerSetting::kLidSwitch;
    m.value = scenario.lid_open ? 1 : 0;
    post_window_locked(m, true, false);
  }
  if (scenario.power_source != old.power_source) {
    WindowMessage m;
    m.kind = WindowMessage::kPowerSettingChange;
    m.setting = PowerSetting::kAcDcPowerSource;
    m.value = scenario.power_source;
    post_window_locked(m, false, true);
  }
  if (doc["pciNics"] != old_doc["pciNics"] || doc["bluetooth"] != old_doc["bluetooth"]) {
    WindowMessage m;
    m.kind = WindowMessage::kDeviceChange;
    post_window_locked(m, false, false);
  }
  for (const auto& now : scenario.interfaces) {
    const SimInterface* before = find_interface(old.interfaces, now.guid);
    const bool was_connected = before != nullptr && before->connected;
    if (now.connected != was_connected) {
      post_wlan_locked(kWlanSourceMsm, now.connected ? kWlanMsmConnected : kWlanMsmDisconnected);
    } else if (now.connected && before->channel != now.channel) {
      // A roam to another channel reconnects.
      post_wlan_locked(kWlanSourceMsm, kWlanMsmConnected);
    }
  }
  for (const auto& before : old.interfaces) {
    if (find_interface(scenario.interfaces, before.guid) == nullptr) {
      post_wlan_locked(kWlanSourceMsm, kWlanMsmAdapterRemoval);
    }
  }
  publish_lines_locked();
  return true;
}

void NotebookCore::publish_lines_locked() {
  if (scenario.lines_file.empty()) return;
  const uint32_t lines = scenario.firmware.lines & 0xFFu;
  // The mode is part of what is published: a mode is only meaningful with the switch count.
  const uint32_t state = lines | (static_cast<uint32_t>(mode_locked()) << 8);
  if (state == published_) return;
  published_ = state;
  char text[64];
  std::snprintf(text, sizeof text, "lines=0x%02x mode=%d\n", lines, mode_locked());
  // Written anew each time, in binary so that the text is the same on every system. The
  // path is UTF-8; std::filesystem turns it into the system's own form.
  const std::u8string u8(scenario.lines_file.begin(), scenario.lines_file.end());
  std::ofstream out(std::filesystem::path(u8), std::ios::binary | std::ios::trunc);
  out << text;
}

void NotebookCore::run_wlan_service() {
  while (!wlan_stop_.load(std::memory_order_relaxed)) {
    std::vector<std::pair<WlanCallback, std::pair<uint32_t, uint32_t>>> due;
    {
      std::lock_guard<std::mutex> g(mutex);
      while (!wlan_pending.empty()) {
        const auto n = wlan_pending.front();
        wlan_pending.pop_front();
        for (const auto& r : wlan_registrations) {
          if ((r.sources & n.first) != 0) due.emplace_back(r.callback, n);
        }
      }
    }
    // Callbacks run without the notebook's lock: they call back into the hardware.
    for (auto& [callback, n] : due) callback(n.first, n.second);
    if (due.empty()) wlan_wake_->wait(Clock::kInfinite);
  }
}

void NotebookCore::stop_wlan_service() {
  wlan_stop_.store(true, std::memory_order_relaxed);
  wlan_wake_->set();
}

}  // namespace zaltor::platform::sim
