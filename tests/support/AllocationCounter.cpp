#include "tests/support/AllocationCounter.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "aclkit/platform/fwk/Fault.h"

namespace {
std::atomic<long long> allocationCount{0};
std::atomic<long long> allocatedBytes{0};
std::atomic<long long> heldBytes{0};
std::atomic<long long> peakHeld{0};

void* counted(std::size_t size, std::size_t alignment) {
#if FWK_FAULT_INJECTION
  fwk::fault::point(fwk::fault::allocation);
#endif
  allocationCount.fetch_add(1, std::memory_order_relaxed);
  allocatedBytes.fetch_add(static_cast<long long>(size), std::memory_order_relaxed);
  void* p = alignment > alignof(std::max_align_t)
                ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                : std::malloc(size == 0 ? 1 : size);
  if (!p) throw std::bad_alloc();
  const long long held = heldBytes.fetch_add(static_cast<long long>(malloc_usable_size(p)), std::memory_order_relaxed) +
                         static_cast<long long>(malloc_usable_size(p));
  long long peak = peakHeld.load(std::memory_order_relaxed);
  while (held > peak && !peakHeld.compare_exchange_weak(peak, held, std::memory_order_relaxed)) {
  }
  return p;
}

void release(void* p) noexcept {
  if (!p) return;
  heldBytes.fetch_sub(static_cast<long long>(malloc_usable_size(p)), std::memory_order_relaxed);
  std::free(p);
}
}  // namespace

namespace alloccount {
long long allocations() {
  return allocationCount.load(std::memory_order_relaxed);
}
long long bytes() {
  return allocatedBytes.load(std::memory_order_relaxed);
}
long long liveBytes() {
  return heldBytes.load(std::memory_order_relaxed);
}
long long peakBytes() {
  return peakHeld.load(std::memory_order_relaxed);
}
void resetPeak() {
  peakHeld.store(heldBytes.load(std::memory_order_relaxed), std::memory_order_relaxed);
}
}  // namespace alloccount

// GCC inlines these into callers and then mistakes the malloc/free pair for a mismatch.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  return counted(size, 0);
}
void* operator new[](std::size_t size) {
  return counted(size, 0);
}
void* operator new(std::size_t size, std::align_val_t a) {
  return counted(size, static_cast<std::size_t>(a));
}
void* operator new[](std::size_t size, std::align_val_t a) {
  return counted(size, static_cast<std::size_t>(a));
}
void operator delete(void* p) noexcept {
  release(p);
}
void operator delete[](void* p) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t) noexcept {
  release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  release(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  release(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  release(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
  release(p);
}
#pragma GCC diagnostic pop
