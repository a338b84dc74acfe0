#include "tests/support/SampleTypes.h"

#include "aclkit/platform/fwk/Define.h"

namespace sample {

FWK_RECORD_DEFINE(Match, SAMPLE_MATCH_FIELDS)
FWK_ENTITY_DEFINE(Leaf, SAMPLE_LEAF_ATTRS)
FWK_ENTITY_DEFINE(Rooted, SAMPLE_ROOTED_ATTRS)
FWK_ENTITY_DEFINE_WITH_OPS(Node, SAMPLE_NODE_ATTRS, SAMPLE_NODE_OPS)
FWK_ENTITY_DEFINE(BigNode, SAMPLE_BIG_NODE_ATTRS)
FWK_ENTITY_DEFINE(Maps, SAMPLE_MAPS_ATTRS)

U32 Node::leafCountAbove(U32 threshold) const {
  U32 n = 0;
  for (const auto& [key, child] : leaf()) n += child->count() > threshold ? 1 : 0;
  return n;
}

String Node::rename(const String& text, bool twice) {
  labelIs(twice ? String(text.str() + text.str()) : text);
  return label();
}

void Node::clear() {
  bySeqDelAll();
  leafDelAll();
}

}  // namespace sample
