// Small entity and record types that use every attribute kind, for the platform tests.
#pragma once

#include <cstdint>

#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Enum.h"
#include "aclkit/platform/fwk/Record.h"

namespace sample {

using fwk::Ptr;
using fwk::String;
using U32 = std::uint32_t;

#define SAMPLE_COLORS(E) E(red, 0) E(green, 1) E(blue_, 2)
FWK_ENUM(Color, std::uint8_t, SAMPLE_COLORS)

#define SAMPLE_MATCH_FIELDS(F)        \
  F(field, protocol, std::uint8_t, 0) \
  F(ranged, tni, U32, 0, 0, 16777215) \
  F(field, note, String, {})

class Match : public fwk::RecordBase {
  FWK_RECORD(Match, fwk::RecordBase, SAMPLE_MATCH_FIELDS)
};

#define SAMPLE_LEAF_ATTRS(A) A(scalar, count, U32, 0)

class Leaf : public fwk::Entity {
  FWK_ENTITY(Leaf, fwk::Entity, SAMPLE_LEAF_ATTRS)

 public:
  explicit Leaf(U32 key) : key_(key) {}
  [[nodiscard]] U32 key() const { return key_; }

 private:
  U32 key_;
};

// A leaf that needs a construction argument besides its key.
#define SAMPLE_ROOTED_ATTRS(A) A(constScalar, weight, U32, 0)

class Rooted : public fwk::Entity {
  FWK_ENTITY(Rooted, fwk::Entity, SAMPLE_ROOTED_ATTRS)

 public:
  Rooted(const String& key, U32 weight) : Entity(key) { weightStore(weight); }
};

#define SAMPLE_NODE_ATTRS(A)        \
  A(scalar, flag, bool, false)      \
  A(scalar, label, String, {})      \
  A(scalar, color, Color, green)    \
  A(scalar, ratio, double, 0.5)     \
  A(constScalar, serial, U32, 7)    \
  A(scalar, ref, Ptr<Leaf>, {})     \
  A(orderedMap, bySeq, U32, String) \
  A(hashMap, byMatch, Match, U32)   \
  A(children, leaf, U32, Leaf)      \
  A(children, rooted, String, Rooted)

#define SAMPLE_NODE_OPS(O) O(leafCountAbove) O(rename) O(clear)

class Node : public fwk::Entity {
  FWK_ENTITY(Node, fwk::Entity, SAMPLE_NODE_ATTRS)

 public:
  explicit Node(String name = String()) : Entity(std::move(name)) {}
  [[nodiscard]] U32 leafCountAbove(U32 threshold) const;
  String rename(const String& text, bool twice);
  void clear();
};

#define SAMPLE_BIG_NODE_ATTRS(A) A(scalar, extra, U32, 1)

// A derived entity type: inherits Node's attributes and reactor handlers.
class BigNode : public Node {
  FWK_ENTITY(BigNode, Node, SAMPLE_BIG_NODE_ATTRS)

 public:
  explicit BigNode(String name = String()) : Node(std::move(name)) {}
};

// The same keys and values in both kinds of map, for tests that hold them to one contract;
// both kinds over references to its own children or to entities elsewhere; one adopted child.
#define SAMPLE_MAPS_ATTRS(A)                 \
  A(orderedMap, ordered, U32, U32)           \
  A(hashMap, hashed, U32, U32)               \
  A(children, leaf, U32, Leaf)               \
  A(orderedMap, orderedRefs, U32, Ptr<Leaf>) \
  A(hashMap, hashedRefs, String, Ptr<Leaf>)  \
  A(ownedChild, owned, Ptr<Leaf>, {})

class Maps : public fwk::Entity {
  FWK_ENTITY(Maps, fwk::Entity, SAMPLE_MAPS_ATTRS)

 public:
  explicit Maps(String name = String()) : Entity(std::move(name)) {}
  void adopt(const Ptr<Leaf>& leaf) { ownedAdopt(leaf); }
};

}  // namespace sample
