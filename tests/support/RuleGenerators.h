// Rule records with every field in play, for properties over what lists can hold (inside a
// rapidcheck property): each field at its default often enough that short entries come up too.
#pragma once

#include <rapidcheck.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "aclkit/model/Rules.h"

namespace build::generate {

using namespace Acl;
namespace gen = rc::gen;

inline bool coin() {
  return *gen::arbitrary<bool>();
}
template <class T>
inline T upTo(U64 max) {
  return static_cast<T>(*gen::inRange<U64>(0, max + 1));
}
// The field's default half the time, so that lines with few clauses come up as well.
template <class T>
inline T sometimes(T value) {
  return coin() ? value : T{};
}
// A value and its mask, both anywhere up to `max`, or neither.
template <class T>
inline std::pair<T, T> anyMasked(U64 max) {
  return sometimes(std::pair<T, T>(upTo<T>(max), upTo<T>(max)));
}

// A word of 1 to maxLength name characters.
inline std::string word(std::size_t maxLength) {
  auto chars = gen::elementOf(std::string("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_."));
  std::string text = *gen::resize(static_cast<int>(maxLength), gen::nonEmpty(gen::container<std::string>(chars)));
  return text.substr(0, maxLength);  // the size bounds the length only loosely
}

inline RangeMatch anyRangeMatch() {
  U16 a = *gen::arbitrary<U16>();
  U16 b = coin() ? a : *gen::arbitrary<U16>();  // one-value ranges too
  ValueOp op = *gen::element(ValueOp::any, ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt, ValueOp::range);
  if (op == ValueOp::range) return {op, std::min(a, b), std::max(a, b)};
  return op == ValueOp::any ? RangeMatch() : RangeMatch(op, a);
}

inline ValueOp anyLimitKind() {
  return *gen::element(ValueOp::any, ValueOp::eq, ValueOp::neq, ValueOp::lt, ValueOp::gt);
}

inline PayloadSpec anyPayload() {
  std::vector<PayloadValue> elements(*gen::inRange<std::size_t>(0, 4));
  for (PayloadValue& e : elements) {
    e.offsetIs(*gen::arbitrary<U16>()), e.patternIs(*gen::arbitrary<U32>()), e.maskIs(*gen::arbitrary<U32>());
    e.aliasIs(sometimes(String(word(12)))), e.ownPatternIs(coin()), e.ownMaskIs(coin());
  }
  return PayloadSpec(payloadValueToOffsetPattern(static_cast<U16>(elements.size()), elements.data()));
}

template <class Rule>
inline Rule withActions(Rule rule) {
  rule.actionIs(*gen::element(RuleAction::permit, RuleAction::deny));
  rule.logIs(coin()), rule.copyToCpuIs(coin()), rule.countIs(coin());
  rule.mirrorSessionIs(sometimes(String(word(20))));
  return rule;
}

// The matches IPv4 and IPv6 share; `icmp` is the family's ICMP protocol number.
inline void anyBaseMatches(IpFilterBase& f, U8 icmp) {
  // Any protocol, any pair, a named protocol, or ICMP with a type and maybe a code.
  const U8 protocol = *gen::element<U8>(0, *gen::arbitrary<U8>(), *gen::element<U8>(6, 17, 47, 51, 132), icmp);
  f.protocolIs(protocol), f.protocolMaskIs(protocol == 0 ? U8{0} : *gen::element<U8>(0xFF, *gen::arbitrary<U8>()));
  if (protocol == icmp && f.protocolMask() == 0xFF && coin()) {
    f.icmpTypeIs(upTo<U16>(255));
    if (coin()) f.icmpCodeIs(upTo<U16>(255));
  }
  f.srcPortIs(anyRangeMatch()), f.dstPortIs(anyRangeMatch()), f.ipLengthIs(anyRangeMatch());
  f.tcpFlagsMaskIs(*gen::arbitrary<U16>() & 0x1FF), f.tcpFlagsIs(*gen::arbitrary<U16>() & f.tcpFlagsMask());
  if (coin()) f.matchDscpIs(true), f.dscpIs(upTo<U8>(63)), f.dscpMaskIs(upTo<U8>(63));
  if (coin()) f.matchEcnIs(true), f.ecnIs(upTo<U8>(3));
  auto [outer, outerMask] = anyMasked<U16>(4095);
  auto [inner, innerMask] = anyMasked<U16>(4095);
  auto [gre, greMask] = anyMasked<U16>(0xFFFF);
  auto [userL4, userL4Mask] = anyMasked<U32>(0xFFFFFFFF);
  f.outerVlanIs(outer), f.outerVlanMaskIs(outerMask), f.innerVlanIs(inner), f.innerVlanMaskIs(innerMask);
  f.greProtoIs(gre), f.greProtoMaskIs(greMask), f.userL4Is(userL4), f.userL4MaskIs(userL4Mask);
  f.tniIs(sometimes(upTo<U32>(16777215))), f.vniIs(sometimes(upTo<U32>(16777215))), f.vxlanIs(coin());
  f.teidIs(sometimes(*gen::arbitrary<U32>())), f.gtpIs(coin());
  f.payloadIs(anyPayload());
  f.vrfIs(VrfName(sometimes(String(word(VrfName::maxLength)))));
}

// any, host, a prefix, or any other mask: every form a line has. No address bit is set
// outside the mask, as no line can say that.
inline std::pair<Ip4Addr, Ip4Addr> anyIp4Match() {
  const U32 length = upTo<U32>(32);
  U32 mask = *gen::element<U32>(0xFFFFFFFF, length == 0 ? 0 : ~U32{0} << (32 - length), *gen::arbitrary<U32>());
  return sometimes(std::pair(Ip4Addr(*gen::arbitrary<U32>() & mask), Ip4Addr(mask)));
}

inline IpRuleConfig anyIpRule() {
  IpRuleConfig rule;
  IpFilter f;
  anyBaseMatches(f, 1);
  auto [src, srcMask] = anyIp4Match();
  auto [dst, dstMask] = anyIp4Match();
  auto [vlan, vlanMask] = anyMasked<U16>(4095);
  f.srcIs(src), f.srcMaskIs(srcMask), f.dstIs(dst), f.dstMaskIs(dstMask), f.vlanIs(vlan), f.vlanMaskIs(vlanMask);
  f.ttlKindIs(anyLimitKind()), f.ttlIs(sometimes(*gen::arbitrary<U8>())), f.trackedIs(coin());
  rule.filterIs(f), rule.vaclIs(coin());
  return withActions(rule);
}

inline Ip6RuleConfig anyIp6Rule() {
  Ip6RuleConfig rule;
  Ip6Filter f;
  anyBaseMatches(f, 58);
  // An address with nothing set past its prefix length.
  auto anyPrefix = [] {
    const unsigned length = *gen::element<U8>(0, 128, upTo<U8>(128));
    auto top = [](unsigned bits) { return bits >= 64 ? ~U64{0} : ~(~U64{0} >> bits); };
    const U64 high = *gen::arbitrary<U64>() & top(length);
    const U64 low = *gen::arbitrary<U64>() & top(length > 64 ? length - 64 : 0);
    return std::pair(sometimes(Ip6Addr(high, low)), static_cast<U8>(length));
  };
  auto [src, srcLength] = anyPrefix();
  auto [dst, dstLength] = anyPrefix();
  f.srcIs(src), f.dstIs(dst), f.srcPrefixLenIs(srcLength), f.dstPrefixLenIs(dstLength);
  // A hop limit may be non-zero with kind any: both must come back.
  f.hopLimitKindIs(anyLimitKind()), f.hopLimitIs(sometimes(*gen::arbitrary<U8>()));
  rule.filterIs(f);
  return withActions(rule);
}

inline MacRuleConfig anyMacRule() {
  MacRuleConfig rule;
  MacFilter f;
  auto anyMac = [] {
    const U64 mask = *gen::element<U64>(0xFFFFFFFFFFFF, *gen::arbitrary<U64>());
    return sometimes(std::pair(MacAddr(*gen::arbitrary<U64>()), MacAddr(mask)));
  };
  auto [src, srcMask] = anyMac();
  auto [dst, dstMask] = anyMac();
  auto [ethertype, ethertypeMask] = anyMasked<U16>(0xFFFF);
  auto [outer, outerMask] = anyMasked<U16>(4095);
  auto [inner, innerMask] = anyMasked<U16>(4095);
  f.srcIs(src), f.srcMaskIs(srcMask), f.dstIs(dst), f.dstMaskIs(dstMask);
  f.ethertypeIs(ethertype), f.ethertypeMaskIs(ethertypeMask);
  f.outerVlanIs(outer), f.outerVlanMaskIs(outerMask), f.innerVlanIs(inner), f.innerVlanMaskIs(innerMask);
  f.mplsLabelIs(sometimes(upTo<U32>(0xFFFFF))), f.mplsInnerLabelIs(sometimes(upTo<U32>(0xFFFFF)));
  MplsFilter mpls;
  for (int i = *gen::inRange(0, 3); i > 0; --i) {
    MplsLabelFilter entry;
    entry.labelIs(upTo<U32>(0xFFFFF)), entry.labelMaskIs(upTo<U32>(0xFFFFF));
    entry.tcIs(upTo<U8>(7)), entry.tcMaskIs(upTo<U8>(7));
    mpls.labelIs(entry.label(), entry);
  }
  f.mplsIs(mpls), f.payloadIs(anyPayload());
  rule.filterIs(f);
  return withActions(rule);
}

}  // namespace build::generate
