// Value records: plain value types whose fields are declared once.
//
//   #define IP_FILTER_BASE_FIELDS(F)
//     F(field, protocol, U8, 0)
//     F(ranged, tni, U32, 0, 0, 16777215)
//
//   class IpFilterBase : public fwk::RecordBase {
//     FWK_RECORD(IpFilterBase, fwk::RecordBase, IP_FILTER_BASE_FIELDS)
//   };
//   // in the source file (with Define.h): FWK_RECORD_DEFINE(IpFilterBase, IP_FILTER_BASE_FIELDS)
//
// gives each field a getter N() and a setter NIs(v), and the record ==, < (a total order,
// field by field after the base's fields), hash(seed), stream output (the fields that
// differ from a default record: "Match{protocol=6}") and reflection of its fields. A ranged field rejects values
// outside [min, max], in its setter and in the default constructor, with RangeError("IpFilterBase::tni < 0 or >
// 16777215 not allowed").
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Collections.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Hash.h"
#include "aclkit/platform/fwk/String.h"

namespace fwk {

struct FieldInfo;

// The empty record every record derives from (directly or through another record).
class ACLKIT_EXPORT RecordBase {
 public:
  static const char* fwkTypeName() { return "RecordBase"; }
  [[nodiscard]] int fwkCompare(const RecordBase&) const noexcept { return 0; }
  [[nodiscard]] std::size_t hash(std::uint32_t seed = 0) const noexcept { return mixHash(seed); }
  bool operator==(const RecordBase&) const noexcept { return true; }
  static void fwkAppendFields(std::vector<FieldInfo>&) {}
  void fwkPrintFields(std::ostream&, bool&) const {}
};

namespace detail {
template <class T>
int compareValues(const T& a, const T& b) {
  if (a < b) return -1;
  if (b < a) return 1;
  return 0;
}
[[noreturn]] ACLKIT_EXPORT void fieldOutOfRange(const char* record, const char* field, const char* min,
                                                const char* max);
}  // namespace detail

}  // namespace fwk

#define FWK_RECORD_DECL_(kind, ...) FWK_RECORD_DECL_##kind(__VA_ARGS__)
#define FWK_RECORD_DECL_field(name, T, def)      \
 public:                                         \
  [[nodiscard]] const T& name() const noexcept { \
    return name##_;                              \
  }                                              \
  void name##Is(const T& value) {                \
    name##_ = ::fwk::checkedValue(value);        \
  }                                              \
                                                 \
 private:                                        \
  T name##_ = def;
#define FWK_RECORD_DECL_ranged(name, T, def, min, max)                  \
 public:                                                                \
  [[nodiscard]] const T& name() const noexcept {                        \
    return name##_;                                                     \
  }                                                                     \
  void name##Is(const T& value) {                                       \
    name##_ = name##Checked(value);                                     \
  }                                                                     \
                                                                        \
 private:                                                               \
  static T name##Checked(const T& value) {                              \
    if (std::cmp_less(value, min) || std::cmp_greater(value, max)) {    \
      ::fwk::detail::fieldOutOfRange(fwkTypeName(), #name, #min, #max); \
    }                                                                   \
    return value;                                                       \
  }                                                                     \
  T name##_ = name##Checked(def);

#define FWK_RECORD_EQ_(kind, name, ...) &&name##_ == other.name##_
#define FWK_RECORD_CMP_(kind, name, ...) \
  if (int c = ::fwk::detail::compareValues(name##_, other.name##_)) return c;
#define FWK_RECORD_HASH_(kind, name, T, ...) h = ::fwk::hashAppend(h, ::fwk::Hash<T>{}(name##_));

// Inside the class body of a record type.
#define FWK_RECORD(Class, Base, LIST)                                                               \
 public:                                                                                            \
  using FwkRecordBase = Base;                                                                       \
  static const char* fwkTypeName() {                                                                \
    return #Class;                                                                                  \
  }                                                                                                 \
  static const std::vector<::fwk::FieldInfo>& fwkFields();                                          \
  static void fwkAppendFields(std::vector<::fwk::FieldInfo>& fields);                               \
  void fwkPrintFields(std::ostream& os, bool& first) const;                                         \
  bool operator==(const Class& other) const {                                                       \
    return static_cast<const Base&>(*this) == static_cast<const Base&>(other) LIST(FWK_RECORD_EQ_); \
  }                                                                                                 \
  bool operator<(const Class& other) const {                                                        \
    return fwkCompare(other) < 0;                                                                   \
  }                                                                                                 \
  [[nodiscard]] int fwkCompare(const Class& other) const {                                          \
    if (int c = Base::fwkCompare(other)) return c;                                                  \
    LIST(FWK_RECORD_CMP_)                                                                           \
    return 0;                                                                                       \
  }                                                                                                 \
  [[nodiscard]] std::size_t hash(std::uint32_t seed = 0) const noexcept {                           \
    std::size_t h = Base::hash(seed);                                                               \
    LIST(FWK_RECORD_HASH_)                                                                          \
    return h;                                                                                       \
  }                                                                                                 \
  friend ACLKIT_EXPORT std::ostream& operator<<(std::ostream& os, const Class& record);             \
  LIST(FWK_RECORD_DECL_)                                                                            \
 public:
