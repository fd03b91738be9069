#pragma once
// Scoped hold of the worker's loop mutex, which exists only once Auto mode has been
// started: before that a flag update goes on without the lock, as a wait on a handle that
// was never made fails at once. The hold keeps a share of the mutex, so that a new Auto
// period replacing it cannot free it under a thread that holds or waits for it.

#include <memory>
#include <utility>

#include "platform/clock.h"

namespace zaltor::engine {

class LoopHold {
 public:
  explicit LoopHold(std::shared_ptr<platform::Mutex> m) : m_(std::move(m)) {
    if (m_) m_->lock();
  }
  ~LoopHold() {
    if (m_) m_->unlock();
  }
  LoopHold(const LoopHold&) = delete;
  LoopHold& operator=(const LoopHold&) = delete;

 private:
  std::shared_ptr<platform::Mutex> m_;
};

}  // namespace zaltor::engine
