// The firmware's control device: the "DSTS" and "DEVS" requests on the antenna switch
// device, answered from the notebook's status word, with the scenario's faults.
#include <cstring>

#include "platform/sim/sim_seams.h"

namespace zaltor::platform::sim {
namespace {

uint32_t read_u32(const uint8_t* p) {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

bool iequals(const std::string& a, const char* b) {
  const size_t n = std::strlen(b);
  if (a.size() != n) return false;
  for (size_t i = 0; i < n; ++i) {
    auto lower = [](char c) {
      return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

class SimControlHandle final : public ControlDeviceHandle {
 public:
  explicit SimControlHandle(NotebookCore& core) : core_(core) {}

  bool io_control(uint32_t code, const uint8_t* in, uint32_t in_len, uint8_t* out,
                  uint32_t out_capacity, uint32_t& returned) override {
    returned = 0;
    core_.spend_call_time();
    if (code != kControlCode || in == nullptr || in_len < 12) return false;
    const std::string_view method(reinterpret_cast<const char*>(in), 4);
    const uint32_t arg_len = read_u32(in + 4);
    if (read_u32(in + 8) != kSwitchDeviceId) return false;
    uint32_t result = 0;
    bool short_reply = false;
    {
      std::lock_guard<std::mutex> g(core_.mutex);
      const Firmware& f = core_.scenario.firmware;
      short_reply = f.short_reply;
      if (method == "DSTS") {
        if (in_len != 12 || arg_len != 4 || f.status_fails) return false;
        result = core_.status_word_locked();
      } else if (method == "DEVS") {
        if (in_len != 16 || arg_len != 8 || f.control_fails) return false;
        // The firmware takes the eight line bits of the control value and answers with
        // its control result, whatever that is.
        core_.set_lines_locked(read_u32(in + 12) & 0xFFu);
        if (core_.switch_observer) {
          core_.switch_observer(core_.clock().now_ms(), core_.mode_locked());
        }
        result = f.control_result;
      } else {
        return false;
      }
    }
    const uint32_t len = short_reply ? 2 : 4;
    if (out == nullptr || out_capacity < len) return false;
    for (uint32_t i = 0; i < len; ++i) out[i] = static_cast<uint8_t>(result >> (8 * i));
    returned = len;
    return true;
  }

 private:
  NotebookCore& core_;
};

class SimControlDevice final : public ControlDevice {
 public:
  explicit SimControlDevice(NotebookCore& core) : core_(core) {}

  std::unique_ptr<ControlDeviceHandle> open(const std::string& path, uint32_t& error) override {
    bool fails = false;
    {
      std::lock_guard<std::mutex> g(core_.mutex);
      fails = core_.scenario.firmware.open_fails;
    }
    if (fails || !iequals(path, kControlDevicePath)) {
      error = kErrorFileNotFound;
      return nullptr;
    }
    error = 0;
    return std::make_unique<SimControlHandle>(core_);
  }

 private:
  NotebookCore& core_;
};

}  // namespace

std::unique_ptr<ControlDevice> make_sim_control_device(NotebookCore& core) {
  return std::make_unique<SimControlDevice>(core);
}

}  // namespace zaltor::platform::sim
