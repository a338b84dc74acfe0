// The generic deep copy of the configuration-session framework: what a registered handler or a
// filter keeps from it, what it refuses, and maps of references, which point into the copy's
// own children after it.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <random>

#include "aclkit/platform/fwk/Dir.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "tests/support/SampleTypes.h"

namespace {

using Cli::Session::AttributeFilter;
using Cli::Session::EntityCopy;
using fwk::Ptr;
using fwk::String;
using sample::Leaf;
using sample::Maps;
using sample::Node;

Ptr<Node> makeNode(const char* name) {
  Ptr<Node> n(new Node(name));
  n->hasNotificationActiveIs(true);
  return n;
}

Ptr<Node> filled(const char* name) {
  Ptr<Node> n = makeNode(name);
  n->flagIs(true);
  n->labelIs("src");
  n->bySeqIs(10, "a");
  n->bySeqIs(20, "b");
  n->leafIs(1)->countIs(11);
  n->leafIs(2)->countIs(22);
  n->refIs(n->leaf(2));
  return n;
}

// That a copy makes the destination equal, references included, and reports change only when
// there is some, is the property below; here, what keeps parts of the tree from it.
TEST(EntityCopyTest, HandlersAndFiltersTakeOverTheirPartsDirectoriesCopyAnyTypeAndBadCopiesAreRefused) {
  struct LeafHandler : Cli::Session::EntityCopyHandler {
    std::vector<std::string> paths;
    bool handleEntity(const Ptr<EntityCopy>&, const Ptr<fwk::Entity>& dest, const Ptr<const fwk::Entity>& src,
                      const String& name) override {
      paths.push_back(name.str());
      auto& d = fwk::cast<Leaf>(*dest);
      const std::uint32_t doubled = fwk::cast<Leaf>(*src).count() * 2;
      return d.count() != doubled && (d.countIs(doubled), true);
    }
  };
  Ptr<LeafHandler> handler(new LeafHandler);
  Cli::Session::CopyHandlerRegistry registry;
  registry.handlerIs(Leaf::staticType(), handler);
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  copy->registryIs(&registry);
  Ptr<Node> dest = makeNode("dest");
  EXPECT_TRUE(copy->copyTree(dest, filled("src")));
  EXPECT_EQ(dest->leaf(1)->count(), 22u);
  EXPECT_EQ(handler->paths, (std::vector<std::string>{"/src.leaf/1", "/src.leaf/2"}));
  registry.handlerDel(Leaf::staticType());
  EXPECT_TRUE(copy->copyTree(dest, filled("src")) && dest->leaf(1)->count() == 11u) << "without it, copied as is";
  EXPECT_EQ(dest->ref(), dest->leaf(2)) << "a reference into the tree maps onto the copy";

  // Filtered attributes are left alone; when only they differ there is nothing to copy.
  Ptr<Node> src = filled("src");
  Ptr<Node> partial = makeNode("partial");
  Ptr<AttributeFilter> filter(new AttributeFilter());
  for (const char* name : {"label", "leaf", "ref"}) filter->attributeNameIs(name, true);
  EXPECT_TRUE(copy->doCopyEntityAttrs(partial, src, "", filter));
  EXPECT_TRUE(partial->label().empty() && partial->leaf().empty() && partial->flag());
  EXPECT_FALSE(copy->doCopyEntityAttrs(partial, src, "", filter));
  filter->attributeNameIs("label", false);
  EXPECT_TRUE(copy->doCopyEntityAttrs(partial, src, "", filter) && partial->label() == "src");

  Ptr<fwk::Dir> running(new fwk::Dir("running"));
  Ptr<fwk::Dir> candidate(new fwk::Dir("candidate"));
  running->entityIs<Node>("n")->labelIs("x");
  running->mkdir("sub")->entityIs<Node>("deep")->flagIs(true);
  candidate->entityIs<fwk::Dir>("n");  // same name, other type: replaced
  Ptr<EntityCopy> plain = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(plain->copyTree(candidate, running));
  EXPECT_EQ(fwk::cast<Node>(candidate->lookup("n"))->label(), "x");
  EXPECT_TRUE(fwk::cast<Node>(candidate->lookup("sub/deep"))->flag());
  EXPECT_FALSE(plain->copyTree(candidate, running));

  EXPECT_THROW(plain->doCopyEntityAttrs(dest, nullptr, "", nullptr), fwk::NullArgumentError);
  EXPECT_THROW(plain->doCopyEntityAttrs(dest, Ptr<Leaf>(new Leaf(1)), "", nullptr), fwk::TypeConversionError);
  Ptr<Node> rooted = makeNode("src");
  rooted->rootedIs("r", 3u);  // a child that needs construction arguments a generic copy lacks
  try {
    plain->copyTree(makeNode("dest"), rooted);
    FAIL();
  } catch (const fwk::Error& e) {
    EXPECT_NE(std::string(e.what()).find("cannot create a Rooted in Node::rooted"), std::string::npos) << e.what();
  }
}

// Whether every entry of dest's maps (children and references) stands for src's: a reference
// to a child of src as a reference to dest's child under the same key, any other as itself.
bool mirrors(Maps& dest, Maps& src) {
  auto same = [&](const auto& to, const auto& from) {
    if (to.size() != from.size()) return false;
    for (const auto& [key, target] : from) {
      const Ptr<Leaf> want = target->parent() == &src ? dest.leaf(target->key()) : target;
      if (const Ptr<Leaf>* found = to.find(key); !found || *found != want) return false;
    }
    return true;
  };
  return same(dest.leaf(), src.leaf()) && same(dest.orderedRefs(), src.orderedRefs()) &&
         same(dest.hashedRefs(), src.hashedRefs());
}

RC_GTEST_PROP(EntityCopyTest, ReferencesInEitherKindOfMapPointIntoTheCopysOwnChildren, ()) {
  std::mt19937 random(*rc::gen::arbitrary<std::uint32_t>());
  Ptr<Maps> outside(new Maps("outside"));
  // Random references to its own children (some removed again, so referred to from nowhere)
  // and to entities elsewhere, in both maps.
  auto fill = [&](Maps& m, int steps) {
    for (int i = 0; i < steps; ++i) {
      const std::uint32_t key = random() % 48;
      const std::uint32_t target = random() % 12;
      Ptr<Leaf> leaf = target < 8 ? m.leafIs(target) : outside->leafIs(target);
      const String name(std::to_string(key));
      const std::uint32_t what = random() % 7;
      if (what == 0) m.leafDel(target);
      if (what == 1) m.orderedRefsDel(key);
      if (what == 2) m.hashedRefsDel(name);
      if (what == 3 || what == 4) m.orderedRefsIs(key, leaf);
      if (what > 4) m.hashedRefsIs(name, leaf);
    }
  };
  Ptr<Maps> src(new Maps("src"));
  Ptr<Maps> dest(new Maps("dest"));
  fill(*src, *rc::gen::inRange(0, 150));
  fill(*dest, *rc::gen::inRange(0, 150));
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  for (int round = 0; round < 2; ++round, fill(*src, 20)) {  // then onto a copy, after a few changes
    const bool differed = !mirrors(*dest, *src);
    RC_ASSERT(copy->copyTree(dest, src) == differed);
    RC_ASSERT(mirrors(*dest, *src));
    RC_ASSERT(!copy->copyTree(dest, src));
  }
}

}  // namespace
