#include <gtest/gtest.h>

#include "aclkit/platform/fwk/Dir.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "tests/support/SampleTypes.h"

namespace {

using Cli::Session::AttributeFilter;
using Cli::Session::EntityCopy;
using Cli::Session::EntityCopyHandler;
using fwk::Dir;
using fwk::Ptr;
using fwk::String;
using sample::Leaf;
using sample::Match;
using sample::Node;

Ptr<Node> makeNode(const char* name) {
  Ptr<Node> n(new Node(name));
  n->hasNotificationActiveIs(true);
  return n;
}

void fill(Node& n) {
  n.flagIs(true);
  n.labelIs("src");
  n.bySeqIs(10, "a");
  n.bySeqIs(20, "b");
  Match m;
  m.protocolIs(6);
  n.byMatchIs(m, 1);
  n.leafIs(1)->countIs(11);
  n.leafIs(2)->countIs(22);
  n.refIs(n.leaf(2));
}

// Counts notifications by attribute.
struct Counter : Node::Reactor {
  using Node::Reactor::Reactor;
  int changes = 0;
  void flagChanged() override { ++changes; }
  void labelChanged() override { ++changes; }
  void refChanged() override { ++changes; }
  void bySeqChanged(const std::uint32_t&) override { ++changes; }
  void byMatchChanged(const Match&) override { ++changes; }
  void leafChanged(const std::uint32_t&) override { ++changes; }
};

TEST(EntityCopyTest, DeepCopyMakesDestinationEqualSaveFilteredAttributesAndReportsChangesOnlyWhenThereAreSome) {
  Ptr<Node> src = makeNode("src");
  Ptr<Node> dest = makeNode("dest");
  fill(*src);
  dest->bySeqIs(30, "stale");
  dest->leafIs(3);
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(copy->copyTree(dest, src));
  EXPECT_TRUE(dest->flag());
  EXPECT_EQ(dest->label(), "src");
  EXPECT_EQ(dest->bySeq().size(), 2u);
  EXPECT_FALSE(dest->bySeq().contains(30));
  EXPECT_EQ(dest->byMatch().size(), 1u);
  ASSERT_EQ(dest->leaf().size(), 2u);
  EXPECT_EQ(dest->leaf(2)->count(), 22u);
  EXPECT_EQ(dest->leaf(2)->parent(), dest.get());
  EXPECT_EQ(dest->ref(), dest->leaf(2)) << "a reference into the tree maps onto the copy";

  Counter counter(dest.get());
  EXPECT_FALSE(copy->copyTree(dest, src)) << "a second copy finds nothing to do";
  EXPECT_EQ(counter.changes, 0);
  src->leaf(1)->countIs(12);
  EXPECT_TRUE(copy->copyTree(dest, src)) << "a change deep in a child counts";
  EXPECT_EQ(dest->leaf(1)->count(), 12u);
  EXPECT_EQ(counter.changes, 0) << "the child changed, not the node's own attributes";

  Ptr<Node> elsewhere = makeNode("elsewhere");
  src->refIs(elsewhere->leafIs(9));
  EXPECT_TRUE(copy->copyTree(dest, src));
  EXPECT_EQ(dest->ref(), elsewhere->leaf(9)) << "a reference out of the tree stays as it is";

  // A map copied into an empty one is taken whole: a reactor hears every entry in order, or
  // the whole map once where it asks to.
  struct Heard : Node::Reactor {
    using Node::Reactor::Reactor;
    std::vector<std::uint32_t> places;
    int matchFills = 0;
    void bySeqChanged(const std::uint32_t& sequence) override { places.push_back(sequence); }
    void byMatchFilled() override { ++matchFills; }
  };
  Ptr<Node> fresh = makeNode("fresh");
  Heard heard(fresh.get());
  EXPECT_TRUE(copy->copyTree(fresh, src));
  EXPECT_EQ(heard.places, (std::vector<std::uint32_t>{10, 20}));
  EXPECT_EQ(heard.matchFills, 1);
  src->bySeqIs(15, "c");
  fresh->bySeqDel(10);
  EXPECT_EQ(fresh->bySeq().size(), 1u) << "the copy's entries stand apart from its source's";
  EXPECT_EQ(src->bySeq().size(), 3u);

  // Filtered attributes are left alone; when only they differ there is nothing to copy.
  Ptr<Node> partial = makeNode("partial");
  Ptr<AttributeFilter> filter(new AttributeFilter());
  for (const char* name : {"label", "leaf", "ref"}) filter->attributeNameIs(name, true);
  EXPECT_TRUE(copy->doCopyEntityAttrs(partial, src, "", filter));
  EXPECT_EQ(partial->label(), "");
  EXPECT_TRUE(partial->leaf().empty());
  EXPECT_TRUE(partial->flag());
  EXPECT_FALSE(copy->doCopyEntityAttrs(partial, src, "", filter));
  filter->attributeNameIs("label", false);
  EXPECT_TRUE(copy->doCopyEntityAttrs(partial, src, "", filter));
  EXPECT_EQ(partial->label(), "src");
}

TEST(EntityCopyTest, RegisteredHandlersTakeOverTheirTypes) {
  struct LeafHandler : EntityCopyHandler {
    std::vector<std::string> paths;
    bool handleEntity(const Ptr<EntityCopy>&, const Ptr<fwk::Entity>& dest, const Ptr<const fwk::Entity>& src,
                      const String& name) override {
      paths.push_back(name.str());
      auto& d = fwk::cast<Leaf>(*dest);
      const auto& s = fwk::cast<Leaf>(*src);
      if (d.count() == s.count() * 2) return false;
      d.countIs(s.count() * 2);
      return true;
    }
  };
  Ptr<LeafHandler> handler(new LeafHandler);
  Cli::Session::CopyHandlerRegistry registry;
  registry.handlerIs(Leaf::staticType(), handler);
  Ptr<Node> src = makeNode("src");
  Ptr<Node> dest = makeNode("dest");
  fill(*src);
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  copy->registryIs(&registry);
  EXPECT_TRUE(copy->copyTree(dest, src));
  EXPECT_EQ(dest->leaf(1)->count(), 22u);
  EXPECT_EQ(handler->paths, (std::vector<std::string>{"/src.leaf/1", "/src.leaf/2"}));
  EXPECT_FALSE(copy->copyTree(dest, src));
}

TEST(EntityCopyTest, DirectoriesCopyMixedChildrenThroughTheirTypes) {
  Ptr<Dir> src(new Dir("running"));
  Ptr<Dir> dest(new Dir("candidate"));
  src->entityIs<Node>("n")->labelIs("x");
  src->mkdir("sub")->entityIs<Node>("deep")->flagIs(true);
  dest->entityIs<Dir>("n");  // same name, other type: replaced
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(copy->copyTree(dest, src));
  auto n = fwk::dynCast<Node>(dest->lookup("n"));
  ASSERT_TRUE(n);
  EXPECT_EQ(n->label(), "x");
  EXPECT_TRUE(n->hasNotificationActive());
  EXPECT_TRUE(fwk::cast<Node>(dest->lookup("sub/deep"))->flag());
  EXPECT_FALSE(copy->copyTree(dest, src));
}

TEST(EntityCopyTest, BadCopiesAreRefusedClearly) {
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  Ptr<Node> node = makeNode("n");
  EXPECT_THROW(copy->doCopyEntityAttrs(node, nullptr, "", nullptr), fwk::NullArgumentError);
  EXPECT_THROW(copy->doCopyEntityAttrs(node, Ptr<Leaf>(new Leaf(1)), "", nullptr), fwk::TypeConversionError);
  // A child that needs construction arguments cannot be created by a generic copy.
  Ptr<Node> src = makeNode("src");
  src->rootedIs("r", 3u);
  Ptr<Node> dest = makeNode("dest");
  try {
    copy->copyTree(dest, src);
    FAIL();
  } catch (const fwk::Error& e) {
    EXPECT_NE(std::string(e.what()).find("cannot create a Rooted in Node::rooted"), std::string::npos) << e.what();
  }
}

}  // namespace
