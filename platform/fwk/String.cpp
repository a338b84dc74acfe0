#include "aclkit/platform/fwk/String.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <utility>

namespace fwk {
FWK_REFCOUNT_ABI_BEGIN

String::String(std::string_view text) {
  if (text.empty()) return;
  if (text.size() > UINT32_MAX) throw RangeError("String longer than 4294967295 bytes not allowed");
  void* block = std::malloc(offsetof(Rep, data) + text.size() + 1);
  if (!block) throw std::bad_alloc();
  rep_ = static_cast<Rep*>(block);
  new (&rep_->refs) RefCount(1);
  rep_->size = static_cast<std::uint32_t>(text.size());
  rep_->hash = hashBytes(text);
  std::memcpy(rep_->data, text.data(), text.size());
  rep_->data[text.size()] = '\0';
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the same representation is left alone
String& String::operator=(const String& other) noexcept {
  if (rep_ != other.rep_) {
    other.acquire();
    releaseRep();
    rep_ = other.rep_;
  }
  return *this;
}

String& String::operator=(String&& other) noexcept {
  if (this != &other) {
    releaseRep();
    rep_ = std::exchange(other.rep_, nullptr);
  }
  return *this;
}

void String::acquire() const noexcept {
  if (!rep_) return;
#if FWK_THREAD_SAFE_PTR
  rep_->refs.fetch_add(1, std::memory_order_relaxed);
#else
  ++rep_->refs;
#endif
}

void String::releaseRep() noexcept {
  Rep* rep = std::exchange(rep_, nullptr);
  if (!rep) return;
#if FWK_THREAD_SAFE_PTR
  if (rep->refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
#else
  if (--rep->refs != 0) return;
#endif
  rep->refs.~RefCount();
  std::free(rep);
}

String operator+(const String& a, std::string_view b) {
  std::string joined;
  joined.reserve(a.size() + b.size());
  joined.append(a.view()).append(b);
  return String(joined);
}

std::ostream& operator<<(std::ostream& os, const String& s) {
  return os << s.view();
}

FWK_REFCOUNT_ABI_END
}  // namespace fwk
