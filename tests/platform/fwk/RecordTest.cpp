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

TEST(RecordTest, EqualityOrderAndHashAgree) {
  Match a;
  a.protocolIs(6);
  a.noteIs("x");
  Match b = a;
  EXPECT_EQ(a, b);
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_EQ(a.hash(3), b.hash(3));
  EXPECT_NE(a.hash(3), a.hash(4)) << "the seed must take part";
  b.noteIs("y");
  EXPECT_NE(a, b);
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  // The first differing field decides, in declaration order.
  Match c = a;
  c.protocolIs(5);
  c.noteIs("z");
  EXPECT_TRUE(c < a);
}

TEST(RecordTest, DerivedRecordsCompareBaseFieldsToo) {
  TaggedMatch a;
  TaggedMatch b;
  b.protocolIs(1);  // a base field
  EXPECT_NE(a, b);
  EXPECT_TRUE(a < b);
  Match inner;
  inner.noteIs("n");
  b = a;
  b.innerIs(inner);  // a nested record
  EXPECT_NE(a, b);
  EXPECT_NE(a.hash(), b.hash());
}

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
