// The machinery of PersistentHashMap: a persistent vector (a radix tree of 32-wide immutable
// nodes) holding the entries in their order, and a hash array mapped trie from each key to
// its entry's position. Both copy the nodes on the path they change and share the rest; both
// write in place where the map is the only holder of the path, as PersistentMap does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/Ptr.h"

namespace fwk::detail {

inline constexpr unsigned persistentBits = 5;
inline constexpr std::size_t persistentWidth = std::size_t{1} << persistentBits;  // 32
inline constexpr std::size_t persistentMask = persistentWidth - 1;

// ---- the vector ------------------------------------------------------------------------------

template <class T>
struct VectorNode final : RefCounted {
  VectorNode() = default;
  VectorNode(const VectorNode& other) : RefCounted(), children(other.children) {
    if (!other.items.empty()) {
      items.reserve(persistentWidth);
      items = other.items;
    }
  }
  VectorNode& operator=(const VectorNode&) = delete;
  // A leaf's items keep their addresses while it fills: room for all 32 is taken at once.
  std::vector<T> items;                         // leaves
  std::vector<Ptr<const VectorNode>> children;  // inner nodes
};

// A vector of `size` items in a tree of height `shift / 5`: item i sits in the leaf reached by
// the 5-bit digits of i from the top.
template <class T>
class PersistentVector {
  using Node = VectorNode<T>;
  using NodePtr = Ptr<const Node>;

 public:
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] const T& operator[](std::size_t i) const {
    const Node* node = root_.get();
    for (unsigned level = shift_; level > 0; level -= persistentBits) {
      node = node->children[(i >> level) & persistentMask].get();
    }
    return node->items[i & persistentMask];
  }
  [[nodiscard]] const NodePtr& root() const noexcept { return root_; }
  // Calls visit(i) for every position of either vector that lies under a node the two do not
  // share (items the other may not hold the same); shared nodes are skipped unread.
  template <class Visit>
  void forEachUnshared(const PersistentVector& other, Visit&& visit) const {
    if (shift_ != other.shift_) {
      for (std::size_t i = 0; i < std::max(size_, other.size_); ++i) visit(i);
      return;
    }
    unshared(root_.get(), other.root_.get(), shift_, 0, visit);
  }

  void set(std::size_t i, T item) {
    FWK_DEBUG_ASSERT(i < size_);
    root_ = setIn(root_.get(), shift_, i, std::move(item), true);
  }
  void pushBack(T item) {
    if (!root_) {
      Ptr<Node> leaf(new Node);
      leaf->items.reserve(persistentWidth);
      leaf->items.push_back(std::move(item));
      root_ = std::move(leaf);
      size_ = 1;
      return;
    }
    // A full tree grows a level: the old root becomes the first child of a new one.
    if (size_ == (std::size_t{1} << (shift_ + persistentBits))) {
      Ptr<Node> root(new Node);
      root->children.push_back(root_);
      root->children.push_back(pathTo(shift_, std::move(item)));
      root_ = std::move(root);
      shift_ += persistentBits;
    } else {
      root_ = pushIn(root_.get(), shift_, size_, std::move(item), true);
    }
    ++size_;
  }
  void popBack() {
    FWK_DEBUG_ASSERT(size_ > 0);
    if (size_ == 1) {
      root_ = nullptr;
      size_ = 0;
      shift_ = 0;
      return;
    }
    root_ = popIn(*root_, shift_, size_ - 1, true);
    --size_;
    // A root with one child left gives up its level.
    while (shift_ > 0 && root_->children.size() == 1) {
      root_ = root_->children.front();
      shift_ -= persistentBits;
    }
  }

 private:
  static Ptr<Node> writable(const Node& node, bool owned) {
    if (owned && node.fwkReferences() == 1) return Ptr<Node>(const_cast<Node*>(&node));
    return Ptr<Node>(new Node(node));
  }
  static bool ownedBelow(const Node& node, bool owned) { return owned && node.fwkReferences() == 1; }

  // A fresh path of the given height down to a leaf holding `item`.
  static NodePtr pathTo(unsigned level, T&& item) {
    Ptr<Node> leaf(new Node);
    leaf->items.reserve(persistentWidth);
    leaf->items.push_back(std::move(item));
    NodePtr node = std::move(leaf);
    for (unsigned l = 0; l < level; l += persistentBits) {
      Ptr<Node> parent(new Node);
      parent->children.push_back(std::move(node));
      node = std::move(parent);
    }
    return node;
  }
  static NodePtr setIn(const Node* node, unsigned level, std::size_t i, T&& item, bool owned) {
    owned = ownedBelow(*node, owned);
    if (level == 0) {
      Ptr<Node> copy = writable(*node, owned);
      copy->items[i & persistentMask] = std::move(item);
      return copy;
    }
    const std::size_t slot = (i >> level) & persistentMask;
    NodePtr child = setIn(node->children[slot].get(), level - persistentBits, i, std::move(item), owned);
    Ptr<Node> copy = writable(*node, owned);
    copy->children[slot] = std::move(child);
    return copy;
  }
  static NodePtr pushIn(const Node* node, unsigned level, std::size_t i, T&& item, bool owned) {
    owned = ownedBelow(*node, owned);
    if (level == 0) {
      Ptr<Node> copy = writable(*node, owned);
      copy->items.push_back(std::move(item));
      return copy;
    }
    const std::size_t slot = (i >> level) & persistentMask;
    if (slot == node->children.size()) {
      NodePtr fresh = pathTo(level - persistentBits, std::move(item));
      Ptr<Node> copy = writable(*node, owned);
      copy->children.push_back(std::move(fresh));
      return copy;
    }
    NodePtr child = pushIn(node->children[slot].get(), level - persistentBits, i, std::move(item), owned);
    Ptr<Node> copy = writable(*node, owned);
    copy->children[slot] = std::move(child);
    return copy;
  }
  // Removes item i, the last; null when the subtree is left empty.
  static NodePtr popIn(const Node& node, unsigned level, std::size_t i, bool owned) {
    owned = ownedBelow(node, owned);
    if (level == 0) {
      if (node.items.size() == 1) return nullptr;
      Ptr<Node> copy = writable(node, owned);
      copy->items.pop_back();
      return copy;
    }
    const std::size_t slot = (i >> level) & persistentMask;
    NodePtr child = popIn(*node.children[slot], level - persistentBits, i, owned);
    if (!child && slot == 0) return nullptr;
    Ptr<Node> copy = writable(node, owned);
    if (child) {
      copy->children[slot] = std::move(child);
    } else {
      copy->children.pop_back();
    }
    return copy;
  }

  template <class Visit>
  static void unshared(const Node* a, const Node* b, unsigned level, std::size_t base, Visit& visit) {
    if (a == b) return;
    if (level == 0) {
      const std::size_t n = std::max(a ? a->items.size() : 0, b ? b->items.size() : 0);
      for (std::size_t j = 0; j < n; ++j) visit(base + j);
      return;
    }
    const std::size_t n = std::max(a ? a->children.size() : 0, b ? b->children.size() : 0);
    for (std::size_t j = 0; j < n; ++j) {
      const Node* childA = a && j < a->children.size() ? a->children[j].get() : nullptr;
      const Node* childB = b && j < b->children.size() ? b->children[j].get() : nullptr;
      unshared(childA, childB, level - persistentBits, base + (j << level), visit);
    }
  }

  NodePtr root_;
  std::size_t size_ = 0;
  unsigned shift_ = 0;
};

// ---- the index -------------------------------------------------------------------------------

// Counts the bits set, without a call into the runtime library on machines built without a
// population-count instruction.
inline std::uint32_t bitsSet(std::uint32_t x) noexcept {
  x = x - ((x >> 1) & 0x55555555U);
  x = (x & 0x33333333U) + ((x >> 2) & 0x33333333U);
  x = (x + (x >> 4)) & 0x0F0F0F0FU;
  return (x * 0x01010101U) >> 24;
}

// A trie node: the entries present among its 32 slots (bit i of `bitmap` for slot i), each a
// hash with its entry's position or a child for the next five bits of the hash. Past the
// hash's last bits, a node is a plain list of the entries that collide. Keys are not held
// here: the caller tells whether the entry at a position has the key looked for, so a record
// key is stored once, with its entry.
struct IndexNode final : RefCounted {
  struct Slot {
    std::size_t hash = 0;
    std::size_t position = 0;
    Ptr<const IndexNode> child;  // set for a child, and then hash and position mean nothing
  };
  IndexNode() = default;
  IndexNode(const IndexNode& other) : RefCounted(), bitmap(other.bitmap), slots(other.slots) {}
  IndexNode& operator=(const IndexNode&) = delete;
  std::uint32_t bitmap = 0;
  std::vector<Slot> slots;  // in slot order; all of them in a collision list
};

// `Matches` is callable as matches(position) -> bool: whether the entry at that position has
// the key in question.
class PersistentIndex {
  using Node = IndexNode;
  using NodePtr = Ptr<const Node>;
  using Slot = Node::Slot;
  static constexpr unsigned hashBits = sizeof(std::size_t) * 8;

 public:
  // The position stored for the key, or null.
  template <class Matches>
  [[nodiscard]] const std::size_t* find(std::size_t hash, const Matches& matches) const {
    const Node* node = root_.get();
    for (unsigned shift = 0; node; shift += persistentBits) {
      if (shift >= hashBits) return findInList(*node, matches);
      const std::uint32_t bit = bitFor(hash, shift);
      if (!(node->bitmap & bit)) return nullptr;
      const Slot& slot = node->slots[indexOf(*node, bit)];
      if (!slot.child) return slot.hash == hash && matches(slot.position) ? &slot.position : nullptr;
      node = slot.child.get();
    }
    return nullptr;
  }
  // Stores `position` for the key, whether or not it was there.
  template <class Matches>
  void put(std::size_t hash, std::size_t position, const Matches& matches) {
    root_ = putIn(root_.get(), 0, Slot{hash, position, nullptr}, matches, true);
  }
  // Removes the key, which must be there.
  template <class Matches>
  void erase(std::size_t hash, const Matches& matches) {
    FWK_DEBUG_ASSERT(root_);
    root_ = eraseIn(*root_, 0, hash, matches, true);
  }

 private:
  static std::uint32_t bitFor(std::size_t hash, unsigned shift) {
    return std::uint32_t{1} << ((hash >> shift) & persistentMask);
  }
  static std::size_t indexOf(const Node& node, std::uint32_t bit) { return bitsSet(node.bitmap & (bit - 1)); }
  template <class Matches>
  static const std::size_t* findInList(const Node& node, const Matches& matches) {
    for (const Slot& slot : node.slots) {
      if (matches(slot.position)) return &slot.position;
    }
    return nullptr;
  }
  static Ptr<Node> writable(const Node& node, bool owned) {
    if (owned && node.fwkReferences() == 1) return Ptr<Node>(const_cast<Node*>(&node));
    return Ptr<Node>(new Node(node));
  }
  static bool ownedBelow(const Node& node, bool owned) { return owned && node.fwkReferences() == 1; }

  // A node at `shift` holding two entries whose hashes agree below it.
  static NodePtr pair(unsigned shift, Slot a, Slot b) {
    Ptr<Node> node(new Node);
    if (shift >= hashBits) {
      node->slots = {std::move(a), std::move(b)};
      return node;
    }
    const std::uint32_t bitA = bitFor(a.hash, shift);
    const std::uint32_t bitB = bitFor(b.hash, shift);
    if (bitA == bitB) {
      node->bitmap = bitA;
      node->slots.push_back(Slot{0, 0, pair(shift + persistentBits, std::move(a), std::move(b))});
      return node;
    }
    node->bitmap = bitA | bitB;
    if (bitA < bitB) {
      node->slots = {std::move(a), std::move(b)};
    } else {
      node->slots = {std::move(b), std::move(a)};
    }
    return node;
  }

  template <class Matches>
  static NodePtr putIn(const Node* node, unsigned shift, Slot entry, const Matches& matches, bool owned) {
    if (!node) {
      Ptr<Node> leaf(new Node);
      leaf->bitmap = bitFor(entry.hash, shift);
      leaf->slots.push_back(std::move(entry));
      return leaf;
    }
    owned = ownedBelow(*node, owned);
    if (shift >= hashBits) {
      Ptr<Node> copy = writable(*node, owned);
      for (Slot& slot : copy->slots) {
        if (matches(slot.position)) {
          slot.position = entry.position;
          return copy;
        }
      }
      copy->slots.push_back(std::move(entry));
      return copy;
    }
    const std::uint32_t bit = bitFor(entry.hash, shift);
    const std::size_t at = indexOf(*node, bit);
    if (!(node->bitmap & bit)) {
      Ptr<Node> copy = writable(*node, owned);
      copy->slots.insert(copy->slots.begin() + static_cast<std::ptrdiff_t>(at), std::move(entry));
      copy->bitmap |= bit;
      return copy;
    }
    const Slot& present = node->slots[at];
    NodePtr replacement;
    if (present.child) {
      replacement = putIn(present.child.get(), shift + persistentBits, std::move(entry), matches, owned);
    } else if (present.hash == entry.hash && matches(present.position)) {
      Ptr<Node> copy = writable(*node, owned);
      copy->slots[at].position = entry.position;
      return copy;
    } else {
      replacement = pair(shift + persistentBits, present, std::move(entry));
    }
    Ptr<Node> copy = writable(*node, owned);
    copy->slots[at] = Slot{0, 0, std::move(replacement)};
    return copy;
  }

  // The subtree without the key; null when it is left empty. A child left with one plain
  // entry is folded into its parent's slot, so that lookups stay as short as the keys allow.
  template <class Matches>
  static NodePtr eraseIn(const Node& node, unsigned shift, std::size_t hash, const Matches& matches, bool owned) {
    owned = ownedBelow(node, owned);
    Ptr<Node> copy;
    if (shift >= hashBits) {
      copy = writable(node, owned);
      for (std::size_t i = 0; i < copy->slots.size(); ++i) {
        if (matches(copy->slots[i].position)) {
          copy->slots.erase(copy->slots.begin() + static_cast<std::ptrdiff_t>(i));
          break;
        }
      }
    } else {
      const std::uint32_t bit = bitFor(hash, shift);
      const std::size_t at = indexOf(node, bit);
      const Slot& present = node.slots[at];
      if (present.child) {
        NodePtr child = eraseIn(*present.child, shift + persistentBits, hash, matches, owned);
        copy = writable(node, owned);
        if (child && child->slots.size() == 1 && !child->slots.front().child) {
          Slot only = child->slots.front();
          copy->slots[at] = std::move(only);
        } else if (child) {
          copy->slots[at].child = std::move(child);
        } else {
          copy->slots.erase(copy->slots.begin() + static_cast<std::ptrdiff_t>(at));
          copy->bitmap &= ~bit;
        }
      } else {
        copy = writable(node, owned);
        copy->slots.erase(copy->slots.begin() + static_cast<std::ptrdiff_t>(at));
        copy->bitmap &= ~bit;
      }
    }
    if (copy->slots.empty()) return nullptr;
    return copy;
  }

  NodePtr root_;
};

}  // namespace fwk::detail
