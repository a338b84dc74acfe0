// fwk::String: an immutable, reference-counted character string.
//
// Copying a String copies a pointer; the empty string allocates nothing and is the default.
// Strings compare and order by their bytes and hash by content, so they key maps directly.
//
//   fwk::String name = "acl1";
//   if (name == "acl1") ...
//   std::cout << name;
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Ptr.h"

namespace fwk {
FWK_REFCOUNT_ABI_BEGIN

class ACLKIT_EXPORT String {
 public:
  String() noexcept = default;
  String(const char* text) : String(std::string_view(text ? text : "")) {}  // NOLINT
  String(std::string_view text);                                            // NOLINT
  String(const std::string& text) : String(std::string_view(text)) {}       // NOLINT
  String(const String& other) noexcept : rep_(other.rep_) { acquire(); }
  String(String&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
  ~String() { releaseRep(); }
  String& operator=(const String& other) noexcept;
  String& operator=(String&& other) noexcept;

  [[nodiscard]] std::string_view view() const noexcept {
    return rep_ ? std::string_view(rep_->data, rep_->size) : std::string_view();
  }
  // NOLINTNEXTLINE(readability-identifier-naming): the standard name
  [[nodiscard]] const char* c_str() const noexcept { return rep_ ? rep_->data : ""; }
  [[nodiscard]] std::string str() const { return std::string(view()); }
  [[nodiscard]] std::size_t size() const noexcept { return rep_ ? rep_->size : 0; }
  [[nodiscard]] bool empty() const noexcept { return rep_ == nullptr; }
  [[nodiscard]] std::size_t hash() const noexcept { return rep_ ? rep_->hash : emptyHash; }
  operator std::string_view() const noexcept { return view(); }  // NOLINT

  friend bool operator==(const String& a, const String& b) noexcept {
    return a.rep_ == b.rep_ || (a.hash() == b.hash() && a.view() == b.view());
  }
  friend bool operator==(const String& a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(const String& a, const char* b) noexcept { return a.view() == std::string_view(b); }
  friend bool operator==(const String& a, const std::string& b) noexcept { return a.view() == b; }
  friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept { return a.view() <=> b.view(); }
  friend std::strong_ordering operator<=>(const String& a, std::string_view b) noexcept { return a.view() <=> b; }
  friend ACLKIT_EXPORT String operator+(const String& a, std::string_view b);

 private:
  struct Rep {
    mutable RefCount refs;
    std::uint32_t size;
    std::size_t hash;
    char data[1];
  };
  static constexpr std::size_t emptyHash = hashBytes("");
  void acquire() const noexcept;
  void releaseRep() noexcept;

  Rep* rep_ = nullptr;
};

ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const String& s);

FWK_REFCOUNT_ABI_END
}  // namespace fwk
