#include <gtest/gtest.h>

#include <stdexcept>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/trace/Clock.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::FakeDataplane;
using build::ipRule;

class CommitTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  void SetUp() override { fwk::TraceFacility::get("AclApi").levelsUpToIs(9); }
  void TearDown() override { fwk::TraceFacility::get("AclApi").levelsIs(0); }
  Ptr<AclConfig> web() { return acl.config->config(AclType::ip)->acl("web"); }

  double now = 1000;
  fwk::ClockOverride clock{[this] { return now += 1; }};
  fwk::TraceCapture traces;
};

// ---- from request to programmed hardware ------------------------------------------------

TEST_F(CommitTest, ACommitLetsGoOfItsScratchpadAtOnceAndHoldsNoCopy) {
  installAcl("web", {{10, 80}});
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(30, ipRule(22)), succeeded);
  Ptr<AclSubConfig> scratchpad = s->currentAcl();
  EXPECT_EQ(s->commit(), succeeded);
  EXPECT_EQ(scratchpad->fwkReferences(), 1u) << "the session holds on to no copy of its scratchpad";
  EXPECT_EQ(session("none", AclType::ip, remove_)->commit(), succeeded) << "no scratchpad: nothing to do";
  EXPECT_TRUE(traces.contains("Scratchpad is empty!"));

  FakeDataplane dp(acl, "dp1");
  auto fresh = session("new");
  ASSERT_EQ(fresh->addIpRule(0, ipRule(80)), succeeded);
  EXPECT_EQ(fresh->commit(), waitingForHw);
  EXPECT_TRUE(traces.contains("New acl new"));
  EXPECT_TRUE(traces.contains("create new subConfig for ACL new"));
  EXPECT_FALSE(fresh->currentAcl()) << "commit() cleans up at once, also while it waits";
  dp.apply();
  EXPECT_EQ(fresh->apiState(), succeeded);
}

// The states, versions and request times on the way are the property test's; this pins the traces.
TEST_F(CommitTest, AHardwareErrorIsRevertedAndTheOldVersionWaitedForAgain) {
  installAcl("web", {{10, 80}});
  Ptr<AclSubConfig> old = web()->currCfg();
  FakeDataplane dp(acl, "dp1");
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(20, ipRule(443)), succeeded);
  EXPECT_EQ(s->commitExt(false), waitingForHw);
  dp.fail("tcam exhausted");
  EXPECT_EQ(s->apiState(), errHw);
  dp.recover();
  traces.clear();
  EXPECT_EQ(s->revert(), waitingForHw);
  EXPECT_EQ(web()->currCfg(), old);
  EXPECT_TRUE(traces.contains("Failed while committing"));
  EXPECT_TRUE(traces.contains("Reverting to " + std::to_string(old->id().val())));
  EXPECT_TRUE(traces.contains("Setting the currCfg to : " + old->fullName().str()));
  dp.apply();
  EXPECT_EQ(s->apiState(), succeeded);
}

// ---- other sessions ------------------------------------------------------------------------

// The outcomes are the property test's; the traces say which conflict it was.
TEST_F(CommitTest, TheSecondOfTwoSessionsToCommitFindsTheConflict) {
  installAcl("web", {{10, 80}});
  auto first = session("web");
  auto second = session("web");
  ASSERT_EQ(first->addIpRule(20, ipRule(1)), succeeded);
  ASSERT_EQ(second->addIpRule(20, ipRule(2)), succeeded);
  EXPECT_EQ(first->commit(), succeeded);
  EXPECT_EQ(second->commit(), errSessionModify);
  EXPECT_TRUE(traces.contains("Acl web has been modified by another session"));

  auto a = session("fresh");
  auto b = session("fresh");
  ASSERT_EQ(a->addIpRule(0, ipRule(1)), succeeded);
  ASSERT_EQ(b->addIpRule(0, ipRule(2)), succeeded);
  EXPECT_EQ(a->commit(), succeeded);
  EXPECT_EQ(b->commit(), errSessionCreate);
  EXPECT_TRUE(traces.contains("Acl fresh has been created by another session"));
  auto late = session("web");
  ASSERT_EQ(late->addIpRule(30, ipRule(3)), succeeded);
  EXPECT_EQ(session("web", AclType::ip, remove_)->remove(), succeeded);
  EXPECT_EQ(late->commit(), errSessionDelete);
  EXPECT_TRUE(traces.contains("Acl web has been deleted by another session"));
}

// ---- in place or new ------------------------------------------------------------------------

TEST_F(CommitTest, RenumberingACommittedVersionPatchesItInPlaceWithoutWaiting) {
  installAcl("web", {{10, 80}, {20, 443}});
  FakeDataplane dp(acl, "dp1");
  Ptr<AclSubConfig> current = web()->currCfg();
  UniqueId first = current->ruleBySequence(10);
  auto s = session("web");
  EXPECT_FALSE(s->shouldUpdateAcl());
  ASSERT_EQ(s->resequence(100, 100), succeeded);
  ASSERT_EQ(s->addRemark(RemarkConfig(String("web")), 50), succeeded);
  EXPECT_FALSE(s->shouldUpdateAcl());
  EXPECT_EQ(s->commit(), succeeded);
  EXPECT_TRUE(traces.contains("update existing ACL web"));
  EXPECT_EQ(web()->currCfg(), current);
  EXPECT_EQ(current->ruleBySequence(100), first) << "rule identities stay";
  EXPECT_EQ(current->remarkBySequence(50).text(), "web");
  EXPECT_TRUE(s->currentAcl()) << "the in-place path keeps the scratchpad";
}

// ---- revert and remove -------------------------------------------------------------------------

TEST_F(CommitTest, RevertUndoesWhatTheSessionDid) {
  FakeDataplane dp(acl, "dp1");
  auto creator = session("web");
  ASSERT_EQ(creator->addIpRule(0, ipRule(80)), succeeded);
  EXPECT_EQ(creator->commitExt(false), waitingForHw);
  EXPECT_EQ(creator->revert(), succeeded);
  EXPECT_FALSE(web()) << "a commit that created the ACL is undone by deleting it";
  EXPECT_TRUE(traces.contains("origAclSubConfig does not exist. Deleting the acl"));

  installAcl("web", {{10, 80}});
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(20, ipRule(1)), succeeded);
  ASSERT_EQ(s->commitExt(false), waitingForHw);
  web()->subConfigDel(s->origAclSubConfig()->id());  // someone removes the old version meanwhile
  EXPECT_EQ(s->revert(), succeeded);
  EXPECT_TRUE(traces.contains("Cannot revert as the original subConfig has been deleted"));
  EXPECT_TRUE(web()->subConfig().empty());

  auto done = session("other");
  ASSERT_EQ(done->addIpRule(10, ipRule(1)), succeeded);
  done->apiStateIs(succeeded);
  ASSERT_EQ(done->commit(), waitingForHw) << "commit() has already let the scratchpad go";
  EXPECT_EQ(done->revert(), waitingForHw) << "nothing to revert: the state stays";
  EXPECT_TRUE(traces.contains("Scratchpad empty. Nothing to revert"));
  EXPECT_EQ(session("x", AclType::ip, remove_)->revert(), ready);

  dp.status()->waitForHwStatusIs(false);  // nothing waits for the revert below
  auto bindings = acl.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in);
  bindings->intfIs(IntfId(String("Ethernet1")), "old");
  auto detaching = session("old", AclType::ip, detach_);
  ASSERT_EQ(detaching->detach("Ethernet1", AclDirection::in), succeeded);
  EXPECT_EQ(detaching->revert(), succeeded) << "a detach is undone by binding the list again";
  EXPECT_EQ(bindings->intf(IntfId(String("Ethernet1"))), "old");
  EXPECT_TRUE(traces.contains("Failed while detach"));
}

TEST_F(CommitTest, RemoveTracesItsRefusalsAndLetsGoOfAliases) {
  installAcl("web", {{10, 80}});
  installAcl("ro", {}, {}, true);
  acl.config->config(AclType::ip)->aclIs("std", AclType::ip, true, false);
  const std::pair<const char*, ApiState> refused[] = {
      {"none", errAclDoesNotExist}, {"std", errStandardAcl}, {"ro", errReadOnly}};
  for (const auto& [name, state] : refused) {
    EXPECT_EQ(session(name, AclType::ip, remove_)->remove(), state);
    EXPECT_TRUE(traces.contains("<, " + std::string(stringValue(state).view()))) << name;
  }
  Ptr<UdfAliasPayload> alias = acl.udfAlias->ipAliasIs("key");
  alias->aceListForAclIs("web")->seqIs(10, true);
  EXPECT_EQ(session("web", AclType::ip, remove_)->remove(), succeeded);
  EXPECT_FALSE(web());
  EXPECT_FALSE(alias->aceListForAcl("web")) << "the alias no longer points at the ACL";
}

// ---- UDF aliases --------------------------------------------------------------------------------

IpRuleConfig payloadRule(const char* elements) {
  IpRuleConfig rule = ipRule(80);
  IpFilter f = rule.filter();
  f.payloadIs(PayloadSpec(String(elements)));
  rule.filterIs(f);
  return rule;
}

TEST_F(CommitTest, AliasListsFollowCommitsAndAliasChangesRewriteRules) {
  Ptr<UdfAliasPayload> key = acl.udfAlias->ipAliasIs("key");
  acl.status->ipPayloadCapacityIs(1);  // a rewrite keeps capacity + 1 elements: rule 30 has 2
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(10, payloadRule("0,0x1,0xff,key,")), succeeded);
  ASSERT_EQ(s->addIpRule(20, ipRule(443)), succeeded);
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

  auto editor = session("web");
  PayloadValue value;
  value.offsetIs(2);
  value.patternIs(0xAB);
  value.maskIs(0xF0);
  editor->updateUdfAliasInAcls("key", value);
  EXPECT_EQ(editor->apiState(), succeeded);
  Ptr<AclSubConfig> current = web()->currCfg();
  auto payloadAt = [&](U32 seq) { return current->ipRuleById(current->ruleBySequence(seq)).filter().payload(); };
  EXPECT_EQ(payloadAt(10).offsetPattern(), "2,0xab,0xf0,key,");
  EXPECT_EQ(payloadAt(30).offsetPattern(), "2,0x7,0xf0,key,p 8,0x1,0x1,,") << "its own pattern stays";
  EXPECT_EQ(users(), (std::vector<U32>{10, 30}));
}

TEST(UdfTest, UpdatePayloadSpecTouchesOnlyTheAliasesElements) {
  PayloadValue value;
  value.offsetIs(9);
  value.patternIs(5);
  value.maskIs(6);
  PayloadSpec spec(String("1,0x1,0x1,other, 2,0x2,0x2,key,m"));
  EXPECT_EQ(updatePayloadSpec("none", value, spec, 4).offsetPattern(), "1,0x1,0x1,other, 2,0x2,0x2,key,m");
  EXPECT_EQ(updatePayloadSpec("key", value, spec, 4).offsetPattern(), "1,0x1,0x1,other, 9,0x5,0x2,key,m");
  EXPECT_EQ(updatePayloadSpec("key", value, spec, 1).count(), 1) << "never more elements than asked for";
}

// ---- faults part-way through a commit --------------------------------------------------------

// Throws from inside the framework's notification of the nth change it sees.
struct Saboteur : AclSubConfig::Reactor {
  int countdown;
  explicit Saboteur(int n) : countdown(n) {}
  void ruleBySequenceChanged(const U32&) override {
    if (--countdown == 0) throw std::runtime_error("injected");
  }
};

TEST_F(CommitTest, AnExceptionPartWayLeavesTheStoreAsItWas) {
  installAcl("web", {{10, 80}, {20, 443}});
  Ptr<AclSubConfig> old = web()->currCfg();
  // Sabotage the new version while the commit fills it.
  struct Planter : AclConfig::Reactor {
    using AclConfig::Reactor::Reactor;
    std::unique_ptr<Saboteur> saboteur;
    void subConfigChanged(const UniqueId& id) override {
      if (auto v = notifier()->subConfig().find(id); v && !saboteur) {
        saboteur = std::make_unique<Saboteur>(2);
        saboteur->notifierIs(v->get());
      }
    }
  } planter(web().get());
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(30, ipRule(22)), succeeded);
  EXPECT_THROW(static_cast<void>(s->commitExt(false)), std::runtime_error);
  EXPECT_EQ(web()->currCfg(), old);
  EXPECT_EQ(web()->subConfig().size(), 1u) << "the half-filled version is gone";
  planter.saboteur.reset();
  planter.notifierIs(nullptr);

  // A failure after the switch puts the old version back, and the session can try again:
  // its own half-done commit is not taken for another session's.
  struct AfterSwitch : AclConfig::Reactor {
    using AclConfig::Reactor::Reactor;
    void currCfgChanged() override { throw std::runtime_error("injected"); }
  } after(web().get());
  EXPECT_THROW(static_cast<void>(s->commitExt(false)), std::runtime_error);
  EXPECT_EQ(web()->currCfg(), old);
  EXPECT_EQ(s->apiState(), succeeded) << "as the last edit left it";
  after.notifierIs(nullptr);
  EXPECT_EQ(s->commitExt(false), succeeded);
  EXPECT_EQ(web()->currCfg()->ruleBySequence().size(), 3u);
}

}  // namespace
