// Declaring an entity's attributes once.
//
// An entity type lists its attributes in one X-macro, in declaration order:
//
//   #define ACLKIT_ACL_SUB_CONFIG_ATTRS(A)
//     A(scalar, committed, bool, false)
//     A(orderedMap, ruleBySequence, U32, UniqueId)
//     A(hashMap, ipRuleById, UniqueId, IpRuleConfig)
//     A(children, acl, String, AclConfig)
//
//   class AclSubConfig : public fwk::Entity {
//     FWK_ENTITY(AclSubConfig, fwk::Entity, ACLKIT_ACL_SUB_CONFIG_ATTRS)
//    public:
//     explicit AclSubConfig(const UniqueId& id);
//   };
//
// and, in its source file, FWK_ENTITY_DEFINE(AclSubConfig, ACLKIT_ACL_SUB_CONFIG_ATTRS) (or
// FWK_ENTITY_DEFINE_WITH_OPS with a list of operations reachable by name). From that one
// list come the storage, the accessors, the change notifications, the typed reactor
// AclSubConfig::Reactor, the reflection entries and the generic copy.
//
// Kinds and what each generates (N is the attribute's name):
//   scalar(N, T, default)        N(), NIs(value)
//   customScalar(N, T, default)  N(), protected NStore(value); the class writes NIs itself
//   constScalar(N, T, default)   N(), protected NStore(value); read-only to reflection and
//                                skipped by the generic copy: construction arguments, and
//                                state that only the entity itself manages
//   nonNullScalar(N, T, default) like scalar for a Ptr that must be set: NIs(null) raises
//                                NullArgumentError ("NIs: null N") and changes nothing
//   statusScalar(N, T, default)  like scalar, but the generic copy leaves it alone: state
//                                that belongs to the tree it was written in (stamps, flags
//                                set by whoever applied the configuration)
//   orderedMap(N, K, V)          N() (the map), N(key), NIs(key, value), NDel(key), NDelAll()
//   hashMap(N, K, V)             the same over a hash map
//   customOrderedMap(N, K, V)    N(), N(key), protected NStore(key, value) and NErase(key);
//                                the class writes NIs, NDel and NDelAll itself
//   children(N, K, E)            N() (the map), N(key) (null when absent),
//                                NIs(key, ctor args...) creates the child (or returns the
//                                existing one) with its parent link set, NDel(key),
//                                NDel(iterator) (the entry it stands on; end() removes
//                                nothing), NDelAll()
//   ownedChild(N, Ptr<E>, {})    one child entity: N(), protected NAdopt(child) (null lets
//                                go); the framework keeps the child's parent link and name
//                                (N when it has none). Read-only to reflection, not copied
//   customChildren(N, K, E)      the same without NIs: the class creates children itself
//                                (through fwk::detail::CollectionAccess::adoptChild), for
//                                collections of mixed entity types
// Reading an absent key yields a default-constructed value; a mutation that changes nothing
// notifies nobody. The reactor has a virtual NChanged() (scalars) or NChanged(key) per
// attribute, called for every change.
#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include "aclkit/platform/fwk/Collections.h"
#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Fault.h"
#include "aclkit/platform/fwk/Strep.h"
#include "aclkit/platform/fwk/Transaction.h"

namespace fwk::detail {

// Clears the parent link of an owned child when its owner goes (declared after the slot, so
// it runs while the slot still holds the child).
template <class P>
class ChildLinkRelease {
 public:
  explicit ChildLinkRelease(const P& slot) noexcept : slot_(slot) {}
  ChildLinkRelease(const ChildLinkRelease&) = delete;
  ChildLinkRelease& operator=(const ChildLinkRelease&) = delete;
  ~ChildLinkRelease() {
    if (slot_) EntityLinks::parentIs(*slot_, nullptr);
  }

 private:
  const P& slot_;
};

// The entity a record of a transaction restores, held for as long as the record lives.
class UndoTarget {
 public:
  explicit UndoTarget(const Entity& entity) : held_(const_cast<Entity*>(&entity)) {}
  [[nodiscard]] Entity& operator*() const noexcept { return *held_; }

 private:
  Ptr<Entity> held_;
};

// The only code that writes collections; every write notifies exactly when state changed,
// and is recorded with its inverse first when a transaction asks for it.
struct ACLKIT_EXPORT CollectionAccess {
  template <class T>
  static void setScalar(const Entity& owner, T& slot, const T& value, AttrId id) {
    if (slot == checkedValue(value)) return;
    FWK_FAULT_POINT(mutation);
    if (undoRecording(owner)) {
      undoRecord([target = UndoTarget(owner), &slot, old = slot, id] { setScalar(*target, slot, old, id); });
    }
    T copy(value);  // a copy that throws leaves the slot as it was
    slot = std::move(copy);
    owner.notify(id);
  }

  template <class Map, class K, class V>
  static void mapSet(const Entity& owner, Map& map, const K& key, const V& value, AttrId id) {
    if constexpr (requires { value.get(); }) {
      if (!value) throw NullArgumentError("null value for a collection entry is not allowed");
    }
    FWK_FAULT_POINT(mutation);
    if (undoRecording(owner)) recordEntry(owner, map, key, id);
    if (map.assign(key, value)) owner.notify(id, &key);
  }

  // The key is copied first: callers often pass the stored key itself, which the removal frees.
  template <class Map, class K>
  static void mapDel(const Entity& owner, Map& map, const K& key, AttrId id) {
    const K removed = key;
    FWK_FAULT_POINT(mutation);
    if (!map.contains(removed)) return;
    if (undoRecording(owner)) recordEntry(owner, map, removed, id);
    if (map.erase(removed)) owner.notify(id, &removed);
  }

  // Entries go one at a time, so each observer sees a consistent map at its notification.
  template <class Map>
  static void mapDelAll(const Entity& owner, Map& map, AttrId id) {
    while (!map.empty()) {
      if (undoRecording(owner)) recordEntry(owner, map, map.nextToPop(), id);
      auto key = map.popEntry();
      owner.notify(id, &key);
    }
  }

  template <class E, class K, class... Args>
  static Ptr<E> childIs(Entity& parent, OrderedMap<K, Ptr<E>>& map, const K& key, AttrId id, Args&&... args) {
    if (const Ptr<E>* found = map.find(key)) return *found;
    FWK_FAULT_POINT(mutation);
    if (undoRecording(parent)) {
      undoRecord([target = UndoTarget(parent), &map, key, id] { childDel(*target, map, key, id); });
    }
    Ptr<E> child;
    if constexpr (NewableFrom<E, const K&, Args...>) {
      child = new E(key, std::forward<Args>(args)...);
    } else {
      child = new E(std::forward<Args>(args)...);
    }
    EntityLinks::parentIs(*child, &parent);
    if (child->name().empty()) EntityLinks::nameIs(*child, String(strep(key)));
    child->hasNotificationActiveIs(true);
    map.assign(key, child);
    parent.notify(id, &key);
    return child;
  }

  // Makes `child` (or nobody) the entity's one child in `slot`, with its parent link.
  template <class E>
  static void setOwnedChild(Entity& owner, Ptr<E>& slot, const Ptr<E>& child, const char* name, AttrId id) {
    if (slot == child) return;
    if (child && child->parent() && child->parent() != &owner) {
      throw Error("entity '" + child->fullName().str() + "' already has a parent");
    }
    const Ptr<E> old = slot;
    auto link = [&owner](const Ptr<E>& adopted, const Ptr<E>& released) {
      if (released && released->parent() == &owner) EntityLinks::parentIs(*released, nullptr);
      if (adopted) EntityLinks::parentIs(*adopted, &owner);
    };
    if (child && child->name().empty()) EntityLinks::nameIs(*child, String(name));
    link(child, old);
    try {
      setScalar(owner, slot, child, id);
    } catch (...) {
      link(old, child);
      throw;
    }
    if (undoRecording(owner)) undoRecord([link, child, old] { link(old, child); });
  }

  // Inserts an existing entity as a child (replacing what stood under key).
  template <class E, class K>
  static void adoptChild(Entity& parent, OrderedMap<K, Ptr<E>>& map, const K& key, const Ptr<E>& child, AttrId id) {
    if (!child) throw NullArgumentError("null child entity is not allowed");
    if (const Ptr<E>* found = map.find(key); found && *found == child) return;
    if (child->parent() && child->parent() != &parent) {
      throw Error("entity '" + child->fullName().str() + "' already has a parent");
    }
    if (map.contains(key)) childDel(parent, map, key, id);
    if (undoRecording(parent)) {
      undoRecord([target = UndoTarget(parent), &map, key, id] { childDel(*target, map, key, id); });
    }
    EntityLinks::parentIs(*child, &parent);
    if (child->name().empty()) EntityLinks::nameIs(*child, String(strep(key)));
    map.assign(key, child);
    parent.notify(id, &key);
  }

  template <class E, class K>
  static void childDel(Entity& parent, OrderedMap<K, Ptr<E>>& map, const K& key, AttrId id) {
    const Ptr<E>* found = map.find(key);
    if (!found) return;
    const K removed = key;  // may be the stored key, which the removal frees
    FWK_FAULT_POINT(mutation);
    Ptr<E> child = *found;  // keep it alive until the parent link is cleared
    if (undoRecording(parent)) {
      // The same object comes back, so that whatever refers to it by identity still does.
      undoRecord(
          [target = UndoTarget(parent), &map, removed, child, id] { adoptChild(*target, map, removed, child, id); });
    }
    map.erase(removed);
    if (child->parent() == &parent) EntityLinks::parentIs(*child, nullptr);
    child.reset();
    parent.notify(id, &removed);
  }

  // Removal through an iterator of the same collection; the end deletes nothing.
  template <class E, class K>
  static void childDelAt(Entity& parent, OrderedMap<K, Ptr<E>>& map,
                         const typename OrderedMap<K, Ptr<E>>::const_iterator& at, AttrId id) {
    FWK_ASSERT_TEXT(at.map_ == &map, "iterator of another collection");
    at.sync();
    if (at.atEnd_ || at.it_ == map.storage_.end()) return;
    const K key = at.it_->first;
    childDel(parent, map, key, id);
  }

  template <class E, class K>
  static void childDelAll(Entity& parent, OrderedMap<K, Ptr<E>>& map, AttrId id) {
    while (!map.empty()) {
      K key = map.begin()->first;
      childDel(parent, map, key, id);
    }
  }

 private:
  // Records how to put back the entry under key as it stands now (or its absence).
  template <class Map, class K>
  static void recordEntry(const Entity& owner, Map& map, const K& key, AttrId id) {
    if (const auto* old = map.find(key)) {
      undoRecord([target = UndoTarget(owner), &map, key, value = *old, id] { mapSet(*target, map, key, value, id); });
    } else {
      undoRecord([target = UndoTarget(owner), &map, key, id] { mapDel(*target, map, key, id); });
    }
  }
};

}  // namespace fwk::detail

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
#define FWK_DECL_nonNullScalar(name, T, def)                                               \
 public:                                                                                   \
  FWK_DECL_SCALAR_READ_(name, T)                                                           \
  void name##Is(const T& value) {                                                          \
    if (!value) throw ::fwk::NullArgumentError(#name "Is: null " #name);                   \
    ::fwk::detail::CollectionAccess::setScalar(*this, name##_, value, FWK_ATTR_ID_(name)); \
  }                                                                                        \
                                                                                           \
 private:                                                                                  \
  T name##_ = def;
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
#define FWK_DECL_MAP_(Map, name, K, V)                                                       \
 public:                                                                                     \
  FWK_DECL_MAP_READ_(Map, name, K, V)                                                        \
  void name##Is(const K& key, const V& value) {                                              \
    ::fwk::detail::CollectionAccess::mapSet(*this, name##_, key, value, FWK_ATTR_ID_(name)); \
  }                                                                                          \
  void name##Del(const K& key) {                                                             \
    ::fwk::detail::CollectionAccess::mapDel(*this, name##_, key, FWK_ATTR_ID_(name));        \
  }                                                                                          \
  void name##DelAll() {                                                                      \
    ::fwk::detail::CollectionAccess::mapDelAll(*this, name##_, FWK_ATTR_ID_(name));          \
  }                                                                                          \
                                                                                             \
 private:                                                                                    \
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
#define FWK_HANDLER_scalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_customScalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_constScalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_nonNullScalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_statusScalar(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_ownedChild(name, ...) \
  virtual void name##Changed() {}
#define FWK_HANDLER_orderedMap(name, K, V) \
  virtual void name##Changed(const K&) {}
#define FWK_HANDLER_hashMap(name, K, V) \
  virtual void name##Changed(const K&) {}
#define FWK_HANDLER_customOrderedMap(name, K, V) \
  virtual void name##Changed(const K&) {}
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
#define FWK_CASE_scalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_customScalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_constScalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_statusScalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_nonNullScalar(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_ownedChild(name, ...) FWK_CASE_SCALAR_(name)
#define FWK_CASE_orderedMap(name, K, V) FWK_CASE_KEYED_(name, K)
#define FWK_CASE_hashMap(name, K, V) FWK_CASE_KEYED_(name, K)
#define FWK_CASE_customOrderedMap(name, K, V) FWK_CASE_KEYED_(name, K)
#define FWK_CASE_children(name, K, E) FWK_CASE_KEYED_(name, K)
#define FWK_CASE_customChildren(name, K, E) FWK_CASE_KEYED_(name, K)

// Inside the class body of an entity type. Entities live on the heap, held by Ptr: the
// destructor is protected, so an entity on the stack or by value does not compile. A type
// whose destructor has work to do declares it with FWK_ENTITY_WITH_DESTRUCTOR and defines it.
#define FWK_ENTITY(Class, Base, LIST) \
  FWK_ENTITY_BODY_(Class, Base, LIST) \
                                      \
 protected:                           \
  ~Class() override = default;        \
                                      \
 public:
#define FWK_ENTITY_WITH_DESTRUCTOR(Class, Base, LIST) \
  FWK_ENTITY_BODY_(Class, Base, LIST)                 \
                                                      \
 protected:                                           \
  ~Class() override;                                  \
                                                      \
 public:
#define FWK_ENTITY_BODY_(Class, Base, LIST)                                                                   \
 public:                                                                                                      \
  using FwkBase = Base;                                                                                       \
  static const ::fwk::TypeInfo& staticType();                                                                 \
  static const char* fwkTypeName() {                                                                          \
    return #Class;                                                                                            \
  }                                                                                                           \
  [[nodiscard]] const ::fwk::TypeInfo& fwkType() const override {                                             \
    return staticType();                                                                                      \
  }                                                                                                           \
  enum FwkAttrIndex : std::uint16_t { LIST(FWK_PASS_INDEX_) fwkAttrCount_ };                                  \
  class Reactor : public FwkBase::Reactor {                                                                   \
   public:                                                                                                    \
    using Notifier = Class;                                                                                   \
    Reactor() = default;                                                                                      \
    explicit Reactor(const Class* entity) { notifierIs(entity); }                                             \
    [[nodiscard]] const Class* notifier() const noexcept { return static_cast<const Class*>(rawNotifier()); } \
    void notifierIs(const Class* entity) { watch(entity); }                                                   \
    LIST(FWK_PASS_HANDLER_)                                                                                   \
                                                                                                              \
   protected:                                                                                                 \
    void fwkDispatch(const ::fwk::Change& change) override {                                                  \
      if (change.owner != &Notifier::staticType()) {                                                          \
        FwkBase::Reactor::fwkDispatch(change);                                                                \
        return;                                                                                               \
      }                                                                                                       \
      switch (change.index) {                                                                                 \
        LIST(FWK_PASS_CASE_)                                                                                  \
        default:                                                                                              \
          break;                                                                                              \
      }                                                                                                       \
    }                                                                                                         \
  };                                                                                                          \
  friend class ::fwk::detail::TypeBuilder<Class>;                                                             \
  LIST(FWK_PASS_DECL_)                                                                                        \
 public:

namespace fwk::detail {
template <class C>
class TypeBuilder;
}  // namespace fwk::detail

// Construction arguments declared once, as a list of the scalar attributes they set, in
// order: #define ARGS(X, C) X(C, aclName) X(C, aclType) ... Each argument has its attribute's
// type and is named <attribute>Arg. From the list come a constructor's parameters and body
// and the factories' parameter lists and forwarding calls:
//   FWK_ARGS_PARAMS(Class, ARGS)   const T& aclNameArg, ...
//   FWK_ARGS_VALUES(Class, ARGS)   T aclNameArg, ...
//   FWK_ARGS_NAMES(ARGS)           aclNameArg, ...
//   FWK_ARGS_STORE(ARGS)           aclNameIs(aclNameArg); ...
#define FWK_ARGS_PARAMS(Class, ARGS) FWK_ARGS_LIST_(ARGS(FWK_ARG_PARAM_, Class))
#define FWK_ARGS_VALUES(Class, ARGS) FWK_ARGS_LIST_(ARGS(FWK_ARG_VALUE_, Class))
#define FWK_ARGS_NAMES(ARGS) FWK_ARGS_LIST_(ARGS(FWK_ARG_NAME_, ))
#define FWK_ARGS_STORE(ARGS) ARGS(FWK_ARG_STORE_, )
#define FWK_ARGS_LIST_(...) FWK_ARGS_DROP_FIRST_(__VA_ARGS__)
#define FWK_ARGS_DROP_FIRST_(first, ...) __VA_ARGS__
#define FWK_ARG_PARAM_(Class, attr) , const Class::attr##Type& attr##Arg
#define FWK_ARG_VALUE_(Class, attr) , Class::attr##Type attr##Arg
#define FWK_ARG_NAME_(Class, attr) , attr##Arg
#define FWK_ARG_STORE_(Class, attr) attr##Is(attr##Arg);
