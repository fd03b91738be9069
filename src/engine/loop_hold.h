#pragma once
// Scoped hold of the worker's loop mutex, which exists only once Auto mode has been
// started: before that a flag update goes on without the lock, as a wait on a handle that
// was never made fails at once.

#include "platform/clock.h"

namespace zaltor::engine {

class LoopHold {
 public:
  explicit LoopHold(platform::Mutex* m) : m_(m) {
    if (m_ != nullptr) m_->lock();
  }
  ~LoopHold() {
    if (m_ != nullptr) m_->unlock();
  }
  LoopHold(const LoopHold&) = delete;
  LoopHold& operator=(const LoopHold&) = delete;

 private:
  platform::Mutex* m_;
};

}  // namespace zaltor::engine
