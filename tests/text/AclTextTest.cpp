#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "aclkit/platform/fwk/Strep.h"
#include "aclkit/text/AclText.h"
#include "tests/support/AclBuilders.h"

namespace {

using namespace Acl;

// What a line means, field by field, in the records' own text form (the fields that differ
// from a default record): the round trips cannot see a reader and a writer that agree on the
// wrong field.
TEST(AclTextTest, LinesSetTheFieldsTheyName) {
  const std::tuple<AclType, const char*, const char*> cases[] = {
      {AclType::ip, "permit tcp 10.0.0.0/8 host 192.0.2.1 eq https log",
       "IpRuleConfig{log=true, filter=IpFilter{protocol=6, protocolMask=255, dstPort=eq 443, src=10.0.0.0, "
       "srcMask=255.0.0.0, dst=192.0.2.1, dstMask=255.255.255.255}}"},
      {AclType::ip, "permit udp any eq domain 198.51.100.0 0.0.0.255 range 1024 2047 count",
       "IpRuleConfig{count=true, filter=IpFilter{protocol=17, protocolMask=255, srcPort=eq 53, dstPort=range 1024 "
       "2047, dst=198.51.100.0, dstMask=255.255.255.0}}"},
      {AclType::ip, "deny icmp any any echo 0 established !syn dscp af41 mask 0x38 ttl gt 5 vlan 10 mask 0xff0",
       "IpRuleConfig{action=deny, filter=IpFilter{protocol=1, protocolMask=255, tcpFlags=16, tcpFlagsMask=18, "
       "icmpType=8, icmpCode=0, matchDscp=true, dscp=34, dscpMask=56, ttlKind=gt, ttl=5, vlan=10, vlanMask=4080}}"},
      {AclType::ip, "permit 47 any any nvgre tni 7 vni 9 teid 11 user-l4 0xab vrf red vacl tracked mirror m1",
       "IpRuleConfig{mirrorSession=m1, vacl=true, filter=IpFilter{protocol=47, protocolMask=255, greProto=25944, "
       "greProtoMask=65535, tni=7, vni=9, teid=11, userL4=171, userL4Mask=4294967295, vrf=red, tracked=true}}"},
      {AclType::ip, "permit ip any any payload 2 0x1234 0xffff own-pattern own-mask payload 6 0 0 alias tunnelKey",
       "IpRuleConfig{filter=IpFilter{payload=payload(2,0x1234,0xffff,,pm 6,0x0,0x0,tunnelKey,)}}"},
      {AclType::ipv6, "permit icmp 2001:db8::/32 any echo-reply hop-limit 7 ip-length lt 100 outer-vlan 5 ecn 1",
       "Ip6RuleConfig{filter=Ip6Filter{protocol=58, protocolMask=255, icmpType=129, matchEcn=true, ecn=1, "
       "ipLength=lt 100, outerVlan=5, outerVlanMask=4095, src=2001:db8::, srcPrefixLen=32, hopLimit=7}}"},
      {AclType::mac, "permit 00:00:5e:00:53:01 ff:ff:ff:ff:ff:ff any ethertype ipv4 inner-vlan 3 mask 0x0 copy-to-cpu",
       "MacRuleConfig{copyToCpu=true, filter=MacFilter{src=00:00:5e:00:53:01, srcMask=ff:ff:ff:ff:ff:ff, "
       "ethertype=2048, ethertypeMask=65535, innerVlan=3}}"},
      {AclType::mac, "deny any host 02:00:00:00:00:01 mpls-label 100 mpls-inner-label 200 mpls 16 mask 0xff tc 5",
       "MacRuleConfig{action=deny, filter=MacFilter{dst=02:00:00:00:00:01, dstMask=ff:ff:ff:ff:ff:ff, "
       "mplsLabel=100, mplsInnerLabel=200, mpls=mpls(MplsLabelFilter{label=16, labelMask=255, tc=5, tcMask=7})}}"},
  };
  for (const auto& [type, line, fields] : cases) {
    EXPECT_EQ(std::visit([](const auto& body) { return fwk::strep(body); }, Text::parse(line, type).body), fields)
        << line;
  }
  EXPECT_EQ(Text::parse("30 remark  two  blanks kept ", AclType::mac),
            (Text::Entry{30, RemarkConfig(" two  blanks kept ")}));
  EXPECT_EQ(fwk::strep(std::get<IpRuleConfig>(Text::parse("permit host 192.0.2.1", AclType::ip, true).body)),
            "IpRuleConfig{filter=IpFilter{src=192.0.2.1, srcMask=255.255.255.255}}");
}

struct Line {
  AclType type;
  const char* text;
  bool standard = false;
  const char* canonical = nullptr;  // how it is written back, when not as it was read
};

// Other spellings (names for numbers, wildcards, case, blanks, keywords of other families)
// all come out as the one canonical line. The round-trip property asks only that a written
// line reads back; the few canonical lines here pin how a list is shown.
TEST(AclTextTest, LinesAreWrittenBackInTheirCanonicalForm) {
  const Line lines[] = {
      {AclType::ip, "permit udp 192.0.2.0 0.255.0.255 neq 53 198.51.100.0/23 gt 1023 mirror s1 copy-to-cpu count"},
      {AclType::ip, "deny tcp mask 0xf0 any lt 80 any range 0 65535 fin !syn rst !psh ack urg ece !cwr ns"},
      {AclType::ip, "permit 10.0.0.0/8 log count", true},
      {AclType::mac, "permit any any mpls 16 mpls 17 mask 0xffff0 tc 0 mpls 18 tc 3 mask 0x5 payload 0 0x1 0x1 count"},
      {AclType::mac, "7 remark web servers: 192.0.2.0/24, ports 80 and 443"},
      {AclType::ip, "PERMIT  TCP\t10.0.0.0 0.255.255.255 EQ WWW host 192.0.2.1 Established", false,
       "permit tcp 10.0.0.0/8 eq 80 host 192.0.2.1 ack"},
      {AclType::ip, "permit udp any range ntp snmp any eq syslog ttl 9", false,
       "permit udp any range 123 161 any eq 514 ttl 9"},
      {AclType::ip, "permit icmp any any time-exceeded log dscp ef mask 63 outer-vlan 0xa mask 4095", false,
       "permit icmp any any 11 dscp 46 outer-vlan 10 log"},
      {AclType::ip, "permit ah 0.0.0.0 255.255.255.255 192.0.2.2 0.0.0.0", false, "permit ahp any host 192.0.2.2"},
      {AclType::ipv6, "permit icmp any any echo", false, "permit icmpv6 any any 128"},
      {AclType::ipv6, "permit ah any any", false, "permit ahp any any"},
      {AclType::ipv6, "permit ip ::/0 2001:DB8::1/128", false, "permit ipv6 any host 2001:db8::1"},
      {AclType::mac, "permit 0000.5e00.5301 ffff.ffff.ffff any ethertype arp mask 0xffff", false,
       "permit host 00:00:5e:00:53:01 any ethertype 0x0806"},
      {AclType::ip, "permit ip any any payload 0 1 255 own-mask alias k", false,
       "permit ip any any payload 0 0x1 0xff alias k own-mask"},
  };
  for (const Line& l : lines) {
    EXPECT_EQ(Text::format(Text::parse(l.text, l.type, l.standard), l.standard), l.canonical ? l.canonical : l.text);
  }
}

TEST(AclTextTest, BadLinesSayWhatWasExpectedAndWhere) {
  const std::pair<Line, const char*> errors[] = {
      {{AclType::ip, "10 permit tcp any any eq 443 eq http"}, "expected an option or the end of the line at column 30"},
      {{AclType::ip, "permit tcp host 192.0.2.1 any eq htp"}, "expected a port number or name at column 34"},
      {{AclType::ip, "permit tcp any range 2000 1999 any"},
       "expected a port number or name not below 2000 at column 27"},
      {{AclType::ip, "permit tcp any"}, "expected a destination address, host or any at column 15"},
      {{AclType::ip, "permit tcp 10.0.0.0 any"}, "expected an IPv4 wildcard or /length at column 21"},
      {{AclType::ip, "permit tcp 10.0.0.0/33 any"}, "expected a prefix length from 0 to 32 at column 12"},
      {{AclType::ip, "permit 10.0.0.1/24", true},
       "expected a network address (host bits of 10.0.0.1/24 are set) at column 8"},
      {{AclType::ip, "permit ip any 10.1.2.3  0.0.255.255"},
       "expected a network address (don't-care bits of 10.1.2.3 0.0.255.255 are set) at column 15"},
      {{AclType::ip, "permit bogus any any"}, "expected a protocol name or number at column 8"},
      {{AclType::ip, "allow ip any any"}, "expected permit, deny or remark at column 1"},
      {{AclType::ip, "4294967296 permit ip any any"}, "expected a sequence number from 0 to 4294967295 at column 1"},
      {{AclType::ip, "permit ip any any vlan 4096"}, "expected a VLAN from 0 to 4095 at column 24"},
      {{AclType::ip, "permit ip any any outer-vlan 1 mask 0x1000"},
       "expected a VLAN mask from 0x0 to 0xfff at column 37"},
      {{AclType::ip, "permit ip any any dscp 64"}, "expected a DSCP value from 0 to 63 at column 24"},
      {{AclType::ip, "permit ip any any ttl range 1 2"}, "expected a TTL from 0 to 255 at column 23"},
      {{AclType::ip, "permit ip any any log count log"}, "expected no second log at column 29"},
      {{AclType::ip, "permit tcp any any syn !syn"}, "expected each TCP flag once at column 24"},
      {{AclType::ip, "permit tcp any any 8"}, "expected an option or the end of the line at column 20"},
      {{AclType::ip, "permit ip any any ip-length 100"}, "expected eq, neq, lt, gt or range at column 29"},
      {{AclType::ip, "permit ip any any payload 1 0x1 0x1 alias a,b"},
       "expected an alias name without commas at column 43"},
      {{AclType::ip, "permit ip any any vrf"}, "expected a VRF name at column 22"},
      {{AclType::ip, "permit tcp any any", true}, "expected a source address, host or any at column 8"},
      {{AclType::ip, "permit any any", true},
       "expected log, mirror, copy-to-cpu, count or the end of the line at column 12"},
      {{AclType::ipv6, "permit ipv6 2001:db8::1 any"}, "expected a source prefix, host or any at column 13"},
      {{AclType::ipv6, "permit ipv6 any 2001:db8::1/32"},
       "expected a network address (host bits of 2001:db8::1/32 are set) at column 17"},
      {{AclType::ipv6, "permit ipv6 any any ttl 5"}, "expected an option or the end of the line at column 21"},
      {{AclType::mac, "permit any 00:00:5e:00:53:01"}, "expected a MAC mask at column 29"},
      {{AclType::mac, "permit any any mpls 16 mpls 16"}, "expected an MPLS label not given before at column 29"},
      {{AclType::mac, "permit any any mpls 1048576"}, "expected an MPLS label from 0 to 1048575 at column 21"},
      {{AclType::mac, "permit any any ethertype ipx"}, "expected an ethertype from 0 to 65535 at column 26"},
  };
  for (const auto& [input, message] : errors) {
    try {
      (void)Text::parse(input.text, input.type, input.standard);
      ADD_FAILURE() << input.text << " was read";
    } catch (const Text::ParseError& e) {
      EXPECT_STREQ(e.what(), message) << input.text;
      EXPECT_EQ("expected " + e.expected() + " at column " + std::to_string(e.column()), e.what());
    }
  }
  EXPECT_THROW((void)Text::parse("permit ip any any vrf " + std::string(101, 'v'), AclType::ip), Text::ParseError);
  EXPECT_THROW((void)Text::parse("permit any", AclType::mac, true), std::invalid_argument);
}

// Records no line can carry are refused instead of written as a line that reads back as another.
// What the reader offers where a line being typed ends: keywords, then values as <what>;
// names are counted, not listed, and a line that is whole ends in "|". Keywords and names
// are gathered too.
std::string offered(const Line& line, std::set<std::string>& keywords, std::set<std::string>& names) {
  const Text::Choices choices = Text::choicesAfter(line.text, line.type, line.standard);
  std::string words;
  std::size_t named = 0;
  for (const Text::Choice& c : choices.next) {
    if (c.kind != Text::Choice::Kind::value) (c.kind == Text::Choice::Kind::name ? names : keywords).insert(c.text);
    if (c.kind == Text::Choice::Kind::name) {
      ++named;
      continue;
    }
    words += (words.empty() ? "" : " ") + (c.kind == Text::Choice::Kind::value ? "<" + c.text + ">" : c.text);
    EXPECT_TRUE(c.kind != Text::Choice::Kind::keyword || !c.help.empty()) << c.text << " has no help";
  }
  if (named > 0) words += " +" + std::to_string(named);
  return words + (choices.complete ? " |" : "");
}

TEST(AclTextTest, WhatMayComeNextIsWhatTheReaderWouldTake) {
  const std::pair<Line, const char*> cases[] = {
      {{AclType::ip, ""}, "<a sequence number from 0 to 4294967295> remark deny permit"},
      {{AclType::ip, "10 permit "}, "ip <a protocol name or number> +15"},
      {{AclType::ipv6, "permit "}, "ip ipv6 <a protocol name or number> +14"},
      {{AclType::ip, "permit tcp "}, "mask any host <a source address, host or any>"},
      {{AclType::ip, "permit tcp any "}, "eq neq lt gt range any host <a destination address, host or any>"},
      {{AclType::ip, "permit tcp any eq "}, "<a port number or name> +24"},
      {{AclType::ip, "permit icmp any any "},
       "eq neq lt gt range <an ICMP type number or name> established log mirror copy-to-cpu count dscp ecn ip-length "
       "outer-vlan "
       "inner-vlan gre-proto nvgre tni vxlan vni gtp teid user-l4 payload vrf ttl vlan tracked vacl +22 |"},
      {{AclType::ipv6, "permit icmp any any echo "},
       "<an ICMP code from 0 to 255> established log mirror copy-to-cpu count dscp ecn ip-length outer-vlan "
       "inner-vlan gre-proto nvgre tni vxlan vni gtp teid user-l4 payload vrf hop-limit +9 |"},
      {{AclType::ip, "permit udp any any log count nvgre dscp ef "},
       "mask established mirror copy-to-cpu ecn ip-length outer-vlan inner-vlan tni vxlan vni gtp teid user-l4 "
       "payload vrf ttl vlan tracked vacl +9 |"},
      {{AclType::ip, "permit ip any any ttl "}, "eq neq lt gt <a TTL from 0 to 255>"},
      {{AclType::ip, "permit ip any any payload 4 0x1 0xff "},
       "alias own-pattern own-mask established log mirror copy-to-cpu count dscp ecn ip-length outer-vlan "
       "inner-vlan gre-proto nvgre tni vxlan vni gtp teid user-l4 payload vrf ttl vlan tracked vacl +9 |"},
      {{AclType::ip, "deny ", true}, "any host <a source address, host or any>"},
      {{AclType::ip, "deny any ", true}, "log mirror copy-to-cpu count |"},
      {{AclType::mac, "permit any host 00:00:5e:00:53:01 mpls 16 "},
       "mask tc log mirror copy-to-cpu count ethertype outer-vlan inner-vlan mpls-label mpls-inner-label mpls "
       "payload |"},
      {{AclType::ip, "remark "}, "<the remark's text> |"},
      {{AclType::ip, "5 remark two words "}, "<the remark's text> |"},
      {{AclType::ip, "permit bogus "}, ""},
      {{AclType::ip, "permit tcp any any log log "}, ""},
  };
  std::set<std::string> keywords;
  std::set<std::string> names;
  for (const auto& [line, expected] : cases) EXPECT_EQ(offered(line, keywords, names), expected) << line.text;

  // The README's syntax table names the same words: every keyword offered is in the table,
  // and every word of its clause column is a keyword or name the reader takes.
  std::ifstream readme(ACLKIT_README);
  std::string line;
  while (std::getline(readme, line) && line != "## ACL syntax") {
  }
  std::set<std::string> anywhere;
  std::set<std::string> clauses;
  const std::regex code("`([^`]*)`");
  const std::regex word("(^|[^A-Za-z0-9!-])([a-z][a-z0-9-]*)");
  while (std::getline(readme, line) && !line.starts_with("## ")) {
    if (!std::regex_search(line, std::regex("^\\| [0-9]+ \\|"))) continue;
    const std::size_t clauseEnd = line.find(" | ", line.find(" | ") + 3);
    for (std::sregex_iterator c(line.begin(), line.end(), code), end; c != end; ++c) {
      const std::string text = (*c)[1];
      for (std::sregex_iterator w(text.begin(), text.end(), word); w != end; ++w) {
        anywhere.insert((*w)[2]);
        if (static_cast<std::size_t>(c->position()) < clauseEnd) clauses.insert((*w)[2]);
      }
    }
  }
  ASSERT_FALSE(clauses.empty()) << "no syntax table in " << ACLKIT_README;
  for (const std::string& k : keywords) EXPECT_TRUE(anywhere.contains(k)) << k << " is not in the table";
  for (const std::string& c : clauses) {
    EXPECT_TRUE(keywords.contains(c) || names.contains(c)) << c << " is no word the reader takes";
  }
}

TEST(AclTextTest, RecordsNoLineCanHoldAreRefused) {
  using build::ruleWith;
  RangeMatch inverted;  // field by field: the constructor refuses it
  inverted.opIs(ValueOp::range), inverted.lowIs(9), inverted.highIs(8);
  MplsFilter mpls;
  mpls.labelIs(5, MplsLabelFilter());  // keyed by a label it does not hold
  const std::pair<const char*, Text::EntryBody> refused[] = {
      {"port high without range", ruleWith<IpRuleConfig>([](auto& f) { f.dstPortIs(RangeMatch(ValueOp::eq, 1, 2)); })},
      {"inverted range", ruleWith<Ip6RuleConfig>([&](auto& f) { f.ipLengthIs(inverted); })},
      {"icmp type on tcp",
       ruleWith<IpRuleConfig>([](auto& f) { f.protocolIs(6), f.protocolMaskIs(0xFF), f.icmpTypeIs(8); })},
      {"icmp code without type",
       ruleWith<IpRuleConfig>([](auto& f) { f.protocolIs(1), f.protocolMaskIs(0xFF), f.icmpCodeIs(0); })},
      {"dscp without match", ruleWith<IpRuleConfig>([](auto& f) { f.dscpIs(1); })},
      {"ttl range", ruleWith<IpRuleConfig>([](auto& f) { f.ttlKindIs(ValueOp::range); })},
      {"unnamed flag bit", ruleWith<Ip6RuleConfig>([](auto& f) { f.tcpFlagsMaskIs(0x200); })},
      {"flag outside mask", ruleWith<IpRuleConfig>([](auto& f) { f.tcpFlagsIs(2), f.tcpFlagsMaskIs(1); })},
      {"payload text spacing",
       ruleWith<IpRuleConfig>([](auto& f) { f.payloadIs(PayloadSpec("1,0x1,0x1,,  2,0x2,0x2,,")); })},
      {"mpls key", ruleWith<MacRuleConfig>([&](auto& f) { f.mplsIs(mpls); })},
      {"src outside its mask",
       ruleWith<IpRuleConfig>([](auto& f) { f.srcIs(Ip4Addr(0xC0000201)), f.srcMaskIs(Ip4Addr(0xFF00FF00)); })},
      {"dst past its prefix", ruleWith<Ip6RuleConfig>([](auto& f) { f.dstIs(Ip6Addr(0, 1)), f.dstPrefixLenIs(127); })},
      {"vrf with blank", ruleWith<IpRuleConfig>([](auto& f) { f.vrfIs(VrfName("a b")); })},
      {"remark with line break", RemarkConfig("one\ntwo")},
  };
  for (const auto& [why, body] : refused) {
    EXPECT_THROW((void)Text::format(Text::Entry{{}, body}), std::invalid_argument) << why;
  }
  // A standard line says the source address alone.
  for (const char* line : {"permit ip any 10.0.0.0/8", "permit ip any any vacl"}) {
    EXPECT_THROW((void)Text::format(Text::parse(line, AclType::ip), true), std::invalid_argument) << line;
  }
}

}  // namespace
