// What the packet check reads of a packet, and whether one rule record matches it.
//
//   Agent::Packet p = Agent::Packet::ip(Acl::Ip4Addr::fwkParse("198.51.100.7"),
//                                       Acl::Ip4Addr::fwkParse("192.0.2.1"), 6);
//   p.dstPort = 443;
//   Agent::matches(rule, p);    // rule: an Acl::IpRuleConfig
//
// A packet carries the fields of every family; a check reads those of the family it is made
// for (the source and destination pair of that family, then the rest). A field left at its
// default reads as that value: a packet with no VLAN tag has no outer or inner VLAN.
//
// How each record field is matched:
//   - addresses under their mask (IPv4, MAC) or prefix length (IPv6); a mask or length of 0
//     matches any address;
//   - the protocol, DSCP (only when matchDscp), TCP flags, ethertype and VLANs under their
//     masks: a mask of 0 matches anything, except that a VLAN mask other than 0 needs a tag;
//     the IPv4 rule's `vlan` is matched against the outer tag;
//   - ports and the IP length by their RangeMatch operator (eq, neq, lt, gt, range; any);
//     ports exist only for TCP, UDP and SCTP, flags only for TCP, ICMP types and codes only
//     for ICMP (IPv4) or ICMPv6 (IPv6), so a rule matching one of them never matches a packet
//     of another protocol;
//   - ECN exactly, when matchEcn; the TTL or hop limit by its kind (any matches all; eq,
//     neq, lt and gt compare; range, having one value only, matches nothing);
//   - the VRF by name, when the rule names one;
//   - MAC rules: mplsLabel and mplsInnerLabel are the first and second labels of the
//     stack; each entry of the `mpls` map needs a label of the stack equal under its mask.
// Not modelled: a rule that matches on a field the packet here does not carry never matches,
// as an ordinary packet does not carry it either. These are GRE protocol types, TNI, VXLAN,
// VNI, GTP, TEID, user-defined L4 fields, payload, MPLS traffic classes, and connection
// tracking (`tracked`). `vacl` is ignored: the check does not tell bridged from routed
// traffic, so a rule for bridged traffic matches like any other.
#pragma once

#include <optional>
#include <vector>

#include "aclkit/model/Rules.h"

namespace Agent {

using Acl::U16;
using Acl::U32;
using Acl::U8;

struct Packet {
  Acl::AclType family = Acl::AclType::ip;

  // The addresses of each family; only those of `family` are read.
  Acl::Ip4Addr src4;
  Acl::Ip4Addr dst4;
  Acl::Ip6Addr src6;
  Acl::Ip6Addr dst6;
  Acl::MacAddr srcMac;
  Acl::MacAddr dstMac;

  // IPv4 and IPv6.
  U8 protocol = 0;
  U16 srcPort = 0;   // TCP, UDP and SCTP
  U16 dstPort = 0;   // TCP, UDP and SCTP
  U16 tcpFlags = 0;  // the nine flag bits: fin 0x1, syn 0x2, rst 0x4, psh 0x8, ack 0x10, ...
  U8 icmpType = 0;   // ICMP (IPv4) or ICMPv6 (IPv6)
  U8 icmpCode = 0;
  U8 dscp = 0;
  U8 ecn = 0;
  U8 ttl = 64;  // the TTL, or the hop limit of an IPv6 packet
  U16 ipLength = 0;
  Acl::VrfName vrf;

  // Every family: the 802.1Q tags, absent on an untagged packet.
  std::optional<U16> outerVlan;
  std::optional<U16> innerVlan;

  // MAC.
  U16 ethertype = 0;
  std::vector<U32> mplsLabels;  // the label stack, outermost first

  static Packet ip(Acl::Ip4Addr src, Acl::Ip4Addr dst, U8 protocol = 0);
  static Packet ip6(Acl::Ip6Addr src, Acl::Ip6Addr dst, U8 protocol = 0);
  static Packet mac(Acl::MacAddr src, Acl::MacAddr dst, U16 ethertype = 0);
};

// Whether the rule's filter matches the packet (its action is not consulted).
[[nodiscard]] bool matches(const Acl::IpRuleConfig& rule, const Packet& packet);
[[nodiscard]] bool matches(const Acl::Ip6RuleConfig& rule, const Packet& packet);
[[nodiscard]] bool matches(const Acl::MacRuleConfig& rule, const Packet& packet);

}  // namespace Agent
