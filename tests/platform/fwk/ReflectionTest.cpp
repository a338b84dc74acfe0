#include <gtest/gtest.h>

#include "aclkit/platform/fwk/Reflection.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Ptr;
using fwk::String;
using fwk::Value;
using sample::Leaf;
using sample::Match;
using sample::Node;
using U32 = std::uint32_t;

std::vector<std::string> names(const fwk::TypeInfo& type) {
  std::vector<std::string> all;
  for (const fwk::AttrInfo* a : type.attrs()) all.push_back(a->name().str());
  return all;
}

TEST(ReflectionTest, AttributesAreListedInDeclarationOrderWithKindsAndTypes) {
  const fwk::TypeInfo& type = Node::staticType();
  EXPECT_EQ(names(type), (std::vector<std::string>{"flag", "label", "color", "ratio", "serial", "ref", "bySeq",
                                                   "byMatch", "leaf", "rooted"}));
  EXPECT_EQ(type.attr("color").valueTypeName(), "Color");
  EXPECT_EQ(type.attr("ref").valueTypeName(), "Ptr<Leaf>");
  EXPECT_EQ(type.attr("bySeq").kind(), fwk::AttrKind::orderedMap);
  EXPECT_EQ(type.attr("bySeq").keyType()->name, "U32");
  EXPECT_EQ(type.attr("byMatch").kind(), fwk::AttrKind::hashMap);
  EXPECT_EQ(type.attr("byMatch").keyType()->name, "Match");
  EXPECT_EQ(type.attr("leaf").kind(), fwk::AttrKind::children);
  EXPECT_EQ(type.attr("leaf").valueTypeName(), "Leaf");
  EXPECT_FALSE(type.attr("serial").writable());
  // A derived type lists its base's attributes first.
  EXPECT_EQ(names(sample::BigNode::staticType()).back(), "extra");
  EXPECT_EQ(names(sample::BigNode::staticType()).front(), "flag");
}

TEST(ReflectionTest, ReadsAndWritesEveryKindByNameAndFromText) {
  Ptr<Node> node(new Node("n"));
  node->hasNotificationActiveIs(true);
  fwk::setAttribute(*node, "flag", true);
  fwk::setAttribute(*node, "label", "hello");
  fwk::setAttribute(*node, "color", sample::blue_);
  fwk::setAttribute(*node, "ratio", 0.25);
  EXPECT_TRUE(node->flag());
  EXPECT_EQ(node->label(), "hello");
  EXPECT_EQ(node->color(), sample::blue_);
  EXPECT_EQ(fwk::getAttribute(*node, "ratio").as<double>(), 0.25);
  EXPECT_EQ(fwk::getAttribute(*node, "serial").as<U32>(), 7u);

  fwk::setAttribute(*node, "bySeq", U32{10}, String("ten"));
  EXPECT_EQ(fwk::getAttribute(*node, "bySeq", U32{10}).as<String>(), "ten");
  Match m;
  m.tniIs(5);
  fwk::setAttribute(*node, "byMatch", m, U32{3});
  EXPECT_EQ(node->byMatch(m), 3u);
  EXPECT_EQ(node->fwkType().attr("byMatch").size(*node), 1u);
  fwk::delAttribute(*node, "bySeq", U32{10});
  EXPECT_TRUE(node->bySeq().empty());

  Ptr<Leaf> leaf = node->leafIs(2);
  fwk::setAttribute(*node, "ref", leaf);
  EXPECT_EQ(node->ref(), leaf);
  Value child = fwk::getAttribute(*node, "leaf", U32{2});
  EXPECT_EQ(child.as<Ptr<fwk::Entity>>().get(), leaf.get());
  EXPECT_EQ(node->fwkType().attr("leaf").keys(*node).at(0).as<U32>(), 2u);
  fwk::delAttribute(*node, "leaf", U32{2});
  EXPECT_EQ(node->leaf(2), nullptr);

  // Front ends write values parsed from text.
  const fwk::AttrInfo& color = node->fwkType().attr("color");
  color.set(*node, color.valueType()->parse("red"));
  EXPECT_EQ(node->color(), sample::red);
  const fwk::AttrInfo& bySeq = node->fwkType().attr("bySeq");
  bySeq.set(*node, bySeq.keyType()->parse("0x10"), bySeq.valueType()->parse("hex"));
  EXPECT_EQ(node->bySeq(16), "hex");
  EXPECT_THROW(bySeq.keyType()->parse("4294967296"), fwk::TypeConversionError);
  EXPECT_THROW(bySeq.keyType()->parse("-1"), fwk::TypeConversionError);
  EXPECT_THROW(fwk::valueType<bool>().parse("yes"), fwk::TypeConversionError);
  EXPECT_EQ(fwk::getAttribute(*node, "color").strep(), "red");
}

TEST(ReflectionTest, BadRequestsAreClearErrorsAndChangeNothing) {
  Ptr<Node> node(new Node("n"));
  EXPECT_THROW(fwk::getAttribute(*node, "nope"), fwk::NameError);
  EXPECT_THROW(fwk::setAttribute(*node, "flag", U32{1}), fwk::TypeConversionError);
  EXPECT_THROW(fwk::setAttribute(*node, "serial", U32{1}), fwk::Error);
  EXPECT_THROW(fwk::getAttribute(*node, "bySeq"), fwk::Error) << "a collection needs a key";
  EXPECT_THROW(fwk::getAttribute(*node, "flag", U32{1}), fwk::Error) << "a scalar takes no key";
  EXPECT_FALSE(node->flag());
  EXPECT_EQ(node->serial(), 7u);
  EXPECT_THROW(node->fwkType().attr("leaf").set(*node, U32{1}, U32{1}), fwk::Error);
  try {
    fwk::setAttribute(*node, "serial", U32{1});
  } catch (const fwk::Error& e) {
    EXPECT_STREQ(e.what(), "attribute Node::serial (scalar, read-only) does not support set");
  }
}

TEST(ReflectionTest, OperationsAreReachableByNameWithTypedArguments) {
  Ptr<Node> node(new Node("n"));
  node->leafIs(1)->countIs(5);
  node->leafIs(2)->countIs(1);
  const fwk::TypeInfo& type = Node::staticType();
  ASSERT_EQ(type.ownOps().size(), 3u);
  EXPECT_EQ(type.ownOps()[0].name, "leafCountAbove");
  EXPECT_EQ(type.op("rename").argTypes.size(), 2u);
  EXPECT_EQ(type.op("rename").argTypes[1]->name, "bool");
  EXPECT_EQ(type.op("clear").resultType, nullptr);

  EXPECT_EQ(fwk::invoke(*node, "leafCountAbove", {U32{2}}).as<U32>(), 1u);
  EXPECT_EQ(fwk::invoke(*node, "rename", {"abc", true}).as<String>(), "ABC");
  EXPECT_TRUE(fwk::invoke(*node, "clear").empty());
  EXPECT_TRUE(node->leaf().empty());

  EXPECT_THROW(fwk::invoke(*node, "rename", {"abc"}), fwk::Error);
  EXPECT_THROW(fwk::invoke(*node, "rename", {U32{1}, true}), fwk::TypeConversionError);
  EXPECT_THROW(fwk::invoke(*node, "explode"), fwk::NameError);
  EXPECT_EQ(node->label(), "ABC");
  // An operation of Node on a BigNode, found through the base.
  Ptr<sample::BigNode> big(new sample::BigNode("b"));
  EXPECT_EQ(fwk::invoke(*big, "leafCountAbove", {U32{0}}).as<U32>(), 0u);
}

}  // namespace
