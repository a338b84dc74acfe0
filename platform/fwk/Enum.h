// Enumerations that know their names.
//
//   #define ACLKIT_API_TYPES(E) E(commit_, 0) E(remove_, 1) E(attach_, 2) E(detach_, 3)
//   FWK_ENUM(ApiType, std::uint32_t, ACLKIT_API_TYPES)
//
// declares a plain enumeration ApiType with those enumerators and, in the same namespace:
//   stringValue(v), valueToStrep(v)   the name ("commit": a trailing underscore is not part
//                                     of the name; it only avoids clashing with a method)
//   operator<<                        writes the name
// and fwk::enumFromName<ApiType>("commit"), fwk::enumFromValue<ApiType>(0), which raise
// fwk::EnumError for a name or number that is not an enumerator. FWK_ENUM_CLASS declares a
// scoped enumeration with the same helpers. Attribute and record setters refuse a value that
// is not an enumerator (EnumError), unless the enumeration is declared FWK_OPEN_ENUM_CLASS.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/String.h"

namespace fwk {

class ACLKIT_EXPORT EnumInfo {
 public:
  struct Enumerator {
    std::int64_t value;
    String name;
  };
  EnumInfo(std::string_view typeName, std::initializer_list<std::pair<std::int64_t, const char*>> list);

  [[nodiscard]] const String& typeName() const noexcept { return typeName_; }
  [[nodiscard]] const std::vector<Enumerator>& enumerators() const noexcept { return enumerators_; }
  [[nodiscard]] const String* findName(std::int64_t value) const noexcept;
  [[nodiscard]] const std::int64_t* findValue(std::string_view name) const noexcept;
  // Raise EnumError when absent.
  [[nodiscard]] const String& name(std::int64_t value) const;
  [[nodiscard]] std::int64_t value(std::string_view name) const;

 private:
  String typeName_;
  std::vector<Enumerator> enumerators_;
};

ACLKIT_EXPORT std::ostream& writeEnum(std::ostream& os, const EnumInfo& info, std::int64_t value);

template <class E>
concept FrameworkEnum = std::is_enum_v<E> && requires(E e) {
  { fwkEnumInfo(e) } -> std::same_as<const EnumInfo&>;
};

template <FrameworkEnum E>
const EnumInfo& enumInfo() {
  return fwkEnumInfo(E{});
}
template <FrameworkEnum E>
const String& enumName(E value) {
  return enumInfo<E>().name(static_cast<std::int64_t>(value));
}
// Declared with FWK_OPEN_ENUM_CLASS: setters take values beyond the enumerators.
template <class E>
concept OpenEnum = FrameworkEnum<E> && requires(E e) {
  fwkEnumOpen(e);
};

template <FrameworkEnum E>
E enumFromValue(std::int64_t value) {
  static_cast<void>(enumInfo<E>().name(value));  // raises for a number that is not an enumerator
  return static_cast<E>(value);
}
template <FrameworkEnum E>
E enumFromName(std::string_view name) {
  return static_cast<E>(enumInfo<E>().value(name));
}

// What a setter stores: an enumeration's value must name one of its enumerators (EnumError
// otherwise, so that ApiState(42) is refused where it would be kept); others pass through.
template <class T>
const T& checkedValue(const T& value) {
  if constexpr (FrameworkEnum<T> && !OpenEnum<T>) {
    static_cast<void>(enumInfo<T>().name(static_cast<std::int64_t>(value)));
  }
  return value;
}

}  // namespace fwk

#define FWK_ENUM_ENUMERATOR_(id, number) id = (number),
#define FWK_ENUM_ENTRY_(id, number) {static_cast<std::int64_t>(number), #id},

#define FWK_ENUM(Name, Underlying, LIST)                               \
  enum ACLKIT_EXPORT Name : Underlying { LIST(FWK_ENUM_ENUMERATOR_) }; \
  FWK_ENUM_HELPERS_(Name, LIST)

// The same for a scoped enumeration (AclType::ip).
#define FWK_ENUM_CLASS(Name, Underlying, LIST)                               \
  enum class ACLKIT_EXPORT Name : Underlying { LIST(FWK_ENUM_ENUMERATOR_) }; \
  FWK_ENUM_HELPERS_(Name, LIST)

// A scoped enumeration whose other values are meaningful too (code treats them as one of the
// enumerators): setters and construction from a number accept them.
#define FWK_OPEN_ENUM_CLASS(Name, Underlying, LIST) \
  FWK_ENUM_CLASS(Name, Underlying, LIST)            \
  constexpr bool fwkEnumOpen(Name) {                \
    return true;                                    \
  }

#define FWK_ENUM_HELPERS_(Name, LIST)                                                  \
  inline const ::fwk::EnumInfo& fwkEnumInfo(Name) {                                    \
    static const ::fwk::EnumInfo info(#Name, {LIST(FWK_ENUM_ENTRY_)});                 \
    return info;                                                                       \
  }                                                                                    \
  inline const ::fwk::String& stringValue(Name value) {                                \
    return ::fwk::enumName(value);                                                     \
  }                                                                                    \
  inline const ::fwk::String& valueToStrep(Name value) {                               \
    return ::fwk::enumName(value);                                                     \
  }                                                                                    \
  inline std::ostream& operator<<(std::ostream& os, Name value) {                      \
    return ::fwk::writeEnum(os, fwkEnumInfo(value), static_cast<std::int64_t>(value)); \
  }
