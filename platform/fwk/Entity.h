// fwk::Entity: the base of every configuration and status object.
//
// An entity is reference counted (held by fwk::Ptr), has a name and a parent link (the
// parent owns its children through a children collection; the link back is not counted),
// and notifies its observers synchronously, on the calling thread, whenever one of its
// attributes changes. Notifications are off until hasNotificationActiveIs(true), which
// the framework calls right after constructing an entity for a collection or factory.
//
// Observers are Notifiees; the typed ones are reactors (Class::Reactor, generated for
// every entity type by FWK_ENTITY) whose handler <attribute>Changed(...) runs for every
// change. Watching is RAII: a reactor that is destroyed stops watching; an entity that is
// destroyed first detaches its reactors, which then see a null notifier.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/Ptr.h"
#include "aclkit/platform/fwk/String.h"
#include "aclkit/platform/fwk/TypeInfo.h"

namespace fwk {

class Entity;

// Identifies one attribute of one entity type: the declaring type and the attribute's
// index among that type's own attributes.
struct ACLKIT_EXPORT AttrId {
  const TypeInfo& (*owner)();
  std::uint16_t index;
};

// What changed: the attribute and, for a collection, the key of the entry that was added,
// changed or removed (null for a scalar). The key's type is fixed by the attribute.
struct ACLKIT_EXPORT Change {
  const TypeInfo* owner;
  std::uint16_t index;
  const void* key;
  template <class K>
  [[nodiscard]] const K& keyAs() const noexcept {
    FWK_DEBUG_ASSERT(key != nullptr);
    return *static_cast<const K*>(key);
  }
};

// Something that watches one entity. Subclasses are reactors; see Entity::Reactor.
class ACLKIT_EXPORT Notifiee {
 public:
  Notifiee(const Notifiee&) = delete;
  Notifiee& operator=(const Notifiee&) = delete;

  [[nodiscard]] const Entity* rawNotifier() const noexcept { return notifier_; }

 protected:
  Notifiee() = default;
  virtual ~Notifiee();
  // Stops watching the current entity and starts watching `entity` (may be null).
  void watch(const Entity* entity);
  virtual void fwkDispatch(const Change& change) = 0;
  // The watched entity is being destroyed; the notifier is already null.
  virtual void notifierDestroyed() {}

 private:
  friend class Entity;
  const Entity* notifier_ = nullptr;
};

class ACLKIT_EXPORT Entity : public RefCounted {
 public:
  class Reactor;
  using FwkBase = Entity;

  static const TypeInfo& staticType();
  static const char* fwkTypeName() { return "Entity"; }
  [[nodiscard]] virtual const TypeInfo& fwkType() const { return staticType(); }

  [[nodiscard]] const String& name() const noexcept { return name_; }
  [[nodiscard]] Entity* parent() const noexcept { return parent_; }
  // Path from the root: the names of the ancestors and of this entity, joined by '/'.
  [[nodiscard]] String fullName() const;

  [[nodiscard]] bool hasNotificationActive() const noexcept { return notificationActive_; }
  void hasNotificationActiveIs(bool active) noexcept { notificationActive_ = active; }
  // The observers currently watching this entity.
  [[nodiscard]] std::vector<const Notifiee*> notifieeList() const;

  [[nodiscard]] bool isA(const TypeInfo& type) const noexcept { return fwkType().isA(type); }

  // Entities alive in the process: what leak checks compare before and after a piece of work.
  [[nodiscard]] static std::int64_t liveCount() noexcept;
  // Creation order of entities in the process; a transaction records changes only to
  // entities older than itself.
  [[nodiscard]] std::uint64_t serial() const noexcept { return serial_; }
  // The serial the next entity made will get.
  [[nodiscard]] static std::uint64_t nextSerial() noexcept;

  // Sends a change to every observer. Generated accessors call this; so may an entity
  // whose hand-written mutator changes state.
  void notify(const Change& change) const {
    if (notificationActive_ && !notifiees_.empty()) dispatch(change);
  }
  void notify(AttrId attr, const void* key = nullptr) const {
    if (notificationActive_ && !notifiees_.empty()) dispatch(Change{&attr.owner(), attr.index, key});
  }

 protected:
  explicit Entity(String name = String());
  ~Entity() override;

 private:
  friend class Notifiee;
  friend struct EntityLinks;
  void dispatch(const Change& change) const;
  void addNotifiee(Notifiee* notifiee) const;
  void removeNotifiee(Notifiee* notifiee) const noexcept;

  String name_;
  std::uint64_t serial_;
  Entity* parent_ = nullptr;
  mutable std::vector<Notifiee*> notifiees_;
  mutable std::uint32_t dispatchDepth_ = 0;
  mutable bool notifieesRemoved_ = false;
  bool notificationActive_ = false;
};

// The root of every generated Class::Reactor. Reactors are reference counted so that an
// owner may keep them in collections; they can as well live as plain members.
class Entity::Reactor : public RefCounted, public Notifiee {
 public:
  using Notifier = Entity;
  Reactor() = default;
  [[nodiscard]] const Entity* notifier() const noexcept { return rawNotifier(); }
  void notifierIs(const Entity* entity) { watch(entity); }

 protected:
  void fwkDispatch(const Change&) override {}
};

// Framework-only access to the links the collections maintain.
struct ACLKIT_EXPORT EntityLinks {
  static void parentIs(Entity& child, Entity* parent) noexcept { child.parent_ = parent; }
  static void nameIs(Entity& entity, String name) { entity.name_ = std::move(name); }
};

// Checked conversions. cast() raises TypeConversionError; dynCast() returns null.
template <class T, class U>
Ptr<T> dynCast(const Ptr<U>& entity) noexcept {
  if (!entity || !entity->isA(std::remove_const_t<T>::staticType())) return nullptr;
  return Ptr<T>(static_cast<T*>(entity.get()));
}
[[noreturn]] ACLKIT_EXPORT void castFailed(const Entity& entity, const TypeInfo& wanted);
template <class T, class U>
Ptr<T> cast(const Ptr<U>& entity) {
  if (!entity) return nullptr;
  if (!entity->isA(std::remove_const_t<T>::staticType())) castFailed(*entity, std::remove_const_t<T>::staticType());
  return Ptr<T>(static_cast<T*>(entity.get()));
}
template <class T>
T& cast(Entity& entity) {
  if (!entity.isA(T::staticType())) castFailed(entity, T::staticType());
  return static_cast<T&>(entity);
}
template <class T>
const T& cast(const Entity& entity) {
  if (!entity.isA(std::remove_const_t<T>::staticType())) castFailed(entity, std::remove_const_t<T>::staticType());
  return static_cast<const T&>(entity);
}

}  // namespace fwk
