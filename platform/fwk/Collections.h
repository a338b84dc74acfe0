// The framework's collections: what an entity's collection attributes hold.
//
//   OrderedMap<K, V>  ascending key order; lowerBound(k) is the first entry at or after k;
//                     its iterators survive any change to the map (after a change they
//                     re-seek by key, so removing the current entry and then advancing is
//                     safe)
//   HashMap<K, V>     keyed through K's == and the framework hash (records included);
//                     iteration follows insertion order until an entry is removed
//
// Both share their structure between copies: copying a map costs a reference, a change
// copies the few nodes on its path, so a copied version of a large collection costs what
// its edits are. A pointer from find() reads the entry until the map next changes.
//
// Callers see only reads; writes go through the owning entity's generated mutators
// (nameIs, nameUpdate, nameDel, nameDelAll), which notify.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/PersistentHashMap.h"
#include "aclkit/platform/fwk/PersistentMap.h"
#include "aclkit/platform/fwk/Ptr.h"

namespace fwk {

namespace detail {
struct CollectionAccess;

template <class V>
const V& defaultValue() {
  static const V value{};
  return value;
}
}  // namespace detail

template <class K, class V>
class ACLKIT_EXPORT OrderedMap {
  using Storage = PersistentMap<K, V>;

 public:
  using key_type = K;
  using mapped_type = V;
  // An entry read through an iterator: references into the version the iterator reads.
  using value_type = std::pair<const K&, const V&>;

  class const_iterator {  // NOLINT(readability-identifier-naming): standard container name
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = OrderedMap::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;
    // `it->first` reads through a temporary holding the entry's references.
    struct Arrow {
      value_type entry;
      const value_type* operator->() const noexcept { return &entry; }
    };
    using pointer = Arrow;

    const_iterator() = default;
    reference operator*() const {
      sync();
      FWK_DEBUG_ASSERT(!atEnd_);
      return *it_;
    }
    pointer operator->() const { return pointer{**this}; }
    const_iterator& operator++() {
      if (map_->version_ != version_) {
        it_ = atEnd_ ? map_->storage_.end() : map_->storage_.upperBound(key_);
        version_ = map_->version_;
      } else {
        ++it_;
      }
      remember();
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) {
      a.sync();
      b.sync();
      return a.it_ == b.it_;
    }

   private:
    friend class OrderedMap;
    friend struct detail::CollectionAccess;
    const_iterator(const OrderedMap* map, typename Storage::const_iterator it)
        : map_(map), it_(std::move(it)), version_(map->version_) {
      remember();
    }
    void remember() {
      atEnd_ = it_.atEnd();
      if (!atEnd_) key_ = it_.key();
    }
    // After a change to the map, find the entry at or after the key we stood on.
    void sync() const {
      if (!map_ || map_->version_ == version_) return;
      it_ = atEnd_ ? map_->storage_.end() : map_->storage_.lowerBound(key_);
      version_ = map_->version_;
    }

    const OrderedMap* map_ = nullptr;
    // Holds the version it reads, so a change to the map never writes under it.
    mutable typename Storage::const_iterator it_{};
    mutable std::uint64_t version_ = 0;
    // The key stood on, meaningful unless at the end. A plain value rather than an optional:
    // every state of the iterator is then fully initialized, which optimizers can see.
    K key_{};
    bool atEnd_ = true;
  };
  using iterator = const_iterator;

  OrderedMap() = default;

  [[nodiscard]] std::size_t size() const noexcept { return storage_.size(); }
  [[nodiscard]] bool empty() const noexcept { return storage_.empty(); }
  [[nodiscard]] bool contains(const K& key) const { return storage_.contains(key); }
  // The value stored under key, or null.
  [[nodiscard]] const V* find(const K& key) const { return storage_.find(key); }
  // The value stored under key, or the value type's default.
  [[nodiscard]] const V& valueOr(const K& key) const {
    const V* found = find(key);
    return found ? *found : detail::defaultValue<V>();
  }

  [[nodiscard]] const_iterator begin() const { return const_iterator(this, storage_.begin()); }
  [[nodiscard]] const_iterator end() const { return const_iterator(this, storage_.end()); }
  // First entry whose key is not below key.
  [[nodiscard]] const_iterator lowerBound(const K& key) const { return const_iterator(this, storage_.lowerBound(key)); }
  // First entry whose key is above key.
  [[nodiscard]] const_iterator upperBound(const K& key) const { return const_iterator(this, storage_.upperBound(key)); }
  // The entry with the highest key, or end().
  [[nodiscard]] const_iterator last() const { return const_iterator(this, storage_.last()); }
  // Positions in key order, in O(log n): how many entries have a key below key, and the
  // entry at a position (end() past the last).
  [[nodiscard]] std::size_t indexOf(const K& key) const { return storage_.indexOf(key); }
  [[nodiscard]] const_iterator nth(std::size_t index) const { return const_iterator(this, storage_.nth(index)); }
  // Whether the two maps share all their storage, and so hold the same entries; O(1). False
  // says nothing: equal maps built apart do not share.
  [[nodiscard]] bool sharesAllWith(const OrderedMap& other) const noexcept {
    return storage_.sharesAllWith(other.storage_);
  }
  // Calls visit(key, mine, theirs), each a pointer to that key's value here and in `other` or
  // null, for every key whose entry differs, in ascending order; what the two share is
  // skipped unread, so two versions of one map compare in the time their changes take.
  template <class Visit>
  void forEachDifference(const OrderedMap& other, Visit&& visit) const {
    storage_.forEachDifference(other.storage_, visit);
  }

 private:
  friend struct detail::CollectionAccess;

  // The tree is searched again by the store, so a place is only what it holds.
  using Place = const V*;
  [[nodiscard]] Place lookUp(const K& key) const { return find(key); }
  [[nodiscard]] static const V* valueAt(Place place) { return place; }
  bool assignAt(Place /*place*/, const K& key, const V& value) { return assign(key, value); }
  // Stores value under key; false when the same value was already there.
  // Strong guarantee: a copy that throws leaves the map as it was.
  bool assign(const K& key, const V& value) {
    if (!storage_.assign(key, value)) return false;
    ++version_;
    return true;
  }
  bool erase(const K& key) {
    if (!storage_.erase(key)) return false;
    ++version_;
    return true;
  }
  // The key popEntry() removes next; the map must not be empty.
  [[nodiscard]] K nextToPop() const { return storage_.begin().key(); }
  // Removes the first entry and hands back its key; the map must not be empty.
  K popEntry() {
    K key = nextToPop();
    erase(key);
    return key;
  }
  Storage storage_;
  std::uint64_t version_ = 0;
};

// The children of an entity, by key. When the parent goes, children that live on
// elsewhere lose their parent link instead of keeping a dangling one.
template <class K, class E>
class ChildMap : public OrderedMap<K, Ptr<E>> {
 public:
  ChildMap() = default;
  ChildMap(const ChildMap&) = delete;
  ChildMap& operator=(const ChildMap&) = delete;
  ~ChildMap() {
    for (const auto& entry : *this) EntityLinks::parentIs(*entry.second, nullptr);
  }
};

// Entries iterate in insertion order until one is removed; a removal moves the last entry
// into the hole.
template <class K, class V>
class ACLKIT_EXPORT HashMap {
  using Storage = PersistentHashMap<K, V>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;

  // Iteration must not overlap a change to the map (positions move when an entry goes);
  // debug builds check that.
  class const_iterator {  // NOLINT(readability-identifier-naming): standard container name
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = HashMap::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    const_iterator() = default;
    reference operator*() const {
      check();
      return *it_;
    }
    pointer operator->() const { return &**this; }
    const_iterator& operator++() {
      check();
      ++it_;
      return *this;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.it_ == b.it_; }

   private:
    friend class HashMap;
    const_iterator(const HashMap* map, typename Storage::const_iterator it)
        : map_(map), it_(std::move(it)), version_(map->version_) {}
    void check() const { FWK_DEBUG_ASSERT(map_->version_ == version_ && "HashMap changed during iteration"); }

    const HashMap* map_ = nullptr;
    typename Storage::const_iterator it_{};
    std::uint64_t version_ = 0;
  };
  using iterator = const_iterator;

  HashMap() = default;

  [[nodiscard]] std::size_t size() const noexcept { return storage_.size(); }
  [[nodiscard]] bool empty() const noexcept { return storage_.empty(); }
  [[nodiscard]] bool contains(const K& key) const { return storage_.contains(key); }
  [[nodiscard]] const V* find(const K& key) const { return storage_.find(key); }
  [[nodiscard]] const V& valueOr(const K& key) const {
    const V* found = find(key);
    return found ? *found : detail::defaultValue<V>();
  }
  [[nodiscard]] const_iterator begin() const { return const_iterator(this, storage_.begin()); }
  [[nodiscard]] const_iterator end() const { return const_iterator(this, storage_.end()); }
  // Whether the two maps share all their storage, and so hold the same entries in the same
  // order; O(1). False says nothing: equal maps built apart do not share.
  [[nodiscard]] bool sharesAllWith(const HashMap& other) const noexcept {
    return storage_.sharesAllWith(other.storage_);
  }
  // Calls visit(key) for every key stored where the two maps do not share their storage, on
  // either side: each key whose entry differs is among them (some may come twice, or be
  // equal on both sides); what they share is skipped unread.
  template <class Visit>
  void forEachUnsharedKey(const HashMap& other, Visit&& visit) const {
    storage_.forEachUnsharedKey(other.storage_, visit);
  }

 private:
  friend struct detail::CollectionAccess;

  // One search serves both the undo record and the store of a change.
  using Place = typename Storage::Place;
  [[nodiscard]] Place lookUp(const K& key) const { return storage_.lookUp(key); }
  [[nodiscard]] const V* valueAt(const Place& place) const { return storage_.valueAt(place); }
  // Strong guarantee: a failure leaves the map as it was.
  bool assignAt(const Place& place, const K& key, const V& value) {
    if (!storage_.assignAt(place, key, value)) return false;
    ++version_;
    return true;
  }
  bool assign(const K& key, const V& value) { return assignAt(lookUp(key), key, value); }
  bool erase(const K& key) {
    if (!storage_.erase(key)) return false;
    ++version_;
    return true;
  }
  // The key popEntry() removes next; the map must not be empty.
  [[nodiscard]] const K& nextToPop() const { return storage_.lastEntry().first; }
  // Removes some entry (the last) and hands back its key; the map must not be empty.
  K popEntry() {
    K key = nextToPop();
    erase(key);
    return key;
  }

  Storage storage_;
  std::uint64_t version_ = 0;
};

}  // namespace fwk
