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
using fwk::String;

constexpr int kThreads = 4;
constexpr int kRounds = 2000;

template <class Work>
void onThreads(Work work) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
}

TEST(ThreadTest, ReferencesAreCopiedAndDroppedOnManyThreadsAtOnce) {
  Ptr<sample::Leaf> leaf(new sample::Leaf(1));
  const String name("shared across threads");
  const std::uint32_t leafRefs = leaf->fwkReferences();
  onThreads([&] {
    for (int i = 0; i < kRounds; ++i) {
      Ptr<sample::Leaf> copy = leaf;
      Ptr<const sample::Leaf> view = copy;
      String text = name;
      EXPECT_EQ(text, "shared across threads");
    }
  });
  EXPECT_EQ(leaf->fwkReferences(), leafRefs);
}

TEST(ThreadTest, TheLastReferenceMayGoOnAnotherThread) {
  const std::int64_t before = fwk::Entity::liveCount();
  std::vector<Ptr<sample::Leaf>> leaves;
  for (int i = 0; i < kRounds; ++i) leaves.emplace_back(new sample::Leaf(i));
  std::vector<String> texts(leaves.size(), String("dropped elsewhere"));
  std::thread dropper([&] {
    leaves.clear();
    texts.clear();
  });
  dropper.join();
  EXPECT_EQ(fwk::Entity::liveCount(), before);

  // A session is used on the framework's thread; others only hold and drop references to it
  // while it lives there.
  build::SessionWorld world;
  Ptr<AclApi::ApiSm> session = world.session("web");
  ASSERT_EQ(session->addIpRule(10, build::ipRule(80)), AclApi::succeeded);
  onThreads([held = session] {
    for (int i = 0; i < kRounds; ++i) Ptr<AclApi::ApiSm> copy = held;
  });
  EXPECT_EQ(session->commit(), AclApi::succeeded);
}

}  // namespace
