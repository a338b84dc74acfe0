// The machinery of PersistentHashMap: a persistent vector (a radix tree of 32-wide immutable
// nodes) holding the entries in their order, and a hash array mapped trie from each key to
// its entry's position. Both copy the nodes on the path they change and share the rest; both
// write in place where the map is the only holder of the path, as PersistentMap does.
#pragma once

#include <bit>
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
  VectorNode(const VectorNode& other) : RefCounted(), items(other.items), children(other.children) {}
  VectorNode& operator=(const VectorNode&) = delete;
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

  void set(std::size_t i, T item) {
    FWK_DEBUG_ASSERT(i < size_);
    root_ = setIn(root_.get(), shift_, i, std::move(item), true);
  }
  void pushBack(T item) {
    if (!root_) {
      Ptr<Node> leaf(new Node);
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
  static NodePtr pathTo(unsigned level, T item) {
    Ptr<Node> leaf(new Node);
    leaf->items.push_back(std::move(item));
    NodePtr node = std::move(leaf);
    for (unsigned l = 0; l < level; l += persistentBits) {
      Ptr<Node> parent(new Node);
      parent->children.push_back(std::move(node));
      node = std::move(parent);
    }
    return node;
  }
  static NodePtr setIn(const Node* node, unsigned level, std::size_t i, T item, bool owned) {
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
  static NodePtr pushIn(const Node* node, unsigned level, std::size_t i, T item, bool owned) {
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

  NodePtr root_;
  std::size_t size_ = 0;
  unsigned shift_ = 0;
};

// ---- the index -------------------------------------------------------------------------------

// A trie node: the entries present among its 32 slots (bit i of `bitmap` for slot i), each a
// key with its position or a child for the next five bits of the hash. Past the hash's last
// bits, a node is a plain list of the keys that collide.
template <class K>
struct IndexNode final : RefCounted {
  struct Slot {
    K key{};
    std::size_t hash = 0;
    std::size_t position = 0;
    Ptr<const IndexNode> child;  // set for a child, and then key and position mean nothing
  };
  IndexNode() = default;
  IndexNode(const IndexNode& other) : RefCounted(), bitmap(other.bitmap), slots(other.slots) {}
  IndexNode& operator=(const IndexNode&) = delete;
  std::uint32_t bitmap = 0;
  std::vector<Slot> slots;  // in slot order; all of them in a collision list
};

template <class K>
class PersistentIndex {
  using Node = IndexNode<K>;
  using NodePtr = Ptr<const Node>;
  using Slot = typename Node::Slot;
  static constexpr unsigned hashBits = sizeof(std::size_t) * 8;

 public:
  // The position stored for `key`, or null.
  [[nodiscard]] const std::size_t* find(const K& key, std::size_t hash) const {
    const Node* node = root_.get();
    for (unsigned shift = 0; node; shift += persistentBits) {
      if (shift >= hashBits) return findInList(*node, key);
      const std::uint32_t bit = bitFor(hash, shift);
      if (!(node->bitmap & bit)) return nullptr;
      const Slot& slot = node->slots[indexOf(*node, bit)];
      if (!slot.child) return slot.hash == hash && slot.key == key ? &slot.position : nullptr;
      node = slot.child.get();
    }
    return nullptr;
  }
  // Stores `position` for `key`, whether or not it was there.
  void put(const K& key, std::size_t hash, std::size_t position) {
    root_ = putIn(root_.get(), 0, Slot{key, hash, position, nullptr}, true);
  }
  // Removes `key`, which must be there.
  void erase(const K& key, std::size_t hash) {
    FWK_DEBUG_ASSERT(root_);
    root_ = eraseIn(*root_, 0, key, hash, true);
  }

 private:
  static std::uint32_t bitFor(std::size_t hash, unsigned shift) {
    return std::uint32_t{1} << ((hash >> shift) & persistentMask);
  }
  static std::size_t indexOf(const Node& node, std::uint32_t bit) {
    return static_cast<std::size_t>(std::popcount(node.bitmap & (bit - 1)));
  }
  static const std::size_t* findInList(const Node& node, const K& key) {
    for (const Slot& slot : node.slots) {
      if (slot.key == key) return &slot.position;
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
      node->slots.push_back(Slot{K{}, 0, 0, pair(shift + persistentBits, std::move(a), std::move(b))});
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

  static NodePtr putIn(const Node* node, unsigned shift, Slot entry, bool owned) {
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
        if (slot.key == entry.key) {
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
      replacement = putIn(present.child.get(), shift + persistentBits, std::move(entry), owned);
    } else if (present.hash == entry.hash && present.key == entry.key) {
      Ptr<Node> copy = writable(*node, owned);
      copy->slots[at].position = entry.position;
      return copy;
    } else {
      replacement = pair(shift + persistentBits, present, std::move(entry));
    }
    Ptr<Node> copy = writable(*node, owned);
    copy->slots[at] = Slot{K{}, 0, 0, std::move(replacement)};
    return copy;
  }

  // The subtree without `key`; null when it is left empty. A child left with one plain entry
  // is folded into its parent's slot, so that lookups stay as short as the keys allow.
  static NodePtr eraseIn(const Node& node, unsigned shift, const K& key, std::size_t hash, bool owned) {
    owned = ownedBelow(node, owned);
    Ptr<Node> copy;
    if (shift >= hashBits) {
      copy = writable(node, owned);
      for (std::size_t i = 0; i < copy->slots.size(); ++i) {
        if (copy->slots[i].key == key) {
          copy->slots.erase(copy->slots.begin() + static_cast<std::ptrdiff_t>(i));
          break;
        }
      }
    } else {
      const std::uint32_t bit = bitFor(hash, shift);
      const std::size_t at = indexOf(node, bit);
      const Slot& present = node.slots[at];
      if (present.child) {
        NodePtr child = eraseIn(*present.child, shift + persistentBits, key, hash, owned);
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
