// The machinery of PersistentHashMap: a persistent vector (a radix tree of 32-wide immutable
// nodes) holding the entries in their order, and a hash array mapped trie from each key to
// its entry's position. Both copy the nodes on the path they change and share the rest; both
// write in place where the map is the only holder of the path, as PersistentMap does.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
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
// hash with its entry's position or, where `childMap` has the bit too, a child for the next
// five bits of the hash. Past the hash's last bits, a node is a plain list of the entries
// that collide. Keys are not held here: the caller tells whether the entry at a position has
// the key looked for, so a record key is stored once, with its entry.
//
// A map keeps about one slot per entry, so a slot is one word: an entry's 32-bit hash with
// its position, or a counted reference to a child. The slots follow the node in the same
// allocation, with room for the power of two at or above their count, so that a node costs
// one allocation and a map writing in place grows a node now and then, not at every insert.
struct IndexNode final : RefCounted {
  using Word = std::uint64_t;
  std::uint32_t bitmap = 0;
  std::uint32_t childMap = 0;
  std::uint32_t count = 0;  // slots in use

  IndexNode(const IndexNode&) = delete;
  IndexNode& operator=(const IndexNode&) = delete;

  // The room a node made for `count` slots has; a node never has less than this for its
  // count, since it only shrinks in place.
  static std::size_t roomFor(std::size_t count) noexcept { return std::bit_ceil(std::max<std::size_t>(count, 1)); }
  [[nodiscard]] std::size_t room() const noexcept { return roomFor(count); }

  static Ptr<IndexNode> make(std::size_t needed) {
    void* memory = ::operator new(sizeof(IndexNode) + roomFor(needed) * sizeof(Word));
    return Ptr<IndexNode>(new (memory) IndexNode);
  }
  // A copy of `node` with room for `needed` slots. When the caller holds the only reference
  // and is about to drop it, the copy takes the children's references over.
  static Ptr<IndexNode> copy(const IndexNode& node, std::size_t needed, bool takeOver) {
    Ptr<IndexNode> fresh = make(std::max<std::size_t>(needed, node.count));
    fresh->bitmap = node.bitmap;
    fresh->childMap = node.childMap;
    fresh->count = node.count;
    std::copy_n(node.words(), node.count, fresh->words());
    if (takeOver) {
      auto& old = const_cast<IndexNode&>(node);
      old.count = 0;
      old.childMap = 0;
    } else {
      fresh->forEachChild([](const IndexNode& child) { child.fwkRef(); });
    }
    return fresh;
  }

  static Word entry(std::uint32_t hash, std::size_t position) {
    if (position > std::numeric_limits<std::uint32_t>::max()) {
      throw std::length_error("fwk::PersistentHashMap: too many entries");
    }
    return (Word{position} << 32U) | hash;
  }
  static std::uint32_t hashOf(Word word) noexcept { return static_cast<std::uint32_t>(word); }
  static std::uint32_t positionOf(Word word) noexcept { return static_cast<std::uint32_t>(word >> 32U); }
  static const IndexNode* childOf(Word word) noexcept {
    return reinterpret_cast<const IndexNode*>(static_cast<std::uintptr_t>(word));  // NOLINT(performance-no-int-to-ptr)
  }

  [[nodiscard]] Word* words() noexcept { return reinterpret_cast<Word*>(this + 1); }
  [[nodiscard]] const Word* words() const noexcept { return reinterpret_cast<const Word*>(this + 1); }

  // The child slot i (for `bit`) holds, or null for an entry.
  [[nodiscard]] const IndexNode* childIn(std::size_t i, std::uint32_t bit) const noexcept {
    return (childMap & bit) ? childOf(words()[i]) : nullptr;
  }
  // Slot i, for `bit`, now holds `child`; what it held before is dropped.
  void setChild(std::size_t i, std::uint32_t bit, Ptr<const IndexNode> child) noexcept {
    const IndexNode* before = childIn(i, bit);
    if (before == child.get()) return;  // written in place below
    words()[i] = reinterpret_cast<std::uintptr_t>(child.release());
    childMap |= bit;
    if (before) before->fwkUnref();
  }
  // Slot i, for `bit`, now holds the entry `word`; a child it held is dropped.
  void setEntry(std::size_t i, std::uint32_t bit, Word word) noexcept {
    const IndexNode* before = childIn(i, bit);
    words()[i] = word;
    childMap &= ~bit;
    if (before) before->fwkUnref();
  }
  // A new slot i for `bit` (0 in a collision list); the node must have been made with room
  // for it (room() tells only what the count guarantees).
  void insertEntry(std::size_t i, std::uint32_t bit, Word word) noexcept {
    std::copy_backward(words() + i, words() + count, words() + count + 1);
    words()[i] = word;
    bitmap |= bit;
    ++count;
  }
  void erase(std::size_t i, std::uint32_t bit) noexcept {
    const IndexNode* before = childIn(i, bit);
    std::copy(words() + i + 1, words() + count, words() + i);
    --count;
    bitmap &= ~bit;
    childMap &= ~bit;
    if (before) before->fwkUnref();
  }
  template <class Visit>
  void forEachChild(Visit visit) const {
    for (std::uint32_t rest = childMap; rest != 0; rest &= rest - 1) {
      const std::uint32_t bit = rest & (~rest + 1);
      visit(*childOf(words()[bitsSet(bitmap & (bit - 1))]));
    }
  }

 private:
  IndexNode() = default;
  ~IndexNode() override = default;
  void zeroReferences() const noexcept override {
    forEachChild([](const IndexNode& child) { child.fwkUnref(); });
    auto* self = const_cast<IndexNode*>(this);
    self->~IndexNode();
    ::operator delete(static_cast<void*>(self));
  }
};
static_assert(sizeof(IndexNode) % alignof(IndexNode::Word) == 0, "the slots follow the node aligned");

// `Matches` is callable as matches(position) -> bool: whether the entry at that position has
// the key in question. The trie is keyed by the low 32 bits of the hash the map gives: enough
// to spread any map that fits in memory, with the rare full collision held in a list.
class PersistentIndex {
  using Node = IndexNode;
  using NodePtr = Ptr<const Node>;
  using Word = Node::Word;
  static constexpr unsigned hashBits = 32;

 public:
  // The position stored for the key, or none.
  template <class Matches>
  [[nodiscard]] std::optional<std::size_t> find(std::size_t fullHash, const Matches& matches) const {
    const auto hash = static_cast<std::uint32_t>(fullHash);
    const Node* node = root_.get();
    for (unsigned shift = 0; node; shift += persistentBits) {
      if (shift >= hashBits) return findInList(*node, matches);
      const std::uint32_t bit = bitFor(hash, shift);
      if (!(node->bitmap & bit)) return std::nullopt;
      const Word word = node->words()[indexOf(*node, bit)];
      if (!(node->childMap & bit)) {
        if (Node::hashOf(word) == hash && matches(Node::positionOf(word))) return Node::positionOf(word);
        return std::nullopt;
      }
      node = Node::childOf(word);
    }
    return std::nullopt;
  }
  // Stores `position` for the key, whether or not it was there.
  template <class Matches>
  void put(std::size_t fullHash, std::size_t position, const Matches& matches) {
    const auto hash = static_cast<std::uint32_t>(fullHash);
    root_ = putIn(root_.get(), 0, hash, Node::entry(hash, position), matches, true);
  }
  // Removes the key, which must be there.
  template <class Matches>
  void erase(std::size_t fullHash, const Matches& matches) {
    FWK_DEBUG_ASSERT(root_);
    root_ = eraseIn(*root_, 0, static_cast<std::uint32_t>(fullHash), matches, true);
  }

 private:
  static std::uint32_t bitFor(std::uint32_t hash, unsigned shift) {
    return std::uint32_t{1} << ((hash >> shift) & persistentMask);
  }
  static std::size_t indexOf(const Node& node, std::uint32_t bit) { return bitsSet(node.bitmap & (bit - 1)); }
  template <class Matches>
  static std::optional<std::size_t> findInList(const Node& node, const Matches& matches) {
    for (std::size_t i = 0; i < node.count; ++i) {
      if (matches(Node::positionOf(node.words()[i]))) return Node::positionOf(node.words()[i]);
    }
    return std::nullopt;
  }
  static bool ownedBelow(const Node& node, bool owned) { return owned && node.fwkReferences() == 1; }
  // The node itself when the map is its only holder and it has room for `needed` slots;
  // otherwise a copy with that room.
  static Ptr<Node> writable(const Node& node, bool owned, std::size_t needed) {
    if (owned && needed <= node.room()) return Ptr<Node>(const_cast<Node*>(&node));
    return Node::copy(node, needed, owned);
  }
  static Word withPosition(Word word, std::uint32_t position) { return (Word{position} << 32U) | Node::hashOf(word); }

  // A node at `shift` holding two entries whose hashes agree below it.
  static NodePtr pair(unsigned shift, Word a, Word b) {
    Ptr<Node> node = Node::make(2);
    if (shift >= hashBits) {
      node->insertEntry(0, 0, a);
      node->insertEntry(1, 0, b);
      return node;
    }
    const std::uint32_t bitA = bitFor(Node::hashOf(a), shift);
    const std::uint32_t bitB = bitFor(Node::hashOf(b), shift);
    if (bitA == bitB) {
      NodePtr below = pair(shift + persistentBits, a, b);
      node->insertEntry(0, bitA, 0);
      node->setChild(0, bitA, std::move(below));
      return node;
    }
    node->insertEntry(0, std::min(bitA, bitB), bitA < bitB ? a : b);
    node->insertEntry(1, std::max(bitA, bitB), bitA < bitB ? b : a);
    return node;
  }

  // `owned`: the map is the only holder of the path down to `node`. The caller puts the
  // returned node in place of `node`, which may be that very node written in place.
  template <class Matches>
  static NodePtr putIn(const Node* node, unsigned shift, std::uint32_t hash, Word entry, const Matches& matches,
                       bool owned) {
    if (!node) {
      Ptr<Node> leaf = Node::make(1);
      leaf->insertEntry(0, bitFor(hash, shift), entry);
      return leaf;
    }
    owned = ownedBelow(*node, owned);
    const std::uint32_t position = Node::positionOf(entry);
    if (shift >= hashBits) {
      for (std::size_t i = 0; i < node->count; ++i) {
        if (matches(Node::positionOf(node->words()[i]))) {
          Ptr<Node> copy = writable(*node, owned, node->count);
          copy->words()[i] = entry;
          return copy;
        }
      }
      Ptr<Node> copy = writable(*node, owned, node->count + 1);
      copy->insertEntry(copy->count, 0, entry);
      return copy;
    }
    const std::uint32_t bit = bitFor(hash, shift);
    const std::size_t at = indexOf(*node, bit);
    if (!(node->bitmap & bit)) {
      Ptr<Node> copy = writable(*node, owned, node->count + 1);
      copy->insertEntry(at, bit, entry);
      return copy;
    }
    const Word present = node->words()[at];
    NodePtr replacement;
    if (node->childMap & bit) {
      replacement = putIn(Node::childOf(present), shift + persistentBits, hash, entry, matches, owned);
    } else if (Node::hashOf(present) == hash && matches(Node::positionOf(present))) {
      Ptr<Node> copy = writable(*node, owned, node->count);
      copy->words()[at] = withPosition(present, position);
      return copy;
    } else {
      replacement = pair(shift + persistentBits, present, entry);
    }
    Ptr<Node> copy = writable(*node, owned, node->count);
    copy->setChild(at, bit, std::move(replacement));
    return copy;
  }

  // The subtree without the key; null when it is left empty. A child left with one plain
  // entry is folded into its parent's slot, so that lookups stay as short as the keys allow.
  template <class Matches>
  static NodePtr eraseIn(const Node& node, unsigned shift, std::uint32_t hash, const Matches& matches, bool owned) {
    owned = ownedBelow(node, owned);
    Ptr<Node> copy;
    if (shift >= hashBits) {
      copy = writable(node, owned, node.count);
      for (std::size_t i = 0; i < copy->count; ++i) {
        if (matches(Node::positionOf(copy->words()[i]))) {
          copy->erase(i, 0);
          break;
        }
      }
    } else {
      const std::uint32_t bit = bitFor(hash, shift);
      const std::size_t at = indexOf(node, bit);
      if (node.childMap & bit) {
        NodePtr child = eraseIn(*Node::childOf(node.words()[at]), shift + persistentBits, hash, matches, owned);
        copy = writable(node, owned, node.count);
        if (child && child->count == 1 && child->childMap == 0) {
          copy->setEntry(at, bit, child->words()[0]);
        } else if (child) {
          copy->setChild(at, bit, std::move(child));
        } else {
          copy->erase(at, bit);
        }
      } else {
        copy = writable(node, owned, node.count);
        copy->erase(at, bit);
      }
    }
    if (copy->count == 0) return nullptr;
    return copy;
  }

  NodePtr root_;
};

}  // namespace fwk::detail
