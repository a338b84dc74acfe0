#include "platform/fwk/Ptr.h"

#include <gtest/gtest.h>

namespace {

struct Counted : fwk::RefCounted {
  explicit Counted(int* destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++*destroyed_; }
  int* destroyed_;
};
struct Derived : Counted {
  using Counted::Counted;
};

TEST(PtrTest, CountsFollowCopiesMovesAndConversions) {
  int destroyed = 0;
  fwk::Ptr<Derived> a(new Derived(&destroyed));
  EXPECT_EQ(a->fwkReferences(), 1u);
  {
    fwk::Ptr<Counted> base = a;             // upcast copy
    fwk::Ptr<const Counted> readOnly = a;   // const view
    EXPECT_EQ(a->fwkReferences(), 3u);
    fwk::Ptr<Counted> moved = std::move(base);
    EXPECT_FALSE(base);
    EXPECT_EQ(a->fwkReferences(), 3u);
    EXPECT_TRUE(moved == a);
  }
  EXPECT_EQ(a->fwkReferences(), 1u);
  a = a;  // self-assignment must not free
  EXPECT_EQ(destroyed, 0);
  a = nullptr;
  EXPECT_EQ(destroyed, 1);
  fwk::Ptr<Counted> none;  // null is an ordinary value
  EXPECT_TRUE(none == nullptr);
  EXPECT_EQ(none.hash(), fwk::Ptr<Counted>().hash());
}

TEST(PtrTest, ReleaseHandsOverTheReference) {
  int destroyed = 0;
  fwk::Ptr<Counted> a(new Counted(&destroyed));
  Counted* raw = a.release();
  EXPECT_FALSE(a);
  EXPECT_EQ(raw->fwkReferences(), 1u);
  fwk::Ptr<Counted> adopted;
  adopted = fwk::Ptr<Counted>(raw);  // takes a second count
  raw->fwkUnref();                      // drop the released one
  EXPECT_EQ(destroyed, 0);
  adopted.reset();
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
