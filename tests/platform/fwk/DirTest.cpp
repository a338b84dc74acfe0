// Directories hold entities of any type under names, with a run-time type test, paths and
// parent links; the state store mounts each path once, in its own tree.
#include <gtest/gtest.h>

#include "aclkit/platform/fwk/Dir.h"
#include "aclkit/platform/store/StateStore.h"
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
  Ptr<Leaf> leaf = root->mkdir("sub")->entityIs<Leaf>("leaf", 9u);
  EXPECT_EQ(root->entityIs<Node>("node"), node) << "created once";
  EXPECT_THROW(root->entityIs<Leaf>("node", 1u), fwk::TypeConversionError);
  EXPECT_TRUE(fwk::dynCast<Dir>(root->entity("sub")) && !fwk::dynCast<Dir>(root->entity("node")));
  EXPECT_EQ(std::pair(leaf->fullName(), leaf->key()), std::pair(fwk::String("/sub/leaf"), 9u));
  EXPECT_EQ(root->lookup("/sub//leaf/"), leaf);
  EXPECT_EQ(std::pair(root->lookup("sub/none"), root->lookup("node/deeper")),
            std::pair(Ptr<fwk::Entity>(), Ptr<fwk::Entity>()))
      << "nothing there, and a non-directory has no path below it";

  Ptr<Dir> sub = fwk::cast<Dir>(root->entity("sub"));
  struct Watch : Dir::Reactor {
    using Dir::Reactor::Reactor;
    std::vector<std::string> seen;
    void entityChanged(const fwk::String& name) override { seen.push_back(name.str()); }
  } watch(sub.get());
  Ptr<Node> loose(new Node());
  sub->entityAttach("x", loose);
  EXPECT_EQ(std::pair(loose->parent(), loose->name()),
            std::pair(static_cast<fwk::Entity*>(sub.get()), fwk::String("x")));
  EXPECT_THROW(Ptr<Dir>(new Dir("o"))->entityAttach("y", loose), fwk::Error) << "one parent only";
  EXPECT_THROW(sub->entityAttach("z", nullptr), fwk::NullArgumentError);
  sub->entityDel("x");
  EXPECT_EQ(loose->parent(), nullptr);
  EXPECT_EQ(watch.seen, (std::vector<std::string>{"x", "x"}));
}

TEST(DirTest, TheStoreMountsEachPathOnceInItsOwnTree) {
  fwk::StateStore store;
  Ptr<Node> config = store.mount<Node>("acl/input/config/");
  EXPECT_TRUE(store.mount<Node>("acl/input/config") == config && config->fullName() == "/acl/input/config" &&
              config->hasNotificationActive());
  EXPECT_THROW(store.mount<Dir>("acl/input/config"), fwk::TypeConversionError);
  EXPECT_THROW(store.mount<Dir>("/"), fwk::Error) << "a path with no name";
  Ptr<Dir> dp = fwk::StateStore::instance().mount<Dir>("acl/status/dp");
  EXPECT_EQ(std::pair(fwk::StateStore::instance().find("acl/status/dp"), store.find("acl/status/dp")),
            std::pair(Ptr<fwk::Entity>(dp), Ptr<fwk::Entity>()))
      << "the default store is shared, and this one is not it";
}

}  // namespace
