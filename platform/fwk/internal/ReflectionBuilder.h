// Machinery behind the reflection tables: the typed attribute descriptions, the
// adapters that call operations with type-erased arguments, and the builder the definition
// macros (Define.h) drive. Nothing here is for direct use.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Collections.h"
#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/TypeInfo.h"
#include "aclkit/platform/fwk/Value.h"

namespace fwk {

namespace detail {

template <class T>
struct IsPtr : std::false_type {};
template <class E>
struct IsPtr<Ptr<E>> : std::true_type {
  using Element = E;
};
template <class T>
constexpr bool isEntityPtr() {
  if constexpr (IsPtr<T>::value) {
    return std::is_base_of_v<Entity, std::remove_const_t<typename IsPtr<T>::Element>>;
  } else {
    return false;
  }
}

// An entity reference copied from the source tree points at the destination's counterpart.
template <class T>
T resolveForCopy(const T& value, CopyContext& context) {
  if constexpr (IsPtr<T>::value) {
    using E = typename IsPtr<T>::Element;
    if constexpr (std::is_base_of_v<Entity, std::remove_const_t<E>>) {
      if (!value) return value;
      Entity* resolved = context.resolveEntityPtr(value.get());
      if (resolved == value.get()) return value;
      if (!resolved) return T();
      return T(&cast<std::remove_const_t<E>>(*resolved));
    } else {
      return value;
    }
  } else {
    return value;
  }
}

[[noreturn]] ACLKIT_EXPORT void argumentCountMismatch(const String& name, std::size_t wanted, std::size_t given);
[[noreturn]] ACLKIT_EXPORT void copyOfUncreatableChild(const AttrInfo& attr, const String& typeName);

template <class C, class T>
class ACLKIT_HIDDEN ScalarAttr final : public AttrInfo {
 public:
  // The other overloads raise "not supported" for this kind.
 public:
  using AttrInfo::get;
  using AttrInfo::set;

  using Setter = void (*)(C&, const T&);
  ScalarAttr(const char* name, std::uint16_t index, T C::*member, Setter setter, bool copied)
      : AttrInfo(name, AttrKind::scalar, index, nullptr, ::fwk::valueType<T>().name, &::fwk::valueType<T>(),
                 setter != nullptr),
        member_(member),
        setter_(setter),
        copied_(copied) {
    refersToEntities_ = isEntityPtr<T>();
  }
  Value get(const Entity& e) const override { return Value(cast<C>(e).*member_); }
  void set(Entity& e, const Value& v) const override {
    if (!setter_) unsupported("set");
    setter_(cast<C>(e), v.as<T>());
  }
  bool copy(Entity& dest, const Entity& src, CopyContext& context, const String&) const override {
    if (!copied_) return false;
    T value = resolveForCopy(cast<C>(src).*member_, context);
    if (cast<C>(dest).*member_ == value) return false;
    setter_(cast<C>(dest), value);
    return true;
  }

 private:
  T C::*member_;
  Setter setter_;
  bool copied_;
};

template <class C, class Map>
class ACLKIT_HIDDEN MapAttr final : public AttrInfo {
  // The other overloads raise "not supported" for this kind.
 public:
  using AttrInfo::get;
  using AttrInfo::set;

  using K = typename Map::key_type;
  using V = typename Map::mapped_type;

 public:
  using Setter = void (*)(C&, const K&, const V&);
  using Deleter = void (*)(C&, const K&);
  using Clearer = void (*)(C&);
  MapAttr(const char* name, AttrKind kind, std::uint16_t index, Map C::*member, Setter setter, Deleter deleter,
          Clearer clearer)
      : AttrInfo(name, kind, index, &::fwk::valueType<K>(), ::fwk::valueType<V>().name, &::fwk::valueType<V>(), true),
        member_(member),
        set_(setter),
        del_(deleter),
        delAll_(clearer) {
    refersToEntities_ = isEntityPtr<V>();
  }
  Value get(const Entity& e, const Value& key) const override {
    const V* found = (cast<C>(e).*member_).find(key.as<K>());
    return found ? Value(*found) : Value(V());
  }
  void set(Entity& e, const Value& key, const Value& v) const override { set_(cast<C>(e), key.as<K>(), v.as<V>()); }
  void del(Entity& e, const Value& key) const override { del_(cast<C>(e), key.as<K>()); }
  void delAll(Entity& e) const override { delAll_(cast<C>(e)); }
  std::size_t size(const Entity& e) const override { return (cast<C>(e).*member_).size(); }
  std::vector<Value> keys(const Entity& e) const override {
    std::vector<Value> all;
    for (const auto& entry : cast<C>(e).*member_) all.emplace_back(entry.first);
    return all;
  }
  bool copy(Entity& destEntity, const Entity& srcEntity, CopyContext& context, const String&) const override {
    C& dest = cast<C>(destEntity);
    const Map& from = cast<C>(srcEntity).*member_;
    const Map& to = dest.*member_;
    if constexpr (!isEntityPtr<V>()) {
      // Values mean the same in every tree, so the two maps may share their storage: a copy
      // into an empty map is one step, and maps that already share are equal unread.
      if (to.sharesAllWith(from)) return false;
      if (to.empty()) {
        CollectionAccess::mapFill(dest, dest.*member_, from, AttrId{&C::staticType, index()});
        return !from.empty();
      }
    }
    // Plan first, write second: the walk never sees its own writes, and two equal maps cost
    // one pass with no allocation.
    std::vector<K> stale;
    std::vector<std::pair<const K*, const V*>> writes;
    if constexpr (!isEntityPtr<V>() && requires { from.forEachDifference(to, [](auto&&...) {}); }) {
      from.forEachDifference(to, [&](const K& key, const V* mine, const V*) {
        if (mine) {
          writes.emplace_back(&key, mine);
        } else {
          stale.push_back(key);
        }
      });
    } else if constexpr (requires { from.lowerBound(std::declval<const K&>()); }) {
      auto s = from.begin();
      auto d = to.begin();
      const auto sEnd = from.end();
      const auto dEnd = to.end();
      while (s != sEnd || d != dEnd) {
        if (s == sEnd || (d != dEnd && (*d).first < (*s).first)) {
          stale.push_back((*d).first);
          ++d;
        } else if (d == dEnd || (*s).first < (*d).first) {
          writes.emplace_back(&(*s).first, &(*s).second);
          ++s;
        } else {
          if (!sameValue((*d).second, (*s).second, context)) writes.emplace_back(&(*s).first, &(*s).second);
          ++s;
          ++d;
        }
      }
    } else {
      for (const auto& entry : to) {
        if (!from.contains(entry.first)) stale.push_back(entry.first);
      }
      for (const auto& entry : from) {
        const V* current = to.find(entry.first);
        if (!current || !sameValue(*current, entry.second, context)) writes.emplace_back(&entry.first, &entry.second);
      }
    }
    for (const K& key : stale) del_(dest, key);
    for (const auto& [key, value] : writes) {
      if constexpr (isEntityPtr<V>()) {
        set_(dest, *key, resolveForCopy(*value, context));
      } else {
        set_(dest, *key, *value);
      }
    }
    return !stale.empty() || !writes.empty();
  }

 private:
  static bool sameValue(const V& current, const V& source, CopyContext& context) {
    if constexpr (isEntityPtr<V>()) {
      return current == resolveForCopy(source, context);
    } else {
      return current == source;
    }
  }

  Map C::*member_;
  Setter set_;
  Deleter del_;
  Clearer delAll_;
};

template <class C, class K, class E>
class ACLKIT_HIDDEN ChildrenAttr final : public AttrInfo {
  // The other overloads raise "not supported" for this kind.
 public:
  using AttrInfo::get;
  using AttrInfo::set;

  using Map = ChildMap<K, E>;

 public:
  ChildrenAttr(const char* name, std::uint16_t index, Map C::*member)
      : AttrInfo(name, AttrKind::children, index, &::fwk::valueType<K>(), String(E::fwkTypeName()), nullptr, false),
        member_(member) {}
  Value get(const Entity& e, const Value& key) const override {
    return Value(Ptr<Entity>((cast<C>(e).*member_).valueOr(key.as<K>())));
  }
  void del(Entity& e, const Value& key) const override {
    CollectionAccess::childDel<E>(e, cast<C>(e).*member_, key.as<K>(), id());
  }
  void delAll(Entity& e) const override { CollectionAccess::childDelAll<E>(e, cast<C>(e).*member_, id()); }
  std::size_t size(const Entity& e) const override { return (cast<C>(e).*member_).size(); }
  std::vector<Value> keys(const Entity& e) const override {
    std::vector<Value> all;
    for (const auto& entry : cast<C>(e).*member_) all.emplace_back(entry.first);
    return all;
  }
  std::vector<Entity*> children(const Entity& e) const override {
    std::vector<Entity*> all;
    for (const auto& entry : cast<C>(e).*member_) all.push_back(entry.second.get());
    return all;
  }
  bool copy(Entity& destEntity, const Entity& srcEntity, CopyContext& context, const String& path) const override {
    C& dest = cast<C>(destEntity);
    const Map& from = cast<C>(srcEntity).*member_;
    Map& to = dest.*member_;
    bool changed = false;
    for (auto it = to.begin(); it != to.end(); ++it) {
      if (from.contains(it->first)) continue;
      CollectionAccess::childDel<E>(dest, to, K(it->first), id());
      changed = true;
    }
    for (const auto& [key, srcChild] : from) {
      Ptr<E> destChild = to.valueOr(key);
      if (destChild && &destChild->fwkType() != &srcChild->fwkType()) {
        CollectionAccess::childDel<E>(dest, to, key, id());  // same name, another type: replace
        destChild = nullptr;
      }
      if (!destChild) {
        destChild = createLike(dest, to, key, *srcChild);
        changed = true;
      }
      String childPath(path.str() + "." + name().str() + "/" + strep(key));
      changed = context.copyChild(*destChild, *srcChild, childPath) || changed;
    }
    return changed;
  }

 private:
  AttrId id() const { return AttrId{&C::staticType, index()}; }

  // A new destination child of the source child's own type: with the source's construction
  // arguments when the type says how (a static fwkConstructLike(src)), else from the key,
  // else through the type's factories (collections of mixed types).
  Ptr<E> createLike(C& dest, Map& to, const K& key, const E& srcChild) const {
    const TypeInfo& type = srcChild.fwkType();
    if (&type == &E::staticType()) {
      if constexpr (requires { E::fwkConstructLike(srcChild); }) {
        Ptr<E> child = E::fwkConstructLike(srcChild);
        child->hasNotificationActiveIs(true);
        CollectionAccess::adoptChild<E>(dest, to, key, child, id());
        return child;
      } else if constexpr (NewableFrom<E, const K&> || NewableFrom<E>) {
        return CollectionAccess::childIs<E>(dest, to, key, id());
      }
    }
    for (const OpInfo& factory : type.factories()) {
      std::vector<Value> args;
      if (factory.argTypes.size() == 1 && factory.argTypes[0] == &::fwk::valueType<String>()) {
        args.emplace_back(String(strep(key)));
      } else if (!factory.argTypes.empty()) {
        continue;
      }
      Ptr<E> child = cast<E>(factory.invoke(nullptr, args).template as<Ptr<Entity>>());
      child->hasNotificationActiveIs(true);
      CollectionAccess::adoptChild<E>(dest, to, key, child, id());
      return child;
    }
    copyOfUncreatableChild(*this, type.name());
  }

  Map C::*member_;
};

template <class F>
struct MethodTraits;
template <class C, class R, class... A>
struct MethodTraits<R (C::*)(A...)> {
  using Class = C;
  using Result = R;
  using Args = std::tuple<A...>;
};
template <class C, class R, class... A>
struct MethodTraits<R (C::*)(A...) const> : MethodTraits<R (C::*)(A...)> {};
template <class C, class R, class... A>
struct MethodTraits<R (C::*)(A...) noexcept> : MethodTraits<R (C::*)(A...)> {};
template <class C, class R, class... A>
struct MethodTraits<R (C::*)(A...) const noexcept> : MethodTraits<R (C::*)(A...)> {};
template <class R, class... A>
struct MethodTraits<R (*)(A...)> {
  using Class = void;
  using Result = R;
  using Args = std::tuple<A...>;
};
template <class R, class... A>
struct MethodTraits<R (*)(A...) noexcept> : MethodTraits<R (*)(A...)> {};

template <class Tuple>
struct ArgTypes;
template <class... A>
struct ArgTypes<std::tuple<A...>> {
  static std::vector<const ValueType*> get() { return {&::fwk::valueType<std::decay_t<A>>()...}; }
};

template <auto F, class Traits, std::size_t... I>
Value call(Entity* receiver, const std::vector<Value>& args, std::index_sequence<I...>) {
  using R = typename Traits::Result;
  using Args = typename Traits::Args;
  auto run = [&]() -> decltype(auto) {
    if constexpr (std::is_void_v<typename Traits::Class>) {
      return F(args[I].template as<std::decay_t<std::tuple_element_t<I, Args>>>()...);
    } else {
      auto& self = cast<typename Traits::Class>(*receiver);
      return (self.*F)(args[I].template as<std::decay_t<std::tuple_element_t<I, Args>>>()...);
    }
  };
  if constexpr (std::is_void_v<R>) {
    run();
    return Value();
  } else if constexpr (IsPtr<std::decay_t<R>>::value) {
    // Entity results travel as Ptr<Entity>, which every binding knows how to hold.
    using E = std::remove_const_t<typename IsPtr<std::decay_t<R>>::Element>;
    if constexpr (std::is_base_of_v<Entity, E>) {
      return Value(Ptr<Entity>(const_cast<E*>(run().get())));
    } else {
      return Value(run());
    }
  } else {
    return Value(std::decay_t<R>(run()));
  }
}

template <auto F>
OpInfo makeOp(const char* name) {
  using Traits = MethodTraits<decltype(F)>;
  using R = std::decay_t<typename Traits::Result>;
  constexpr std::size_t arity = std::tuple_size_v<typename Traits::Args>;
  OpInfo op;
  op.name = String(name);
  op.argTypes = ArgTypes<typename Traits::Args>::get();
  if constexpr (std::is_void_v<R>) {
    op.resultType = nullptr;
  } else {
    op.resultType = &::fwk::valueType<R>();
  }
  op.invoke = [](Entity* receiver, const std::vector<Value>& args) -> Value {
    if (args.size() != arity) argumentCountMismatch(String(), arity, args.size());
    if constexpr (!std::is_void_v<typename Traits::Class>) {
      if (!receiver) throw NullArgumentError("operation called without a receiver");
    }
    return call<F, Traits>(receiver, args, std::make_index_sequence<arity>());
  };
  return op;
}

template <class C>
class TypeBuilder {
 public:
  explicit TypeBuilder(TypeInfo& type) : type_(type) {}

  template <class T>
  void scalar(const char* name, std::uint16_t index, T C::*member, void (*setter)(C&, const T&), bool copied = true) {
    type_.attrIs(std::make_unique<ScalarAttr<C, T>>(name, index, member, setter, copied));
  }
  template <class Map>
  void map(const char* name, AttrKind kind, std::uint16_t index, Map C::*member,
           typename MapAttr<C, Map>::Setter setter, typename MapAttr<C, Map>::Deleter deleter,
           typename MapAttr<C, Map>::Clearer clearer) {
    type_.attrIs(std::make_unique<MapAttr<C, Map>>(name, kind, index, member, setter, deleter, clearer));
  }
  template <class K, class E>
  void childMap(const char* name, std::uint16_t index, ChildMap<K, E> C::*member) {
    type_.attrIs(std::make_unique<ChildrenAttr<C, K, E>>(name, index, member));
  }
  template <auto F>
  void op(const char* name) {
    type_.opIs(makeOp<F>(name));
  }

 private:
  TypeInfo& type_;
};

template <class C>
Ptr<Entity> constructDefault() {
  return Ptr<Entity>(new C());
}
template <class C>
Ptr<Entity> constructNamed(String name) {
  return Ptr<Entity>(new C(std::move(name)));
}

template <class C, class Fill>
const TypeInfo& buildType(Fill fill) {
  auto* type = new TypeInfo(String(C::fwkTypeName()), &C::FwkBase::staticType());
  TypeBuilder<C> builder(*type);
  fill(builder);
  // Types that can be made from nothing or from a name get a factory for free, so that a
  // generic copy can create them in a directory.
  if constexpr (NewableFrom<C>) {
    type->factoryIs(makeOp<&constructDefault<C>>(C::fwkTypeName()));
  }
  if constexpr (NewableFrom<C, String>) {
    type->factoryIs(makeOp<&constructNamed<C>>(C::fwkTypeName()));
  }
  return *type;
}

}  // namespace detail

}  // namespace fwk
