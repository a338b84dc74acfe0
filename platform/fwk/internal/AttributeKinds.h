// What each attribute kind expands to inside an entity's class body: storage and accessors,
// the reactor's handler, and its case in the reactor's dispatch. Used by FWK_ENTITY.
#pragma once

#include "aclkit/platform/fwk/internal/CollectionAccess.h"

// ---- the passes over an attribute list -----------------------------------------------

#define FWK_ATTR_ID_(name)       \
  ::fwk::AttrId {                \
    &staticType, name##AttrIndex \
  }

#define FWK_PASS_INDEX_(kind, name, ...) name##AttrIndex,

#define FWK_PASS_DECL_(kind, ...) FWK_DECL_##kind(__VA_ARGS__)
// The read accessors every scalar and every value map has.
#define FWK_DECL_SCALAR_READ_(name, T)           \
  using name##Type = T;                          \
  [[nodiscard]] const T& name() const noexcept { \
    return name##_;                              \
  }
#define FWK_DECL_MAP_READ_(Map, name, K, V)                     \
  [[nodiscard]] const ::fwk::Map<K, V>& name() const noexcept { \
    return name##_;                                             \
  }                                                             \
  [[nodiscard]] V name(const K& key) const {                    \
    const V* found = name##_.find(key);                         \
    return found ? *found : V();                                \
  }
#define FWK_DECL_scalar(name, T, def)                                                      \
 public:                                                                                   \
  FWK_DECL_SCALAR_READ_(name, T)                                                           \
  void name##Is(const T& value) {                                                          \
    ::fwk::detail::CollectionAccess::setScalar(*this, name##_, value, FWK_ATTR_ID_(name)); \
  }                                                                                        \
                                                                                           \
 private:                                                                                  \
  T name##_ = def;
#define FWK_DECL_customScalar(name, T, def)                                                \
 public:                                                                                   \
  FWK_DECL_SCALAR_READ_(name, T)                                                           \
                                                                                           \
 protected:                                                                                \
  void name##Store(const T& value) {                                                       \
    ::fwk::detail::CollectionAccess::setScalar(*this, name##_, value, FWK_ATTR_ID_(name)); \
  }                                                                                        \
                                                                                           \
 private:                                                                                  \
  T name##_ = def;
#define FWK_DECL_constScalar(name, T, def) FWK_DECL_customScalar(name, T, def)
#define FWK_DECL_statusScalar(name, T, def) FWK_DECL_scalar(name, T, def)
#define FWK_DECL_ownedChild(name, T, def)                                                             \
 public:                                                                                              \
  FWK_DECL_SCALAR_READ_(name, T)                                                                      \
                                                                                                      \
 protected:                                                                                           \
  void name##Adopt(const T& child) {                                                                  \
    ::fwk::detail::CollectionAccess::setOwnedChild(*this, name##_, child, #name, FWK_ATTR_ID_(name)); \
  }                                                                                                   \
                                                                                                      \
 private:                                                                                             \
  T name##_ = def;                                                                                    \
  ::fwk::detail::ChildLinkRelease<T> name##Release_{name##_};
#define FWK_DECL_MAP_(Map, name, K, V)                                                                                 \
 public:                                                                                                               \
  FWK_DECL_MAP_READ_(Map, name, K, V)                                                                                  \
  void name##Is(const K& key, const V& value) {                                                                        \
    ::fwk::detail::CollectionAccess::mapSet(*this, name##_, key, value, FWK_ATTR_ID_(name));                           \
  }                                                                                                                    \
  template <class Change>                                                                                              \
  void name##Update(const K& key, Change&& change) {                                                                   \
    ::fwk::detail::CollectionAccess::mapUpdate(*this, name##_, key, std::forward<Change>(change), FWK_ATTR_ID_(name)); \
  }                                                                                                                    \
  void name##Del(const K& key) {                                                                                       \
    ::fwk::detail::CollectionAccess::mapDel(*this, name##_, key, FWK_ATTR_ID_(name));                                  \
  }                                                                                                                    \
  void name##DelAll() {                                                                                                \
    ::fwk::detail::CollectionAccess::mapDelAll(*this, name##_, FWK_ATTR_ID_(name));                                    \
  }                                                                                                                    \
                                                                                                                       \
 private:                                                                                                              \
  ::fwk::Map<K, V> name##_;
#define FWK_DECL_orderedMap(name, K, V) FWK_DECL_MAP_(OrderedMap, name, K, V)
#define FWK_DECL_customOrderedMap(name, K, V)                                                \
 public:                                                                                     \
  FWK_DECL_MAP_READ_(OrderedMap, name, K, V)                                                 \
                                                                                             \
 protected:                                                                                  \
  void name##Store(const K& key, const V& value) {                                           \
    ::fwk::detail::CollectionAccess::mapSet(*this, name##_, key, value, FWK_ATTR_ID_(name)); \
  }                                                                                          \
  void name##Erase(const K& key) {                                                           \
    ::fwk::detail::CollectionAccess::mapDel(*this, name##_, key, FWK_ATTR_ID_(name));        \
  }                                                                                          \
                                                                                             \
 private:                                                                                    \
  ::fwk::OrderedMap<K, V> name##_;
#define FWK_DECL_hashMap(name, K, V) FWK_DECL_MAP_(HashMap, name, K, V)
#define FWK_DECL_children(name, K, E)                                                           \
 public:                                                                                        \
  template <class... Args>                                                                      \
  ::fwk::Ptr<E> name##Is(const K& key, Args&&... args) {                                        \
    return ::fwk::detail::CollectionAccess::childIs<E>(*this, name##_, key, FWK_ATTR_ID_(name), \
                                                       std::forward<Args>(args)...);            \
  }                                                                                             \
  FWK_DECL_customChildren(name, K, E)
#define FWK_DECL_customChildren(name, K, E)                                                 \
 public:                                                                                    \
  [[nodiscard]] const ::fwk::ChildMap<K, E>& name() const noexcept {                        \
    return name##_;                                                                         \
  }                                                                                         \
  [[nodiscard]] ::fwk::Ptr<E> name(const K& key) {                                          \
    return name##_.valueOr(key);                                                            \
  }                                                                                         \
  [[nodiscard]] ::fwk::Ptr<const E> name(const K& key) const {                              \
    return name##_.valueOr(key);                                                            \
  }                                                                                         \
  void name##Del(const K& key) {                                                            \
    ::fwk::detail::CollectionAccess::childDel<E>(*this, name##_, key, FWK_ATTR_ID_(name));  \
  }                                                                                         \
  void name##Del(const typename ::fwk::ChildMap<K, E>::const_iterator& at) {                \
    ::fwk::detail::CollectionAccess::childDelAt<E>(*this, name##_, at, FWK_ATTR_ID_(name)); \
  }                                                                                         \
  void name##DelAll() {                                                                     \
    ::fwk::detail::CollectionAccess::childDelAll<E>(*this, name##_, FWK_ATTR_ID_(name));    \
  }                                                                                         \
                                                                                            \
 private:                                                                                   \
  ::fwk::ChildMap<K, E> name##_;

#define FWK_PASS_HANDLER_(kind, ...) FWK_HANDLER_##kind(__VA_ARGS__)
// A value map has a second handler, NFilled(), for an empty map filled at once from another
// (a copy into a fresh entity). By default it reports every entry as NChanged(key), in the
// map's order, reading a snapshot taken first; a reactor that can take the whole collection
// in one step overrides it.
#define FWK_HANDLER_FILLABLE_(name, K)                             \
  virtual void name##Changed(const K&) {}                          \
  virtual void name##Filled() {                                    \
    if (!notifier()) return;                                       \
    const auto snapshot = notifier()->name();                      \
    for (const auto& entry : snapshot) name##Changed(entry.first); \
  }
#define FWK_HANDLER_scalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_customScalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_constScalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_statusScalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_ownedChild(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_orderedMap(name, K, V) FWK_HANDLER_FILLABLE_(name, K)
#define FWK_HANDLER_hashMap(name, K, V) FWK_HANDLER_FILLABLE_(name, K)
#define FWK_HANDLER_customOrderedMap(name, K, V) FWK_HANDLER_FILLABLE_(name, K)
#define FWK_HANDLER_children(name, K, E) \
  virtual void name##Changed(const K&) {}
#define FWK_HANDLER_customChildren(name, K, E) \
  virtual void name##Changed(const K&) {}

#define FWK_PASS_CASE_(kind, ...) FWK_CASE_##kind(__VA_ARGS__)
#define FWK_CASE_SCALAR_(name)    \
  case Notifier::name##AttrIndex: \
    name##Changed();              \
    break;
#define FWK_CASE_KEYED_(name, K)               \
  case Notifier::name##AttrIndex:              \
    name##Changed(change.template keyAs<K>()); \
    break;
#define FWK_CASE_FILLABLE_(name, K)              \
  case Notifier::name##AttrIndex:                \
    if (change.key) {                            \
      name##Changed(change.template keyAs<K>()); \
    } else {                                     \
      name##Filled();                            \
    }                                            \
    break;
#define FWK_CASE_scalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_customScalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_constScalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_statusScalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_ownedChild(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_orderedMap(name, K, V) FWK_CASE_FILLABLE_(name, K)
#define FWK_CASE_hashMap(name, K, V) FWK_CASE_FILLABLE_(name, K)
#define FWK_CASE_customOrderedMap(name, K, V) FWK_CASE_FILLABLE_(name, K)
#define FWK_CASE_children(name, K, E) FWK_CASE_KEYED_(name, K)
#define FWK_CASE_customChildren(name, K, E) FWK_CASE_KEYED_(name, K)
