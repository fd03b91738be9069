#pragma once
// What a log call needs of the service object: its line buffer, its log-entry operation and
// its console flag. The service object hands this out; the worker keeps it as its log
// context and builds its WorkerLog from it.

#include <atomic>

#include "log/line_buffer.h"
#include "log/log_entry_writer.h"

namespace zaltor::log {

struct LogContext {
  LineBuffer* lines = nullptr;
  LogEntryWriter* writer = nullptr;
  // Set only in console mode.
  const std::atomic<bool>* console = nullptr;

  bool console_mode() const {
    return console != nullptr && console->load(std::memory_order_relaxed);
  }
};

}  // namespace zaltor::log
