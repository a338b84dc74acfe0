#include "aclkit/text/internal/Names.h"

#include <algorithm>
#include <array>

#include "aclkit/text/AclText.h"

namespace Text::internal {

namespace {

// "ip" and "ipv6" (any protocol) are not here: they stand for protocol 0 with mask 0, which
// a table of exact values cannot say.
constexpr std::array ipProtocols{
    Name{"icmp", 1},  Name{"igmp", 2},  Name{"ipip", 4},   Name{"tcp", 6},    Name{"udp", 17},
    Name{"rsvp", 46}, Name{"gre", 47},  Name{"esp", 50},   Name{"ahp", 51},   Name{"ah", 51},
    Name{"ospf", 89}, Name{"pim", 103}, Name{"vrrp", 112}, Name{"l2tp", 115}, Name{"sctp", 132},
};
// An IPv6 list means ICMPv6 by "icmp" too.
constexpr std::array ip6Protocols{
    Name{"tcp", 6},   Name{"udp", 17},   Name{"rsvp", 46},   Name{"gre", 47},   Name{"esp", 50},
    Name{"ahp", 51},  Name{"ah", 51},    Name{"icmpv6", 58}, Name{"icmp", 58},  Name{"ospf", 89},
    Name{"pim", 103}, Name{"vrrp", 112}, Name{"l2tp", 115},  Name{"sctp", 132},
};
constexpr std::array ports{
    Name{"ftp-data", 20},  Name{"ftp", 21},    Name{"ssh", 22},      Name{"telnet", 23},        Name{"smtp", 25},
    Name{"domain", 53},    Name{"bootps", 67}, Name{"bootpc", 68},   Name{"tftp", 69},          Name{"www", 80},
    Name{"http", 80},      Name{"pop3", 110},  Name{"ntp", 123},     Name{"imap", 143},         Name{"snmp", 161},
    Name{"snmptrap", 162}, Name{"bgp", 179},   Name{"ldap", 389},    Name{"https", 443},        Name{"isakmp", 500},
    Name{"syslog", 514},   Name{"ldaps", 636}, Name{"radius", 1812}, Name{"radius-acct", 1813},
};
constexpr std::array icmpTypes{
    Name{"echo-reply", 0},
    Name{"unreachable", 3},
    Name{"source-quench", 4},
    Name{"redirect", 5},
    Name{"echo", 8},
    Name{"router-advertisement", 9},
    Name{"router-solicitation", 10},
    Name{"time-exceeded", 11},
    Name{"parameter-problem", 12},
    Name{"timestamp-request", 13},
    Name{"timestamp-reply", 14},
    Name{"mask-request", 17},
    Name{"mask-reply", 18},
};
constexpr std::array icmp6Types{
    Name{"unreachable", 1},
    Name{"packet-too-big", 2},
    Name{"time-exceeded", 3},
    Name{"parameter-problem", 4},
    Name{"echo", 128},
    Name{"echo-reply", 129},
    Name{"mld-query", 130},
    Name{"mld-report", 131},
    Name{"mld-done", 132},
    Name{"router-solicitation", 133},
    Name{"router-advertisement", 134},
    Name{"neighbor-solicitation", 135},
    Name{"neighbor-advertisement", 136},
    Name{"redirect", 137},
};
constexpr std::array dscps{
    Name{"default", 0}, Name{"cs0", 0},   Name{"cs1", 8},   Name{"af11", 10}, Name{"af12", 12}, Name{"af13", 14},
    Name{"cs2", 16},    Name{"af21", 18}, Name{"af22", 20}, Name{"af23", 22}, Name{"cs3", 24},  Name{"af31", 26},
    Name{"af32", 28},   Name{"af33", 30}, Name{"cs4", 32},  Name{"af41", 34}, Name{"af42", 36}, Name{"af43", 38},
    Name{"cs5", 40},    Name{"ef", 46},   Name{"cs6", 48},  Name{"cs7", 56},
};
constexpr std::array ethertypes{
    Name{"ipv4", 0x0800},
    Name{"ip", 0x0800},
    Name{"arp", 0x0806},
    Name{"rarp", 0x8035},
    Name{"vlan", 0x8100},
    Name{"ipv6", 0x86dd},
    Name{"lacp", 0x8809},
    Name{"mpls", 0x8847},
    Name{"mpls-multicast", 0x8848},
    Name{"pppoe-discovery", 0x8863},
    Name{"pppoe", 0x8864},
    Name{"eapol", 0x888e},
    Name{"qinq", 0x88a8},
    Name{"lldp", 0x88cc},
    Name{"macsec", 0x88e5},
    Name{"ptp", 0x88f7},
    Name{"fcoe", 0x8906},
};
constexpr std::array tcpFlags{
    Name{"fin", 0x001}, Name{"syn", 0x002}, Name{"rst", 0x004}, Name{"psh", 0x008}, Name{"ack", 0x010},
    Name{"urg", 0x020}, Name{"ece", 0x040}, Name{"cwr", 0x080}, Name{"ns", 0x100},
};

char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::span<const Name> ipProtocolNames() {
  return ipProtocols;
}
std::span<const Name> ip6ProtocolNames() {
  return ip6Protocols;
}
std::span<const Name> portNames() {
  return ports;
}
std::span<const Name> icmpTypeNames() {
  return icmpTypes;
}
std::span<const Name> icmp6TypeNames() {
  return icmp6Types;
}
std::span<const Name> dscpNames() {
  return dscps;
}
std::span<const Name> ethertypeNames() {
  return ethertypes;
}
std::span<const Name> tcpFlagNames() {
  return tcpFlags;
}

namespace {

struct KeywordHelp {
  std::string_view keyword;
  std::string_view help;
};
constexpr std::array keywordHelps{
    KeywordHelp{"permit", "let matching packets through"},
    KeywordHelp{"deny", "drop matching packets"},
    KeywordHelp{"remark", "a line of text between the entries"},
    KeywordHelp{"ip", "any IP protocol"},
    KeywordHelp{"ipv6", "any IPv6 protocol"},
    KeywordHelp{"mask", "which bits of the value are matched"},
    KeywordHelp{"any", "any address"},
    KeywordHelp{"host", "one address"},
    KeywordHelp{"eq", "equal to"},
    KeywordHelp{"neq", "not equal to"},
    KeywordHelp{"lt", "less than"},
    KeywordHelp{"gt", "greater than"},
    KeywordHelp{"range", "from a low value to a high one, both included"},
    KeywordHelp{"established", "TCP with ack set (a connection under way)"},
    KeywordHelp{"log", "log matching packets"},
    KeywordHelp{"mirror", "copy matching packets to a mirror session"},
    KeywordHelp{"copy-to-cpu", "copy matching packets to the CPU"},
    KeywordHelp{"count", "count matching packets"},
    KeywordHelp{"dscp", "match the DSCP value"},
    KeywordHelp{"ecn", "match the ECN bits"},
    KeywordHelp{"ttl", "match the time to live"},
    KeywordHelp{"hop-limit", "match the hop limit"},
    KeywordHelp{"ip-length", "match the IP packet length"},
    KeywordHelp{"vlan", "match the VLAN"},
    KeywordHelp{"outer-vlan", "match the outer VLAN tag"},
    KeywordHelp{"inner-vlan", "match the inner VLAN tag"},
    KeywordHelp{"ethertype", "match the ethertype"},
    KeywordHelp{"gre-proto", "match the GRE protocol type"},
    KeywordHelp{"nvgre", "match NVGRE (GRE protocol type 0x6558)"},
    KeywordHelp{"tni", "match the NVGRE tenant network identifier"},
    KeywordHelp{"vxlan", "match VXLAN packets"},
    KeywordHelp{"vni", "match the VXLAN network identifier"},
    KeywordHelp{"gtp", "match GTP packets"},
    KeywordHelp{"teid", "match the GTP tunnel endpoint identifier"},
    KeywordHelp{"user-l4", "match the first four bytes after the IP header"},
    KeywordHelp{"payload", "match bytes at an offset of the payload"},
    KeywordHelp{"alias", "a name for this payload element"},
    KeywordHelp{"own-pattern", "keep this element's pattern on update"},
    KeywordHelp{"own-mask", "keep this element's mask on update"},
    KeywordHelp{"mpls-label", "match the outermost MPLS label"},
    KeywordHelp{"mpls-inner-label", "match the inner MPLS label"},
    KeywordHelp{"mpls", "match an MPLS label anywhere in the stack"},
    KeywordHelp{"tc", "match the label's traffic class"},
    KeywordHelp{"tracked", "match packets of tracked connections"},
    KeywordHelp{"vrf", "match packets of a VRF"},
    KeywordHelp{"vacl", "apply as a VLAN ACL"},
};

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::ranges::equal(a, b, [](char x, char y) { return lower(x) == lower(y); });
}

std::optional<unsigned> valueOf(std::span<const Name> names, std::string_view word) noexcept {
  for (const Name& n : names) {
    if (equalsIgnoringCase(n.name, word)) return n.value;
  }
  return std::nullopt;
}

std::string_view nameOf(std::span<const Name> names, unsigned value) noexcept {
  for (const Name& n : names) {
    if (n.value == value) return n.name;
  }
  return {};
}

}  // namespace Text::internal

namespace Text {

std::optional<unsigned> valueNamed(Named kind, std::string_view name, Acl::AclType family) {
  using namespace internal;
  const bool ip6 = family == Acl::AclType::ipv6;
  switch (kind) {
    case Named::protocol:
      return valueOf(ip6 ? ip6ProtocolNames() : ipProtocolNames(), name);
    case Named::port:
      return valueOf(portNames(), name);
    case Named::icmpType:
      return valueOf(ip6 ? icmp6TypeNames() : icmpTypeNames(), name);
    case Named::dscp:
      return valueOf(dscpNames(), name);
    case Named::ethertype:
      return valueOf(ethertypeNames(), name);
    default:
      return valueOf(tcpFlagNames(), name);
  }
}

std::string_view keywordHelp(std::string_view keyword) noexcept {
  for (const internal::KeywordHelp& k : internal::keywordHelps) {
    if (internal::equalsIgnoringCase(k.keyword, keyword)) return k.help;
  }
  return {};
}

}  // namespace Text
