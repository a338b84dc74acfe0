// Describing a type in its source file: the reflection table of an entity type (its
// attributes from the list it was declared with, and the operations reachable by name), a
// record's fields, and the registration of types and factories when the library loads.
// Included by .cpp files only.
//
//   FWK_ENTITY_DEFINE(AclConfig, ACLKIT_ACL_CONFIG_ATTRS)
//   FWK_ENTITY_DEFINE_WITH_OPS(ApiSm, API_SM_ATTRS, API_SM_OPS)   // OPS(O): O(commit) O(revert)...
//   FWK_RECORD_DEFINE(IpFilter, ACLKIT_ACL_IP_FILTER_FIELDS)
//   FWK_REGISTER_FACTORY(AclConfigCopyHandler, aclConfigCopyHandlerFactory)
#pragma once

#include <ostream>
#include <type_traits>
#include <vector>

#include "aclkit/platform/fwk/Record.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/fwk/Strep.h"
#include "aclkit/platform/fwk/internal/ReflectionBuilder.h"

// ---- entity types ----------------------------------------------------------------------

#define FWK_PASS_REFLECT_(kind, ...) FWK_REFLECT_##kind(__VA_ARGS__)
#define FWK_REFLECT_scalar(name, T, def) \
  b.scalar<T>(#name, C::name##AttrIndex, &C::name##_, [](C& c, const T& v) { c.name##Is(v); });
#define FWK_REFLECT_customScalar(name, T, def) FWK_REFLECT_scalar(name, T, def)
#define FWK_REFLECT_constScalar(name, T, def) b.scalar<T>(#name, C::name##AttrIndex, &C::name##_, nullptr, false);
#define FWK_REFLECT_ownedChild(name, T, def) FWK_REFLECT_constScalar(name, T, def)
#define FWK_REFLECT_statusScalar(name, T, def) \
  b.scalar<T>(                                 \
      #name, C::name##AttrIndex, &C::name##_, [](C& c, const T& v) { c.name##Is(v); }, false);
#define FWK_REFLECT_MAP_(Map, kind, name, K, V)                                                                    \
  b.map<::fwk::Map<K, V>>(                                                                                         \
      #name, ::fwk::kind, C::name##AttrIndex, &C::name##_, [](C& c, const K& k, const V& v) { c.name##Is(k, v); }, \
      [](C& c, const K& k) { c.name##Del(k); }, [](C& c) { c.name##DelAll(); });
#define FWK_REFLECT_orderedMap(name, K, V) FWK_REFLECT_MAP_(OrderedMap, orderedMap, name, K, V)
#define FWK_REFLECT_hashMap(name, K, V) FWK_REFLECT_MAP_(HashMap, hashMap, name, K, V)
#define FWK_REFLECT_customOrderedMap(name, K, V) FWK_REFLECT_MAP_(OrderedMap, orderedMap, name, K, V)
#define FWK_REFLECT_children(name, K, E) b.childMap<K, E>(#name, C::name##AttrIndex, &C::name##_);
#define FWK_REFLECT_customChildren(name, K, E) FWK_REFLECT_children(name, K, E)
#define FWK_PASS_OP_(name) b.op<&C::name>(#name);

#define FWK_CONCAT_INNER_(a, b) a##b
#define FWK_CONCAT_(a, b) FWK_CONCAT_INNER_(a, b)

// Registers a type by name when the library loads.
#define FWK_REGISTER_TYPE(Class)                                                                                     \
  namespace {                                                                                                        \
  [[maybe_unused]] const bool FWK_CONCAT_(fwkTypeRegistered_, __LINE__) = (::fwk::registerType(Class::staticType()), \
                                                                           true);                                    \
  }

// Registers a free function returning Ptr<Class> as a factory of Class.
#define FWK_REGISTER_FACTORY(Class, function)                                             \
  namespace {                                                                             \
  [[maybe_unused]] const bool FWK_CONCAT_(fwkFactoryRegistered_, __LINE__) =              \
      (Class::staticType().factoryIs(::fwk::detail::makeOp<&function>(#function)), true); \
  }

#define FWK_ENTITY_DEFINE_WITH_OPS(Class, LIST, OPS)                                                                \
  static_assert(!std::is_destructible_v<Class>, #Class " must live on the heap: declare it with FWK_ENTITY");       \
  const ::fwk::TypeInfo& Class::staticType() {                                                                      \
    static const ::fwk::TypeInfo& type = ::fwk::detail::buildType<Class>([](::fwk::detail::TypeBuilder<Class>& b) { \
      using C [[maybe_unused]] = Class;                                                                             \
      static_cast<void>(b);                                                                                         \
      LIST(FWK_PASS_REFLECT_)                                                                                       \
      OPS(FWK_PASS_OP_)                                                                                             \
    });                                                                                                             \
    return type;                                                                                                    \
  }                                                                                                                 \
  FWK_REGISTER_TYPE(Class)

// clang-format off
#define FWK_NO_OPS_(O)
// clang-format on
#define FWK_ENTITY_DEFINE(Class, LIST) FWK_ENTITY_DEFINE_WITH_OPS(Class, LIST, FWK_NO_OPS_)

// ---- records -----------------------------------------------------------------------------

#define FWK_RECORD_INFO_(kind, name, T, ...)                                                                      \
  fields.push_back(::fwk::FieldInfo{::fwk::String(#name), &::fwk::valueType<T>(),                                 \
                                    [](const void* r) { return ::fwk::Value(static_cast<const C*>(r)->name()); }, \
                                    [](void* r, const ::fwk::Value& v) { static_cast<C*>(r)->name##Is(v.as<T>()); }});
#define FWK_RECORD_PRINT_(kind, name, ...)                           \
  if (!(name##_ == ::fwk::detail::defaultValue<C>().name##_)) {      \
    os << (first ? "" : ", ") << #name "=" << ::fwk::strep(name##_); \
    first = false;                                                   \
  }

// FWK_RECORD_DEFINE_FIELDS leaves out the stream output, for a record that writes its own.
#define FWK_RECORD_DEFINE(Class, LIST)                              \
  FWK_RECORD_DEFINE_FIELDS(Class, LIST)                             \
  std::ostream& operator<<(std::ostream& os, const Class& record) { \
    os << #Class "{";                                               \
    bool first = true;                                              \
    record.fwkPrintFields(os, first);                               \
    return os << "}";                                               \
  }

#define FWK_RECORD_DEFINE_FIELDS(Class, LIST)                          \
  const std::vector<::fwk::FieldInfo>& Class::fwkFields() {            \
    static const std::vector<::fwk::FieldInfo> fields = [] {           \
      std::vector<::fwk::FieldInfo> all;                               \
      fwkAppendFields(all);                                            \
      return all;                                                      \
    }();                                                               \
    return fields;                                                     \
  }                                                                    \
  void Class::fwkAppendFields(std::vector<::fwk::FieldInfo>& fields) { \
    using C = Class;                                                   \
    FwkRecordBase::fwkAppendFields(fields);                            \
    LIST(FWK_RECORD_INFO_)                                             \
  }                                                                    \
  void Class::fwkPrintFields(std::ostream& os, bool& first) const {    \
    using C = Class;                                                   \
    FwkRecordBase::fwkPrintFields(os, first);                          \
    LIST(FWK_RECORD_PRINT_)                                            \
  }
