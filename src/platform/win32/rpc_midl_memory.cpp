// The memory functions that the generated stubs call for the runtime's allocations.
#include <rpc.h>
#include <windows.h>

#include <atomic>
#include <cstdlib>

#include "platform/win32/rpc_server_target.h"

namespace {

std::atomic<size_t> g_largest{0};

}  // namespace

namespace zaltor::platform::win32 {

size_t largest_stub_allocation() {
  return g_largest.load(std::memory_order_relaxed);
}

void reset_largest_stub_allocation() {
  g_largest.store(0, std::memory_order_relaxed);
}

}  // namespace zaltor::platform::win32

extern "C" void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
  size_t seen = g_largest.load(std::memory_order_relaxed);
  while (size > seen && !g_largest.compare_exchange_weak(seen, size, std::memory_order_relaxed)) {
  }
  return std::malloc(size);
}

extern "C" void __RPC_USER MIDL_user_free(void* p) {
  std::free(p);
}
