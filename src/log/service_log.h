#pragma once
// The service log call: the service host's own log, assembling lines in the service
// object's buffer.

#include "log/log_context.h"
#include "platform/log.h"

namespace zaltor::log {

class ServiceLog final : public Log {
 public:
  explicit ServiceLog(LogContext context) : context_(context) {}
  void vwrite(uint8_t level, const char* fmt, va_list ap) override;

 private:
  LogContext context_;
};

}  // namespace zaltor::log
