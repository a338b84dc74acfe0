// An ordered map whose copies share their structure: a B+ tree of immutable, counted nodes.
//
//   fwk::PersistentMap<U32, Rule> running = ...;
//   fwk::PersistentMap<U32, Rule> edit = running;   // O(1): both hold the same nodes
//   edit.assign(30, rule);                          // O(log n): copies one root-to-leaf path
//   edit.forEachDifference(running, [](const U32& key, const Rule* mine, const Rule* theirs) {});
//                                                   // walks only the paths that differ
//
// A copy costs a reference; a change copies the nodes on the path to the entry it changes and
// shares every other node with the maps it was copied from; releasing a map frees only the
// nodes no other map holds. An iterator holds the nodes of the version it was made from, so it
// stays good (and keeps reading that version) whatever happens to the map afterwards.
//
// A map that is the only holder of its nodes changes them in place, so filling a fresh map or
// editing one twice costs no copies. Values must be copyable and comparable with ==: assign()
// reports whether anything changed.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/internal/PersistentNode.h"

namespace fwk {

template <class K, class V>
class PersistentMap {
  using Node = detail::PersistentNode<K, V>;
  using Tree = detail::PersistentTree<K, V>;

 public:
  using key_type = K;
  using mapped_type = V;

  // Reads the entries of one version in ascending key order.
  class const_iterator {  // NOLINT(readability-identifier-naming): standard container name
   public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = std::pair<const K&, const V&>;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;

    const_iterator() = default;
    [[nodiscard]] const K& key() const { return walk_.leaf().keys[walk_.index()]; }
    [[nodiscard]] const V& value() const { return walk_.leaf().values[walk_.index()].value; }
    [[nodiscard]] bool atEnd() const noexcept { return walk_.atEnd(); }
    reference operator*() const { return {key(), value()}; }
    const_iterator& operator++() {
      walk_.next();
      return *this;
    }
    const_iterator& operator--() {
      walk_.previous();
      return *this;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.walk_ == b.walk_; }

   private:
    friend class PersistentMap;
    explicit const_iterator(detail::PersistentWalk<K, V> walk) : walk_(std::move(walk)) {}
    detail::PersistentWalk<K, V> walk_;
  };

  PersistentMap() = default;

  [[nodiscard]] std::size_t size() const noexcept { return root_ ? root_->size : 0; }
  [[nodiscard]] bool empty() const noexcept { return !root_; }
  [[nodiscard]] const V* find(const K& key) const { return Tree::find(root_.get(), key); }
  [[nodiscard]] bool contains(const K& key) const { return find(key) != nullptr; }

  [[nodiscard]] const_iterator begin() const { return const_iterator(detail::PersistentWalk<K, V>::first(root_)); }
  [[nodiscard]] const_iterator end() const { return const_iterator(detail::PersistentWalk<K, V>::end(root_)); }
  // The first entry whose key is not below `key`, and the first whose key is above it.
  [[nodiscard]] const_iterator lowerBound(const K& key) const {
    return const_iterator(detail::PersistentWalk<K, V>::seek(root_, key, false));
  }
  [[nodiscard]] const_iterator upperBound(const K& key) const {
    return const_iterator(detail::PersistentWalk<K, V>::seek(root_, key, true));
  }
  // The entry with the highest key, or end().
  [[nodiscard]] const_iterator last() const { return const_iterator(detail::PersistentWalk<K, V>::last(root_)); }
  // Positions in key order, in O(log n): how many entries have a key below `key`, and the
  // entry at a position (end() past the last).
  [[nodiscard]] std::size_t indexOf(const K& key) const { return Tree::indexOf(root_.get(), key); }
  [[nodiscard]] const_iterator nth(std::size_t index) const {
    return const_iterator(detail::PersistentWalk<K, V>::nth(root_, index));
  }

  // Stores `value` under `key`; false (and nothing copied) when that value is there already.
  // Strong guarantee: the new path is built before the map lets go of the old one.
  bool assign(const K& key, const V& value) {
    typename Tree::Change change = Tree::assign(root_.get(), key, value, /*owned=*/true);
    if (!change.changed) return false;
    root_ = Tree::joined(std::move(change));
    return true;
  }
  // Removes the entry under `key`; false when there is none.
  bool erase(const K& key) {
    if (!root_) return false;
    typename Tree::Change change = Tree::erase(*root_, key, /*owned=*/true);
    if (!change.changed) return false;
    root_ = Tree::collapsed(std::move(change.node));
    return true;
  }
  void clear() noexcept { root_ = nullptr; }

  // Whether both maps hold the very same nodes (so the same entries), in O(1).
  [[nodiscard]] bool sharesAllWith(const PersistentMap& other) const noexcept { return root_ == other.root_; }

  // Calls visit(key, mine, theirs) in ascending key order for every key whose entry differs
  // between this map and `other` (a pointer is null where that map has no entry). Subtrees the
  // two maps share are skipped without being read, so after k changes to a copy the walk costs
  // about k paths, not the size of the maps.
  template <class Visit>
  void forEachDifference(const PersistentMap& other, Visit&& visit) const {
    Tree::difference(root_.get(), other.root_.get(), visit);
  }

 private:
  Ptr<const Node> root_;
};

}  // namespace fwk
