// The machinery of PersistentMap: its nodes, the path-copying algorithms and the walk its
// iterators make. Nodes are never changed once a map holds them; a change builds new nodes
// for the path it touches and points them at the untouched ones.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Errors.h"
#include "aclkit/platform/fwk/Ptr.h"

namespace fwk::detail {

// A value as a leaf stores it: wrapped, so that a map of bools holds real bools (a
// std::vector<bool> packs bits and cannot hand out a reference to one).
template <class V>
struct PersistentCell {
  V value;
};

template <class K, class V>
struct PersistentNode final : RefCounted {
  explicit PersistentNode(bool isLeaf) : leaf(isLeaf) {}
  // A fresh, unshared copy to build a changed path from.
  PersistentNode(const PersistentNode& other)
      : RefCounted(),
        leaf(other.leaf),
        size(other.size),
        keys(other.keys),
        values(other.values),
        children(other.children) {}
  PersistentNode& operator=(const PersistentNode&) = delete;

  const bool leaf;
  std::size_t size = 0;  // entries under this node
  // A leaf's keys; an inner node's lowest key of each child.
  std::vector<K> keys;
  std::vector<PersistentCell<V>> values;            // leaves only
  std::vector<Ptr<const PersistentNode>> children;  // inner nodes only
};

template <class K, class V>
struct PersistentTree {
  using Node = PersistentNode<K, V>;
  using NodePtr = Ptr<const Node>;
  // Wide nodes keep the tree shallow (four levels hold a million entries) and a changed path
  // short; a node smaller than a quarter merges with a neighbour when both fit in one.
  static constexpr std::size_t fanout = 32;
  static constexpr std::size_t minFill = fanout / 4;

  // A subtree after a change: its new root, and the upper half when that root split.
  struct Change {
    bool changed = false;
    NodePtr node;
    NodePtr split;
  };

  static std::size_t at(const std::vector<K>& keys, const K& key) {
    return static_cast<std::size_t>(std::lower_bound(keys.begin(), keys.end(), key) - keys.begin());
  }
  static bool holds(const std::vector<K>& keys, std::size_t pos, const K& key) {
    return pos < keys.size() && !(key < keys[pos]);
  }
  // The child whose range holds `key` (the first child for keys below every range).
  static std::size_t childFor(const Node& node, const K& key) {
    const auto above = std::upper_bound(node.keys.begin(), node.keys.end(), key);
    return above == node.keys.begin() ? 0 : static_cast<std::size_t>(above - node.keys.begin()) - 1;
  }

  static const V* find(const Node* node, const K& key) {
    for (; node && !node->leaf; node = node->children[childFor(*node, key)].get()) {
    }
    if (!node) return nullptr;
    const std::size_t pos = at(node->keys, key);
    return holds(node->keys, pos, key) ? &node->values[pos].value : nullptr;
  }

  // How many entries have a key below `key`: the children passed on the way down count by
  // their sizes, unread.
  static std::size_t indexOf(const Node* node, const K& key) {
    std::size_t below = 0;
    while (node && !node->leaf) {
      const std::size_t i = childFor(*node, key);
      for (std::size_t c = 0; c < i; ++c) below += node->children[c]->size;
      node = node->children[i].get();
    }
    return node ? below + at(node->keys, key) : 0;
  }

  static Ptr<Node> copyOf(const Node& node) { return Ptr<Node>(new Node(node)); }

  static std::size_t sizeOf(const Node& node) {
    if (node.leaf) return node.keys.size();
    std::size_t size = 0;
    for (const NodePtr& child : node.children) size += child->size;
    return size;
  }

  // Moves the upper part of an overfull node into a new node and returns it: half of it, or
  // only the last entry when that is where the entry went in. Lists grow at their end (each
  // automatic place is the last one), and splitting there leaves full nodes behind instead of
  // half-empty ones. A node split off at the end takes room for a whole node at once, as the
  // next entries go there too; other nodes hold no more room than their entries.
  static NodePtr splitOff(Node& node, bool grewAtEnd) {
    Ptr<Node> upper(new Node(node.leaf));
    const auto cut = static_cast<std::ptrdiff_t>(grewAtEnd ? node.keys.size() - 1 : node.keys.size() / 2);
    auto move = [&](auto& from, auto& to) {
      if (grewAtEnd) to.reserve(fanout + 1);
      to.assign(from.begin() + cut, from.end());
      from.erase(from.begin() + cut, from.end());
      from.shrink_to_fit();
    };
    move(node.keys, upper->keys);
    if (node.leaf) {
      move(node.values, upper->values);
    } else {
      move(node.children, upper->children);
    }
    upper->size = sizeOf(*upper);
    node.size = sizeOf(node);
    return upper;
  }

  // The node a change may write: the node itself when the map is its only holder all the way
  // from the root (nothing else can see it), else a fresh copy. A node that would split is
  // always copied, so that a failure to allocate leaves the tree as it was.
  static Ptr<Node> writable(const Node& node, bool owned) {
    if (owned && node.keys.size() < fanout) return Ptr<Node>(const_cast<Node*>(&node));
    return copyOf(node);
  }
  static bool ownedBelow(const Node& node, bool owned) { return owned && node.fwkReferences() == 1; }

  // `owned`: the caller's map is the only holder of every node from its root down to `node`.
  static Change assign(const Node* node, const K& key, const V& value, bool owned) {
    if (!node) {
      Ptr<Node> leaf(new Node(true));
      leaf->keys.push_back(key);
      leaf->values.push_back({value});
      leaf->size = 1;
      return {true, leaf, nullptr};
    }
    owned = ownedBelow(*node, owned);
    Ptr<Node> copy;
    bool grewAtEnd = false;
    if (node->leaf) {
      const std::size_t pos = at(node->keys, key);
      grewAtEnd = pos == node->keys.size();
      const bool found = holds(node->keys, pos, key);
      if (found && node->values[pos].value == value) return {};
      copy = writable(*node, owned);
      if (found) {
        V replacement(value);
        copy->values[pos].value = std::move(replacement);
      } else {
        copy->values.insert(copy->values.begin() + static_cast<std::ptrdiff_t>(pos), PersistentCell<V>{value});
        try {
          copy->keys.insert(copy->keys.begin() + static_cast<std::ptrdiff_t>(pos), key);
        } catch (...) {
          copy->values.erase(copy->values.begin() + static_cast<std::ptrdiff_t>(pos));
          throw;
        }
        ++copy->size;
      }
    } else {
      const std::size_t i = childFor(*node, key);
      // Written in place only when no split can come back up: a split needs room here.
      const bool inPlace = owned && node->keys.size() < fanout;
      const std::size_t childSizeBefore = node->children[i]->size;
      Change below = assign(node->children[i].get(), key, value, inPlace);
      if (!below.changed) return {};
      copy = writable(*node, inPlace);
      // Room first: past this point nothing throws, so a node written in place is never
      // left half-changed.
      copy->keys.reserve(copy->keys.size() + 1);
      copy->children.reserve(copy->children.size() + 1);
      copy->size = copy->size - childSizeBefore + below.node->size + (below.split ? below.split->size : 0);
      copy->keys[i] = below.node->keys.front();
      copy->children[i] = std::move(below.node);
      if (below.split) {
        grewAtEnd = i + 1 == copy->children.size();
        const auto next = static_cast<std::ptrdiff_t>(i + 1);
        copy->keys.insert(copy->keys.begin() + next, below.split->keys.front());
        copy->children.insert(copy->children.begin() + next, std::move(below.split));
      }
    }
    NodePtr split = copy->keys.size() > fanout ? splitOff(*copy, grewAtEnd) : nullptr;
    return {true, std::move(copy), std::move(split)};
  }

  // The root after a change at the root: a new level when the root split.
  static NodePtr joined(Change change) {
    if (!change.split) return std::move(change.node);
    Ptr<Node> root(new Node(false));
    root->keys = {change.node->keys.front(), change.split->keys.front()};
    root->size = change.node->size + change.split->size;
    root->children = {std::move(change.node), std::move(change.split)};
    return root;
  }

  // A subtree without `key`; its node is null when nothing is left. `owned` as for assign().
  static Change erase(const Node& node, const K& key, bool owned) {
    owned = ownedBelow(node, owned);
    if (node.leaf) {
      const std::size_t pos = at(node.keys, key);
      if (!holds(node.keys, pos, key)) return {};
      if (node.keys.size() == 1) return {true, nullptr, nullptr};
      Ptr<Node> copy = writable(node, owned);
      copy->keys.erase(copy->keys.begin() + static_cast<std::ptrdiff_t>(pos));
      copy->values.erase(copy->values.begin() + static_cast<std::ptrdiff_t>(pos));
      --copy->size;
      return {true, std::move(copy), nullptr};
    }
    const std::size_t i = childFor(node, key);
    Change below = erase(*node.children[i], key, owned && node.keys.size() < fanout);
    if (!below.changed) return {};
    Ptr<Node> copy = writable(node, owned);
    --copy->size;
    const auto child = static_cast<std::ptrdiff_t>(i);
    if (!below.node) {
      copy->keys.erase(copy->keys.begin() + child);
      copy->children.erase(copy->children.begin() + child);
      if (copy->children.empty()) return {true, nullptr, nullptr};
    } else {
      copy->keys[i] = below.node->keys.front();
      copy->children[i] = std::move(below.node);
      mergeSmall(*copy, i);
    }
    return {true, std::move(copy), nullptr};
  }

  // Merges child i with a neighbour when it has become small and the two fit in one node.
  // Merging only keeps the tree compact: when there is no memory for it, the tree stays as it
  // is, still whole.
  static void mergeSmall(Node& parent, std::size_t i) noexcept {
    try {
      mergeWithNeighbour(parent, i);
    } catch (...) {  // NOLINT(bugprone-empty-catch): an unmerged node is a valid tree
    }
  }
  static void mergeWithNeighbour(Node& parent, std::size_t i) {
    if (parent.children[i]->keys.size() >= minFill || parent.children.size() < 2) return;
    const std::size_t left = i > 0 ? i - 1 : i;
    const Node& a = *parent.children[left];
    const Node& b = *parent.children[left + 1];
    if (a.keys.size() + b.keys.size() > fanout) return;
    Ptr<Node> merged = copyOf(a);
    merged->keys.insert(merged->keys.end(), b.keys.begin(), b.keys.end());
    merged->values.insert(merged->values.end(), b.values.begin(), b.values.end());
    merged->children.insert(merged->children.end(), b.children.begin(), b.children.end());
    merged->size += b.size;
    const auto right = static_cast<std::ptrdiff_t>(left + 1);
    parent.keys.erase(parent.keys.begin() + right);
    parent.children.erase(parent.children.begin() + right);
    parent.children[left] = std::move(merged);
  }

  // The root after an erase: levels with one child go.
  static NodePtr collapsed(NodePtr root) {
    while (root && !root->leaf && root->children.size() == 1) root = root->children.front();
    return root;
  }

  static std::size_t heightOf(const Node* node) {
    std::size_t height = 0;
    for (; node && !node->leaf; node = node->children.front().get()) ++height;
    return height;
  }

  template <class Visit>
  static void difference(const Node* a, const Node* b, Visit& visit) {
    differenceAt(a, b, heightOf(a), heightOf(b), visit);
  }

  // Equal nodes are skipped; inner nodes at one height with the same child ranges are compared
  // child by child; anything else (a split, a merge, different heights) is merged entry by entry.
  template <class Visit>
  static void differenceAt(const Node* a, const Node* b, std::size_t heightA, std::size_t heightB, Visit& visit) {
    if (a == b) return;
    if (a && b && heightA == heightB && !a->leaf && a->keys == b->keys) {
      for (std::size_t i = 0; i < a->children.size(); ++i) {
        differenceAt(a->children[i].get(), b->children[i].get(), heightA - 1, heightB - 1, visit);
      }
      return;
    }
    std::vector<std::pair<const K*, const V*>> mine;
    std::vector<std::pair<const K*, const V*>> theirs;
    entriesOf(a, mine);
    entriesOf(b, theirs);
    auto x = mine.begin();
    auto y = theirs.begin();
    while (x != mine.end() || y != theirs.end()) {
      if (y == theirs.end() || (x != mine.end() && *x->first < *y->first)) {
        visit(*x->first, x->second, static_cast<const V*>(nullptr));
        ++x;
      } else if (x == mine.end() || *y->first < *x->first) {
        visit(*y->first, static_cast<const V*>(nullptr), y->second);
        ++y;
      } else {
        if (!(*x->second == *y->second)) visit(*x->first, x->second, y->second);
        ++x;
        ++y;
      }
    }
  }

  static void entriesOf(const Node* node, std::vector<std::pair<const K*, const V*>>& out) {
    if (!node) return;
    if (node->leaf) {
      for (std::size_t i = 0; i < node->keys.size(); ++i) out.emplace_back(&node->keys[i], &node->values[i].value);
      return;
    }
    for (const NodePtr& child : node->children) entriesOf(child.get(), out);
  }
};

// A position in one version of a tree: the path from its root to a leaf entry. It holds the
// root, so the nodes it stands on live as long as it does. No path is the end.
template <class K, class V>
class PersistentWalk {
  using Node = PersistentNode<K, V>;
  using Tree = PersistentTree<K, V>;
  // Height grows only when a full root splits, so 16 levels of nodes at least half full
  // would take more entries than memory holds.
  static constexpr std::size_t maxDepth = 16;
  struct Step {
    const Node* node = nullptr;
    std::size_t index = 0;
  };

 public:
  PersistentWalk() = default;

  static PersistentWalk end(Ptr<const Node> root) { return PersistentWalk(std::move(root)); }
  static PersistentWalk first(Ptr<const Node> root) {
    PersistentWalk walk(std::move(root));
    if (walk.root_) walk.descend(walk.root_.get(), false);
    return walk;
  }
  static PersistentWalk last(Ptr<const Node> root) {
    PersistentWalk walk(std::move(root));
    if (walk.root_) walk.descend(walk.root_.get(), true);
    return walk;
  }
  // The first entry at or after `key` (after it when `above`).
  static PersistentWalk seek(Ptr<const Node> root, const K& key, bool above) {
    PersistentWalk walk(std::move(root));
    const Node* node = walk.root_.get();
    if (!node) return walk;
    for (; !node->leaf; node = node->children[walk.path_[walk.depth_ - 1].index].get()) {
      walk.push(node, Tree::childFor(*node, key));
    }
    const auto bound = above ? std::upper_bound(node->keys.begin(), node->keys.end(), key)
                             : std::lower_bound(node->keys.begin(), node->keys.end(), key);
    const auto pos = static_cast<std::size_t>(bound - node->keys.begin());
    if (pos < node->keys.size()) {
      walk.push(node, pos);
    } else {
      walk.push(node, pos - 1);  // past this leaf: the next leaf's first entry, or the end
      walk.next();
    }
    return walk;
  }

  // The entry `index` entries after the first, found by the sizes of the children passed; the
  // end when there are not that many.
  static PersistentWalk nth(Ptr<const Node> root, std::size_t index) {
    PersistentWalk walk(std::move(root));
    const Node* node = walk.root_.get();
    if (!node || index >= node->size) return walk;
    for (; !node->leaf; node = node->children[walk.path_[walk.depth_ - 1].index].get()) {
      std::size_t i = 0;
      for (; index >= node->children[i]->size; ++i) index -= node->children[i]->size;
      walk.push(node, i);
    }
    walk.push(node, index);
    return walk;
  }

  [[nodiscard]] const Node& leaf() const {
    FWK_DEBUG_ASSERT(depth_ > 0 && "read at the end of a PersistentMap");
    return *path_[depth_ - 1].node;
  }
  [[nodiscard]] std::size_t index() const { return path_[depth_ - 1].index; }
  [[nodiscard]] bool atEnd() const noexcept { return depth_ == 0; }

  void next() {
    FWK_DEBUG_ASSERT(depth_ > 0 && "advanced past the end of a PersistentMap");
    if (++path_[depth_ - 1].index < path_[depth_ - 1].node->keys.size()) return;
    while (--depth_ > 0) {
      Step& parent = path_[depth_ - 1];
      if (++parent.index < parent.node->children.size()) {
        descend(parent.node->children[parent.index].get(), false);
        return;
      }
    }
  }
  void previous() {
    if (depth_ == 0) {
      if (root_) descend(root_.get(), true);
      return;
    }
    if (path_[depth_ - 1].index > 0) {
      --path_[depth_ - 1].index;
      return;
    }
    const std::size_t leafDepth = depth_;
    while (--depth_ > 0) {
      Step& parent = path_[depth_ - 1];
      if (parent.index > 0) {
        --parent.index;
        descend(parent.node->children[parent.index].get(), true);
        return;
      }
    }
    FWK_DEBUG_ASSERT(false && "stepped back before the first entry of a PersistentMap");
    depth_ = leafDepth;
  }

  friend bool operator==(const PersistentWalk& a, const PersistentWalk& b) {
    if (a.depth_ == 0 || b.depth_ == 0) return a.depth_ == b.depth_;
    return &a.leaf() == &b.leaf() && a.index() == b.index();
  }

 private:
  explicit PersistentWalk(Ptr<const Node> root) : root_(std::move(root)) {}

  void push(const Node* node, std::size_t index) {
    FWK_DEBUG_ASSERT(depth_ < maxDepth);
    path_[depth_++] = {node, index};
  }
  // From `node` down to its first (or last) entry.
  void descend(const Node* node, bool toLast) {
    for (;;) {
      const std::size_t count = node->leaf ? node->keys.size() : node->children.size();
      push(node, toLast ? count - 1 : 0);
      if (node->leaf) return;
      node = node->children[toLast ? count - 1 : 0].get();
    }
  }

  Ptr<const Node> root_;
  std::array<Step, maxDepth> path_{};
  std::size_t depth_ = 0;
};

}  // namespace fwk::detail
