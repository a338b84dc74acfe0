// A hash map whose copies share their structure, with the framework's HashMap order: entries
// iterate in the order they were inserted until one is removed, and a removal moves the last
// entry into the hole.
//
//   fwk::PersistentHashMap<UniqueId, Rule> byId = ...;
//   auto edit = byId;                 // O(1): both hold the same nodes
//   edit.assign(id, rule);            // O(log n): copies the paths it changes
//
// The entries sit in a persistent vector (a radix tree of 32-wide immutable nodes) and a hash
// array mapped trie finds each key's position; a change copies the few nodes on its paths and
// shares the rest, and writes in place where the map is their only holder. An iterator holds
// the version it was made from and reads it whatever happens to the map afterwards.
//
// Keys are hashed with the framework's Hash<K>; values must be copyable and comparable with ==.
#pragma once

#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

#include "aclkit/platform/fwk/Hash.h"
#include "aclkit/platform/fwk/internal/PersistentHashNode.h"

namespace fwk {

template <class K, class V>
class PersistentHashMap {
  using Entry = std::pair<K, V>;
  using Entries = detail::PersistentVector<Entry>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = Entry;

  class const_iterator {  // NOLINT(readability-identifier-naming): standard container name
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = const Entry*;
    using reference = const Entry&;

    const_iterator() = default;
    reference operator*() const { return entries_[index_]; }
    pointer operator->() const { return &entries_[index_]; }
    const_iterator& operator++() {
      ++index_;
      return *this;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.index_ == b.index_; }

   private:
    friend class PersistentHashMap;
    const_iterator(Entries entries, std::size_t index) : entries_(std::move(entries)), index_(index) {}
    Entries entries_;  // a copy of the version: a reference to its root
    std::size_t index_ = 0;
  };

  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
  [[nodiscard]] bool empty() const noexcept { return entries_.size() == 0; }
  // Where a key stands, or would: one search that a store after it reuses.
  struct Place {
    std::size_t hash = 0;
    std::size_t position = 0;
    bool found = false;
  };
  [[nodiscard]] Place lookUp(const K& key) const {
    const std::size_t h = hashOf(key);
    const std::optional<std::size_t> position = index_.find(h, holding(entries_, key));
    return {h, position.value_or(0), position.has_value()};
  }
  // The value at a place looked up since the last change, or null.
  [[nodiscard]] const V* valueAt(const Place& place) const {
    return place.found ? &entries_[place.position].second : nullptr;
  }
  [[nodiscard]] const V* find(const K& key) const { return valueAt(lookUp(key)); }
  [[nodiscard]] bool contains(const K& key) const { return find(key) != nullptr; }
  [[nodiscard]] const_iterator begin() const { return const_iterator(entries_, 0); }
  [[nodiscard]] const_iterator end() const { return const_iterator(entries_, entries_.size()); }
  // The entry iterated last; the map must not be empty.
  [[nodiscard]] const Entry& lastEntry() const { return entries_[entries_.size() - 1]; }

  // Stores `value` under `key`; false (and nothing copied) when that value is there already.
  bool assign(const K& key, const V& value) { return assignAt(lookUp(key), key, value); }
  // The same at the place lookUp(key) gave, with no change to the map since.
  bool assignAt(const Place& place, const K& key, const V& value) {
    if (place.found) {
      if (entries_[place.position].second == value) return false;
      entries_.set(place.position, Entry(key, value));
      return true;
    }
    // The entry first, so that the index can read its key; if the index cannot take it,
    // popping the entry just pushed walks only the nodes the push wrote, which nothing else
    // holds, so it allocates nothing.
    entries_.pushBack(Entry(key, value));
    try {
      index_.put(place.hash, entries_.size() - 1, holding(entries_, key));
    } catch (...) {
      entries_.popBack();
      throw;
    }
    return true;
  }
  // Removes the entry under `key`, moving the last entry into its place; false when absent.
  // Strong guarantee: the change is made on copies of the two roots (O(1) to take) and put in
  // place only once it is whole.
  bool erase(const K& key) {
    const std::size_t h = hashOf(key);
    const std::optional<std::size_t> found = index_.find(h, holding(entries_, key));
    if (!found) return false;
    const std::size_t position = *found;
    Entries entries = entries_;
    detail::PersistentIndex index = index_;
    // The index reads keys through the entries, so each change to it comes before the
    // entries move.
    index.erase(h, holding(entries, key));
    const std::size_t last = entries.size() - 1;
    if (position != last) {
      Entry moved = entries[last];
      index.put(hashOf(moved.first), position, holding(entries, moved.first));
      entries.set(position, std::move(moved));
    }
    entries.popBack();
    entries_ = std::move(entries);
    index_ = std::move(index);
    return true;
  }

  // Calls visit(key) for the key of every entry, on either side, stored where the two maps do
  // not share their storage: every key whose entry differs between them is among those
  // visited, and some may be visited twice or be equal on both sides. What the two share is
  // skipped unread, so two versions of one map compare in the time their changes take.
  template <class Visit>
  void forEachUnsharedKey(const PersistentHashMap& other, Visit&& visit) const {
    entries_.forEachUnshared(other.entries_, [&](std::size_t i) {
      if (i < entries_.size()) visit(entries_[i].first);
      if (i < other.entries_.size()) visit(other.entries_[i].first);
    });
  }

  // Whether both maps hold the very same nodes (so the same entries in the same order).
  [[nodiscard]] bool sharesAllWith(const PersistentHashMap& other) const noexcept {
    return entries_.root() == other.entries_.root();
  }

 private:
  static std::size_t hashOf(const K& key) { return mixHash(Hash<K>{}(key)); }
  // Whether the entry at a position has `key`: how the index tells keys apart.
  static auto holding(const Entries& entries, const K& key) {
    return [&entries, &key](std::size_t position) { return entries[position].first == key; };
  }

  Entries entries_;
  detail::PersistentIndex index_;
};

}  // namespace fwk
