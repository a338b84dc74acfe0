#include "platform/fwk/Record.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/fwk/Value.h"
#include "tests/support/SampleTypes.h"

namespace {

using sample::Match;
using sample::TaggedMatch;

TEST(RecordTest, RangedFieldsRejectOutOfRangeValuesWithExactMessages) {
  Match m;
  m.tniIs(16777215);
  EXPECT_EQ(m.tni(), 16777215u);
  try {
    m.tniIs(16777216);
    FAIL() << "no range error";
  } catch (const fwk::RangeError& e) {
    EXPECT_STREQ(e.what(), "Match::tni < 0 or > 16777215 not allowed");
  }
  EXPECT_EQ(m.tni(), 16777215u) << "a refused value must not be stored";
  TaggedMatch t;
  try {
    t.labelIs(0x100000);
    FAIL() << "no range error";
  } catch (const fwk::RangeError& e) {
    EXPECT_STREQ(e.what(), "TaggedMatch::label < 0 or > 0xFFFFF not allowed");
  }
}

// Equality, order and hash over every field are exercised on the ACL rule records.

TEST(RecordTest, ReflectionListsFieldsInOrderAndPrints) {
  const auto& fields = TaggedMatch::fwkFields();
  ASSERT_EQ(fields.size(), 5u);
  EXPECT_EQ(fields[0].name, "protocol");
  EXPECT_EQ(fields[2].name, "note");
  EXPECT_EQ(fields[3].name, "label");
  EXPECT_EQ(fields[4].type->name, "Match");
  TaggedMatch t;
  fields[3].set(&t, fwk::Value(std::uint32_t{12}));
  EXPECT_EQ(t.label(), 12u);
  EXPECT_THROW(fields[3].set(&t, fwk::Value(std::uint32_t{0x100000})), fwk::RangeError);
  EXPECT_EQ(fields[3].get(&t).as<std::uint32_t>(), 12u);
  std::ostringstream os;
  os << t;
  EXPECT_EQ(os.str(), "TaggedMatch{label=12}") << "only what differs from a default record";
  Match inner;
  inner.noteIs("n");
  t.innerIs(inner);
  os.str("");
  os << t;
  EXPECT_EQ(os.str(), "TaggedMatch{label=12, inner=Match{note=n}}");
}

}  // namespace
