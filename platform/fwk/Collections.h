// The framework's collections: what an entity's collection attributes hold.
//
//   OrderedMap<K, V>  ascending key order; lowerBound(k) is the first entry at or after k;
//                     its iterators survive any change to the map (after a change they
//                     re-seek by key, so removing the current entry and then advancing is
//                     safe)
//   HashMap<K, V>     keyed through K's == and the framework hash (records included);
//                     iteration follows insertion order until an entry is removed
//
// Callers see only reads; writes go through the owning entity's generated mutators
// (nameIs, nameDel, nameDelAll), which notify. The standard containers stay behind these
// types so that their representation can change without touching callers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <new>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/Hash.h"
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
        it_ = atEnd_ ? map_->storage_.end() : map_->storage_.upper_bound(key_);
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
    // The key stood on, meaningful unless at the end. A plain value rather than an optional:
    // every state of the iterator is then fully initialized, which optimizers can see.
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
  // Strong guarantee: a copy that throws leaves the map as it was.
  bool assign(const K& key, const V& value) {
    auto [it, inserted] = storage_.try_emplace(key, value);
    if (!inserted) {
      if (it->second == value) return false;
      V copy(value);
      it->second = std::move(copy);
    }
    ++version_;
    return true;
  }
  bool erase(const K& key) {
    if (storage_.erase(key) == 0) return false;
    ++version_;
    return true;
  }
  // The key popEntry() removes next; the map must not be empty.
  [[nodiscard]] const K& nextToPop() const { return storage_.begin()->first; }
  // Removes the first entry and hands back its key; the map must not be empty.
  K popEntry() {
    auto node = storage_.extract(storage_.begin());
    ++version_;
    return std::move(node.key());
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

namespace detail {

// A growable array in fixed blocks: growing never moves an element, so the memory a large
// collection touches is what it holds, and an element keeps its address until removed.
template <class T>
class BlockArray {
  static constexpr std::size_t shift = 7;  // 128 elements a block
  static constexpr std::size_t perBlock = std::size_t{1} << shift;

 public:
  BlockArray() = default;
  BlockArray(const BlockArray&) = delete;
  BlockArray& operator=(const BlockArray&) = delete;
  ~BlockArray() {
    while (size_ > 0) popBack();
    for (T* block : blocks_) ::operator delete (static_cast<void*>(block), std::align_val_t{alignof(T)});
  }

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
  T& operator[](std::size_t i) noexcept { return blocks_[i >> shift][i & (perBlock - 1)]; }
  const T& operator[](std::size_t i) const noexcept { return blocks_[i >> shift][i & (perBlock - 1)]; }
  T& back() noexcept { return (*this)[size_ - 1]; }

  template <class... Args>
  void emplaceBack(Args&&... args) {
    if (size_ == blocks_.size() * perBlock) {
      blocks_.reserve(blocks_.size() + 1);
      void* raw = ::operator new (perBlock * sizeof(T), std::align_val_t{alignof(T)});
      blocks_.push_back(static_cast<T*>(raw));
    }
    new (&(*this)[size_]) T(std::forward<Args>(args)...);
    ++size_;
  }
  void popBack() noexcept {
    (*this)[size_ - 1].~T();
    --size_;
  }

 private:
  std::vector<T*> blocks_;
  std::size_t size_ = 0;
};

}  // namespace detail

// Entries live in one dense block array (iteration is a linear walk, and a record-sized
// value costs no node of its own); an open-addressing index of 8-byte slots, each holding a
// hash fragment and an entry's position, finds them, so most probes never touch an entry.
// Removal moves the last entry into the hole. A pointer from find() stays good until an
// entry is removed.
template <class K, class V>
class ACLKIT_EXPORT HashMap {
  using Entry = std::pair<K, V>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = Entry;

  // Iteration must not overlap a change to the map; debug builds check that.
  class const_iterator {  // NOLINT(readability-identifier-naming): standard container name
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = const Entry*;
    using reference = const Entry&;

    const_iterator() = default;
    reference operator*() const {
      check();
      return map_->entries_[index_];
    }
    pointer operator->() const { return &**this; }
    const_iterator& operator++() {
      check();
      ++index_;
      return *this;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.index_ == b.index_; }

   private:
    friend class HashMap;
    const_iterator(const HashMap* map, std::size_t index) : map_(map), index_(index), version_(map->version_) {}
    void check() const { FWK_DEBUG_ASSERT(map_->version_ == version_ && "HashMap changed during iteration"); }

    const HashMap* map_ = nullptr;
    std::size_t index_ = 0;
    std::uint64_t version_ = 0;
  };
  using iterator = const_iterator;

  HashMap() = default;

  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
  [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
  [[nodiscard]] bool contains(const K& key) const { return find(key) != nullptr; }
  [[nodiscard]] const V* find(const K& key) const {
    if (entries_.empty()) return nullptr;
    const std::size_t h = hashOf(key);
    std::size_t at = locate(key, h);
    return at == npos ? nullptr : &entries_[entryAt(at)].second;
  }
  [[nodiscard]] const V& valueOr(const K& key) const {
    const V* found = find(key);
    return found ? *found : detail::defaultValue<V>();
  }
  [[nodiscard]] const_iterator begin() const { return const_iterator(this, 0); }
  [[nodiscard]] const_iterator end() const { return const_iterator(this, entries_.size()); }

 private:
  friend struct detail::CollectionAccess;
  static constexpr std::size_t npos = ~std::size_t{0};

  static std::size_t hashOf(const K& key) { return mixHash(Hash<K>{}(key)); }
  static std::uint64_t slotFor(std::size_t h, std::size_t entry) {
    return (std::uint64_t{static_cast<std::uint32_t>(h >> 32)} << 32) | (entry + 1);
  }
  static std::size_t entryOf(std::uint64_t slot) { return static_cast<std::size_t>(slot & 0xFFFFFFFFU) - 1; }
  [[nodiscard]] std::size_t entryAt(std::size_t at) const { return entryOf(slots_[at]); }
  [[nodiscard]] std::size_t mask() const { return slots_.size() - 1; }

  // The index slot holding key, or npos.
  [[nodiscard]] std::size_t locate(const K& key, std::size_t h) const {
    const auto fragment = static_cast<std::uint32_t>(h >> 32);
    for (std::size_t at = h & mask();; at = (at + 1) & mask()) {
      const std::uint64_t slot = slots_[at];
      if (slot == 0) return npos;
      if (static_cast<std::uint32_t>(slot >> 32) == fragment && entries_[entryOf(slot)].first == key) return at;
    }
  }
  void place(std::size_t h, std::size_t entry) {
    std::size_t at = h & mask();
    while (slots_[at] != 0) at = (at + 1) & mask();
    slots_[at] = slotFor(h, entry);
  }
  void grow() {
    std::vector<std::uint64_t> wider(slots_.empty() ? 16 : slots_.size() * 2, 0);
    slots_.swap(wider);
    for (std::size_t i = 0; i < entries_.size(); ++i) place(hashes_[i], i);
  }

  // Strong guarantee: everything that can throw (growing, copying) happens before the map
  // changes, so a failure leaves it as it was.
  bool assign(const K& key, const V& value) {
    const std::size_t h = hashOf(key);
    if (!slots_.empty()) {
      if (std::size_t at = locate(key, h); at != npos) {
        V& stored = entries_[entryAt(at)].second;
        if (stored == value) return false;
        V copy(value);
        stored = std::move(copy);
        ++version_;
        return true;
      }
    }
    if ((entries_.size() + 1) * 2 > slots_.size()) grow();  // at most half full
    if (hashes_.size() == hashes_.capacity()) hashes_.reserve(hashes_.capacity() * 2 + 16);
    entries_.emplaceBack(key, value);
    hashes_.push_back(h);  // cannot throw: reserved
    place(h, entries_.size() - 1);
    ++version_;
    return true;
  }

  bool erase(const K& key) {
    if (entries_.empty()) return false;
    std::size_t at = locate(key, hashOf(key));
    if (at == npos) return false;
    const std::size_t entry = entryAt(at);
    removeSlot(at);
    // The last entry fills the hole; its slot is pointed at the new place.
    const std::size_t last = entries_.size() - 1;
    if (entry != last) {
      std::size_t lastAt = hashes_[last] & mask();
      while (entryAt(lastAt) != last) lastAt = (lastAt + 1) & mask();
      slots_[lastAt] = slotFor(hashes_[last], entry);
      entries_[entry] = std::move(entries_[last]);
      hashes_[entry] = hashes_[last];
    }
    entries_.popBack();
    hashes_.pop_back();
    ++version_;
    return true;
  }

  // Empties slot `at` and shifts back the slots after it that probed past it.
  void removeSlot(std::size_t at) {
    std::size_t hole = at;
    for (std::size_t next = (at + 1) & mask(); slots_[next] != 0; next = (next + 1) & mask()) {
      const std::size_t home = hashes_[entryAt(next)] & mask();
      // Stays when its home lies cyclically in (hole, next]: it would still be found.
      const bool stays = hole <= next ? (home > hole && home <= next) : (home > hole || home <= next);
      if (stays) continue;
      slots_[hole] = slots_[next];
      hole = next;
    }
    slots_[hole] = 0;
  }

  // The key popEntry() removes next; the map must not be empty.
  [[nodiscard]] const K& nextToPop() const { return entries_[entries_.size() - 1].first; }
  // Removes some entry (the last) and hands back its key; the map must not be empty.
  K popEntry() {
    K key = entries_.back().first;
    erase(key);
    return key;
  }

  detail::BlockArray<Entry> entries_;
  std::vector<std::size_t> hashes_;
  std::vector<std::uint64_t> slots_;
  std::uint64_t version_ = 0;
};

}  // namespace fwk
