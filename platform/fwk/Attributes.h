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
//   statusScalar(N, T, default)  like scalar, but the generic copy leaves it alone: state
//                                that belongs to the tree it was written in (stamps, flags
//                                set by whoever applied the configuration)
//   orderedMap(N, K, V)          N() (the map), N(key), NIs(key, value), NDel(key), NDelAll(),
//                                NUpdate(key, change): NIs(key, change(old)) with one search
//                                (old a const V*, null when absent)
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

#include "aclkit/platform/fwk/Collections.h"
#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/internal/AttributeKinds.h"

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
