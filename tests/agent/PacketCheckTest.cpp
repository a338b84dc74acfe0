#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aclkit/agent/Dataplane.h"
#include "aclkit/model/Family.h"
#include "aclkit/text/AclText.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace Acl;
using Agent::Packet;

constexpr RuleAction P = RuleAction::permit;
constexpr RuleAction D = RuleAction::deny;
const IntfId eth1(String("Ethernet1"));

Packet v4(const char* src, const char* dst, U8 protocol, U16 dstPort = 0) {
  Packet p = Packet::ip(Ip4Addr::fwkParse(src), Ip4Addr::fwkParse(dst), protocol);
  return p.dstPort = dstPort, p;
}
Packet v6(const char* src, const char* dst, U8 protocol, U16 dstPort = 0) {
  Packet p = Packet::ip6(Ip6Addr::fwkParse(src), Ip6Addr::fwkParse(dst), protocol);
  return p.dstPort = dstPort, p;
}
Packet mac(const char* src, const char* dst, U16 ethertype) {
  return Packet::mac(MacAddr::fwkParse(src), MacAddr::fwkParse(dst), ethertype);
}
Packet labelled(std::vector<U32> stack) {
  Packet p = mac("00:00:5e:00:53:02", "00:00:5e:00:53:77", 0x8847);
  return p.mplsLabels = std::move(stack), p;
}
template <class Edit>
Packet with(Packet p, Edit edit) {
  return edit(p), p;
}

struct Check {
  Packet packet;
  U32 sequence;  // 0: the implicit deny
  RuleAction action;
};
struct Case {
  AclType type;
  std::vector<const char*> lines;
  std::vector<Check> checks;
};

// One list per family, bound to Ethernet1 inbound; each packet names the entry it must hit
// first. A gre-proto, tracked or mpls tc match is not modelled, so it matches no packet.
TEST(PacketCheckTest, EachPacketHitsTheFirstEntryThatMatchesOrTheImplicitDeny) {
  const Case cases[] = {
      {AclType::ip,
       {"10 deny tcp any host 192.0.2.1 eq 22", "20 permit tcp 10.0.0.0/8 192.0.2.0/24 range 80 443 syn",
        "30 permit udp any any eq 53 vrf blue", "40 deny icmp any any 8 0",
        "50 permit ip 198.51.100.0/24 any dscp 46 ttl gt 10", "60 permit tcp any any neq 8080 outer-vlan 100",
        "65 permit tcp mask 0xf0 any any eq 0",  // protocols 0 to 15, but ICMP has no ports
        "70 deny ip any any gre-proto 0x6558", "75 deny ip any any tracked",
        "80 permit ip 10.0.0.3 0.255.255.0 any ip-length lt 100 ecn 1"},
       {{v4("10.1.1.1", "192.0.2.1", 6, 22), 10, D},
        {with(v4("10.1.1.1", "192.0.2.9", 6, 443), [](Packet& p) { p.tcpFlags = 0x12; }), 20, P},
        {with(v4("10.1.1.1", "192.0.2.9", 6, 443), [](Packet& p) { p.tcpFlags = 0x10; }), 0, D},
        {with(v4("10.1.1.1", "192.0.2.9", 6, 444), [](Packet& p) { p.tcpFlags = 0x02; }), 0, D},
        {with(v4("203.0.113.5", "192.0.2.9", 17, 53), [](Packet& p) { p.vrf = VrfName(String("blue")); }), 30, P},
        {with(v4("203.0.113.5", "192.0.2.9", 17, 53), [](Packet& p) { p.vrf = VrfName(String("red")); }), 0, D},
        {with(v4("203.0.113.5", "192.0.2.9", 1), [](Packet& p) { p.icmpType = 8; }), 40, D},
        {with(v4("198.51.100.7", "192.0.2.9", 1), [](Packet& p) { p.dscp = 46; }), 50, P},
        {with(v4("198.51.100.7", "192.0.2.9", 1), [](Packet& p) { p.dscp = 46, p.ttl = 10; }), 0, D},
        {with(v4("203.0.113.5", "192.0.2.9", 6, 80), [](Packet& p) { p.outerVlan = 100; }), 60, P},
        {with(v4("203.0.113.5", "192.0.2.9", 6, 8080), [](Packet& p) { p.outerVlan = 100; }), 0, D},
        {v4("203.0.113.5", "192.0.2.9", 6, 80), 0, D},
        {with(v4("10.9.8.3", "192.0.2.9", 47), [](Packet& p) { p.ipLength = 60, p.ecn = 1; }), 80, P},
        {with(v4("10.9.8.4", "192.0.2.9", 47), [](Packet& p) { p.ipLength = 60, p.ecn = 1; }), 0, D}}},
      {AclType::ipv6,
       {"10 permit tcp 2001:db8:1::/48 any eq 443", "20 deny ipv6 any 2001:db8:ff::/64 hop-limit lt 2",
        "30 permit icmpv6 any any 135", "40 permit ipv6 any host 2001:db8::1 dscp 10 mask 0x3c"},
       {{v6("2001:db8:1:8000::1", "2001:db8:ff::9", 6, 443), 10, P},
        {with(v6("2001:db8:2::1", "2001:db8:ff:0:8000::9", 6, 443), [](Packet& p) { p.ttl = 1; }), 20, D},
        {with(v6("2001:db8:2::1", "2001:db8:ff:1::9", 6, 443), [](Packet& p) { p.ttl = 1; }), 0, D},
        {v6("2001:db8::1", "2001:db8:ff::9", 6, 443), 0, D},  // outside the /48 by its last bit
        {with(v6("2001:db8:2::1", "2001:db8::9", 58), [](Packet& p) { p.icmpType = 135; }), 30, P},
        {with(v6("2001:db8:2::1", "2001:db8::9", 58), [](Packet& p) { p.icmpType = 136; }), 0, D},
        {with(v6("2001:db8:2::1", "2001:db8::1", 17), [](Packet& p) { p.dscp = 11; }), 40, P},
        {with(v6("2001:db8:2::1", "2001:db8::1", 17), [](Packet& p) { p.dscp = 14; }), 0, D}}},
      {AclType::mac,
       {"10 deny host 00:00:5e:00:53:01 any", "20 permit any any ethertype 0x0800",
        "30 permit any 00:00:5e:00:53:00 ff:ff:ff:ff:ff:00 outer-vlan 10 inner-vlan 20",
        "40 permit any any mpls-label 100 mpls-inner-label 200", "45 deny any any mpls 305 tc 1",
        "50 permit any any mpls 300 mask 0xfff00"},
       {{mac("00:00:5e:00:53:01", "00:00:5e:00:53:99", 0x0800), 10, D},
        {mac("00:00:5e:00:53:02", "00:00:5e:00:53:99", 0x0800), 20, P},
        {with(mac("00:00:5e:00:53:02", "00:00:5e:00:53:77", 0x86dd),
              [](Packet& p) { p.outerVlan = 10, p.innerVlan = 20; }),
         30, P},
        {with(mac("00:00:5e:00:53:02", "00:00:5e:00:53:77", 0x86dd), [](Packet& p) { p.outerVlan = 10; }), 0, D},
        {labelled({100, 200}), 40, P},
        {labelled({200, 100}), 0, D},
        {labelled({16, 305}), 50, P}}},
  };
  for (const Case& c : cases) {
    build::SessionWorld world;
    Agent::Dataplane dp(world.acl, "dp1");
    auto list = world.acl.config->configIs(c.type)->aclIs("edge", c.type, false, false);
    auto version = list->subConfigIs(UniqueId());
    for (const char* line : c.lines) {
      const Text::Entry entry = Text::parse(line, c.type);
      const UniqueId id;
      version->ruleBySequenceIs(*entry.sequence, id);
      withFamily(c.type, [&](auto f) { f.recordIs(*version, id, std::get<typename decltype(f)::Rule>(entry.body)); });
    }
    list->currCfgIs(version);
    world.acl.intfConfig->configIs(c.type)->intfIs(AclDirection::in)->intfIs(eth1, "edge");
    world.acl.hwConfig->dpAclUpdateRequestTimeIs(1);
    for (const Check& check : c.checks) {
      const Agent::Verdict v = dp.check(eth1, AclDirection::in, check.packet);
      SCOPED_TRACE(std::string(c.lines.front()) + ", expecting " + std::to_string(check.sequence));
      EXPECT_EQ(v.implicitDeny() ? 0 : v.entry->sequence, check.sequence);
      EXPECT_EQ(v.action, check.action);
      EXPECT_EQ(v.acl, "edge");
      EXPECT_FALSE(dp.check(IntfId(String("Ethernet2")), AclDirection::in, check.packet).entry);
      EXPECT_FALSE(dp.check(eth1, AclDirection::out, check.packet).entry);
    }
  }
}

}  // namespace
