#include <atomic>
#include <cstdlib>
#include <new>

#include "allocation_count/allocation_count.h"

// The replacements pair operator new with free(); GCC sees through them where the standard
// containers are inlined and takes the pair for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {
std::atomic<uint64_t> allocations{0};

void* counted_allocation(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}
}  // namespace

namespace zaltor::rig {

uint64_t allocation_count() {
  return allocations.load(std::memory_order_relaxed);
}

}  // namespace zaltor::rig

void* operator new(std::size_t size) {
  if (void* p = counted_allocation(size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  if (void* p = counted_allocation(size)) return p;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return counted_allocation(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return counted_allocation(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
