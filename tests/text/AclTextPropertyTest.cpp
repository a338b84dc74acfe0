// Every well-formed record of each family, with every field in play, reads back from its line
// as itself; and the generators here really do put every field of the records in play.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "aclkit/text/AclText.h"
#include "tests/support/RecordProbe.h"

namespace {

using namespace Acl;
namespace gen = rc::gen;

// Reproducible by default: a fixed seed and case count unless RC_PARAMS says otherwise.
const bool defaultParams = [] { return setenv("RC_PARAMS", ACLKIT_TEXT_PROPERTY_PARAMS, /*overwrite=*/0) == 0; }();

bool coin() {
  return *gen::arbitrary<bool>();
}

template <class T>
T upTo(U64 max) {
  return static_cast<T>(*gen::inRange<U64>(0, max + 1));
}
// The field's default half the time, so that lines with few clauses come up as well.
template <class T>
T sometimes(T value) {
  return coin() ? value : T{};
}
// A value and its mask, both anywhere up to `max`, or neither.
template <class T>
std::pair<T, T> anyMasked(U64 max) {
  return sometimes(std::pair<T, T>(upTo<T>(max), upTo<T>(max)));
}

std::string word(std::size_t maxLength) {
  auto chars = gen::elementOf(std::string("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_."));
  return *gen::resize(static_cast<int>(maxLength), gen::nonEmpty(gen::container<std::string>(chars)));
}

RangeMatch anyRangeMatch() {
  U16 a = *gen::arbitrary<U16>();
  U16 b = coin() ? a : *gen::arbitrary<U16>();  // one-value ranges too
  ValueOp op = *gen::element(ValueOp::any, ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt, ValueOp::range);
  if (op == ValueOp::range) return {op, std::min(a, b), std::max(a, b)};
  return op == ValueOp::any ? RangeMatch() : RangeMatch(op, a);
}

PayloadSpec anyPayload() {
  std::vector<PayloadValue> elements(*gen::inRange<std::size_t>(0, 4));
  for (PayloadValue& e : elements) {
    e.offsetIs(*gen::arbitrary<U16>());
    e.patternIs(*gen::arbitrary<U32>());
    e.maskIs(*gen::arbitrary<U32>());
    e.aliasIs(sometimes(String(word(12))));
    e.ownPatternIs(coin());
    e.ownMaskIs(coin());
  }
  return PayloadSpec(payloadValueToOffsetPattern(static_cast<U16>(elements.size()), elements.data()));
}

void anyActions(RuleConfig& rule) {
  rule.actionIs(*gen::element(RuleAction::permit, RuleAction::deny));
  rule.logIs(coin());
  rule.mirrorSessionIs(sometimes(String(word(20))));
  rule.copyToCpuIs(coin());
  rule.countIs(coin());
}

ValueOp anyLimitKind() {
  return *gen::element(ValueOp::any, ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt);
}

// The matches IPv4 and IPv6 share; `icmp` is the family's ICMP protocol number.
void anyBaseMatches(IpFilterBase& f, U8 icmp) {
  // Any protocol, any pair, a named protocol, or ICMP with a type and maybe a code.
  U8 protocol = *gen::element<U8>(0, *gen::arbitrary<U8>(), *gen::element<U8>(6, 17, 47, 51, 132), icmp);
  f.protocolIs(protocol);
  f.protocolMaskIs(protocol == 0 ? U8{0} : *gen::element<U8>(0xFF, *gen::arbitrary<U8>()));
  if (protocol == icmp && f.protocolMask() == 0xFF && coin()) {
    f.icmpTypeIs(upTo<U16>(255));
    if (coin()) f.icmpCodeIs(upTo<U16>(255));
  }
  f.srcPortIs(anyRangeMatch());
  f.dstPortIs(anyRangeMatch());
  f.tcpFlagsMaskIs(*gen::arbitrary<U16>() & 0x1FF);
  f.tcpFlagsIs(*gen::arbitrary<U16>() & f.tcpFlagsMask());
  if (coin()) {
    f.matchDscpIs(true);
    f.dscpIs(upTo<U8>(63));
    f.dscpMaskIs(upTo<U8>(63));
  }
  f.matchEcnIs(coin());
  if (f.matchEcn()) f.ecnIs(upTo<U8>(3));
  f.ipLengthIs(anyRangeMatch());
  auto [outer, outerMask] = anyMasked<U16>(4095);
  auto [inner, innerMask] = anyMasked<U16>(4095);
  auto [gre, greMask] = anyMasked<U16>(0xFFFF);
  auto [userL4, userL4Mask] = anyMasked<U32>(0xFFFFFFFF);
  f.outerVlanIs(outer), f.outerVlanMaskIs(outerMask), f.innerVlanIs(inner), f.innerVlanMaskIs(innerMask);
  f.greProtoIs(gre), f.greProtoMaskIs(greMask), f.userL4Is(userL4), f.userL4MaskIs(userL4Mask);
  f.tniIs(sometimes(upTo<U32>(16777215)));
  f.vxlanIs(coin());
  f.vniIs(sometimes(upTo<U32>(16777215)));
  f.gtpIs(coin());
  f.teidIs(sometimes(*gen::arbitrary<U32>()));
  f.payloadIs(anyPayload());
  f.vrfIs(VrfName(sometimes(String(word(VrfName::maxLength)))));
}

// any, host, a prefix, or any other mask: every form a line has.
std::pair<Ip4Addr, Ip4Addr> anyIp4Match() {
  U32 length = upTo<U32>(32);
  U32 mask = *gen::element<U32>(0xFFFFFFFF, length == 0 ? 0 : ~U32{0} << (32 - length), *gen::arbitrary<U32>());
  return sometimes(std::pair(Ip4Addr(*gen::arbitrary<U32>()), Ip4Addr(mask)));
}

IpRuleConfig anyIpRule() {
  IpRuleConfig rule;
  IpFilter f;
  anyBaseMatches(f, 1);
  auto [src, srcMask] = anyIp4Match();
  auto [dst, dstMask] = anyIp4Match();
  auto [vlan, vlanMask] = anyMasked<U16>(4095);
  f.srcIs(src), f.srcMaskIs(srcMask), f.dstIs(dst), f.dstMaskIs(dstMask), f.vlanIs(vlan), f.vlanMaskIs(vlanMask);
  f.ttlKindIs(anyLimitKind());
  f.ttlIs(sometimes(*gen::arbitrary<U8>()));
  f.trackedIs(coin());
  rule.filterIs(f);
  rule.vaclIs(coin());
  anyActions(rule);
  return rule;
}

Ip6RuleConfig anyIp6Rule() {
  Ip6RuleConfig rule;
  Ip6Filter f;
  anyBaseMatches(f, 58);
  auto anyIp6 = [] { return sometimes(Ip6Addr(*gen::arbitrary<U64>(), *gen::arbitrary<U64>())); };
  f.srcIs(anyIp6()), f.dstIs(anyIp6());
  f.srcPrefixLenIs(*gen::element<U8>(0, 128, upTo<U8>(128)));
  f.dstPrefixLenIs(*gen::element<U8>(0, 128, upTo<U8>(128)));
  // A hop limit may be non-zero with kind any: both must come back.
  f.hopLimitKindIs(anyLimitKind());
  f.hopLimitIs(sometimes(*gen::arbitrary<U8>()));
  rule.filterIs(f);
  anyActions(rule);
  return rule;
}

std::pair<MacAddr, MacAddr> anyMacMatch() {
  U64 mask = *gen::element<U64>(0xFFFFFFFFFFFF, *gen::arbitrary<U64>());
  return sometimes(std::pair(MacAddr(*gen::arbitrary<U64>()), MacAddr(mask)));
}

MacRuleConfig anyMacRule() {
  MacRuleConfig rule;
  MacFilter f;
  auto [src, srcMask] = anyMacMatch();
  auto [dst, dstMask] = anyMacMatch();
  auto [ethertype, ethertypeMask] = anyMasked<U16>(0xFFFF);
  auto [outer, outerMask] = anyMasked<U16>(4095);
  auto [inner, innerMask] = anyMasked<U16>(4095);
  f.srcIs(src), f.srcMaskIs(srcMask), f.dstIs(dst), f.dstMaskIs(dstMask);
  f.ethertypeIs(ethertype), f.ethertypeMaskIs(ethertypeMask);
  f.outerVlanIs(outer), f.outerVlanMaskIs(outerMask), f.innerVlanIs(inner), f.innerVlanMaskIs(innerMask);
  f.mplsLabelIs(sometimes(upTo<U32>(0xFFFFF)));
  f.mplsInnerLabelIs(sometimes(upTo<U32>(0xFFFFF)));
  MplsFilter mpls;
  for (int i = *gen::inRange(0, 3); i > 0; --i) {
    MplsLabelFilter entry;
    entry.labelIs(upTo<U32>(0xFFFFF)), entry.labelMaskIs(upTo<U32>(0xFFFFF));
    entry.tcIs(upTo<U8>(7)), entry.tcMaskIs(upTo<U8>(7));
    mpls.labelIs(entry.label(), entry);
  }
  f.mplsIs(mpls);
  f.payloadIs(anyPayload());
  rule.filterIs(f);
  anyActions(rule);
  return rule;
}

std::optional<U32> anySequence() {
  return coin() ? std::optional<U32>(*gen::arbitrary<U32>()) : std::nullopt;
}

template <class Rule>
void readsBackAsItself(Rule (*anyRule)(), AclType type) {
  Text::Entry entry{anySequence(), anyRule()};
  std::string line = Text::format(entry);
  RC_LOG() << line << "\n";
  RC_ASSERT(Text::parse(line, type) == entry);
}

RC_GTEST_PROP(AclTextPropertyTest, Ip4RuleReadsBackAsItself, ()) {
  readsBackAsItself(anyIpRule, AclType::ip);
}
RC_GTEST_PROP(AclTextPropertyTest, Ip6RuleReadsBackAsItself, ()) {
  readsBackAsItself(anyIp6Rule, AclType::ipv6);
}
RC_GTEST_PROP(AclTextPropertyTest, MacRuleReadsBackAsItself, ()) {
  readsBackAsItself(anyMacRule, AclType::mac);
}

RC_GTEST_PROP(AclTextPropertyTest, StandardRuleAndRemarkReadBackAsThemselves, ()) {
  IpRuleConfig rule;
  IpFilter f;
  auto [src, srcMask] = anyIp4Match();
  f.srcIs(src), f.srcMaskIs(srcMask);
  rule.filterIs(f);
  anyActions(rule);
  Text::Entry standard{anySequence(), rule};
  RC_ASSERT(Text::parse(Text::format(standard, true), AclType::ip, true) == standard);

  // Any single-line text, leading and doubled blanks included.
  auto printable = gen::map(gen::inRange(32, 127), [](int c) { return static_cast<char>(c); });
  Text::Entry remark{anySequence(), RemarkConfig(String(*gen::container<std::string>(printable)))};
  RC_ASSERT(Text::parse(Text::format(remark), *gen::element(AclType::ip, AclType::ipv6, AclType::mac)) == remark);
}

// The field at `path` of `record`, as text.
std::string fieldText(const fwk::Value& record, const probe::FieldPath& path) {
  fwk::Value value = record;
  for (const fwk::FieldInfo* field : path) value = field->get(value.data());
  return value.strep();
}

// A field the generators never change would pass the properties untested: each must differ
// from its default in some generated record.
template <class Rule>
void everyFieldVaries(Rule (*anyRule)()) {
  std::vector<fwk::Value> samples;
  rc::Random random(20261123);
  for (int i = 0; i < 400; ++i) samples.emplace_back(gen::exec(anyRule)(random.split(), rc::kNominalSize).value());
  const fwk::Value defaults{Rule()};
  for (const probe::FieldPath& path : probe::leafFields(fwk::valueType<Rule>())) {
    std::string def = fieldText(defaults, path);
    bool varies = std::ranges::any_of(samples, [&](const fwk::Value& s) { return fieldText(s, path) != def; });
    EXPECT_TRUE(varies) << fwk::valueType<Rule>().name << "." << probe::describe(path);
  }
}

TEST(AclTextPropertyTest, GeneratorsPutEveryFieldInPlay) {
  everyFieldVaries(anyIpRule);
  everyFieldVaries(anyIp6Rule);
  everyFieldVaries(anyMacRule);
}

}  // namespace
