#include <gtest/gtest.h>

#include "aclkit/model/AclConfig.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "aclkit/platform/store/StateStore.h"
#include "tests/support/AclBuilders.h"

namespace {

using namespace Acl;
using fwk::Ptr;

IpRuleConfig ipRule(U8 protocol, U16 port) {
  IpRuleConfig rule = build::ruleWith<IpRuleConfig>([&](IpFilter& f) {
    f.protocolIs(protocol);
    f.protocolMaskIs(0xFF);
    f.dstPortIs(RangeMatch(ValueOp::eq, port));
  });
  return rule;
}

Ptr<AclSubConfig> filledSubConfig(Input::Config& config) {
  Ptr<AclConfig> acl = config.configIs(AclType::ip)->aclIs("acl1", AclType::ip, false, false);
  Ptr<AclSubConfig> sub = acl->subConfigIs(UniqueId());
  for (U32 seq : {10u, 20u, 30u}) {
    UniqueId id;
    sub->ruleBySequenceIs(seq, id);
    sub->ipRuleByIdIs(id, ipRule(6, static_cast<U16>(seq)));
  }
  UniqueId v6;
  Ip6RuleConfig rule6 = build::ruleWith<Ip6RuleConfig>([&](Ip6Filter& f6) {
    f6.srcIs(Ip6Addr::fwkParse("2001:db8::"));
    f6.srcPrefixLenIs(32);
  });
  sub->ip6RuleByIdIs(v6, rule6);
  MacRuleConfig mac = build::ruleWith<MacRuleConfig>([&](MacFilter& mf) { mf.mplsLabelIs(100); });
  sub->macRuleByIdIs(UniqueId(), mac);
  sub->remarkBySequenceIs(15, RemarkConfig(String("web")));
  sub->countersEnabledIs(true);
  sub->committedIs(true);
  acl->currCfgIs(sub);
  return sub;
}

TEST(AclConfigTest, ASubConfigRoundTripsThroughTheGenericCopy) {
  Ptr<Input::Config> config(new Input::Config());
  config->hasNotificationActiveIs(true);
  Ptr<AclSubConfig> src = filledSubConfig(*config);
  Ptr<AclSubConfig> dest(new AclSubConfig(UniqueId()));
  dest->hasNotificationActiveIs(true);
  Ptr<Cli::Session::EntityCopy> copy = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(copy->doCopyEntityAttrs(dest, src, "", nullptr));
  std::vector<std::string> names;
  for (const fwk::AttrInfo* attr : AclSubConfig::staticType().attrs()) {
    names.push_back(attr->name().str());
    if (attr->name() == "committed" || attr->name() == "id") continue;
    if (attr->isCollection()) {
      auto keys = attr->keys(*src);
      EXPECT_EQ(attr->size(*dest), keys.size()) << attr->name();
      for (const auto& key : keys) EXPECT_EQ(attr->get(*dest, key).strep(), attr->get(*src, key).strep());
    } else {
      EXPECT_EQ(attr->get(*dest).strep(), attr->get(*src).strep()) << attr->name();
    }
  }
  // Its flags first, and its maps in order.
  EXPECT_EQ(names,
            (std::vector<std::string>{"opaque", "committed", "ruleBySequence", "remarkBySequence", "ipRuleById",
                                      "ip6RuleById", "macRuleById", "countersEnabled", "fragmentsEnabled", "id"}));
  EXPECT_FALSE(dest->committed()) << "committed belongs to the tree it was set in";
  EXPECT_NE(dest->id(), src->id()) << "an identity is a construction argument";
  EXPECT_FALSE(copy->doCopyEntityAttrs(dest, src, "", nullptr)) << "equal after the copy";
}

TEST(AclConfigTest, AWholeInputTreeCopiesGenerically) {
  Ptr<Input::Config> running(new Input::Config("running"));
  running->hasNotificationActiveIs(true);
  Ptr<AclSubConfig> sub = filledSubConfig(*running);
  running->config(AclType::ip)->acl("acl1")->dynamicIs(true);
  Ptr<Input::Config> candidate(new Input::Config("candidate"));
  Ptr<Cli::Session::EntityCopy> copy = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(copy->copyTree(candidate, running));
  Ptr<AclConfig> acl = candidate->config(AclType::ip)->acl("acl1");
  ASSERT_TRUE(acl);
  EXPECT_EQ(acl->type(), AclType::ip);
  EXPECT_TRUE(acl->dynamic());
  ASSERT_TRUE(acl->currCfg());
  EXPECT_EQ(acl->currCfg()->parent(), acl.get()) << "the current version points into the copy";
  EXPECT_EQ(acl->currCfg()->ipRuleById().size(), 3u);
  EXPECT_EQ(acl->currCfg()->id(), sub->id()) << "versions keep their identity across trees";
  EXPECT_FALSE(copy->copyTree(candidate, running));

  // An ACL goes by name or through an iterator that stands on it.
  Ptr<Input::AclTypeConfig> ipAcls = candidate->config(AclType::ip);
  ipAcls->aclIs("acl2", AclType::ip, false, false);
  ipAcls->aclDel(ipAcls->acl().end());
  EXPECT_EQ(ipAcls->acl().size(), 2u) << "the end stands on nothing";
  ipAcls->aclDel(ipAcls->acl().begin());
  EXPECT_FALSE(ipAcls->acl("acl1"));
  EXPECT_TRUE(ipAcls->acl("acl2"));
  EXPECT_EQ(acl->parent(), nullptr);
  EXPECT_DEATH(ipAcls->aclDel(running->config(AclType::ip)->acl().begin()), "iterator of another collection");
}

TEST(AclConfigTest, BindingsReplaceAndTheStoreHoldsTheModel) {
  fwk::StateStore store;
  AclMounts mounts = mountAcl(store);
  EXPECT_EQ(mountAcl(store).config, mounts.config);
  EXPECT_EQ(store.find(Acl::mountPoint::intfConfig), mounts.intfConfig);
  EXPECT_EQ(mounts.intfConfig->config(AclType::ip), nullptr);
  Ptr<AclIntf> in = mounts.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in);
  in->intfIs(IntfId(String("Ethernet1")), "acl1");
  in->intfIs(IntfId(String("Ethernet1")), "acl2");
  EXPECT_EQ(in->intf().size(), 1u);
  EXPECT_EQ(in->intf(IntfId(String("Ethernet1"))), "acl2");
  EXPECT_EQ(in->direction(), AclDirection::in);

  Ptr<StatusDp> dp = mounts.statusDpDir->entityIs<StatusDp>("dp1");
  dp->errorIs("b", "second");
  dp->errorIs("a", "first");
  EXPECT_EQ(dp->error().begin()->second, "first") << "errors are kept in key order";
  mounts.paramConfig->allSupportedIs(true);
  EXPECT_TRUE(mounts.paramConfig->ip6HopLimitSupported());
  EXPECT_FALSE(mounts.paramConfig->dpiSkipNonZero());

  Ptr<UdfAliasPayload> alias = mounts.udfAlias->ipAliasIs("key");
  alias->aceListForAclIs("acl1")->seqIs(10, true);
  EXPECT_EQ(alias->aceListForAclIs("acl1")->seq().size(), 1u);
}

}  // namespace
