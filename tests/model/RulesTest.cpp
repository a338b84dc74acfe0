// The rule records: every field takes part in equality, order, hashing and text; a DSCP mask
// is a feature only with a DSCP match; payload elements read back from their text.
#include <gtest/gtest.h>

#include "aclkit/model/Rules.h"
#include "aclkit/platform/fwk/Strep.h"
#include "aclkit/platform/fwk/Value.h"
#include "tests/support/RecordProbe.h"

namespace {

using namespace Acl;
using fwk::strep;

// Changing any one field, however deep, must make a record unequal, ordered one way and (all
// but certainly) hash differently: a field forgotten in ==, < or hash shows here.
template <class Record>
void everyFieldCounts() {
  const fwk::ValueType& type = fwk::valueType<Record>();
  for (const probe::FieldPath& path : probe::leafFields(type)) {
    SCOPED_TRACE(type.name.str() + "." + probe::describe(path));
    fwk::Value changed{Record()};
    probe::perturb(changed, path);
    const Record a;
    const Record& b = changed.as<Record>();
    EXPECT_FALSE(a == b);
    EXPECT_NE(a < b, b < a);
    EXPECT_NE(a.hash(0), b.hash(0));
    EXPECT_NE(strep(a), strep(b)) << "the text form shows every field";
    const Record copy = b;
    EXPECT_TRUE(copy == b && !(copy < b) && copy.hash(7) == b.hash(7));
  }
}

TEST(RulesTest, EveryFieldTakesPartInEqualityOrderHashAndText) {
  everyFieldCounts<IpRuleConfig>();
  everyFieldCounts<Ip6RuleConfig>();
  everyFieldCounts<MacRuleConfig>();
  everyFieldCounts<RemarkConfig>();
  everyFieldCounts<PayloadValue>();
  EXPECT_GE(probe::leafFields(fwk::valueType<IpRuleConfig>()).size(), 50u);
}

// A DSCP mask is a feature only where the rule matches a DSCP: a platform without DSCP masks
// must still take a rule that leaves the DSCP alone, whatever its mask field holds.
TEST(RulesTest, ADscpMaskIsAFeatureOnlyWithADscpMatch) {
  IpFilter masked;
  masked.dscpMaskIs(7);
  EXPECT_FALSE(masked.usesDscpMask());
  masked.matchDscpIs(true);
  EXPECT_TRUE(masked.usesDscpMask());
}

TEST(RulesTest, RangesAndPayloadElementsReadBackFromTheirText) {
  EXPECT_EQ(strep(RangeMatch(ValueOp::range, 1024, 2047)), "range 1024 2047");
  EXPECT_EQ(RangeMatch::fwkParse("range 1024 2047"), RangeMatch(ValueOp::range, 1024, 2047));
  EXPECT_EQ(RangeMatch::fwkParse("any"), RangeMatch());
  EXPECT_THROW(RangeMatch::fwkParse("eq"), fwk::TypeConversionError);
  PayloadSpec spec(String("2,0x1234,0xffff,,pm 6,0x0,0x0,tunnelKey,"));
  EXPECT_EQ(spec.count(), 2);
  PayloadValue values[3];
  EXPECT_EQ(payloadSpecToValue(values, 3, spec), 2);
  EXPECT_EQ(std::tuple(values[0].offset(), values[0].pattern(), values[0].ownPattern(), values[0].ownMask()),
            std::tuple(U16{2}, U32{0x1234}, true, true));
  EXPECT_EQ(std::tuple(values[1].alias(), values[1].ownPattern(), values[1].ownMask()),
            std::tuple(String("tunnelKey"), false, false));
  EXPECT_EQ(PayloadSpec(payloadValueToOffsetPattern(2, values)), spec);
  EXPECT_EQ(payloadSpecToValue(values, 1, spec), 1) << "never more than asked for";
  EXPECT_EQ(payloadValueToOffsetPattern(0, values), "");
  for (const char* bad : {"2,0x1234", "x,0x1,0x1,,", "2,0x1,0x1,,q"})
    EXPECT_THROW(PayloadSpec(String(bad)), fwk::Error);
  EXPECT_FALSE(PayloadSpec().used());
  EXPECT_EQ(strep(RemarkConfig(String("deny telnet"))), "remark deny telnet");
}

}  // namespace
