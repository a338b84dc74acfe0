// One rule record against one packet: the semantics Packet.h describes, field by field.
#include <algorithm>

#include "aclkit/agent/Packet.h"

namespace Agent {

using namespace Acl;

Packet Packet::ip(Ip4Addr src, Ip4Addr dst, U8 protocol) {
  Packet p;
  p.family = AclType::ip;
  p.src4 = src;
  p.dst4 = dst;
  p.protocol = protocol;
  return p;
}

Packet Packet::ip6(Ip6Addr src, Ip6Addr dst, U8 protocol) {
  Packet p;
  p.family = AclType::ipv6;
  p.src6 = src;
  p.dst6 = dst;
  p.protocol = protocol;
  return p;
}

Packet Packet::mac(MacAddr src, MacAddr dst, U16 ethertype) {
  Packet p;
  p.family = AclType::mac;
  p.srcMac = src;
  p.dstMac = dst;
  p.ethertype = ethertype;
  return p;
}

namespace {

constexpr U8 protocolIcmp = 1;
constexpr U8 protocolTcp = 6;
constexpr U8 protocolUdp = 17;
constexpr U8 protocolIcmp6 = 58;
constexpr U8 protocolSctp = 132;

template <class T>
bool masked(T have, T want, T mask) {
  return ((have ^ want) & mask) == 0;
}

bool compare(ValueOp op, unsigned have, unsigned low, unsigned high) {
  switch (op) {
    case ValueOp::any:
      return true;
    case ValueOp::eq:
      return have == low;
    case ValueOp::neq:
      return have != low;
    case ValueOp::lt:
      return have < low;
    case ValueOp::gt:
      return have > low;
    case ValueOp::range:
      return low <= have && have <= high;
  }
  return false;
}

bool inRange(const RangeMatch& match, U16 have) {
  return compare(match.op(), have, match.low(), match.high());
}

// A TTL or hop-limit kind holds one value: a range cannot be told from it, so matches nothing.
bool limitMatches(ValueOp kind, U8 want, U8 have) {
  return kind != ValueOp::range && compare(kind, have, want, 0);
}

bool vlanMatches(const std::optional<U16>& tag, U16 want, U16 mask) {
  if (mask == 0) return true;
  return tag.has_value() && masked<U16>(*tag, want, mask);
}

bool inPrefix(const Ip6Addr& have, const Ip6Addr& want, U8 length) {
  return have.network(length) == want.network(length);
}

// Deep-inspection fields the packet does not carry; see Packet.h.
bool usesUnmodelled(const IpFilterBase& f) {
  return f.usesGre() || f.usesTni() || f.usesVxlan() || f.usesVni() || f.usesGtp() || f.usesTeid() || f.usesUserL4() ||
         f.usesPayload();
}

// What IPv4 and IPv6 rules match alike; addresses and the TTL or hop limit are the caller's.
bool ipCommonMatches(const IpFilterBase& f, const Packet& p, U8 icmpProtocol) {
  if (usesUnmodelled(f)) return false;
  if (!masked(p.protocol, f.protocol(), f.protocolMask())) return false;
  if (f.srcPort().used() || f.dstPort().used()) {
    const bool hasPorts = p.protocol == protocolTcp || p.protocol == protocolUdp || p.protocol == protocolSctp;
    if (!hasPorts || !inRange(f.srcPort(), p.srcPort) || !inRange(f.dstPort(), p.dstPort)) return false;
  }
  if (f.usesTcpFlags() && (p.protocol != protocolTcp || !masked(p.tcpFlags, f.tcpFlags(), f.tcpFlagsMask()))) {
    return false;
  }
  if (f.icmpType() != IpFilterBase::icmpAny || f.icmpCode() != IpFilterBase::icmpAny) {
    if (p.protocol != icmpProtocol) return false;
    if (f.icmpType() != IpFilterBase::icmpAny && f.icmpType() != p.icmpType) return false;
    if (f.icmpCode() != IpFilterBase::icmpAny && f.icmpCode() != p.icmpCode) return false;
  }
  if (f.matchDscp() && !masked(p.dscp, f.dscp(), f.dscpMask())) return false;
  if (f.matchEcn() && p.ecn != f.ecn()) return false;
  if (!inRange(f.ipLength(), p.ipLength)) return false;
  if (!vlanMatches(p.outerVlan, f.outerVlan(), f.outerVlanMask())) return false;
  if (!vlanMatches(p.innerVlan, f.innerVlan(), f.innerVlanMask())) return false;
  return f.vrf().value().empty() || f.vrf() == p.vrf;
}

// Each entry of the map needs some label of the stack; a traffic-class match is not modelled.
bool mplsMatches(const MplsFilter& filter, const std::vector<U32>& stack) {
  for (const auto& [key, entry] : filter.labels()) {
    if (entry.tcMask() != 0) return false;
    const U32 want = entry.label();
    const U32 mask = entry.labelMask();
    const bool found =
        std::any_of(stack.begin(), stack.end(), [want, mask](U32 label) { return masked(label, want, mask); });
    if (!found) return false;
  }
  return true;
}

}  // namespace

bool matches(const IpRuleConfig& rule, const Packet& packet) {
  const IpFilter& f = rule.filter();
  if (f.tracked()) return false;
  if (!masked(packet.src4.value(), f.src().value(), f.srcMask().value())) return false;
  if (!masked(packet.dst4.value(), f.dst().value(), f.dstMask().value())) return false;
  if (!limitMatches(f.ttlKind(), f.ttl(), packet.ttl)) return false;
  if (!vlanMatches(packet.outerVlan, f.vlan(), f.vlanMask())) return false;
  return ipCommonMatches(f, packet, protocolIcmp);
}

bool matches(const Ip6RuleConfig& rule, const Packet& packet) {
  const Ip6Filter& f = rule.filter();
  if (!inPrefix(packet.src6, f.src(), f.srcPrefixLen())) return false;
  if (!inPrefix(packet.dst6, f.dst(), f.dstPrefixLen())) return false;
  if (!limitMatches(f.hopLimitKind(), f.hopLimit(), packet.ttl)) return false;
  return ipCommonMatches(f, packet, protocolIcmp6);
}

bool matches(const MacRuleConfig& rule, const Packet& packet) {
  const MacFilter& f = rule.filter();
  if (f.usesPayload()) return false;
  if (!masked(packet.srcMac.value(), f.src().value(), f.srcMask().value())) return false;
  if (!masked(packet.dstMac.value(), f.dst().value(), f.dstMask().value())) return false;
  if (!masked(packet.ethertype, f.ethertype(), f.ethertypeMask())) return false;
  if (!vlanMatches(packet.outerVlan, f.outerVlan(), f.outerVlanMask())) return false;
  if (!vlanMatches(packet.innerVlan, f.innerVlan(), f.innerVlanMask())) return false;
  const std::vector<U32>& stack = packet.mplsLabels;
  if (f.mplsLabel() != 0 && (stack.empty() || stack[0] != f.mplsLabel())) return false;
  if (f.mplsInnerLabel() != 0 && (stack.size() < 2 || stack[1] != f.mplsInnerLabel())) return false;
  return mplsMatches(f.mpls(), stack);
}

}  // namespace Agent
