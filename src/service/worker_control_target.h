#pragma once
// The worker as the control procedures see it: its fields and the device operations it
// owns.

#include "engine/worker.h"
#include "rpc/control_target.h"

namespace zaltor::service {

class WorkerControlTarget final : public rpc::ControlTarget {
 public:
  explicit WorkerControlTarget(engine::AntennaSwitchWorkerObj& worker) : worker_(worker) {}

  bool initialised() override { return worker_.initialised(); }
  uint32_t user_mode() override { return worker_.user_mode(); }
  int32_t switchCount() override { return worker_.switchCount(); }
  int32_t mode_count() override { return worker_.mode_count(); }
  bool rssi_pa_requested() override { return worker_.shared.rssi_pa_requested(); }
  uint32_t auto_state() override { return worker_.shared.auto_state(); }

  Status GetSwitchNumber(int32_t& count) override { return worker_.sw.GetSwitchNumber(count); }
  rpc::AverageRssi GetAverageRssi() override;
  Status GetCurrentMode(int32_t& mode) override { return worker_.sw.GetCurrentMode(mode); }
  Status GetSwitchPosition(int32_t switch_index, int32_t& position) override {
    return worker_.sw.GetSwitchPosition(switch_index, position);
  }
  Status GetControlBit(int32_t id, int32_t& level, int32_t offset) override {
    return worker_.sw.GetControlBit(id, level, offset);
  }
  Status SetUserMode(int32_t mode) override { return worker_.SetUserMode(mode); }
  Status SetSwitchPosition(int32_t switch_index, int32_t position) override {
    return worker_.sw.SetSwitchPosition(switch_index, position);
  }
  Status SetControlBit(int32_t id, int32_t level, int32_t offset) override {
    return worker_.sw.SetControlBit(id, level, offset);
  }
  Status GetRssiAllPorts(int32_t* values, size_t length) override {
    return worker_.counters.GetRssiAllPorts(values, length);
  }
  Status GetRssiCurrentMode(int32_t* values, size_t length) override {
    return worker_.counters.GetRssiCurrentMode(values, length);
  }

 private:
  engine::AntennaSwitchWorkerObj& worker_;
};

}  // namespace zaltor::service
