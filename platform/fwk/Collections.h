// The framework's collections: what an entity's collection attributes hold.
//
//   OrderedMap<K, V>  ascending key order; lowerBound(k) is the first entry at or after k;
//                     its iterators survive any change to the map (after a change they
//                     re-seek by key, so removing the current entry and then advancing is
//                     safe)
//   HashMap<K, V>     keyed through K's == and the framework hash (records included)
//
// Callers see only reads; writes go through the owning entity's generated mutators
// (nameIs, nameDel, nameDelAll), which notify. The standard containers stay behind these
// types so that their representation can change without touching callers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <unordered_map>
#include <utility>

#include "platform/fwk/Entity.h"
#include "platform/fwk/Errors.h"
#include "platform/fwk/Hash.h"
#include "platform/fwk/Ptr.h"

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
class OrderedMap {
  using Storage = std::map<K, V>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = typename Storage::value_type;

  class const_iterator {  // NOLINT(readability-identifier-naming): standard container name
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = typename Storage::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    const_iterator() = default;
    reference operator*() const {
      sync();
      FWK_DEBUG_ASSERT(it_ != map_->storage_.end());
      return *it_;
    }
    pointer operator->() const { return &**this; }
    const_iterator& operator++() {
      if (map_->version_ != version_) {
        it_ = map_->storage_.upper_bound(key_);
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
    const_iterator(const OrderedMap* map, typename Storage::const_iterator it)
        : map_(map), it_(it), version_(map->version_) {
      remember();
    }
    void remember() {
      atEnd_ = it_ == map_->storage_.end();
      if (!atEnd_) key_ = it_->first;
    }
    // After a change to the map, find the entry at or after the key we stood on.
    void sync() const {
      if (!map_ || map_->version_ == version_) return;
      it_ = atEnd_ ? map_->storage_.end() : map_->storage_.lower_bound(key_);
      version_ = map_->version_;
    }

    const OrderedMap* map_ = nullptr;
    mutable typename Storage::const_iterator it_{};
    mutable std::uint64_t version_ = 0;
    K key_{};
    bool atEnd_ = true;
  };
  using iterator = const_iterator;

  OrderedMap() = default;

  [[nodiscard]] std::size_t size() const noexcept { return storage_.size(); }
  [[nodiscard]] bool empty() const noexcept { return storage_.empty(); }
  [[nodiscard]] bool contains(const K& key) const { return storage_.find(key) != storage_.end(); }
  // The value stored under key, or null.
  [[nodiscard]] const V* find(const K& key) const {
    auto it = storage_.find(key);
    return it == storage_.end() ? nullptr : &it->second;
  }
  // The value stored under key, or the value type's default.
  [[nodiscard]] const V& valueOr(const K& key) const {
    const V* found = find(key);
    return found ? *found : detail::defaultValue<V>();
  }

  [[nodiscard]] const_iterator begin() const { return const_iterator(this, storage_.begin()); }
  [[nodiscard]] const_iterator end() const { return const_iterator(this, storage_.end()); }
  // First entry whose key is not below key.
  [[nodiscard]] const_iterator lowerBound(const K& key) const {
    return const_iterator(this, storage_.lower_bound(key));
  }
  // First entry whose key is above key.
  [[nodiscard]] const_iterator upperBound(const K& key) const {
    return const_iterator(this, storage_.upper_bound(key));
  }
  // The entry with the highest key, or end().
  [[nodiscard]] const_iterator last() const {
    return storage_.empty() ? end() : const_iterator(this, std::prev(storage_.end()));
  }

 private:
  friend struct detail::CollectionAccess;

  // Stores value under key; false when the same value was already there.
  bool assign(const K& key, const V& value) {
    auto [it, inserted] = storage_.try_emplace(key, value);
    if (!inserted) {
      if (it->second == value) return false;
      it->second = value;
    }
    ++version_;
    return true;
  }
  bool erase(const K& key) {
    if (storage_.erase(key) == 0) return false;
    ++version_;
    return true;
  }
  // Removes the first entry and hands back its key; the map must not be empty.
  K popFirst() {
    auto node = storage_.extract(storage_.begin());
    ++version_;
    return std::move(node.key());
  }
  V* findMutable(const K& key) {
    auto it = storage_.find(key);
    return it == storage_.end() ? nullptr : &it->second;
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

template <class K, class V>
class HashMap {
  // Not noexcept for large keys (records): the standard library then keeps each entry's
  // hash code, so rehashing and lookups do not hash a whole record again.
  struct Hasher {
    std::size_t operator()(const K& key) const noexcept(sizeof(K) <= 16) { return Hash<K>{}(key); }
  };
  using Storage = std::unordered_map<K, V, Hasher>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = typename Storage::value_type;

  // Iteration must not overlap a change to the map; debug builds check that.
  class const_iterator {  // NOLINT(readability-identifier-naming): standard container name
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = typename Storage::value_type;
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
        : map_(map), it_(it), version_(map->version_) {}
    void check() const { FWK_DEBUG_ASSERT(map_->version_ == version_ && "HashMap changed during iteration"); }

    const HashMap* map_ = nullptr;
    typename Storage::const_iterator it_{};
    std::uint64_t version_ = 0;
  };
  using iterator = const_iterator;

  [[nodiscard]] std::size_t size() const noexcept { return storage_.size(); }
  [[nodiscard]] bool empty() const noexcept { return storage_.empty(); }
  [[nodiscard]] bool contains(const K& key) const { return storage_.find(key) != storage_.end(); }
  [[nodiscard]] const V* find(const K& key) const {
    auto it = storage_.find(key);
    return it == storage_.end() ? nullptr : &it->second;
  }
  [[nodiscard]] const V& valueOr(const K& key) const {
    const V* found = find(key);
    return found ? *found : detail::defaultValue<V>();
  }
  [[nodiscard]] const_iterator begin() const { return const_iterator(this, storage_.begin()); }
  [[nodiscard]] const_iterator end() const { return const_iterator(this, storage_.end()); }

 private:
  friend struct detail::CollectionAccess;

  bool assign(const K& key, const V& value) {
    auto [it, inserted] = storage_.try_emplace(key, value);
    if (!inserted) {
      if (it->second == value) return false;
      it->second = value;
    }
    ++version_;
    return true;
  }
  bool erase(const K& key) {
    if (storage_.erase(key) == 0) return false;
    ++version_;
    return true;
  }
  K popFirst() {
    auto node = storage_.extract(storage_.begin());
    ++version_;
    return std::move(node.key());
  }
  V* findMutable(const K& key) {
    auto it = storage_.find(key);
    return it == storage_.end() ? nullptr : &it->second;
  }

  Storage storage_;
  std::uint64_t version_ = 0;
};

}  // namespace fwk
