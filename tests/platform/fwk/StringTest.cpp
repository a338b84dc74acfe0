#include <gtest/gtest.h>

#include <set>
#include <unordered_set>

#include "aclkit/platform/fwk/Hash.h"
#include "aclkit/platform/fwk/String.h"

namespace {

using fwk::String;

TEST(StringTest, ComparesOrdersAndHashesByContentAndSharesItsBytes) {
  String a("acl1");
  String b(std::string("acl1"));
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_EQ(String().hash(), String("").hash());
  EXPECT_TRUE(a == std::string("acl1"));
  std::set<String> ordered{String("acl2"), a, String("acl10"), String()};
  EXPECT_EQ(*std::next(ordered.begin()), "acl1");
  EXPECT_EQ(*std::next(ordered.begin(), 2), "acl10");
  String copy;
  {
    String original("a longer string that lives on the heap");
    copy = original;
    EXPECT_EQ(copy.c_str(), original.c_str()) << "shared, not duplicated";
  }
  EXPECT_EQ(copy, "a longer string that lives on the heap");
}

}  // namespace
