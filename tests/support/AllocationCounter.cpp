#include "tests/support/AllocationCounter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "aclkit/platform/fwk/Fault.h"

namespace {
std::atomic<long long> allocationCount{0};
std::atomic<long long> heldBytes{0};
std::atomic<long long> peakHeld{0};
constexpr auto relaxed = std::memory_order_relaxed;
}  // namespace

namespace alloccount {
long long allocations() {
  return allocationCount.load(relaxed);
}
long long liveBytes() {
  return heldBytes.load(relaxed);
}
long long peakBytes() {
  return peakHeld.load(relaxed);
}
void resetPeak() {
  peakHeld.store(heldBytes.load(relaxed), relaxed);
}
}  // namespace alloccount

// The aligned forms are left to the runtime (or a sanitizer), which pairs them with each other;
// every other form allocated here is released here.
void* operator new(std::size_t size) {
#if FWK_FAULT_INJECTION
  fwk::fault::point(fwk::fault::allocation);
#endif
  void* p = std::malloc(size == 0 ? 1 : size);
  if (!p) throw std::bad_alloc();
  allocationCount.fetch_add(1, relaxed);
  const auto usable = static_cast<long long>(malloc_usable_size(p));
  const long long held = heldBytes.fetch_add(usable, relaxed) + usable;
  for (long long peak = peakHeld.load(relaxed); held > peak && !peakHeld.compare_exchange_weak(peak, held, relaxed);) {
  }
  return p;
}
void operator delete(void* p) noexcept {
  if (!p) return;
  heldBytes.fetch_sub(static_cast<long long>(malloc_usable_size(p)), relaxed);
  std::free(p);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void operator delete[](void* p) noexcept {
  operator delete(p);
}
void operator delete(void* p, std::size_t) noexcept {
  operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  operator delete(p);
}
