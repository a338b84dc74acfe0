#include <gtest/gtest.h>

#include "aclkit/platform/fwk/Dir.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Dir;
using fwk::Ptr;
using sample::Leaf;
using sample::Node;

TEST(DirTest, HoldsChildrenOfAnyTypeWithARuntimeTypeTestAndTheirParentLinks) {
  Ptr<Dir> root(new Dir());
  root->hasNotificationActiveIs(true);
  Ptr<Node> node = root->entityIs<Node>("node");
  Ptr<Dir> sub = root->mkdir("sub");
  Ptr<Leaf> leaf = sub->entityIs<Leaf>("leaf", 9u);
  EXPECT_EQ(root->entityIs<Node>("node"), node) << "created once";
  EXPECT_THROW(root->entityIs<Leaf>("node", 1u), fwk::TypeConversionError);
  int nodes = 0;
  int dirs = 0;
  for (const auto& [name, child] : root->entity()) {
    nodes += fwk::dynCast<Node>(child) ? 1 : 0;
    dirs += fwk::dynCast<Dir>(child) ? 1 : 0;
  }
  EXPECT_EQ(nodes, 1);
  EXPECT_EQ(dirs, 1);
  EXPECT_EQ(leaf->fullName(), "/sub/leaf");
  EXPECT_EQ(leaf->key(), 9u);
  EXPECT_EQ(root->lookup("sub/leaf"), leaf);
  EXPECT_EQ(root->lookup("/sub//leaf/"), leaf);
  EXPECT_EQ(root->lookup("sub/none"), nullptr);
  EXPECT_EQ(root->lookup("node/deeper"), nullptr) << "a non-directory has no path below it";

  struct Watch : Dir::Reactor {
    using Dir::Reactor::Reactor;
    std::vector<std::string> seen;
    void entityChanged(const fwk::String& name) override { seen.push_back(name.str()); }
  } watch(sub.get());
  Ptr<Node> loose(new Node());
  sub->entityAttach("x", loose);
  EXPECT_EQ(loose->parent(), sub.get());
  EXPECT_EQ(loose->name(), "x");
  Ptr<Dir> other(new Dir("o"));
  EXPECT_THROW(other->entityAttach("y", loose), fwk::Error) << "one parent only";
  EXPECT_THROW(sub->entityAttach("z", nullptr), fwk::NullArgumentError);
  sub->entityDel("x");
  EXPECT_EQ(loose->parent(), nullptr);
  EXPECT_EQ(watch.seen, (std::vector<std::string>{"x", "x"}));
}

}  // namespace
