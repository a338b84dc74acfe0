#include <gtest/gtest.h>

#include "aclkit/model/Rules.h"
#include "aclkit/platform/fwk/Value.h"
#include "tests/support/RecordProbe.h"
#include "tests/support/Text.h"

namespace {

using namespace Acl;

using testtext::text;

// Changing any one field, however deep, must make a record unequal, ordered one way and
// (all but certainly) hash differently: a field forgotten in ==, < or hash shows here.
template <class Record>
void everyFieldCounts() {
  const fwk::ValueType& type = fwk::valueType<Record>();
  std::vector<probe::FieldPath> paths = probe::leafFields(type);
  ASSERT_FALSE(paths.empty());
  for (const probe::FieldPath& path : paths) {
    SCOPED_TRACE(type.name.str() + "." + probe::describe(path));
    fwk::Value changed{Record()};
    probe::perturb(changed, path);
    const Record a;
    const Record& b = changed.as<Record>();
    EXPECT_FALSE(a == b);
    EXPECT_NE(a < b, b < a);
    EXPECT_NE(a.hash(0), b.hash(0));
    EXPECT_NE(text(a), text(b)) << "the text form shows every field";
    Record copy = b;
    EXPECT_TRUE(copy == b);
    EXPECT_FALSE(copy < b || b < copy);
    EXPECT_EQ(copy.hash(7), b.hash(7));
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

TEST(RulesTest, DefaultsMatchEverythingAndUseNoFeature) {
  IpRuleConfig ip;
  EXPECT_EQ(ip.action(), RuleAction::permit);
  EXPECT_FALSE(ip.usesMirror());
  const IpFilter& f = ip.filter();
  EXPECT_EQ(f.protocolMask(), 0);
  EXPECT_EQ(f.srcMask(), Ip4Addr());
  EXPECT_FALSE(f.srcPort().used());
  EXPECT_FALSE(f.usesDscp() || f.usesDscpMask() || f.usesEcn() || f.usesIpLength() || f.usesOuterVlan() ||
               f.usesInnerVlan() || f.usesGre() || f.usesNvgre() || f.usesTni() || f.usesVxlan() || f.usesVni() ||
               f.usesGtp() || f.usesTeid() || f.usesUserL4() || f.usesPayload() || f.usesTcpFlags() ||
               f.usesTtlOption() || f.usesVlan() || f.tracked());
  EXPECT_EQ(static_cast<U32>(f.ttlKind()), 1u) << "the kind every platform supports";
  Ip6Filter f6;
  EXPECT_FALSE(f6.usesHopLimitOption() || f6.usesHopLimit() || f6.usesNvgre());
  MacFilter m;
  EXPECT_FALSE(m.usesMpls() || m.usesTwoMplsLabels() || m.usesOuterVlan() || m.usesPayload());
  EXPECT_EQ(text(IpRuleConfig()), "IpRuleConfig{}");
}

// Whole records' text forms are pinned field by field by the text tests.
TEST(RulesTest, TextFormsAreReadable) {
  EXPECT_EQ(text(RangeMatch(ValueOp::range, 1024, 2047)), "range 1024 2047");
  EXPECT_EQ(RangeMatch::fwkParse("range 1024 2047"), RangeMatch(ValueOp::range, 1024, 2047));
  EXPECT_EQ(RangeMatch::fwkParse("any"), RangeMatch());
  EXPECT_THROW(RangeMatch::fwkParse("eq"), fwk::TypeConversionError);
  EXPECT_EQ(text(RemarkConfig(String("deny telnet"))), "remark deny telnet");
}

TEST(RulesTest, PayloadElementsRoundTripThroughText) {
  PayloadSpec spec(String("2,0x1234,0xffff,,pm 6,0x0,0x0,tunnelKey,"));
  EXPECT_EQ(spec.count(), 2);
  PayloadValue values[3];
  EXPECT_EQ(payloadSpecToValue(values, 3, spec), 2);
  EXPECT_EQ(values[0].offset(), 2);
  EXPECT_EQ(values[0].pattern(), 0x1234u);
  EXPECT_TRUE(values[0].ownPattern() && values[0].ownMask());
  EXPECT_EQ(values[1].alias(), "tunnelKey");
  EXPECT_FALSE(values[1].ownPattern() || values[1].ownMask());
  EXPECT_EQ(PayloadSpec(payloadValueToOffsetPattern(2, values)), spec);
  EXPECT_EQ(payloadSpecToValue(values, 1, spec), 1) << "never more than asked for";
  EXPECT_EQ(payloadValueToOffsetPattern(0, values), "");
  EXPECT_THROW(PayloadSpec(String("2,0x1234")), fwk::Error);
  EXPECT_THROW(PayloadSpec(String("x,0x1,0x1,,")), fwk::Error);
  EXPECT_THROW(PayloadSpec(String("2,0x1,0x1,,q")), fwk::Error);
  EXPECT_FALSE(PayloadSpec().used());
}

}  // namespace
