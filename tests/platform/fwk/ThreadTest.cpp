// What the thread-safe reference counts promise (see Ptr.h), run under the thread sanitizer:
// references copied and dropped on several threads at once, and a last reference dropped on
// a thread other than the one that built and used the object.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "tests/support/SampleTypes.h"
#include "tests/support/SessionWorld.h"

namespace {

using fwk::Ptr;

TEST(ThreadTest, ReferencesGoAndComeOnManyThreadsAndTheLastMayGoOnAnother) {
  build::SessionWorld world;
  Ptr<AclApi::ApiSm> session = world.session("web");
  ASSERT_EQ(session->addIpRule(10, build::ipRule(80)), AclApi::succeeded);
  Ptr<sample::Leaf> leaf(new sample::Leaf(1));
  const fwk::String name("shared across threads");
  const std::int64_t before = fwk::Entity::liveCount();
  std::vector<Ptr<sample::Leaf>> leaves;
  for (std::uint32_t i = 0; i < 2000; ++i) leaves.emplace_back(new sample::Leaf(i));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, held = session] {
      for (int i = 0; i < 2000; ++i) {
        Ptr<AclApi::ApiSm> copy = held;  // a session is used on one thread, held by others
        Ptr<const sample::Leaf> view = leaf;
        EXPECT_EQ(fwk::String(name), "shared across threads");
      }
    });
  }
  threads.emplace_back([&] { leaves.clear(); });  // the last references, elsewhere
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(leaf->fwkReferences(), 1u);
  EXPECT_EQ(fwk::Entity::liveCount(), before);
  EXPECT_EQ(session->commit(), AclApi::succeeded);
}

}  // namespace
