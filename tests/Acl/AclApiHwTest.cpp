// The checks against what the platform publishes it can program: the rows, their keys,
// messages and traces, and the conditions each row tests; the model knows none of them.
#include <gtest/gtest.h>

#include <functional>
#include <type_traits>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/text/AclText.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;

class HwTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  void bind(const char* intf, const char* name, AclType type = AclType::ip) {
    acl.intfConfig->configIs(type)->intfIs(AclDirection::in)->intfIs(IntfId(String(intf)), name);
  }
  // `name` of the rule's family holds that rule alone, at 10.
  template <class Rule>
  void installRule(const char* name, const Rule& rule) {
    using F = Family<std::is_same_v<Rule, IpRuleConfig>    ? AclType::ip
                     : std::is_same_v<Rule, Ip6RuleConfig> ? AclType::ipv6
                                                           : AclType::mac>;
    auto a = acl.config->configIs(F::aclType)->aclIs(name, F::aclType, false, false);
    auto v = a->subConfigIs(UniqueId());
    UniqueId id;
    v->ruleBySequenceIs(10, id);
    F::recordIs(*v, id, rule);
    a->currCfgIs(v);
  }

  build::AllLevels levels;
  fwk::TraceCapture traces;
};

// One row per check: the family, a rule that uses the feature (as a line of the syntax), the
// capability that allows it (null: no platform can) and one it also needs, and the key,
// message and trace the refusal leaves (null: "<, " and the message).
struct Row {
  AclType type;
  const char* rule;
  const char* capability;
  const char* key;
  const char* message;
  const char* trace = nullptr;
  const char* prerequisite = nullptr;
};

// clang-format off: one row per line, like the table it pins
const Row rows[] = {
    {AclType::ip, "permit ip 0.0.0.0 0.255.0.255 any", "discontiguousMaskSupported", "discontiguous IP mask",
     "discontiguous IP mask not supported"},
    {AclType::ip, "permit ip any 0.0.0.0 0.0.255.0", "discontiguousMaskSupported", "discontiguous IP mask",
     "discontiguous IP mask not supported"},
    {AclType::ip, "permit ip any any mirror m", "ipMirrorSupported", "mirror", "mirror not supported",
     "<, mirroring action on IP ACL not supported"},
    {AclType::ip, "permit ip any any copy-to-cpu", "copyToCpuSupported", "copyToCpu", "copyToCpu not supported",
     "<, copyToCpu action on IP ACL not supported"},
    {AclType::ip, "permit ip any any log", "loggingSupported", "logging", "logging not supported"},
    {AclType::ip, "permit ip any any tracked", nullptr, "tracked", "tracked not supported", "<, tracked"},
    {AclType::ip, "permit ip any any ttl eq 0", nullptr, "ttl", "ttl option not supported"},
    {AclType::ip, "permit ip any any dscp 0", "ipDscpSupported", "dscp", "dscp not supported"},
    {AclType::ip, "permit ip any any dscp 0 mask 0x7", "ipDscpMaskSupported", "dscpMask", "dscpMask not supported",
     nullptr, "ipDscpSupported"},
    {AclType::ip, "permit gre any any gre-proto 0x6558 mask 0x0", "dpiNvgreSupported", "dpi-nvgre",
     "DPI Nvgre not supported"},
    {AclType::ip, "permit ip any any gre-proto 0x0000", "dpiGreSupported", "dpi-gre", "DPI Gre not supported"},
    {AclType::ip, "permit ip any any user-l4 0x0 mask 0xff", "dpiUserL4Supported", "dpi-userl4",
     "DPI userL4 not supported"},
    {AclType::ip, "permit tcp any any !syn !ack", "tcpFlagsSupported", "tcpFlag", "TCP flag not supported",
     "<, TCP flags not supported"},
    {AclType::ipv6, "permit ipv6 any any mirror m", "ip6MirrorSupported", "mirror", "mirror not supported",
     "<, mirroring action on IPv6 ACL not supported"},
    {AclType::ipv6, "permit ipv6 any any copy-to-cpu", "copyToCpuSupported", "copyToCpu", "copyToCpu not supported",
     "<, copyToCpu action on IPv6 ACL not supported"},
    {AclType::ipv6, "permit ipv6 any any log", "loggingSupported", "ipv6-logging", "ipv6 logging not supported"},
    {AclType::ipv6, "permit ipv6 any any hop-limit gt 0", nullptr, "hop-limit", "hop-limit option not supported"},
    {AclType::ipv6, "permit ipv6 any any gre-proto 0x6558", "dpiNvgreSupported", "dpi-nvgre",
     "DPI Nvgre not supported"},
    {AclType::ipv6, "permit ipv6 any any user-l4 0x0 mask 0x1", "dpiUserL4Supported", "dpi-userl4",
     "DPI UserL4 not supported"},
    {AclType::ipv6, "permit tcp any any !syn", "tcpFlagsSupported", "tcpFlag", "TCP flag not supported"},
    {AclType::ipv6, "permit ipv6 any any dscp 0", "ip6DscpSupported", "dscp", "dscp not supported"},
    {AclType::ipv6, "permit ipv6 any any dscp 0 mask 0x7", "ip6DscpMaskSupported", "dscpMask", "dscpMask not supported",
     nullptr, "ip6DscpSupported"},
    {AclType::mac, "permit any any mirror m", "macMirrorSupported", "mirror", "mirror not supported",
     "<, mirroring action on MAC ACL not supported"},
    {AclType::mac, "permit any any log", "loggingSupported", "mac-logging", "mac logging not supported"},
    {AclType::mac, "permit any any outer-vlan 0 mask 0x1", "outerVlanSupported", "outer-vlan",
     "outer Vlan not supported"},
    {AclType::mac, "permit any any inner-vlan 0 mask 0x1", "innerVlanSupported", "inner-vlan",
     "inner Vlan not supported"},
    {AclType::mac, "permit any any mpls-inner-label 17", "mplsTwoLabelSupported", "mpls",
     "Two-label Mpls not supported"},
    {AclType::mac, "permit any any mpls-label 16", "mplsSupported", "mpls", "Mpls not supported"},
    {AclType::mac, "permit any any payload 0 0x1 0x1", "dpiPayloadSupported", "dpi-payload",
     "DPI payload not supported", "<, DPI Payload not supported"},
};
// The checks both IP families share, with the same key, message and trace.
const Row bothRows[] = {
    {AclType::ip, "ecn 0", "ecnSupported", "ecn", "ecn not supported"},
    {AclType::ip, "outer-vlan 0", "outerVlanSupported", "outer-vlan", "outer vlan not supported",
     "<, outer Vlan not supported"},
    {AclType::ip, "inner-vlan 0", "innerVlanSupported", "inner-vlan", "inner vlan not supported",
     "<, inner Vlan not supported"},
    {AclType::ip, "ip-length lt 64", "ipLengthSupported", "ip-length", "ip-length not supported",
     "<, ip-length match not supported"},
    {AclType::ip, "tni 5", "dpiNvgreSupported", "dpi-tni", "DPI TNI not supported"},
    {AclType::ip, "vxlan", "dpiVxlanSupported", "dpi-vxlan", "DPI Vxlan not supported"},
    {AclType::ip, "vni 5", "dpiVxlanSupported", "dpi-vni", "DPI VNI not supported"},
    {AclType::ip, "gtp", "dpiGtpSupported", "dpi-gtp", "DPI Gtp not supported"},
    {AclType::ip, "teid 5", "dpiGtpSupported", "dpi-teid", "DPI TEID not supported"},
    {AclType::ip, "payload 0 0x1 0x1", "dpiPayloadSupported", "dpi-payload", "DPI payload not supported",
     "<, DPI Payload not supported"},
};
// clang-format on

TEST_F(HwTest, EachCapabilityRowRefusesOnlyWhereThePlatformLacksIt) {
  std::vector<Row> all(std::begin(rows), std::end(rows));
  std::vector<std::string> lines;  // the shared rows' rules, kept alive for the rows
  lines.reserve(2 * std::size(bothRows));
  for (const Row& row : bothRows) {
    for (AclType type : {AclType::ip, AclType::ipv6}) {
      lines.push_back(std::string(type == AclType::ip ? "permit ip" : "permit ipv6") + " any any " + row.rule);
      all.push_back(row);
      all.back().type = type;
      all.back().rule = lines.back().c_str();
    }
  }
  for (const Row& row : all) {
    SCOPED_TRACE(row.rule);
    // Each condition of a row decides on its own: the feature used or not on a platform that
    // lacks it, and used on one that has it.
    for (const auto& condition : {std::pair(false, false), {true, false}, {true, true}}) {
      const bool used = condition.first;  // not a structured binding: a lambda below reads it
      const bool supported = condition.second;
      if (supported && !row.capability) continue;
      build::SessionWorld world;
      ParamConfig& platform = *world.acl.paramConfig;
      for (const char* capability :
           {"aclSupported", "ip6AclSupported", row.prerequisite, supported ? row.capability : nullptr}) {
        if (capability) fwk::setAttribute(platform, capability, true);
      }
      auto a = world.acl.config->configIs(row.type)->aclIs("a", row.type, false, false);
      auto v = a->subConfigIs(UniqueId());
      withFamily(row.type, [&](auto family) {
        using Rule = typename decltype(family)::Rule;
        decltype(family)::recordIs(*v, UniqueId(),
                                   used ? std::get<Rule>(Text::parse(row.rule, row.type).body) : Rule());
      });
      a->currCfgIs(v);
      world.acl.intfConfig->configIs(row.type)->intfIs(AclDirection::out)->intfIs(IntfId(String("Ethernet1")), "a");
      auto s = world.session("a", row.type);
      traces.clear();
      const bool refused = used && !supported;
      EXPECT_EQ(s->dpAclOk(), !refused);
      EXPECT_EQ(s->errString().size(), refused ? 1u : 0u);
      if (refused) {
        EXPECT_EQ(s->errString(row.key), row.message);
        EXPECT_TRUE(traces.contains(row.trace ? std::string(row.trace) : std::string("<, ") + row.message));
        EXPECT_TRUE(traces.contains("<, false"));
      }
    }
  }
}

TEST_F(HwTest, FamilyBindingAndVlanDecideWhichRowsRun) {
  IpRuleConfig logged;
  logged.logIs(true);
  installRule("web", logged);
  auto s = session("web");
  EXPECT_TRUE(s->dpAclOk()) << "bound nowhere: nothing to program";
  EXPECT_TRUE(traces.contains("Acl web is not attached to any interface"));
  bind("Ethernet1", "web");
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString().size(), 1u) << "the family check ends the call";
  EXPECT_EQ(s->errString("dpacl"), "Acl not supported by hardware");
  EXPECT_TRUE(traces.contains("Acl not supported by hw"));
  bind("Ethernet1", "v6", AclType::ipv6);
  auto v6 = session("v6", AclType::ipv6);
  EXPECT_FALSE(v6->dpAclOk());
  EXPECT_EQ(v6->errString("ip6"), "ip6 Acl not supported");

  // One rule failing several checks leaves one entry per key, the later row's under a shared one.
  acl.paramConfig->aclSupportedIs(true);
  installRule("m", build::ruleWith<MacRuleConfig>(
                       [&](MacFilter& f) { f.mplsLabelIs(16), f.mplsInnerLabelIs(17), f.outerVlanMaskIs(1); }));
  bind("Ethernet1", "m", AclType::mac);
  auto m = session("m", AclType::mac);
  EXPECT_FALSE(m->dpAclOk());
  EXPECT_EQ(m->errString().size(), 2u);
  EXPECT_EQ(m->errString("mpls"), "Mpls not supported");

  // The VLAN rows apply only while the list is bound to a VLAN interface, each on its own
  // condition: a VACL rule without a VLAN match, a platform with VACLs.
  IpRuleConfig rule = build::ruleWith<IpRuleConfig>([&](IpFilter& f) { f.vlanIs(10), f.vlanMaskIs(0xFFF); });
  rule.vaclIs(true);
  installRule("web", rule);
  s->errStringDelAll();
  EXPECT_TRUE(s->dpAclOk() && s->dpAclDpiOk());
  bind("Vlan10", "web");
  EXPECT_TRUE(s->attachingAclToVlan());
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString("vlan-vacl"), "Vlan VACL not supported");
  EXPECT_EQ(s->errString("vacl"), "VACL not supported");
  traces.clear();
  EXPECT_FALSE(s->dpAclDpiOk());
  EXPECT_TRUE(traces.contains("<, trying to attach to Vlan"));
  acl.paramConfig->vaclSupportedIs(true);
  s->errStringDelAll();
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString().size(), 1u);
  EXPECT_TRUE(s->errString().contains("vlan-vacl"));
  acl.paramConfig->vaclSupportedIs(false);
  rule.filterIs(build::ruleWith<IpRuleConfig>([&](IpFilter& f) { f.vlanMaskIs(0xFFF); }).filter());
  installRule("web", rule);
  s->errStringDelAll();
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString().size(), 1u);
  EXPECT_TRUE(s->errString().contains("vacl"));
  EXPECT_TRUE(s->dpAclDpiOk()) << "a mask without a VLAN matches no VLAN";
}

// Deep inspection is refused only with a non-zero skip, and then only for what needs the whole
// match: each refusal only traces, and the first rule that matches decides.
TEST_F(HwTest, DeepInspectionIsRefusedOnlyWithANonZeroSkip) {
  auto s = session("web");
  auto dpiOk = [&](const char* line) {
    installRule("web", std::get<IpRuleConfig>(Text::parse(line, AclType::ip).body));
    traces.clear();
    return s->dpAclDpiOk();
  };
  const std::pair<const char*, const char*> refused[] = {
      {"permit gre any any gre-proto 0x6558 mask 0x0 tni 9", "DPI Nvgre"},
      {"permit ip any any gre-proto 0x1 mask 0x1 tni 9", "DPI Gre"},
      {"permit ip any any tni 1", "DPI TNI"},
      {"permit ip any any vxlan", "DPI Vxlan"},
      {"permit ip any any vni 1", "DPI VNI"},
      {"permit ip any any gtp", "DPI Gtp"},
      {"permit ip any any teid 1", "DPI TEID"},
  };
  for (const auto& [line, what] : refused) EXPECT_TRUE(dpiOk(line)) << line << ": no skip";
  acl.paramConfig->dpiSkipNonZeroIs(true);
  for (const auto& [line, what] : refused) {
    EXPECT_FALSE(dpiOk(line)) << line;
    EXPECT_TRUE(traces.contains(std::string("<, ") + what + " not supported with non-zero skip")) << line;
  }
  for (const char* line : {"permit gre any any", "permit ip any any gre-proto 0x6558 mask 0x0"}) {
    EXPECT_TRUE(dpiOk(line)) << line << ": not NVGRE";
  }
  EXPECT_TRUE(s->errString().empty()) << "this check only traces";
  installRule("m", build::ruleWith<MacRuleConfig>([&](MacFilter& mf) { mf.mplsLabelIs(100); }));
  EXPECT_TRUE(session("m", AclType::mac)->dpAclDpiOk()) << "MPLS only with its own skip";
  acl.paramConfig->mplsSkipNonZeroIs(true);
  EXPECT_FALSE(session("m", AclType::mac)->dpAclDpiOk());
  EXPECT_TRUE(traces.contains("<, Mpls not supported with non-zero skip"));
}

// The property test meets the guard only on sessions opened without capabilities, too seldom
// to tell a bound list from an unbound one, or an attach from a detach: this pins them.
TEST_F(HwTest, HopLimitsNeedSupportUnlessGuardsAreOffAndOnlyWhereTheListIsBound) {
  Ip6RuleConfig rule = build::ruleWith<Ip6RuleConfig>([&](Ip6Filter& f) { f.hopLimitIs(64); });
  EXPECT_TRUE(session("v6", AclType::ipv6, attach_)->dpAclPreApplyOk()) << "nothing to check";
  auto s = session("v6", AclType::ipv6);
  ASSERT_EQ(s->addIp6Rule(10, rule), succeeded);
  EXPECT_FALSE(s->dpAclPreApplyOk());
  EXPECT_EQ(s->errString("IPv6"), "hop limit is not supported for IPv6 ACLs on this platform");
  EXPECT_TRUE(traces.contains("<, ipv6 hop limit not supported"));
  s->guardsEnabledIs(false);
  EXPECT_TRUE(s->dpAclPreApplyOk());
  s->guardsEnabledIs(true);
  acl.paramConfig->ip6HopLimitSupportedIs(true);
  EXPECT_TRUE(s->dpAclPreApplyOk());
  acl.paramConfig->ip6HopLimitSupportedIs(false);
  EXPECT_EQ(s->commit(), succeeded) << "bound nowhere: nothing is programmed";

  auto attaching = session("v6", AclType::ipv6, attach_);
  EXPECT_EQ(attaching->attach("Ethernet1", AclDirection::in), errAclApi);
  EXPECT_EQ(attaching->attachedAcl("Ethernet1", AclDirection::in), "");
  EXPECT_EQ(attaching->intf(), "") << "nothing is recorded";
  bind("Ethernet1", "v6", AclType::ipv6);
  auto bound = session("v6", AclType::ipv6);
  ASSERT_EQ(bound->addIp6Rule(20, rule), succeeded);
  EXPECT_EQ(bound->commit(), errAclApi);
  auto detaching = session("v6", AclType::ipv6, detach_);
  EXPECT_EQ(detaching->detach("Ethernet1", AclDirection::in), succeeded);
  EXPECT_EQ(detaching->attachedAcl("Ethernet1", AclDirection::in), "");
}

}  // namespace
