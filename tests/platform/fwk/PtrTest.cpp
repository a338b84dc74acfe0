// Reference counting: what Ptr does with counts, and what it refuses to do. Entities live on
// the heap only; a counted reference is never made to an object nobody holds; debug builds
// catch a reference taken or dropped while an object is destroyed, and a delete behind the
// holders' backs.
#include <gtest/gtest.h>

#include <type_traits>
#include <unordered_set>

#include "aclkit/platform/fwk/Dir.h"
#include "aclkit/platform/session/EntityCopy.h"

namespace {

using fwk::Ptr;

// Heap-only by construction: these lines would not compile for an entity on the stack.
static_assert(!std::is_destructible_v<fwk::Dir>);
static_assert(!std::is_destructible_v<Cli::Session::EntityCopy>);
static_assert(fwk::NewableFrom<fwk::Dir, fwk::String>);

struct Counted : fwk::RefCounted {
  explicit Counted(int* destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++*destroyed_; }
  int* destroyed_;
};

TEST(PtrTest, CountsFollowCopiesMovesAndViews) {
  int destroyed = 0;
  Ptr<Counted> a(new Counted(&destroyed));
  EXPECT_EQ(a->fwkReferences(), 1u);
  {
    Ptr<Counted> copy = a;
    Ptr<const Counted> view = copy;  // a read-only view counts too
    EXPECT_EQ(a->fwkReferences(), 3u);
    Ptr<Counted> moved = std::move(copy);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(a->fwkReferences(), 3u) << "a move hands the reference on";
    EXPECT_EQ(moved, a);
    EXPECT_TRUE(view == a);
    std::unordered_set<Ptr<Counted>, fwk::Hash<Ptr<Counted>>> set{a, moved};
    EXPECT_EQ(set.size(), 1u) << "hashed and compared by identity";
  }
  EXPECT_EQ(a->fwkReferences(), 1u);
  a = a;  // NOLINT: self-assignment keeps the object
  EXPECT_EQ(destroyed, 0);
  Counted* raw = a.release();
  EXPECT_EQ(raw->fwkReferences(), 1u) << "release hands the reference to the caller";
  a = Ptr<Counted>(raw);
  raw->fwkUnref();
  a = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(PtrTest, AnObjectHandsOnReferencesToItselfOnlyWhenHeld) {
  Ptr<fwk::Dir> root(new fwk::Dir("root"));
  root->mkdir("a");
  EXPECT_EQ(root->lookup(""), root);
  EXPECT_TRUE(root->lookup("a"));
  EXPECT_EQ(root->fwkReferences(), 1u);
  EXPECT_DEATH(
      {
        fwk::Dir* loose = new fwk::Dir("loose");  // never adopted by a Ptr
        static_cast<void>(loose->lookup(""));
      },
      "a counted reference to an object nobody holds");
}

#ifndef NDEBUG
TEST(PtrDeathTest, DebugBuildsCatchCountsThatGoWrong) {
  int destroyed = 0;
  EXPECT_DEATH((new Counted(&destroyed))->fwkUnref(), "refs_ != 0") << "a release nobody took";
  EXPECT_DEATH(
      {
        struct Resurrecting : fwk::RefCounted {
          ~Resurrecting() override { Ptr<Resurrecting> again(this); }
        };
        Ptr<Resurrecting> doomed(new Resurrecting);
      },
      "refs_ != destroying");
  EXPECT_DEATH(
      {
        Counted* object = new Counted(&destroyed);
        Ptr<Counted> holder(object);
        delete object;
      },
      "refs_ == 0");
}
#endif

}  // namespace
