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
T upTo(T max) {
  return static_cast<T>(*gen::inRange<U64>(0, U64{max} + 1));
}

std::string word(std::size_t maxLength) {
  auto chars = gen::elementOf(std::string("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_."));
  return *gen::resize(static_cast<int>(maxLength), gen::nonEmpty(gen::container<std::string>(chars)));
}

RangeMatch anyRangeMatch() {
  switch (*gen::inRange(0, 3)) {
    case 0:
      return {};
    case 1:
      return {*gen::element(ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt), *gen::arbitrary<U16>()};
    default: {
      U16 a = *gen::arbitrary<U16>();
      U16 b = coin() ? a : *gen::arbitrary<U16>();  // one-value ranges too
      return {ValueOp::range, std::min(a, b), std::max(a, b)};
    }
  }
}

PayloadSpec anyPayload() {
  std::vector<PayloadValue> elements(*gen::inRange<std::size_t>(1, 4));
  for (PayloadValue& e : elements) {
    e.offsetIs(*gen::arbitrary<U16>());
    e.patternIs(*gen::arbitrary<U32>());
    e.maskIs(*gen::arbitrary<U32>());
    if (coin()) e.aliasIs(String(word(12)));
    e.ownPatternIs(coin());
    e.ownMaskIs(coin());
  }
  return PayloadSpec(payloadValueToOffsetPattern(static_cast<U16>(elements.size()), elements.data()));
}

template <class Rule>
void anyActions(Rule& rule) {
  rule.actionIs(*gen::element(RuleAction::permit, RuleAction::deny));
  rule.logIs(coin());
  if (coin()) rule.mirrorSessionIs(String(word(20)));
  rule.copyToCpuIs(coin());
  rule.countIs(coin());
}

// The matches IPv4 and IPv6 share; `icmp` is the family's ICMP protocol number.
void anyBaseMatches(IpFilterBase& f, U8 icmp) {
  switch (*gen::inRange(0, 4)) {
    case 0:
      break;  // any protocol
    case 1:
      f.protocolIs(*gen::arbitrary<U8>());
      f.protocolMaskIs(*gen::arbitrary<U8>());
      break;
    case 2:
      f.protocolIs(*gen::element<U8>(6, 17, 47, 51, 132, 250));
      f.protocolMaskIs(0xFF);
      break;
    default:
      f.protocolIs(icmp);
      f.protocolMaskIs(0xFF);
      if (coin()) f.icmpTypeIs(upTo<U16>(255));
      if (f.icmpType() != IpFilterBase::icmpAny && coin()) f.icmpCodeIs(upTo<U16>(255));
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
  if (coin()) {
    f.matchEcnIs(true);
    f.ecnIs(upTo<U8>(3));
  }
  f.ipLengthIs(anyRangeMatch());
  if (coin()) {
    f.outerVlanIs(upTo<U16>(4095));
    f.outerVlanMaskIs(upTo<U16>(4095));
  }
  if (coin()) {
    f.innerVlanIs(upTo<U16>(4095));
    f.innerVlanMaskIs(upTo<U16>(4095));
  }
  if (coin()) {
    f.greProtoIs(*gen::arbitrary<U16>());
    f.greProtoMaskIs(*gen::arbitrary<U16>());
  }
  if (coin()) f.tniIs(upTo<U32>(16777215));
  f.vxlanIs(coin());
  if (coin()) f.vniIs(upTo<U32>(16777215));
  f.gtpIs(coin());
  if (coin()) f.teidIs(*gen::arbitrary<U32>());
  if (coin()) {
    f.userL4Is(*gen::arbitrary<U32>());
    f.userL4MaskIs(*gen::arbitrary<U32>());
  }
  if (coin()) f.payloadIs(anyPayload());
  if (coin()) f.vrfIs(VrfName(String(word(VrfName::maxLength))));
}

U8 prefixLength(int bits) {
  return static_cast<U8>(*gen::inRange(0, bits + 1));
}

// any, host, a prefix or any other mask: every form a line has.
std::pair<Ip4Addr, Ip4Addr> anyIp4Match() {
  Ip4Addr addr(*gen::arbitrary<U32>());
  switch (*gen::inRange(0, 4)) {
    case 0:
      return {};
    case 1:
      return {addr, Ip4Addr(0xFFFFFFFF)};
    case 2: {
      U8 length = prefixLength(32);
      return {addr, Ip4Addr(length == 0 ? 0 : ~U32{0} << (32 - length))};
    }
    default:
      return {addr, Ip4Addr(*gen::arbitrary<U32>())};
  }
}

IpRuleConfig anyIpRule() {
  IpRuleConfig rule;
  IpFilter f;
  anyBaseMatches(f, 1);
  auto [src, srcMask] = anyIp4Match();
  auto [dst, dstMask] = anyIp4Match();
  f.srcIs(src);
  f.srcMaskIs(srcMask);
  f.dstIs(dst);
  f.dstMaskIs(dstMask);
  f.ttlKindIs(*gen::element(ValueOp::any, ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt));
  if (coin()) f.ttlIs(*gen::arbitrary<U8>());
  f.trackedIs(coin());
  if (coin()) {
    f.vlanIs(upTo<U16>(4095));
    f.vlanMaskIs(upTo<U16>(4095));
  }
  rule.filterIs(f);
  rule.vaclIs(coin());
  anyActions(rule);
  return rule;
}

Ip6RuleConfig anyIp6Rule() {
  Ip6RuleConfig rule;
  Ip6Filter f;
  anyBaseMatches(f, 58);
  for (bool source : {true, false}) {
    Ip6Addr addr(*gen::arbitrary<U64>(), *gen::arbitrary<U64>());
    U8 length = *gen::element<U8>(0, 128, prefixLength(128));
    if (length == 0 && coin()) addr = Ip6Addr();  // any
    if (source) {
      f.srcIs(addr);
      f.srcPrefixLenIs(length);
    } else {
      f.dstIs(addr);
      f.dstPrefixLenIs(length);
    }
  }
  // A hop limit may be non-zero with kind any: both must come back.
  f.hopLimitKindIs(*gen::element(ValueOp::any, ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt));
  if (coin()) f.hopLimitIs(*gen::arbitrary<U8>());
  rule.filterIs(f);
  anyActions(rule);
  return rule;
}

std::pair<MacAddr, MacAddr> anyMacMatch() {
  MacAddr addr(*gen::arbitrary<U64>());
  switch (*gen::inRange(0, 3)) {
    case 0:
      return {};
    case 1:
      return {addr, MacAddr(0xFFFFFFFFFFFFULL)};
    default:
      return {addr, MacAddr(*gen::arbitrary<U64>())};
  }
}

MacRuleConfig anyMacRule() {
  MacRuleConfig rule;
  MacFilter f;
  auto [src, srcMask] = anyMacMatch();
  auto [dst, dstMask] = anyMacMatch();
  f.srcIs(src);
  f.srcMaskIs(srcMask);
  f.dstIs(dst);
  f.dstMaskIs(dstMask);
  if (coin()) {
    f.ethertypeIs(*gen::arbitrary<U16>());
    f.ethertypeMaskIs(*gen::arbitrary<U16>());
  }
  if (coin()) {
    f.outerVlanIs(upTo<U16>(4095));
    f.outerVlanMaskIs(upTo<U16>(4095));
  }
  if (coin()) {
    f.innerVlanIs(upTo<U16>(4095));
    f.innerVlanMaskIs(upTo<U16>(4095));
  }
  if (coin()) f.mplsLabelIs(upTo<U32>(0xFFFFF));
  if (coin()) f.mplsInnerLabelIs(upTo<U32>(0xFFFFF));
  MplsFilter mpls;
  for (int i = *gen::inRange(0, 3); i > 0; --i) {
    MplsLabelFilter entry;
    entry.labelIs(upTo<U32>(0xFFFFF));
    entry.labelMaskIs(upTo<U32>(0xFFFFF));
    entry.tcIs(upTo<U8>(7));
    entry.tcMaskIs(upTo<U8>(7));
    mpls.labelIs(entry.label(), entry);
  }
  f.mplsIs(mpls);
  if (coin()) f.payloadIs(anyPayload());
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
  f.srcIs(src);
  f.srcMaskIs(srcMask);
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
