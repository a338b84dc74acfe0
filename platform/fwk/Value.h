// Type-erased values for reflection: what a scripting binding or a command front end
// reads from and writes to an attribute or operation it only knows by name.
//
//   fwk::Value v = std::uint32_t{10};
//   v.as<std::uint32_t>();          // 10; as<bool>() raises TypeConversionError
//   v.type().name();                // "U32"
//   v.strep();                      // "10"
//   fwk::valueType<std::uint32_t>().parse("42")   // a Value holding 42
//
// ValueType describes one C++ type: its name, how to print it, how to parse it and, for
// records, its fields in declaration order.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "aclkit/platform/fwk/Enum.h"
#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Ptr.h"
#include "aclkit/platform/fwk/Strep.h"
#include "aclkit/platform/fwk/String.h"

namespace fwk {

class Value;
class Entity;
struct FieldInfo;

class ACLKIT_EXPORT ValueType {
 public:
  String name;
  std::string (*strepOf)(const void* object) = nullptr;
  // For a reference to an entity (a Ptr of an entity type): the entity it holds, or null.
  // Null for other types. Lets reflection follow references by identity.
  const Entity* (*entityOf)(const void* object) = nullptr;
  Value (*parse)(std::string_view text) = nullptr;
  // Fields of a record type, in declaration order; null for other types.
  const std::vector<FieldInfo>& (*fields)() = nullptr;
  // Enumerators of an enumeration; null for other types.
  const EnumInfo* enumInfo = nullptr;
};

// Exported so that every binary sees one descriptor per type: Value compares them by address.
template <class T>
ACLKIT_EXPORT const ValueType& valueType();

class ACLKIT_EXPORT Value {
 public:
  Value() = default;
  template <class T>
  requires(!std::is_same_v<std::decay_t<T>, Value>) Value(T value)  // NOLINT(google-explicit-constructor)
      : holder_(std::make_unique<Holder<Stored<T>>>(std::move(value))) {}
  Value(const char* text) : Value(String(text)) {}  // NOLINT(google-explicit-constructor)
  Value(const Value& other) : holder_(other.holder_ ? other.holder_->clone() : nullptr) {}
  Value(Value&&) noexcept = default;
  Value& operator=(const Value& other) {
    if (this != &other) holder_.reset(other.holder_ ? other.holder_->clone() : nullptr);
    return *this;
  }
  Value& operator=(Value&&) noexcept = default;
  ~Value() = default;

  [[nodiscard]] bool empty() const noexcept { return !holder_; }
  [[nodiscard]] const ValueType* type() const noexcept { return holder_ ? &holder_->type() : nullptr; }
  template <class T>
  [[nodiscard]] bool is() const noexcept {
    return holder_ && &holder_->type() == &valueType<T>();
  }
  // The held value; TypeConversionError when it holds another type.
  template <class T>
  const T& as() const {
    if (!is<T>()) conversionFailed(valueType<T>().name);
    return static_cast<const Holder<T>*>(holder_.get())->value;
  }
  [[nodiscard]] std::string strep() const { return holder_ ? holder_->strep() : std::string(); }
  // The held object, for type-erased code that knows its type from a ValueType (record
  // fields are read and written through FieldInfo with it).
  [[nodiscard]] const void* data() const noexcept { return holder_ ? holder_->data() : nullptr; }
  [[nodiscard]] void* data() noexcept { return holder_ ? holder_->data() : nullptr; }

 private:
  template <class T>
  using Stored =
      std::conditional_t<std::is_convertible_v<T, std::string_view> && !std::is_same_v<T, String>, String, T>;
  struct ACLKIT_HIDDEN HolderBase {
    virtual ~HolderBase() = default;
    [[nodiscard]] virtual HolderBase* clone() const = 0;
    [[nodiscard]] virtual const ValueType& type() const = 0;
    [[nodiscard]] virtual std::string strep() const = 0;
    [[nodiscard]] virtual void* data() = 0;
  };
  template <class T>
  struct ACLKIT_HIDDEN Holder final : HolderBase {
    explicit Holder(T v) : value(std::move(v)) {}
    HolderBase* clone() const override { return new Holder(value); }
    const ValueType& type() const override { return valueType<T>(); }
    std::string strep() const override { return fwk::strep(value); }
    void* data() override { return &value; }
    T value;
  };
  [[noreturn]] void conversionFailed(const String& wanted) const;

  std::unique_ptr<HolderBase> holder_;
};

// Field of a record, for reflection of value types.
struct ACLKIT_EXPORT FieldInfo {
  String name;
  const ValueType* type;
  Value (*get)(const void* record);
  void (*set)(void* record, const Value& value);
};

// ---- type names ----------------------------------------------------------------------

template <class T>
struct TypeName;  // specialised below; records, enums and entities answer for themselves

template <class T>
String typeNameOf() {
  if constexpr (FrameworkEnum<T>) {
    return enumInfo<T>().typeName();
  } else if constexpr (requires { T::fwkTypeName(); }) {
    return String(T::fwkTypeName());
  } else if constexpr (requires { TypeName<T>::name(); }) {
    return TypeName<T>::name();
  } else {
    return String(TypeName<T>::value);
  }
}

#define FWK_BUILTIN_TYPE_NAME_(Type, Text)     \
  template <>                                  \
  struct TypeName<Type> {                      \
    static constexpr const char* value = Text; \
  };
FWK_BUILTIN_TYPE_NAME_(bool, "bool")
FWK_BUILTIN_TYPE_NAME_(std::int8_t, "S8")
FWK_BUILTIN_TYPE_NAME_(std::int16_t, "S16")
FWK_BUILTIN_TYPE_NAME_(std::int32_t, "S32")
FWK_BUILTIN_TYPE_NAME_(std::int64_t, "S64")
FWK_BUILTIN_TYPE_NAME_(std::uint8_t, "U8")
FWK_BUILTIN_TYPE_NAME_(std::uint16_t, "U16")
FWK_BUILTIN_TYPE_NAME_(std::uint32_t, "U32")
FWK_BUILTIN_TYPE_NAME_(std::uint64_t, "U64")
FWK_BUILTIN_TYPE_NAME_(double, "double")
FWK_BUILTIN_TYPE_NAME_(String, "String")
#undef FWK_BUILTIN_TYPE_NAME_

template <class E>
struct TypeName<Ptr<E>> {
  // Made on first use: value types are described while the library loads, before
  // namespace-scope initializers in this header are guaranteed to have run.
  static const String& name() {
    static const String text =
        String(std::is_const_v<E> ? "Ptr<const " : "Ptr<") + std::remove_const_t<E>::fwkTypeName() + ">";
    return text;
  }
};

// ---- parsing -------------------------------------------------------------------------

// Raises TypeConversionError "expected <expected>, not '<text>'": what a type's fwkParse
// raises for text it cannot read, in words a user reads ("a number from 0 to 255").
[[noreturn]] ACLKIT_EXPORT void parseFailed(std::string_view expected, std::string_view text);

// What text of type T reads as, for parseFailed: the range of a number, "true or false", or
// "a <type name>".
template <class T>
std::string expectedText() {
  if constexpr (std::is_same_v<T, bool>) {
    return "true or false";
  } else if constexpr (std::is_integral_v<T>) {
    return "a number from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
           std::to_string(std::numeric_limits<T>::max());
  } else if constexpr (std::is_floating_point_v<T>) {
    return "a number";
  } else {
    return "a " + typeNameOf<T>().str();
  }
}

namespace detail {
ACLKIT_EXPORT bool parseBool(std::string_view text, bool& out);
ACLKIT_EXPORT bool parseSigned(std::string_view text, std::int64_t& out);
ACLKIT_EXPORT bool parseUnsigned(std::string_view text, std::uint64_t& out);
ACLKIT_EXPORT bool parseDouble(std::string_view text, double& out);
}  // namespace detail

template <class T>
T parseValue(std::string_view text) {
  if constexpr (std::is_same_v<T, bool>) {
    bool b = false;
    if (!detail::parseBool(text, b)) parseFailed(expectedText<T>(), text);
    return b;
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    std::int64_t n = 0;
    if (!detail::parseSigned(text, n) || n < std::numeric_limits<T>::min() || n > std::numeric_limits<T>::max()) {
      parseFailed(expectedText<T>(), text);
    }
    return static_cast<T>(n);
  } else if constexpr (std::is_integral_v<T>) {
    std::uint64_t n = 0;
    if (!detail::parseUnsigned(text, n) || n > std::numeric_limits<T>::max()) {
      parseFailed(expectedText<T>(), text);
    }
    return static_cast<T>(n);
  } else if constexpr (std::is_floating_point_v<T>) {
    double d = 0;
    if (!detail::parseDouble(text, d)) parseFailed(expectedText<T>(), text);
    return static_cast<T>(d);
  } else if constexpr (std::is_same_v<T, String>) {
    return String(text);
  } else if constexpr (FrameworkEnum<T>) {
    // By name, or by number ("construction from a number"), checked either way.
    std::int64_t n = 0;
    if (!text.empty() && detail::parseSigned(text, n)) return enumFromValue<T>(n);
    return enumFromName<T>(text);
  } else if constexpr (requires { T::fwkParse(text); }) {
    return T::fwkParse(text);
  } else {
    parseFailed(expectedText<T>(), text);
  }
}

template <class T>
const ValueType& valueType() {
  static const ValueType type = [] {
    ValueType t;
    t.name = typeNameOf<T>();
    t.strepOf = [](const void* object) { return strep(*static_cast<const T*>(object)); };
    t.parse = [](std::string_view text) { return Value(parseValue<T>(text)); };
    if constexpr (requires { T::fwkFields(); }) t.fields = &T::fwkFields;
    if constexpr (requires(const T& p) { static_cast<const Entity*>(p.get()); }) {
      t.entityOf = [](const void* object) -> const Entity* { return static_cast<const T*>(object)->get(); };
    }
    if constexpr (FrameworkEnum<T>) t.enumInfo = &enumInfo<T>();
    return t;
  }();
  return type;
}

}  // namespace fwk
