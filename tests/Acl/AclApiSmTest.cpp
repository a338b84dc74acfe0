// The session object: its reflected interface, its defaults and collections, and what the
// model does not hold (lookups, identities, references, alias lists). What its operations do
// to lists is the property test's, and what they trace the trace table's.
#include <gtest/gtest.h>

#include <map>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "tests/support/SessionInvariants.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;

class ApiSmTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  build::AllLevels levels;
  fwk::TraceCapture traces;
};

TEST_F(ApiSmTest, AttributesAndOperationsAreReflectedInDeclaredOrderAndRunByName) {
  std::string names;
  std::map<std::string, std::string> types;
  for (const auto& a : ApiSm::staticType().ownAttrs()) {
    names += a->name().str() + " ";
    types[a->name().str()] = a->valueTypeName().str();
  }
  EXPECT_EQ(names,
            "aclName aclType standard spAclSubConfig spLastSequenceNumber spIpRuleMap spIp6RuleMap spMacRuleMap "
            "spRemarkMap spRuleMapInitialized origAclSubConfig origAclConfig intf direction origAclName apiType config "
            "paramConfig intfConfig hwConfig aclStatus statusDpDir udfAliasDir checkpoint statusDp statusDpEntry "
            "inConfigSession guardsEnabled maxSequence defaultSeqInc apiState errString dynamic secureMonitor "
            "aclCopyHelper entityCopy initialized ");
  std::string ops;
  for (const auto& op : ApiSm::staticType().ownOps()) ops += op.name.str() + " ";
  EXPECT_EQ(ops,
            "handleRuleBySequence initializeRuleMap updateIpRuleMap updateIp6RuleMap updateMacRuleMap updateRemarkMap "
            "handleDpAclUpdateTime remove exists getIpRule getIp6Rule getMacRule addIpRule addIp6Rule addMacRule "
            "removeRuleBySequence removeIpRuleByConfig removeIp6RuleByConfig removeMacRuleByConfig addRemark "
            "removeRemark clearUdfAceList populateUdfAceList updateUdfAliasInAcls commit commitExt revert "
            "cleanupOldConfig attach detach attachedAcl resequence enableCounters disableCounters enableFragments "
            "disableFragments currentAcl sameRule shouldUpdateAcl addRuleCommon waitForHw dpAclOk dpAclDpiOk "
            "dpAclPreApplyOk attachedToDp attachingAclToVlan createScratchpad getLastSequenceNumber "
            "handleInitialized ");
  // Type names are part of the interface too: one read before its initializer ran is empty.
  for (const auto& [name, type] : types) EXPECT_FALSE(type.empty()) << name;
  EXPECT_EQ(types["spAclSubConfig"], "Ptr<AclSubConfig>");
  EXPECT_EQ(types["paramConfig"], "Ptr<const ParamConfig>");

  // The factory is registered, and operations and attributes run by name.
  installAcl("web", {{10, 80}});
  Ptr<fwk::Entity> made = fwk::findType("ApiSm")->create(
      {String("web"), AclType::ip, false, commit_, acl.config, Ptr<const ParamConfig>(acl.paramConfig), acl.intfConfig,
       acl.hwConfig, Ptr<const Status>(acl.status), Ptr<const fwk::Dir>(acl.statusDpDir), acl.udfAlias});
  auto& s = fwk::cast<ApiSm>(*made);
  EXPECT_EQ(fwk::invoke(s, "addIpRule", {U32{20}, build::ipRule(443)}).as<ApiState>(), succeeded);
  EXPECT_EQ(fwk::invoke(s, "getIpRule", {U32{20}}).as<IpRuleConfig>(), build::ipRule(443));
  EXPECT_EQ(fwk::getAttribute(s, "apiState").strep(), "succeeded");
}

TEST_F(ApiSmTest, AFreshSessionHasItsDefaultsAndItsCollectionsOneEntryPerKey) {
  acl.statusDpDir->entityIs<StatusDp>("dp1");
  acl.statusDpDir->entityIs<fwk::Dir>("notADataplane");
  auto s = session("web", AclType::mac);
  EXPECT_EQ(std::tuple(s->apiState(), s->guardsEnabled(), s->inConfigSession(), s->initialized(), s->maxSequence(),
                       s->defaultSeqInc(), s->direction(), s->exists()),
            std::tuple(ready, true, false, true, 4294967295u, 10u, AclDirection::in, false));
  EXPECT_TRUE(s->aclCopyHelper() && s->entityCopy() && s->currentAcl());
  EXPECT_EQ(s->statusDp().size(), 1u) << "only StatusDp entities are dataplanes";
  EXPECT_TRUE(acl.config->config(AclType::mac)) << "the family's configuration is made";
  EXPECT_TRUE(traces.contains("handleInitialized<"));
  for (ApiType t : {remove_, attach_, detach_}) EXPECT_FALSE(session("web", AclType::ip, t)->currentAcl());

  s->errStringIs("k", "first");
  s->errStringIs("k", "second");
  EXPECT_EQ(s->errString().size(), 1u);
  EXPECT_EQ(s->errStringDel("absent"), "");
  EXPECT_EQ(s->errStringDel("k"), "second");
  fwk::setAttribute(*s, "errString", String("r"), String("by name"));
  s->errStringDelAll();
  EXPECT_TRUE(s->errString().empty());

  Ptr<StatusDp> dp(new StatusDp("dpX"));
  s->statusDpIs(dp);
  Ptr<StatusDpEntry> entry = s->statusDpEntry("dpX");
  s->statusDpIs(dp);
  EXPECT_EQ(s->statusDpEntry("dpX"), entry) << "a reactor for the same record is kept";
  s->statusDpDel("dpX");
  EXPECT_FALSE(s->statusDpEntry().contains("dpX"));
  EXPECT_TRUE(dp->notifieeList().empty()) << "an entry the session dropped stops watching, even if held";
  s = nullptr;
  dp->dpAclUpdateTimeIs(5);  // reaches nobody
  EXPECT_DEATH(session("web")->statusDpIs("other", dp), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

TEST_F(ApiSmTest, LookupsMasksAndWhatACommitKeeps) {
  Ptr<AclConfig> web = installAcl("web", {{10, 80}, {20, 443}}, {{15, "r"}});
  auto s = session("web");
  EXPECT_FALSE(s->currentAcl()->committed()) << "the scratchpad does not copy the committed flag";
  EXPECT_EQ(s->getIpRule(10), build::ipRule(80));
  EXPECT_EQ(s->getIpRule(15), IpRuleConfig()) << "a remark is not a rule";
  EXPECT_EQ(s->getMacRule(10), MacRuleConfig()) << "lookups ignore the session's family";
  EXPECT_EQ(session("web", AclType::ip, remove_)->getIpRule(10), IpRuleConfig());
  for (U32 mask : {0xFFFFFF00u, 0x80000000u, 0u, 0xFFFFFFFFu}) EXPECT_TRUE(maskIsContiguous(mask)) << mask;
  for (U32 mask : {0x000000FFu, 0xFF00FF00u}) EXPECT_FALSE(maskIsContiguous(mask)) << mask;

  // A commit holds no copy of its scratchpad; a renumbering patches the programmed version in
  // place, every rule keeping its identity.
  ASSERT_EQ(s->addIpRule(30, build::ipRule(22)), succeeded);
  Ptr<AclSubConfig> scratchpad = s->currentAcl();
  ASSERT_EQ(s->commit(), succeeded);
  EXPECT_EQ(scratchpad->fwkReferences(), 1u);
  const Ptr<AclSubConfig> current = web->currCfg();
  const UniqueId first = current->ruleBySequence(10);
  auto renumbering = session("web");
  ASSERT_EQ(renumbering->resequence(100, 100), succeeded);
  EXPECT_EQ(renumbering->commit(), succeeded);
  EXPECT_EQ(web->currCfg(), current);
  EXPECT_EQ(current->ruleBySequence(100), first);
}

IpRuleConfig payloadRule(const char* elements) {
  return build::ruleWith<IpRuleConfig>([&](IpFilter& f) { f.payloadIs(PayloadSpec(String(elements))); });
}

TEST_F(ApiSmTest, AliasListsFollowCommitsAndRemovalsAndAliasChangesRewriteRules) {
  Ptr<UdfAliasPayload> key = acl.udfAlias->ipAliasIs("key");
  acl.status->ipPayloadCapacityIs(1);  // a rewrite keeps capacity + 1 elements: rule 30 has 2
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(10, payloadRule("0,0x1,0xff,key,")), succeeded);
  ASSERT_EQ(s->addIpRule(20, build::ipRule(443)), succeeded);
  ASSERT_EQ(s->addIpRule(30, payloadRule("4,0x7,0xff,key,p 8,0x1,0x1,,")), succeeded);
  EXPECT_EQ(s->commitExt(false), succeeded);
  auto users = [&] {
    std::vector<U32> all;
    if (auto list = key->aceListForAcl("web")) {
      for (const auto& entry : list->seq()) all.push_back(entry.first);
    }
    return all;
  };
  EXPECT_EQ(users(), (std::vector<U32>{10, 30}));
  PayloadValue value;
  value.offsetIs(2);
  value.patternIs(0xAB);
  value.maskIs(0xF0);
  auto editor = session("web");
  editor->updateUdfAliasInAcls("key", value);
  EXPECT_EQ(editor->apiState(), succeeded);
  Ptr<AclSubConfig> current = acl.config->config(AclType::ip)->acl("web")->currCfg();
  auto payloadAt = [&](U32 seq) { return current->ipRuleById(current->ruleBySequence(seq)).filter().payload(); };
  EXPECT_EQ(payloadAt(10).offsetPattern(), "2,0xab,0xf0,key,");
  EXPECT_EQ(payloadAt(30).offsetPattern(), "2,0x7,0xf0,key,p 8,0x1,0x1,,") << "its own pattern stays";
  EXPECT_EQ(users(), (std::vector<U32>{10, 30}));
  PayloadSpec spec(String("1,0x1,0x1,other, 2,0x2,0x2,key,m"));
  EXPECT_EQ(updatePayloadSpec("none", value, spec, 4).offsetPattern(), "1,0x1,0x1,other, 2,0x2,0x2,key,m");
  EXPECT_EQ(updatePayloadSpec("key", value, spec, 4).offsetPattern(), "1,0x1,0x1,other, 2,0xab,0x2,key,m");
  EXPECT_EQ(updatePayloadSpec("key", value, spec, 1).count(), 1) << "never more elements than asked for";
  EXPECT_EQ(session("web", AclType::ip, remove_)->remove(), succeeded);
  EXPECT_FALSE(key->aceListForAcl("web")) << "the alias no longer points at the removed list";
}

TEST_F(ApiSmTest, TheInvariantCheckerSeesDrift) {
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(0, build::ipRule(1)), succeeded);
  EXPECT_TRUE(invariantViolations(*s).empty());
  s->spIpRuleMapIs(build::ipRule(1), 5);
  s->currentAcl()->ruleBySequenceIs(20, UniqueId());
  s->spLastSequenceNumberIs(7);
  EXPECT_EQ(invariantViolations(*s).size(), 3u);
}

TEST(ApiSmDeathTest, OperationsBelongToTheirSessionTypes) {
  build::SessionWorld world;
  auto s = world.session("web");
  EXPECT_DEATH(static_cast<void>(s->attach("Ethernet1", AclDirection::in)),
               "Assertion failed: apiType\\(\\) == attach_ \\(");
  EXPECT_DEATH(static_cast<void>(s->detach("Ethernet1", AclDirection::in)),
               "Assertion failed: apiType\\(\\) == detach_ \\(");
  EXPECT_DEATH(static_cast<void>(s->remove()), "Assertion failed: apiType\\(\\) == remove_ \\(");
  EXPECT_DEATH(world.session("web", AclType::ip, attach_)->createScratchpad(),
               "Assertion failed: apiType\\(\\) == commit_ \\(");
}

}  // namespace
