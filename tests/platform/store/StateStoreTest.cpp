#include <gtest/gtest.h>

#include "aclkit/platform/store/StateStore.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Dir;
using fwk::Ptr;
using fwk::StateStore;
using sample::Node;

TEST(StateStoreTest, MountCreatesOnceAndFindsByPath) {
  StateStore store;
  Ptr<Node> config = store.mount<Node>(fwk::mountPoint::aclInputConfig);
  EXPECT_EQ(store.mount<Node>(fwk::mountPoint::aclInputConfig), config);
  EXPECT_EQ(config->fullName(), "/acl/input/config");
  EXPECT_EQ(store.find("acl/input/config"), config);
  EXPECT_TRUE(fwk::dynCast<Dir>(store.find("acl/input")));
  EXPECT_TRUE(config->hasNotificationActive());
  EXPECT_THROW(store.mount<Dir>(fwk::mountPoint::aclInputConfig), fwk::TypeConversionError);
  EXPECT_THROW(store.mount<Dir>(""), fwk::Error);
}

TEST(StateStoreTest, TheDefaultStoreIsShared) {
  Ptr<Dir> dp = StateStore::instance().mount<Dir>(fwk::mountPoint::aclStatusDpDir);
  EXPECT_EQ(StateStore::instance().find(fwk::mountPoint::aclStatusDpDir), dp);
  StateStore isolated;
  EXPECT_EQ(isolated.find(fwk::mountPoint::aclStatusDpDir), nullptr);
}

}  // namespace
