#include "platform/fwk/Errors.h"

#include <gtest/gtest.h>

namespace {

enum ApiType { commit_, remove_ };
ApiType apiType() { return remove_; }

void requireCommit() { FWK_ASSERT(apiType() == commit_); }
void requireNonNull(const void* a) { FWK_ASSERT_TEXT(a != nullptr, "a"); }

TEST(ErrorsDeathTest, AssertionsAbortWithTheExactText) {
  EXPECT_DEATH(requireCommit(), "Assertion failed: apiType\\(\\) == commit_ \\(");
  EXPECT_DEATH(requireNonNull(nullptr), "Assertion failed: a \\(");
}

TEST(ErrorsTest, FrameworkErrorsAreStandardExceptions) {
  try {
    throw fwk::RangeError("x < 0 or > 1 not allowed");
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "x < 0 or > 1 not allowed");
  }
  EXPECT_THROW(throw fwk::NullArgumentError("n"), fwk::Error);
  EXPECT_THROW(throw fwk::EnumError("e"), fwk::Error);
  EXPECT_THROW(throw fwk::TypeConversionError("t"), fwk::Error);
}

}  // namespace
