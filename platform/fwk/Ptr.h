// Intrusive reference counting: RefCounted is the mixin, Ptr<T> the counted pointer.
//
//   class Thing : public fwk::RefCounted { ... };
//   fwk::Ptr<Thing> thing = new Thing;        // count 1
//   fwk::Ptr<const Thing> view = thing;       // count 2, read-only view
//
// Null is a valid Ptr everywhere. Without FWK_THREAD_SAFE_PTR the counts are plain
// increments and every counted object stays on one thread.
//
// With FWK_THREAD_SAFE_PTR defined to 1 (the library built with ACLKIT_THREAD_SAFE_PTR, and
// every program using it compiled with the same define, which the CMake and pkg-config
// packages carry) the counts of Ptr and String are atomic, and this is what is promised:
// - threads may copy, pass and drop references to the same object at the same time;
// - the last reference to an object may be dropped on any thread, provided no other thread
//   is using the object then;
// - entities themselves are not locked: their attributes, collections, notifications and
//   reactors are used by one thread at a time (the framework's thread). An entity that
//   watches or is watched (an edit session, a reactor) is released on that thread too, since
//   its destruction detaches it from what it watches.
// A program built for one model does not link against a library built for the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#if FWK_THREAD_SAFE_PTR
#include <atomic>
#endif

#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Hash.h"

namespace fwk {
FWK_REFCOUNT_ABI_BEGIN

#if FWK_THREAD_SAFE_PTR
using RefCount = std::atomic<std::uint32_t>;
#else
using RefCount = std::uint32_t;
#endif

class ACLKIT_EXPORT RefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  // Counted references held now; 0 for an object nobody holds or one being destroyed.
  [[nodiscard]] std::uint32_t fwkReferences() const noexcept {
    const std::uint32_t refs = refs_;
    return refs == destroying ? 0 : refs;
  }

  void fwkRef() const noexcept {
    FWK_DEBUG_ASSERT(refs_ != destroying);  // a reference taken while the object is destroyed
#if FWK_THREAD_SAFE_PTR
    refs_.fetch_add(1, std::memory_order_relaxed);
#else
    ++refs_;
#endif
  }

  void fwkUnref() const noexcept {
    FWK_DEBUG_ASSERT(refs_ != 0 && refs_ != destroying);  // released more often than taken
#if FWK_THREAD_SAFE_PTR
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
#else
    if (--refs_ != 0) return;
#endif
#ifndef NDEBUG
    refs_ = destroying;
#endif
    zeroReferences();
  }

 protected:
  RefCounted() = default;
  virtual ~RefCounted() {
    FWK_DEBUG_ASSERT(refs_ == 0 || refs_ == destroying);  // deleted while someone holds it
  }
  // Runs when the last reference goes away.
  virtual void zeroReferences() const noexcept {
    delete this;
  }

 private:
  // Debug builds mark an object whose last reference went, so that a reference taken or
  // dropped during its destruction is caught instead of freeing it twice.
  static constexpr std::uint32_t destroying = 0xDEADDEADU;
  mutable RefCount refs_{0};
};

// Exported, like every type a reflected value can hold: see valueType().
template <class T>
class ACLKIT_EXPORT Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}        // NOLINT(google-explicit-constructor)
  Ptr(T* raw) noexcept : raw_(raw) { acquire(); }  // NOLINT(google-explicit-constructor)
  Ptr(const Ptr& other) noexcept : raw_(other.raw_) { acquire(); }
  Ptr(Ptr&& other) noexcept : raw_(std::exchange(other.raw_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
  noexcept : raw_(other.get()) {  // NOLINT(google-explicit-constructor)
    acquire();
  }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : raw_(other.release()) {}  // NOLINT(google-explicit-constructor)
  ~Ptr() { releaseRef(); }

  Ptr& operator=(const Ptr& other) noexcept {  // NOLINT(bugprone-unhandled-self-assignment): copy and swap
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  [[nodiscard]] T* get() const noexcept { return raw_; }
  T& operator*() const noexcept {
    FWK_DEBUG_ASSERT(raw_ != nullptr);
    return *raw_;
  }
  T* operator->() const noexcept {
    FWK_DEBUG_ASSERT(raw_ != nullptr);
    return raw_;
  }
  explicit operator bool() const noexcept { return raw_ != nullptr; }

  void reset() noexcept { Ptr().swap(*this); }
  void swap(Ptr& other) noexcept { std::swap(raw_, other.raw_); }
  // Gives up ownership without dropping the count; the caller adopts the reference.
  [[nodiscard]] T* release() noexcept { return std::exchange(raw_, nullptr); }

  template <class U>
  friend bool operator==(const Ptr& a, const Ptr<U>& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.raw_ == nullptr; }
  template <class U>
  friend bool operator<(const Ptr& a, const Ptr<U>& b) noexcept {
    return a.get() < b.get();
  }
  [[nodiscard]] std::size_t hash() const noexcept { return mixHash(reinterpret_cast<std::uintptr_t>(raw_)); }

 private:
  void acquire() const noexcept {
    if (raw_) raw_->fwkRef();
  }
  void releaseRef() noexcept {
    if (raw_) std::exchange(raw_, nullptr)->fwkUnref();
  }

  T* raw_ = nullptr;
};

// T can be made on the heap from Args. Unlike std::is_constructible it does not ask for a
// public destructor, which heap-only types (entities) do not have.
template <class T, class... Args>
concept NewableFrom = requires(Args&&... args) {
  new T(std::forward<Args>(args)...);
};

// A counted reference to an object that is already held, for code that hands itself on
// (`sharedFromThis(*this)`). An object nobody holds is refused: a Ptr made from it would free
// it when it goes, and it may not even live on the heap.
template <class T>
Ptr<T> sharedFromThis(T& object) {
  FWK_ASSERT_TEXT(object.fwkReferences() > 0, "a counted reference to an object nobody holds");
  return Ptr<T>(&object);
}

template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

FWK_REFCOUNT_ABI_END
}  // namespace fwk
