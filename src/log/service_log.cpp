#include "log/service_log.h"

namespace zaltor::log {

void ServiceLog::vwrite(uint8_t level, const char* fmt, va_list ap) {
  context_.lines->assemble(level, fmt, ap, *context_.writer);
}

}  // namespace zaltor::log
