#pragma once
// The server procedures of the control interface: context open/close/rundown and the
// dispatch of every command code by its procedure's group.

#include <atomic>
#include <cstdint>

#include "platform/rpc_runtime.h"
#include "rpc/control_target.h"

namespace zaltor::rpc {

class ControlProcedures final : public platform::RpcDispatch {
 public:
  explicit ControlProcedures(ControlTarget& target) : target_(target) {}

  platform::ContextObject open_context() override;
  void close_context(platform::ContextObject& context) override;
  void rundown(platform::ContextObject context) override;
  void query_value(platform::ContextObject context, int32_t command, int32_t& status,
                   int32_t& value) override;
  void query_indexed_value(platform::ContextObject context, int32_t command, int32_t& status,
                           int32_t argument, int32_t& value) override;
  void set_value(platform::ContextObject context, int32_t command, int32_t& status,
                 int32_t argument) override;
  void set_paired_value(platform::ContextObject context, int32_t command, int32_t& status,
                        int32_t first, int32_t second) override;
  void query_array(platform::ContextObject context, int32_t command, int32_t& status, int32_t count,
                   int32_t* values) override;

  // Context objects alive now (opened and neither closed nor run down).
  int64_t open_contexts() const { return open_.load(std::memory_order_relaxed); }

 private:
  ControlTarget& target_;
  std::atomic<int64_t> open_{0};
};

}  // namespace zaltor::rpc
