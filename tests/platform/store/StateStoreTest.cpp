#include <gtest/gtest.h>

#include "aclkit/platform/store/StateStore.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Dir;
using fwk::Ptr;
using fwk::StateStore;
using sample::Node;

TEST(StateStoreTest, MountCreatesOnceAndFindsByPathInItsOwnStore) {
  StateStore store;
  Ptr<Node> config = store.mount<Node>("acl/input/config");
  EXPECT_EQ(store.mount<Node>("acl/input/config"), config);
  EXPECT_EQ(config->fullName(), "/acl/input/config");
  EXPECT_EQ(store.find("acl/input/config"), config);
  EXPECT_TRUE(fwk::dynCast<Dir>(store.find("acl/input")));
  EXPECT_TRUE(config->hasNotificationActive());
  EXPECT_THROW(store.mount<Dir>("acl/input/config"), fwk::TypeConversionError);
  EXPECT_THROW(store.mount<Dir>(""), fwk::Error);
  // The default store is shared; this one is not it.
  Ptr<Dir> dp = StateStore::instance().mount<Dir>("acl/status/dp");
  EXPECT_EQ(StateStore::instance().find("acl/status/dp"), dp);
  EXPECT_EQ(store.find("acl/status/dp"), nullptr);
}

}  // namespace
