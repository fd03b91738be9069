// Lid, power-source and device-change messages of the notebook, delivered to an event
// window whose message loop runs on the thread that calls it.
#include <algorithm>

#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {
namespace {

class SimEventWindow final : public EventWindow {
 public:
  SimEventWindow(NotebookCore& core, std::shared_ptr<WindowQueue> queue, WindowHandler& handler)
      : core_(core), queue_(std::move(queue)), handler_(handler) {}
  ~SimEventWindow() override {
    std::lock_guard<std::mutex> g(core_.mutex);
    auto& ws = core_.windows;
    ws.erase(std::remove(ws.begin(), ws.end(), queue_), ws.end());
  }

  bool register_power_setting(PowerSetting setting) override {
    std::lock_guard<std::mutex> g(core_.mutex);
    WindowMessage m;
    m.kind = WindowMessage::kPowerSettingChange;
    m.setting = setting;
    if (setting == PowerSetting::kLidSwitch) {
      if (!core_.scenario.lid_notifications) return false;
      queue_->lid_registered = true;
      m.value = core_.scenario.lid_open ? 1 : 0;
    } else {
      queue_->power_registered = true;
      m.value = core_.scenario.power_source;
    }
    // Windows delivers the current value at once after a registration.
    queue_->messages.push_back(m);
    queue_->wake->set();
    return true;
  }

  void run_message_loop() override {
    for (;;) {
      WindowMessage m;
      bool have = false;
      {
        std::lock_guard<std::mutex> g(core_.mutex);
        if (!queue_->messages.empty()) {
          m = queue_->messages.front();
          queue_->messages.pop_front();
          have = true;
        }
      }
      if (!have) {
        queue_->wake->wait(Clock::kInfinite);
        continue;
      }
      handler_.on_message(m);
      // The window is gone after its destroy message: the queue ends.
      if (m.kind == WindowMessage::kDestroy) return;
    }
  }

  void unregister_power_settings() override {
    std::lock_guard<std::mutex> g(core_.mutex);
    queue_->lid_registered = false;
    queue_->power_registered = false;
  }

 private:
  NotebookCore& core_;
  std::shared_ptr<WindowQueue> queue_;
  WindowHandler& handler_;
};

class SimSystemEvents final : public SystemEvents {
 public:
  explicit SimSystemEvents(NotebookCore& core) : core_(core) {}
  std::unique_ptr<EventWindow> create_window(const std::string&, const std::string&,
                                             WindowHandler& handler) override {
    auto queue = std::make_shared<WindowQueue>();
    queue->wake = core_.clock().make_event(false);
    {
      std::lock_guard<std::mutex> g(core_.mutex);
      core_.windows.push_back(queue);
      if (core_.windows_closed) {
        WindowMessage destroy;
        destroy.kind = WindowMessage::kDestroy;
        queue->messages.push_back(destroy);
        queue->wake->set();
      }
    }
    auto window = std::make_unique<SimEventWindow>(core_, queue, handler);
    WindowMessage create;
    create.kind = WindowMessage::kCreate;
    handler.on_message(create);
    return window;
  }

 private:
  NotebookCore& core_;
};

}  // namespace

std::unique_ptr<SystemEvents> make_sim_system_events(NotebookCore& core) {
  return std::make_unique<SimSystemEvents>(core);
}

}  // namespace zaltor::platform::sim
