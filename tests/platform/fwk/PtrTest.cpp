// Reference counting: what Ptr does with counts, and what it refuses. Entities live on the heap
// only; a counted reference is never made to an object nobody holds; debug builds catch a
// reference taken or dropped while an object is destroyed, and a delete behind the holders'
// backs.
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

TEST(PtrTest, IdentityReleaseAndMisuse) {
  // Copies, moves and views are counted by every test that holds an entity; what only shows
  // here is identity hashing, self-assignment and release.
  int destroyed = 0;
  Ptr<Counted> a(new Counted(&destroyed));
  {
    const std::unordered_set<Ptr<Counted>, fwk::Hash<Ptr<Counted>>> set{a, Ptr<Counted>(a)};
    EXPECT_EQ(std::pair(set.size(), a->fwkReferences()), std::pair(std::size_t{1}, 2u)) << "hashed by identity";
  }
  Ptr<Counted>& alias = a;
  a = alias;  // self-assignment keeps the object
  Counted* raw = a.release();
  EXPECT_EQ(std::pair(raw->fwkReferences(), destroyed), std::pair(1u, 0)) << "release hands the reference over";
  raw->fwkUnref();
  EXPECT_EQ(destroyed, 1);

  Ptr<fwk::Dir> root(new fwk::Dir("root"));
  EXPECT_EQ(root->lookup(""), root) << "an object held by a Ptr hands out references to itself";
  EXPECT_DEATH(static_cast<void>((new fwk::Dir("loose"))->lookup("")), "a counted reference to an object nobody holds");
#ifndef NDEBUG
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
#endif
}

}  // namespace
