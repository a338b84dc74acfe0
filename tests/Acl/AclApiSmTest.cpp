#include <gtest/gtest.h>

#include <map>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/trace/Clock.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;

class ApiSmTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  void SetUp() override { fwk::TraceFacility::get("AclApi").levelsUpToIs(9); }
  void TearDown() override { fwk::TraceFacility::get("AclApi").levelsIs(0); }
  fwk::TraceCapture traces;
};

std::vector<std::string> attrNames(const fwk::TypeInfo& type) {
  std::vector<std::string> names;
  for (const auto& a : type.ownAttrs()) names.push_back(a->name().str());
  return names;
}

TEST_F(ApiSmTest, AttributesAndOperationsAreReflectedInDeclaredOrderAndRunByName) {
  EXPECT_EQ(attrNames(ApiSm::staticType()),
            (std::vector<std::string>{
                "aclName",          "aclType",         "standard",      "spAclSubConfig", "spLastSequenceNumber",
                "spIpRuleMap",      "spIp6RuleMap",    "spMacRuleMap",  "spRemarkMap",    "spRuleMapInitialized",
                "origAclSubConfig", "origAclConfig",   "intf",          "direction",      "origAclName",
                "apiType",          "config",          "paramConfig",   "intfConfig",     "hwConfig",
                "aclStatus",        "statusDpDir",     "udfAliasDir",   "checkpoint",     "statusDp",
                "statusDpEntry",    "inConfigSession", "guardsEnabled", "maxSequence",    "defaultSeqInc",
                "apiState",         "errString",       "dynamic",       "secureMonitor",  "aclCopyHelper",
                "entityCopy",       "initialized"}));
  std::string registered;
  for (const auto& op : ApiSm::staticType().ownOps()) registered += op.name.str() + " ";
  EXPECT_EQ(registered,
            "handleRuleBySequence initializeRuleMap updateIpRuleMap updateIp6RuleMap updateMacRuleMap updateRemarkMap "
            "handleDpAclUpdateTime remove exists getIpRule getIp6Rule getMacRule addIpRule addIp6Rule addMacRule "
            "removeRuleBySequence removeIpRuleByConfig removeIp6RuleByConfig removeMacRuleByConfig addRemark "
            "removeRemark clearUdfAceList populateUdfAceList updateUdfAliasInAcls commit commitExt revert "
            "cleanupOldConfig attach detach attachedAcl resequence enableCounters disableCounters enableFragments "
            "disableFragments currentAcl sameRule shouldUpdateAcl addRuleCommon waitForHw dpAclOk dpAclDpiOk "
            "dpAclPreApplyOk attachedToDp attachingAclToVlan createScratchpad getLastSequenceNumber "
            "handleInitialized ");
  // Type names are part of the interface too, references to entities included: a name read
  // before its initializer ran would come out empty.
  std::map<std::string, std::string> types;
  for (const fwk::AttrInfo* attr : ApiSm::staticType().attrs()) types[attr->name().str()] = attr->valueTypeName().str();
  for (const auto& [name, type] : types) EXPECT_FALSE(type.empty()) << name;
  EXPECT_EQ(types["spAclSubConfig"], "Ptr<AclSubConfig>");
  EXPECT_EQ(types["paramConfig"], "Ptr<const ParamConfig>");
  EXPECT_EQ(types["statusDp"], "Ptr<const StatusDp>");

  // The factory is registered, and operations and attributes run by name.
  installAcl("web", {{10, 80}});
  Ptr<fwk::Entity> made = fwk::findType("ApiSm")->create(
      {String("web"), AclType::ip, false, commit_, acl.config, Ptr<const ParamConfig>(acl.paramConfig), acl.intfConfig,
       acl.hwConfig, Ptr<const Status>(acl.status), Ptr<const fwk::Dir>(acl.statusDpDir), acl.udfAlias});
  auto& s = fwk::cast<ApiSm>(*made);
  EXPECT_TRUE(s.exists());
  EXPECT_EQ(fwk::invoke(s, "addIpRule", {U32{20}, build::ipRule(443)}).as<ApiState>(), succeeded);
  EXPECT_EQ(fwk::invoke(s, "getIpRule", {U32{20}}).as<IpRuleConfig>(), build::ipRule(443));
  EXPECT_EQ(fwk::invoke(s, "getLastSequenceNumber").as<U32>(), 20u);
  EXPECT_EQ(fwk::getAttribute(s, "apiState").strep(), "succeeded");
}

TEST_F(ApiSmTest, AFreshSessionIsInitializedWithItsDefaults) {
  acl.statusDpDir->entityIs<StatusDp>("dp1");
  acl.statusDpDir->entityIs<fwk::Dir>("notADataplane");
  auto s = session("web", AclType::mac);
  EXPECT_EQ(s->apiState(), ready);
  EXPECT_TRUE(s->guardsEnabled());
  EXPECT_FALSE(s->inConfigSession());
  EXPECT_TRUE(s->initialized());
  EXPECT_EQ(s->maxSequence(), 4294967295u);
  EXPECT_EQ(s->defaultSeqInc(), 10u);
  EXPECT_EQ(s->direction(), AclDirection::in);
  EXPECT_TRUE(s->aclCopyHelper());
  EXPECT_TRUE(s->entityCopy());
  EXPECT_TRUE(s->currentAcl()) << "a commit session has its scratchpad";
  EXPECT_FALSE(s->exists());
  EXPECT_EQ(s->statusDp().size(), 1u) << "only StatusDp entities are dataplanes";
  EXPECT_EQ(s->statusDpEntry().size(), 1u);
  EXPECT_TRUE(acl.config->config(AclType::mac)) << "the family's configuration is made";
  EXPECT_TRUE(traces.contains("handleInitialized<"));
  for (ApiType t : {remove_, attach_, detach_}) EXPECT_FALSE(session("web", AclType::ip, t)->currentAcl());
}

TEST_F(ApiSmTest, ErrStringsAndStatusRecordsKeepOneEntryPerKey) {
  auto s = session("web");
  s->errStringIs("k", "first");
  s->errStringIs("k", "second");
  EXPECT_EQ(s->errString().size(), 1u);
  EXPECT_EQ(s->errStringDel("absent"), "");
  EXPECT_EQ(s->errStringDel("k"), "second");
  s->errStringIs("a", "1");
  s->errStringIs("b", "2");
  s->errStringDelAll();
  EXPECT_TRUE(s->errString().empty());
  fwk::setAttribute(*s, "errString", String("r"), String("by name"));
  EXPECT_EQ(s->errString("r"), "by name");

  Ptr<StatusDp> dp(new StatusDp("dpX"));
  s->statusDpIs(dp);
  s->statusDpIs(dp);
  EXPECT_EQ(s->statusDpEntry().size(), 1u);
  Ptr<StatusDpEntry> entry = s->statusDpEntry("dpX");
  s->statusDpEntryIs(dp);
  EXPECT_EQ(s->statusDpEntry("dpX"), entry) << "a reactor for the same record is kept";
  entry = nullptr;
  Ptr<StatusDpEntry> heldElsewhere = s->statusDpEntry("dpX");
  s->statusDpDel("dpX");
  EXPECT_TRUE(s->statusDp().empty());
  EXPECT_TRUE(s->statusDpEntry().empty());
  EXPECT_TRUE(dp->notifieeList().empty()) << "an entry the session dropped stops watching, even if held";
  s = nullptr;
  dp->dpAclUpdateTimeIs(5);  // reaches nobody
  auto t = session("web");
  EXPECT_DEATH(t->statusDpIs("other", dp), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

// ---- scratchpad ------------------------------------------------------------------------

TEST_F(ApiSmTest, CleanupDeletesTheReplacedVersionOnly) {
  Ptr<AclConfig> web = installAcl("web", {{10, 80}});
  auto s = session("web");
  Ptr<AclSubConfig> old = web->currCfg();
  s->cleanupOldConfig();
  EXPECT_EQ(web->currCfg(), old) << "nothing was installed, nothing is deleted";
  EXPECT_FALSE(s->currentAcl());
  EXPECT_FALSE(s->origAclConfig());

  auto t = session("web");
  Ptr<AclSubConfig> replacement = build::version(*web, {{10, 81}});
  web->currCfgIs(replacement);
  t->cleanupOldConfig();
  EXPECT_FALSE(web->subConfig().contains(old->id()));
  EXPECT_FALSE(t->origAclSubConfig());

  auto u = session("web");
  acl.config->config(AclType::ip)->aclDel("web");
  traces.clear();
  u->cleanupOldConfig();
  EXPECT_EQ(traces.messages("AclApi"), (std::vector<std::string>{"cleanupOldConfig", "<, aclConfig is NULL"}));
  EXPECT_TRUE(u->currentAcl()) << "kept when the ACL is gone";
}

// What each toggle does to the scratchpad is the property test's; each names itself.
TEST_F(ApiSmTest, FlagTogglesAreTraced) {
  auto s = session("web");
  const std::pair<ApiState (ApiSm::*)(), const char*> toggles[] = {{&ApiSm::enableCounters, "enableCounters"},
                                                                   {&ApiSm::disableCounters, "disableCounters"},
                                                                   {&ApiSm::enableFragments, "enableFragments"},
                                                                   {&ApiSm::disableFragments, "disableFragments"}};
  for (const auto& [toggle, name] : toggles) {
    traces.clear();
    EXPECT_EQ(((*s).*toggle)(), succeeded);
    EXPECT_EQ(traces.messages("AclApi"), std::vector<std::string>{name});
  }
}

// ---- lookups ---------------------------------------------------------------------------

TEST_F(ApiSmTest, LookupsReturnTheDefaultRuleWhereNoRuleOfThatFamilyStands) {
  installAcl("web", {{10, 80}}, {{20, "r"}});
  auto s = session("web");
  EXPECT_FALSE(s->currentAcl()->committed()) << "the scratchpad does not copy the committed flag";
  EXPECT_EQ(s->getIpRule(10), build::ipRule(80));
  EXPECT_EQ(s->getIpRule(20), IpRuleConfig()) << "a remark is not a rule";
  EXPECT_EQ(s->getIpRule(99), IpRuleConfig());
  EXPECT_EQ(s->getMacRule(10), MacRuleConfig()) << "lookups ignore the session's family";
  EXPECT_EQ(session("web", AclType::ip, remove_)->getIpRule(10), IpRuleConfig());
  for (U32 mask : {0xFFFFFF00u, 0x80000000u, 0xFFFFFFFEu, 0u, 0xFFFFFFFFu}) EXPECT_TRUE(maskIsContiguous(mask)) << mask;
  for (U32 mask : {0x000000FFu, 0x0000FF00u, 0xFF00FF00u}) EXPECT_FALSE(maskIsContiguous(mask)) << mask;
}

// ---- hardware status -------------------------------------------------------------------

// Arrival orders and outcomes are the property test's (two dataplanes against the model); this
// pins what it does not look at: the skips, the request stamp, the texts.
TEST_F(ApiSmTest, TheHardwareWaitStampsOneRequestAndReportsFirstErrors) {
  fwk::ClockOverride clock([] { return 1000.0; });
  EXPECT_EQ(session("web")->waitForHw(), succeeded);
  EXPECT_TRUE(traces.contains("<, No statusDp"));
  Ptr<AclConfig> web = installAcl("web", {{10, 80}});
  web->currCfg()->committedIs(false);
  Ptr<StatusDp> dp1 = acl.statusDpDir->entityIs<StatusDp>("dp1");
  Ptr<StatusDp> dp2 = acl.statusDpDir->entityIs<StatusDp>("dp2");
  auto s = session("web");
  EXPECT_EQ(s->waitForHw(), succeeded);
  EXPECT_TRUE(traces.contains("<, waitForHwStatus is false"));
  dp1->waitForHwStatusIs(true);
  dp2->waitForHwStatusIs(true);
  s->inConfigSessionIs(true);
  EXPECT_EQ(s->waitForHw(), succeeded);
  EXPECT_TRUE(traces.contains("<, inConfigSession"));
  s->inConfigSessionIs(false);

  EXPECT_EQ(s->waitForHw(), waitingForHw);
  EXPECT_EQ(acl.hwConfig->dpAclUpdateRequestTime(), 1000.0);
  EXPECT_TRUE(traces.contains("commit time: 1000"));
  dp1->errorIs("b", "second");
  dp1->errorIs("a", "tcam full");
  dp1->dpAclUpdateTimeIs(1000);  // equal to the request counts as caught up
  EXPECT_TRUE(traces.contains("Not updated"));
  dp2->dpAclUpdateTimeIs(1000);
  EXPECT_EQ(s->apiState(), errHw);
  EXPECT_EQ(s->errString("dp1"), "tcam full") << "the first error by key";
  EXPECT_FALSE(web->currCfg()->committed());
  dp1->errorDelAll();
  EXPECT_EQ(s->waitForHw(), waitingForHw);
  dp1->dpAclUpdateTimeIs(1001);
  dp2->dpAclUpdateTimeIs(1001);
  EXPECT_EQ(s->apiState(), succeeded);
  EXPECT_TRUE(web->currCfg()->committed()) << "success marks the current version committed";
}

}  // namespace
