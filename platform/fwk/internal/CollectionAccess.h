// The code that writes entities' attributes and collections: every write notifies exactly
// when state changed, passes a fault point, and is recorded with its inverse when a
// transaction asks for it. Reached through the accessors FWK_ENTITY generates; nothing here is
// for direct use.
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
struct ACLKIT_HIDDEN CollectionAccess {
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
    refuseNull(value);
    FWK_FAULT_POINT(mutation);
    storeAt(owner, map, map.lookUp(key), key, value, id);
  }

  // Stores change(old) under `key`, old being null for an absent key: one search serves the
  // read and the write.
  template <class Map, class K, class Change>
  static void mapUpdate(const Entity& owner, Map& map, const K& key, Change&& change, AttrId id) {
    FWK_FAULT_POINT(mutation);
    const auto place = map.lookUp(key);
    const typename Map::mapped_type value = std::forward<Change>(change)(map.valueAt(place));
    refuseNull(value);
    storeAt(owner, map, place, key, value, id);
  }

  // The key is copied first: callers often pass the stored key itself, which the removal frees.
  template <class Map, class K>
  static void mapDel(const Entity& owner, Map& map, const K& key, AttrId id) {
    const K removed = key;
    FWK_FAULT_POINT(mutation);
    const auto* old = map.find(removed);
    if (!old) return;
    if (undoRecording(owner)) recordEntry(owner, map, removed, old, id);
    if (map.erase(removed)) owner.notify(id, &removed);
  }

  // Fills an empty map with every entry of `source` at once: the two then share their
  // storage, and observers get one notification for the whole collection (a null key).
  template <class Map>
  static void mapFill(const Entity& owner, Map& map, const Map& source, AttrId id) {
    FWK_DEBUG_ASSERT(map.empty());
    if (source.empty()) return;
    FWK_FAULT_POINT(mutation);
    if (undoRecording(owner)) undoRecord([target = UndoTarget(owner), &map, id] { mapDelAll(*target, map, id); });
    map.storage_ = source.storage_;
    ++map.version_;
    owner.notify(id);
  }

  // Entries go one at a time, so each observer sees a consistent map at its notification.
  template <class Map>
  static void mapDelAll(const Entity& owner, Map& map, AttrId id) {
    while (!map.empty()) {
      if (undoRecording(owner)) {
        const auto& key = map.nextToPop();
        recordEntry(owner, map, key, map.find(key), id);
      }
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
    if (at.it_.atEnd()) return;
    const K key = at.it_.key();
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
  template <class V>
  static void refuseNull(const V& value) {
    if constexpr (requires { value.get(); }) {
      if (!value) throw NullArgumentError("null value for a collection entry is not allowed");
    }
  }
  // The write at a place just looked up, recorded first when a transaction asks for it.
  template <class Map, class Place, class K, class V>
  static void storeAt(const Entity& owner, Map& map, const Place& place, const K& key, const V& value, AttrId id) {
    if (undoRecording(owner)) recordEntry(owner, map, key, map.valueAt(place), id);
    if (map.assignAt(place, key, value)) owner.notify(id, &key);
  }
  // Records how to put back the entry under key as it stands now (`old`, its value or null).
  template <class Map, class K, class V>
  static void recordEntry(const Entity& owner, Map& map, const K& key, const V* old, AttrId id) {
    if (old) {
      undoRecord([target = UndoTarget(owner), &map, key, value = *old, id] { mapSet(*target, map, key, value, id); });
    } else {
      undoRecord([target = UndoTarget(owner), &map, key, id] { mapDel(*target, map, key, id); });
    }
  }
};

}  // namespace fwk::detail
