#pragma once
// Procedures that answer every call with nothing done: a test's fake overrides only the
// calls it is about. A context is the object itself.

#include <cstdint>

#include "platform/rpc_runtime.h"

namespace zaltor::rpc::test {

class PlainDispatch : public platform::RpcDispatch {
 public:
  platform::ContextObject open_context() override { return this; }
  void close_context(platform::ContextObject& context) override { context = nullptr; }
  void rundown(platform::ContextObject) override {}
  void query_value(platform::ContextObject, int32_t, int32_t& status, int32_t&) override {
    status = 0;
  }
  void query_indexed_value(platform::ContextObject, int32_t, int32_t&, int32_t, int32_t&) override {
  }
  void set_value(platform::ContextObject, int32_t, int32_t&, int32_t) override {}
  void set_paired_value(platform::ContextObject, int32_t, int32_t&, int32_t, int32_t) override {}
  void query_array(platform::ContextObject, int32_t, int32_t&, int32_t, int32_t*) override {}
};

}  // namespace zaltor::rpc::test
