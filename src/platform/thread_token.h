#pragma once
// A number for the calling thread that no other thread of the process ever gets, not even
// after this one ends (std::thread::id values are reused): mutex ownership rests on it.
#include <atomic>
#include <cstdint>

namespace zaltor::platform {

inline uint64_t this_thread_token() {
  static std::atomic<uint64_t> next{1};
  thread_local const uint64_t kToken = next.fetch_add(1, std::memory_order_relaxed);
  return kToken;
}

}  // namespace zaltor::platform
