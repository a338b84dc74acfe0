// Reflection: attributes and operations by name, and bad requests refused clearly; then every
// registered type, driven by nothing but its reflection.
#include <gtest/gtest.h>

#include <algorithm>

#include "aclkit/platform/fwk/Reflection.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Ptr;
using fwk::String;
using sample::Leaf;
using sample::Match;
using sample::Node;
using U32 = std::uint32_t;

// What front ends and bindings reach by name: attributes (a derived type lists its base's
// first), keyed entries and children, and operations, a base's found from a derived type. The
// declarations themselves are restated nowhere: every registered type is driven below.
TEST(ReflectionTest, AttributesAndOperationsByNameAndBadRequestsAreClearErrorsThatChangeNothing) {
  std::string names;
  for (const fwk::AttrInfo* a : sample::BigNode::staticType().attrs()) names += a->name().str() + " ";
  EXPECT_EQ(names, "flag label color ratio serial ref bySeq byMatch leaf rooted extra ")
      << "a derived type lists its base's attributes first";
  Ptr<Node> node(new Node("n"));
  node->leafIs(1)->countIs(5);
  Ptr<Leaf> leaf = node->leafIs(2);
  Match m;
  m.tniIs(5);
  fwk::setAttribute(*node, "byMatch", m, U32{3});
  EXPECT_EQ(node->byMatch(m), 3u);
  EXPECT_EQ(fwk::getAttribute(*node, "leaf", U32{2}).as<Ptr<fwk::Entity>>().get(), leaf.get());
  EXPECT_EQ(fwk::invoke(*node, "leafCountAbove", {U32{2}}).as<U32>(), 1u);
  fwk::delAttribute(*node, "leaf", U32{2});
  EXPECT_EQ(node->leaf(2), nullptr);
  EXPECT_EQ(fwk::invoke(*node, "rename", {"abc", true}).as<String>(), "abcabc");
  Ptr<sample::BigNode> big(new sample::BigNode("b"));
  EXPECT_EQ(fwk::invoke(*big, "leafCountAbove", {U32{0}}).as<U32>(), 0u) << "found through the base";
  EXPECT_TRUE(fwk::invoke(*node, "clear").empty() && node->leaf().empty());

  const fwk::TypeInfo& type = Node::staticType();
  EXPECT_THROW(fwk::invoke(*node, "explode"), fwk::NameError);
  EXPECT_THROW(fwk::getAttribute(*node, "nope"), fwk::NameError);
  EXPECT_THROW(fwk::setAttribute(*node, "flag", U32{1}), fwk::TypeConversionError);
  EXPECT_THROW(fwk::getAttribute(*node, "bySeq"), fwk::Error) << "a collection needs a key";
  EXPECT_THROW(fwk::getAttribute(*node, "flag", U32{1}), fwk::Error) << "a scalar takes no key";
  EXPECT_THROW(type.attr("leaf").set(*node, U32{1}, U32{1}), fwk::Error);
  try {
    fwk::setAttribute(*node, "serial", U32{1});
    FAIL();
  } catch (const fwk::Error& e) {
    EXPECT_STREQ(e.what(), "attribute Node::serial (scalar, read-only) does not support set");
  }
  EXPECT_EQ(std::tuple(node->flag(), node->serial(), node->label()), std::tuple(false, 7u, String("abcabc")));
}

// Front ends and bindings call whatever a type registers with the arguments they were given:
// every registered operation and factory of every type refuses a wrong count of arguments, a
// missing receiver and an argument of another type before it runs. A type made from no
// arguments or a name copies onto another of its kind with no change, and each of its maps
// of values, filled past the size at which its storage splits and emptied again through
// nothing but its reflection (keys parsed from numbers), copies with it.
TEST(ReflectionTest, EveryRegisteredTypeRefusesBadCallsAndCopiesItsMapsByReflectionAlone) {
  struct PlainCopy : fwk::CopyContext {
    bool copyChild(fwk::Entity& dest, const fwk::Entity& src, const String& path) override {
      return fwk::copyAttributes(dest, src, *this, path, [](const String&) { return false; });
    }
    fwk::Entity* resolveEntityPtr(const fwk::Entity* target) override { return const_cast<fwk::Entity*>(target); }
  } context;
  std::size_t operations = 0;
  std::size_t made = 0;
  for (const fwk::TypeInfo* type : fwk::registeredTypes()) {
    Ptr<fwk::Entity> instance;
    Ptr<fwk::Entity> twin;
    for (const std::vector<fwk::Value>& args : {std::vector<fwk::Value>{}, {String("x")}}) {
      if (std::any_of(type->factories().begin(), type->factories().end(),
                      [&](const fwk::OpInfo& f) { return f.argTypes.size() == args.size(); })) {
        try {
          instance = type->create(args);
          twin = type->create(args);
          break;
        } catch (const fwk::Error&) {  // a factory that wants other arguments
        }
      }
    }
    for (const fwk::OpInfo& op : type->factories()) {
      EXPECT_THROW(op.invoke(nullptr, std::vector<fwk::Value>(op.argTypes.size() + 1)), fwk::Error) << op.name;
    }
    for (const fwk::OpInfo& op : type->ownOps()) {
      ++operations;
      const std::string where = type->name().str() + "::" + op.name.str();
      std::vector<fwk::Value> args(op.argTypes.size() + 1);
      EXPECT_THROW(op.invoke(instance.get(), args), fwk::Error) << where;
      args.pop_back();
      EXPECT_THROW(op.invoke(nullptr, args), fwk::NullArgumentError) << where;
      if (instance && !args.empty()) {
        EXPECT_THROW(op.invoke(instance.get(), args), fwk::TypeConversionError) << where;
      }
    }
    if (!instance) continue;
    ++made;
    auto copy = [&] { return fwk::copyAttributes(*twin, *instance, context, "", [](const String&) { return false; }); };
    EXPECT_FALSE(copy()) << type->name();
    for (const fwk::AttrInfo* attr : type->attrs()) {
      if (!attr->isCollection() || attr->kind() == fwk::AttrKind::children || attr->refersToEntities()) continue;
      std::vector<fwk::Value> keys;
      try {
        for (int i = 1; i <= 100; ++i) keys.push_back(attr->keyType()->parse(std::to_string(i)));
      } catch (const fwk::TypeConversionError&) {
        continue;
      }
      const fwk::Value value = attr->get(*instance, keys[0]);
      for (const fwk::Value& key : keys) attr->set(*instance, key, value);
      const std::string where = type->name().str() + "::" + attr->name().str();
      EXPECT_TRUE(attr->size(*instance) == keys.size() && copy() && attr->keys(*twin).size() == keys.size()) << where;
      for (std::size_t i = 0; i < keys.size(); i += 2) attr->del(*instance, keys[i]);
      EXPECT_TRUE(copy() && !copy() && attr->keys(*twin).size() == keys.size() / 2) << where;
      attr->delAll(*instance);
      EXPECT_TRUE(copy() && attr->size(*twin) == 0) << where;
    }
  }
  EXPECT_GT(operations, 50u) << "the library's types are registered";
  EXPECT_GT(made, 10u) << made;
}

}  // namespace
