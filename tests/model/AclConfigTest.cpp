// The model's entities: a version and a whole input tree copy generically, with what belongs
// to the tree they were set in left behind; a list goes by name or by an iterator on it.
#include <gtest/gtest.h>

#include "aclkit/model/AclConfig.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "tests/support/AclBuilders.h"

namespace {

using namespace Acl;
using fwk::Ptr;

// acl1 in `config`: three IPv4 rules, a record of each other family, a remark, counters.
Ptr<AclSubConfig> filledVersion(Input::Config& config) {
  Ptr<AclConfig> acl = config.configIs(AclType::ip)->aclIs("acl1", AclType::ip, false, false);
  Ptr<AclSubConfig> sub = build::version(*acl, {{10, 80}, {20, 443}, {30, 22}}, {{15, "web"}});
  sub->ip6RuleByIdIs(UniqueId(), build::ruleWith<Ip6RuleConfig>([&](Ip6Filter& f) { f.srcPrefixLenIs(32); }));
  sub->macRuleByIdIs(UniqueId(), build::ruleWith<MacRuleConfig>([&](MacFilter& f) { f.mplsLabelIs(100); }));
  sub->countersEnabledIs(true);
  sub->committedIs(true);
  acl->currCfgIs(sub);
  return sub;
}

TEST(AclConfigTest, AVersionAndAWholeTreeCopyGenerically) {
  Ptr<Input::Config> running(new Input::Config("running"));
  running->hasNotificationActiveIs(true);
  Ptr<AclSubConfig> src = filledVersion(*running);
  running->config(AclType::ip)->acl("acl1")->dynamicIs(true);
  Ptr<AclSubConfig> dest(new AclSubConfig(UniqueId()));
  Ptr<Cli::Session::EntityCopy> copy = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(copy->doCopyEntityAttrs(dest, src, "", nullptr));
  for (const fwk::AttrInfo* attr : AclSubConfig::staticType().attrs()) {
    auto text = [&](const AclSubConfig& version) {
      std::string all = attr->isCollection() ? "" : attr->get(version).strep();
      for (const auto& key : attr->isCollection() ? attr->keys(version) : std::vector<fwk::Value>()) {
        all += key.strep() + "=" + attr->get(version, key).strep() + " ";
      }
      return all;
    };
    const bool copied = attr->name() != "committed" && attr->name() != "id";
    EXPECT_TRUE(!copied || text(*dest) == text(*src)) << attr->name();
  }
  EXPECT_FALSE(dest->committed()) << "committed belongs to the tree it was set in";
  EXPECT_NE(dest->id(), src->id()) << "an identity is a construction argument";
  EXPECT_FALSE(copy->doCopyEntityAttrs(dest, src, "", nullptr)) << "equal after the copy";

  Ptr<Input::Config> candidate(new Input::Config("candidate"));
  EXPECT_TRUE(copy->copyTree(candidate, running));
  Ptr<AclConfig> acl = candidate->config(AclType::ip)->acl("acl1");
  ASSERT_TRUE(acl && acl->currCfg());
  EXPECT_TRUE(acl->type() == AclType::ip && acl->dynamic());
  EXPECT_EQ(acl->currCfg()->parent(), acl.get()) << "the current version points into the copy";
  EXPECT_EQ(acl->currCfg()->id(), src->id()) << "versions keep their identity across trees";
  EXPECT_FALSE(copy->copyTree(candidate, running));

  // An ACL goes by name or through an iterator that stands on it.
  Ptr<Input::AclTypeConfig> ipAcls = candidate->config(AclType::ip);
  ipAcls->aclIs("acl2", AclType::ip, false, false);
  ipAcls->aclDel(ipAcls->acl().end());
  EXPECT_EQ(ipAcls->acl().size(), 2u) << "the end stands on nothing";
  ipAcls->aclDel(ipAcls->acl().begin());
  EXPECT_TRUE(!ipAcls->acl("acl1") && ipAcls->acl("acl2"));
  EXPECT_EQ(acl->parent(), nullptr);
  EXPECT_DEATH(ipAcls->aclDel(running->config(AclType::ip)->acl().begin()), "iterator of another collection");
}

}  // namespace
