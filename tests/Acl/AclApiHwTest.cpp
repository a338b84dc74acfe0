#include <gtest/gtest.h>

#include <functional>
#include <type_traits>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/trace/Clock.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::FakeDataplane;

class HwTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  void SetUp() override { fwk::TraceFacility::get("AclApi").levelsUpToIs(9); }
  void TearDown() override { fwk::TraceFacility::get("AclApi").levelsIs(0); }

  // Binds `name` of the session family to an interface.
  void bind(const char* intf, const char* name, AclType type = AclType::ip) {
    acl.intfConfig->configIs(type)->intfIs(AclDirection::in)->intfIs(IntfId(String(intf)), name);
  }
  template <class Rule>
  void installRule(const char* name, AclType type, const Rule& rule) {
    auto a = acl.config->configIs(type)->aclIs(name, type, false, false);
    auto v = a->subConfigIs(UniqueId());
    UniqueId id;
    v->ruleBySequenceIs(10, id);
    if constexpr (std::is_same_v<Rule, IpRuleConfig>) v->ipRuleByIdIs(id, rule);
    if constexpr (std::is_same_v<Rule, Ip6RuleConfig>) v->ip6RuleByIdIs(id, rule);
    if constexpr (std::is_same_v<Rule, MacRuleConfig>) v->macRuleByIdIs(id, rule);
    a->currCfgIs(v);
  }

  double clock = 100;
  fwk::ClockOverride ticking{[this] { return clock += 1; }};
  fwk::TraceCapture traces;
};

// ---- capability rows -------------------------------------------------------------------------

struct Row {
  const char* what;
  AclType type;
  std::function<void(IpRuleConfig&, Ip6RuleConfig&, MacRuleConfig&)> use;
  std::function<void(ParamConfig&)> support;  // null: no platform can
  const char* key;
  const char* message;
  const char* trace;
  std::function<void(ParamConfig&)> prerequisite = nullptr;  // a capability the feature also needs
};

// One row per check: the family, what the rule uses (`r` the rule, `f` a copy of its
// filter), the capability that allows it, and the expected key, message and trace.
#define ROW(type, Rule, Filter, uses, flag, key, message, trace)                          \
  Row {                                                                                   \
#type " " #uses, AclType::type,                                                         \
      [](IpRuleConfig& ip, Ip6RuleConfig& ip6, MacRuleConfig& mac) {                          \
        auto& r = pick<Rule>(ip, ip6, mac);                                                   \
        Filter f = r.filter();                                                                \
        uses;                                                                                 \
        r.filterIs(f);                                                                        \
      },                                                                                      \
      flag, key, message, trace \
  }
#define CAN(flag) [](ParamConfig& p) { p.flag##Is(true); }
#define SAME nullptr  // the trace is "<, " and the message

template <class Rule>
Rule& pick(IpRuleConfig& ip, Ip6RuleConfig& ip6, MacRuleConfig& mac) {
  if constexpr (std::is_same_v<Rule, IpRuleConfig>) return ip;
  if constexpr (std::is_same_v<Rule, Ip6RuleConfig>) return ip6;
  if constexpr (std::is_same_v<Rule, MacRuleConfig>) return mac;
}

#define IP(...) ROW(ip, IpRuleConfig, IpFilter, __VA_ARGS__)
#define IP6(...) ROW(ipv6, Ip6RuleConfig, Ip6Filter, __VA_ARGS__)
#define MAC(...) ROW(mac, MacRuleConfig, MacFilter, __VA_ARGS__)
#define BOTH(...) IP(__VA_ARGS__), IP6(__VA_ARGS__)  // the same check of both IP families

// clang-format off: one row per line, like the table it pins
std::vector<Row> rows() {
  return {
      IP(f.srcMaskIs(Ip4Addr(0xFF00FF00)), CAN(discontiguousMaskSupported), "discontiguous IP mask",
         "discontiguous IP mask not supported", SAME),
      IP(f.dstMaskIs(Ip4Addr(0xFFFF00FF)), CAN(discontiguousMaskSupported), "discontiguous IP mask",
         "discontiguous IP mask not supported", SAME),
      IP(r.mirrorSessionIs("m"), CAN(ipMirrorSupported), "mirror", "mirror not supported",
         "<, mirroring action on IP ACL not supported"),
      IP(r.copyToCpuIs(true), CAN(copyToCpuSupported), "copyToCpu", "copyToCpu not supported",
         "<, copyToCpu action on IP ACL not supported"),
      IP(r.logIs(true), CAN(loggingSupported), "logging", "logging not supported", SAME),
      IP(f.trackedIs(true), nullptr, "tracked", "tracked not supported", "<, tracked"),
      IP(f.ttlKindIs(ValueOp::eq), nullptr, "ttl", "ttl option not supported", SAME),
      IP(f.matchDscpIs(true), CAN(ipDscpSupported), "dscp", "dscp not supported", SAME),
      IP((f.protocolIs(47), f.greProtoIs(0x6558)), CAN(dpiNvgreSupported), "dpi-nvgre", "DPI Nvgre not supported",
         SAME),
      IP(f.greProtoMaskIs(0xFFFF), CAN(dpiGreSupported), "dpi-gre", "DPI Gre not supported", SAME),
      IP(f.userL4MaskIs(0xFF), CAN(dpiUserL4Supported), "dpi-userl4", "DPI userL4 not supported", SAME),
      IP(f.tcpFlagsMaskIs(0x12), CAN(tcpFlagsSupported), "tcpFlag", "TCP flag not supported",
         "<, TCP flags not supported"),
      IP6(r.mirrorSessionIs("m"), CAN(ip6MirrorSupported), "mirror", "mirror not supported",
          "<, mirroring action on IPv6 ACL not supported"),
      IP6(r.copyToCpuIs(true), CAN(copyToCpuSupported), "copyToCpu", "copyToCpu not supported",
          "<, copyToCpu action on IPv6 ACL not supported"),
      IP6(r.logIs(true), CAN(loggingSupported), "ipv6-logging", "ipv6 logging not supported", SAME),
      IP6(f.hopLimitKindIs(ValueOp::gt), nullptr, "hop-limit", "hop-limit option not supported", SAME),
      IP6((f.greProtoIs(0x6558), f.greProtoMaskIs(0xFFFF)), CAN(dpiNvgreSupported), "dpi-nvgre",
          "DPI Nvgre not supported", SAME),
      IP6(f.userL4MaskIs(1), CAN(dpiUserL4Supported), "dpi-userl4", "DPI UserL4 not supported", SAME),
      IP6(f.tcpFlagsMaskIs(2), CAN(tcpFlagsSupported), "tcpFlag", "TCP flag not supported", SAME),
      IP6(f.matchDscpIs(true), CAN(ip6DscpSupported), "dscp", "dscp not supported", SAME),
      MAC(r.mirrorSessionIs("m"), CAN(macMirrorSupported), "mirror", "mirror not supported",
          "<, mirroring action on MAC ACL not supported"),
      MAC(r.logIs(true), CAN(loggingSupported), "mac-logging", "mac logging not supported", SAME),
      MAC(f.outerVlanMaskIs(1), CAN(outerVlanSupported), "outer-vlan", "outer Vlan not supported", SAME),
      MAC(f.innerVlanMaskIs(1), CAN(innerVlanSupported), "inner-vlan", "inner Vlan not supported", SAME),
      MAC(f.mplsInnerLabelIs(17), CAN(mplsTwoLabelSupported), "mpls", "Two-label Mpls not supported", SAME),
      MAC(f.mplsLabelIs(16), CAN(mplsSupported), "mpls", "Mpls not supported", SAME),
      MAC(f.payloadIs(PayloadSpec(String("0,0x1,0x1,,"))), CAN(dpiPayloadSupported), "dpi-payload",
          "DPI payload not supported", "<, DPI Payload not supported"),
      BOTH(f.matchEcnIs(true), CAN(ecnSupported), "ecn", "ecn not supported", SAME),
      BOTH(f.outerVlanMaskIs(0xFFF), CAN(outerVlanSupported), "outer-vlan", "outer vlan not supported",
           "<, outer Vlan not supported"),
      BOTH(f.innerVlanMaskIs(0xFFF), CAN(innerVlanSupported), "inner-vlan", "inner vlan not supported",
           "<, inner Vlan not supported"),
      BOTH(f.ipLengthIs(RangeMatch(ValueOp::lt, 64)), CAN(ipLengthSupported), "ip-length", "ip-length not supported",
           "<, ip-length match not supported"),
      BOTH(f.tniIs(5), CAN(dpiNvgreSupported), "dpi-tni", "DPI TNI not supported", SAME),
      BOTH(f.vxlanIs(true), CAN(dpiVxlanSupported), "dpi-vxlan", "DPI Vxlan not supported", SAME),
      BOTH(f.vniIs(5), CAN(dpiVxlanSupported), "dpi-vni", "DPI VNI not supported", SAME),
      BOTH(f.gtpIs(true), CAN(dpiGtpSupported), "dpi-gtp", "DPI Gtp not supported", SAME),
      BOTH(f.teidIs(5), CAN(dpiGtpSupported), "dpi-teid", "DPI TEID not supported", SAME),
      BOTH(f.payloadIs(PayloadSpec(String("0,0x1,0x1,,"))), CAN(dpiPayloadSupported), "dpi-payload",
           "DPI payload not supported", "<, DPI Payload not supported"),
  };
}

// DSCP-mask rows: the feature also uses DSCP, which the platform then has.
std::vector<Row> maskRows() {
  Row v4 =
      IP((f.matchDscpIs(true), f.dscpMaskIs(7)), CAN(ipDscpMaskSupported), "dscpMask", "dscpMask not supported", SAME);
  v4.prerequisite = CAN(ipDscpSupported);
  Row v6 = IP6((f.matchDscpIs(true), f.dscpMaskIs(7)), CAN(ip6DscpMaskSupported), "dscpMask", "dscpMask not supported",
               SAME);
  v6.prerequisite = CAN(ip6DscpSupported);
  return {v4, v6};
}
// clang-format on
#undef BOTH
#undef IP
#undef IP6
#undef MAC
#undef CAN
#undef SAME
#undef ROW

TEST_F(HwTest, EachCapabilityRowRefusesOnlyWhereThePlatformLacksIt) {
  std::vector<Row> all = rows();
  for (Row& row : maskRows()) all.push_back(row);
  for (const Row& row : all) {
    SCOPED_TRACE(row.what);
    // Each condition of a row decides on its own: the feature used or not on a platform that
    // lacks it, and used on one that has it.
    for (bool used : {false, true}) {
      for (bool supported : {false, true}) {
        if ((supported && !row.support) || (!used && supported)) continue;
        build::SessionWorld world;
        world.acl.paramConfig->aclSupportedIs(true);
        world.acl.paramConfig->ip6AclSupportedIs(true);
        if (row.prerequisite) row.prerequisite(*world.acl.paramConfig);
        if (supported) row.support(*world.acl.paramConfig);
        IpRuleConfig ipRule;
        Ip6RuleConfig ip6Rule;
        MacRuleConfig macRule;
        if (used) row.use(ipRule, ip6Rule, macRule);
        auto a = world.acl.config->configIs(row.type)->aclIs("a", row.type, false, false);
        auto v = a->subConfigIs(UniqueId());
        v->ipRuleByIdIs(UniqueId(), ipRule);
        v->ip6RuleByIdIs(UniqueId(), ip6Rule);
        v->macRuleByIdIs(UniqueId(), macRule);
        a->currCfgIs(v);
        world.acl.intfConfig->configIs(row.type)->intfIs(AclDirection::out)->intfIs(IntfId(String("Ethernet1")), "a");
        auto s = world.session("a", row.type);
        traces.clear();
        EXPECT_EQ(s->dpAclOk(), supported || !used);
        if (supported || !used) {
          EXPECT_TRUE(s->errString().empty());
        } else {
          EXPECT_EQ(s->errString().size(), 1u);
          EXPECT_EQ(s->errString(row.key), row.message);
          EXPECT_TRUE(traces.contains(row.trace ? std::string(row.trace) : std::string("<, ") + row.message));
          EXPECT_TRUE(traces.contains("<, false"));
        }
      }
    }
  }
}

TEST_F(HwTest, OneRuleFailingSeveralChecksLeavesOneEntryPerKey) {
  acl.paramConfig->aclSupportedIs(true);
  MacRuleConfig rule = build::ruleWith<MacRuleConfig>([&](MacFilter& f) {
    f.mplsLabelIs(16);
    f.mplsInnerLabelIs(17);
    f.outerVlanMaskIs(1);
  });
  rule.logIs(true);
  installRule("m", AclType::mac, rule);
  bind("Ethernet1", "m", AclType::mac);
  auto s = session("m", AclType::mac);
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString().size(), 3u);
  EXPECT_EQ(s->errString("mpls"), "Mpls not supported") << "the later row under a shared key wins";
  EXPECT_EQ(s->errString("mac-logging"), "mac logging not supported");
  EXPECT_EQ(s->errString("outer-vlan"), "outer Vlan not supported");
}

TEST_F(HwTest, FamilyAndAttachmentPreconditionsComeFirst) {
  IpRuleConfig logged;
  logged.logIs(true);
  installRule("web", AclType::ip, logged);
  auto s = session("web");
  EXPECT_TRUE(s->dpAclOk()) << "bound nowhere: nothing to program";
  EXPECT_TRUE(traces.contains("Acl web is not attached to any interface"));
  bind("Ethernet1", "web");
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString("dpacl"), "Acl not supported by hardware");
  EXPECT_TRUE(traces.contains("Acl not supported by hw"));
  EXPECT_EQ(s->errString().size(), 1u) << "the family check ends the call";
  bind("Ethernet1", "v6", AclType::ipv6);
  auto v6 = session("v6", AclType::ipv6);
  EXPECT_FALSE(v6->dpAclOk());
  EXPECT_EQ(v6->errString("ip6"), "ip6 Acl not supported");
}

TEST_F(HwTest, VlanRowsApplyOnlyWhenBoundToAVlanInterface) {
  acl.paramConfig->aclSupportedIs(true);
  IpRuleConfig rule = build::ruleWith<IpRuleConfig>([&](IpFilter& f) {
    f.vlanIs(10);
    f.vlanMaskIs(0xFFF);
  });
  rule.vaclIs(true);
  installRule("web", AclType::ip, rule);
  bind("Ethernet1", "web");
  auto s = session("web");
  EXPECT_TRUE(s->dpAclOk());
  EXPECT_TRUE(s->dpAclDpiOk());
  bind("Vlan10", "web");
  EXPECT_TRUE(s->attachingAclToVlan());
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString("vlan-vacl"), "Vlan VACL not supported");
  EXPECT_EQ(s->errString("vacl"), "VACL not supported");
  traces.clear();
  EXPECT_FALSE(s->dpAclDpiOk());
  EXPECT_TRUE(traces.contains("<, trying to attach to Vlan"));

  // The two rows decide on their own conditions: a VACL rule without a VLAN match, a platform
  // with VACLs, a VLAN match without a mask for the deep-inspection check.
  acl.paramConfig->vaclSupportedIs(true);
  s->errStringDelAll();
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString().size(), 1u);
  EXPECT_TRUE(s->errString().contains("vlan-vacl"));
  acl.paramConfig->vaclSupportedIs(false);
  rule.filterIs(build::ruleWith<IpRuleConfig>([&](IpFilter& f) { f.vlanMaskIs(0xFFF); }).filter());
  installRule("web", AclType::ip, rule);
  s->errStringDelAll();
  EXPECT_FALSE(s->dpAclOk());
  EXPECT_EQ(s->errString().size(), 1u);
  EXPECT_TRUE(s->errString().contains("vacl"));
  EXPECT_TRUE(s->dpAclDpiOk()) << "a mask without a VLAN matches no VLAN";
}

// ---- deep inspection and the pre-apply guard ------------------------------------------------

TEST_F(HwTest, DeepInspectionIsRefusedOnlyWithANonZeroSkip) {
  IpRuleConfig rule = build::ruleWith<IpRuleConfig>([&](IpFilter& f) {
    f.protocolIs(47);
    f.greProtoIs(0x6558);
    f.greProtoMaskIs(0xFFFF);
    f.tniIs(9);
  });
  installRule("web", AclType::ip, rule);
  auto s = session("web");
  EXPECT_TRUE(s->dpAclDpiOk());
  acl.paramConfig->dpiSkipNonZeroIs(true);
  traces.clear();
  EXPECT_FALSE(s->dpAclDpiOk());
  EXPECT_EQ(traces.messages("AclApi"),
            (std::vector<std::string>{"dpAclDpiOk", "<, DPI Nvgre not supported with non-zero skip"}));
  EXPECT_TRUE(s->errString().empty()) << "this check only traces";

  // Every link of the chain refuses on its own match, and only with the skip.
  const std::pair<std::function<void(IpFilter&)>, const char*> chain[] = {
      {[](IpFilter& f) { f.greProtoMaskIs(1); }, "<, DPI Gre not supported with non-zero skip"},
      {[](IpFilter& f) { f.tniIs(1); }, "<, DPI TNI not supported with non-zero skip"},
      {[](IpFilter& f) { f.vxlanIs(true); }, "<, DPI Vxlan not supported with non-zero skip"},
      {[](IpFilter& f) { f.vniIs(1); }, "<, DPI VNI not supported with non-zero skip"},
      {[](IpFilter& f) { f.gtpIs(true); }, "<, DPI Gtp not supported with non-zero skip"},
      {[](IpFilter& f) { f.teidIs(1); }, "<, DPI TEID not supported with non-zero skip"},
      {[](IpFilter& f) { f.protocolIs(47); }, nullptr},  // GRE alone is not NVGRE
      {[](IpFilter& f) { f.greProtoIs(0x6558); }, nullptr},
  };
  for (const auto& [match, refusal] : chain) {
    installRule("web", AclType::ip, build::ruleWith<IpRuleConfig>(match));
    traces.clear();
    EXPECT_EQ(s->dpAclDpiOk(), refusal == nullptr) << (refusal ? refusal : "no refusal");
    if (refusal) {
      EXPECT_TRUE(traces.contains(refusal));
    }
  }
  acl.paramConfig->dpiSkipNonZeroIs(false);
  for (const auto& [match, refusal] : chain) {
    installRule("web", AclType::ip, build::ruleWith<IpRuleConfig>(match));
    EXPECT_TRUE(s->dpAclDpiOk());
  }

  MacRuleConfig mpls = build::ruleWith<MacRuleConfig>([&](MacFilter& mf) { mf.mplsLabelIs(100); });
  installRule("m", AclType::mac, mpls);
  auto m = session("m", AclType::mac);
  EXPECT_TRUE(m->dpAclDpiOk());
  acl.paramConfig->mplsSkipNonZeroIs(true);
  EXPECT_FALSE(m->dpAclDpiOk());
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
  EXPECT_EQ(bound->errString("IPv6"), "hop limit is not supported for IPv6 ACLs on this platform");
  auto detaching = session("v6", AclType::ipv6, detach_);
  EXPECT_EQ(detaching->detach("Ethernet1", AclDirection::in), succeeded);
  EXPECT_EQ(detaching->attachedAcl("Ethernet1", AclDirection::in), "");
}

// ---- attach and detach ----------------------------------------------------------------------

TEST_F(HwTest, AttachBindsReplacesAndWaitsForTheHardware) {
  auto s = session("web", AclType::ip, attach_);
  EXPECT_EQ(s->attach("Ethernet1", AclDirection::in), succeeded);
  EXPECT_TRUE(traces.contains("Acl: web does not exist")) << "a name without configuration binds all the same";
  EXPECT_EQ(s->attachedAcl("Ethernet1", AclDirection::in), "web");
  EXPECT_EQ(s->origAclName(), "");
  EXPECT_EQ(s->intf(), "Ethernet1");
  EXPECT_TRUE(s->attachedToDp());
  EXPECT_FALSE(s->attachingAclToVlan());

  FakeDataplane dp(acl, "dp1");
  auto other = session("other", AclType::ip, attach_);
  EXPECT_EQ(other->attach("Ethernet1", AclDirection::in), waitingForHw);
  EXPECT_EQ(other->origAclName(), "web");
  EXPECT_EQ(other->attachedAcl("Ethernet1", AclDirection::in), "other");
  EXPECT_FALSE(s->attachedToDp());
  dp.apply();
  EXPECT_EQ(other->apiState(), succeeded);
  EXPECT_EQ(other->attachedAcl("Ethernet1", AclDirection::out), "");
}

TEST_F(HwTest, DetachRemovesOnlyWhatItNames) {
  bind("Ethernet1", "web");
  bind("Ethernet2", "other");
  auto s = session("web", AclType::ip, detach_);
  EXPECT_EQ(s->detach("Ethernet2", AclDirection::in), succeeded);
  EXPECT_EQ(s->attachedAcl("Ethernet2", AclDirection::in), "other");
  EXPECT_TRUE(traces.contains("web is not attached to Ethernet2"));
  EXPECT_EQ(s->detach("Ethernet9", AclDirection::in), succeeded);
  EXPECT_TRUE(traces.contains("No acl attached to Ethernet9"));
  EXPECT_EQ(s->origAclName(), "");
  EXPECT_EQ(s->detach("Ethernet1", AclDirection::in), succeeded);
  EXPECT_EQ(s->origAclName(), "web");
  auto wildcard = session("", AclType::ip, detach_);
  EXPECT_EQ(wildcard->detach("Ethernet2", AclDirection::in), succeeded);
  EXPECT_EQ(wildcard->origAclName(), "other");
  EXPECT_TRUE(acl.intfConfig->config(AclType::ip)->intf(AclDirection::in)->intf().empty());
}

TEST(ApiSmDeathTest, OperationsBelongToTheirSessionTypes) {
  build::SessionWorld world;
  auto s = world.session("web");
  EXPECT_DEATH(static_cast<void>(s->attach("Ethernet1", AclDirection::in)),
               "Assertion failed: apiType\\(\\) == attach_ \\(");
  EXPECT_DEATH(static_cast<void>(s->detach("Ethernet1", AclDirection::in)),
               "Assertion failed: apiType\\(\\) == detach_ \\(");
  EXPECT_DEATH(static_cast<void>(s->remove()), "Assertion failed: apiType\\(\\) == remove_ \\(");
  auto attaching = world.session("web", AclType::ip, attach_);
  EXPECT_DEATH(attaching->createScratchpad(), "Assertion failed: apiType\\(\\) == commit_ \\(");
}

}  // namespace
