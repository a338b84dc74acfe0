#include <gtest/gtest.h>

#include <set>
#include <unordered_set>

#include "platform/fwk/Hash.h"
#include "platform/fwk/String.h"

namespace {

using fwk::String;

TEST(StringTest, EmptyIsTheDefaultAndAllocatesNothing) {
  String a;
  String b("");
  EXPECT_TRUE(a.empty());
  EXPECT_EQ(a, b);
  EXPECT_STREQ(a.c_str(), "");
  EXPECT_EQ(a.hash(), b.hash());
}

TEST(StringTest, ComparesOrdersAndHashesByContent) {
  String a("acl1");
  String b(std::string("acl1"));
  String c("acl2");
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_NE(a, c);
  EXPECT_LT(a, c);
  EXPECT_LT(String("ab"), String("abc"));
  EXPECT_LT(String(), String("a"));
  EXPECT_EQ(a, "acl1");
  EXPECT_TRUE(a == std::string("acl1"));
  EXPECT_TRUE(std::string("acl2") != a);
  std::set<String> ordered{c, a, String("acl10")};
  EXPECT_EQ(*ordered.begin(), "acl1");
  EXPECT_EQ(*std::next(ordered.begin()), "acl10");
}

TEST(StringTest, CopiesShareAndOutliveTheOriginal) {
  String copy;
  {
    String original("a longer string that lives on the heap");
    copy = original;
    EXPECT_EQ(copy.c_str(), original.c_str());  // shared, not duplicated
  }
  EXPECT_EQ(copy, "a longer string that lives on the heap");
  String moved = std::move(copy);
  EXPECT_TRUE(copy.empty());
  EXPECT_EQ(moved.size(), 38u);
}

}  // namespace
