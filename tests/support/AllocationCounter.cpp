#include "tests/support/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long long> allocationCount{0};
std::atomic<long long> allocatedBytes{0};
}  // namespace

namespace alloccount {
long long allocations() { return allocationCount.load(std::memory_order_relaxed); }
long long bytes() { return allocatedBytes.load(std::memory_order_relaxed); }
}  // namespace alloccount

// GCC inlines these into callers and then mistakes the malloc/free pair for a mismatch.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  allocationCount.fetch_add(1, std::memory_order_relaxed);
  allocatedBytes.fetch_add(static_cast<long long>(size), std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop
