#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "aclkit/agent/Dataplane.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace Acl;
using namespace AclApi;
using Agent::Dataplane;

const IntfId eth1(String("Ethernet1"));

class DataplaneTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  DataplaneTest() { acl.paramConfig->allSupportedIs(true); }

  // A list of TCP rules (sequence, destination port) committed through a session.
  ApiState commitList(const char* name, std::initializer_list<std::pair<U32, U16>> rules, bool cleanup = true) {
    auto s = session(name);
    for (const auto& [seq, port] : rules) EXPECT_EQ(s->addIpRule(seq, build::ipRule(port)), succeeded);
    kept = s;
    return s->commitExt(cleanup);
  }
  ApiState attach(const char* name) {
    return session(name, AclType::ip, attach_)->attach("Ethernet1", AclDirection::in);
  }
  static std::vector<U32> sequences(const Dataplane& dp) {
    std::vector<U32> all;
    if (const Agent::Table* t = dp.table(AclType::ip, eth1, AclDirection::in)) {
      t->forEachEntry([&](U32 seq, const auto&) { return all.push_back(seq), false; });
    }
    return all;
  }

  double clock = 100;
  fwk::ClockOverride ticking{[this] { return clock += 1; }};
  Dataplane dp1{acl, "dp1"};
  Dataplane dp2{acl, "dp2"};
  Ptr<ApiSm> kept;
};

// Two dataplanes, one answering late: each programs the list bound where it is bound (no table
// for a list that does not exist or is no longer bound) and then says so; one not waited for
// still programs, late. A forced error, or a run beyond capacity, fails the commit and keeps
// the old tables until a run succeeds (a revert, or a run that just fits), which clears it.
TEST_F(DataplaneTest, EachAgentProgramsTheBoundListOrFailsAndKeepsItsTables) {
  EXPECT_EQ(commitList("web", {{10, 22}}), succeeded);
  EXPECT_EQ(attach("missing"), succeeded);
  EXPECT_EQ(dp1.table(AclType::ip, eth1, AclDirection::in), nullptr);
  EXPECT_EQ(attach("web"), succeeded);
  dp2.forcedErrorIs("the rule memory does not answer.");
  EXPECT_EQ(commitList("web", {{20, 80}}, false), errHw);
  EXPECT_EQ(kept->errString("dp2"), "dp2 could not program its lists: the rule memory does not answer.");
  EXPECT_EQ(dp2.status()->error("forced"), kept->errString("dp2"));
  EXPECT_EQ(sequences(dp2), std::vector<U32>{10});
  EXPECT_FALSE(dp2.upToDate());
  dp2.forcedErrorDel();
  EXPECT_EQ(kept->revert(), succeeded);
  EXPECT_TRUE(dp2.status()->error().empty() && dp2.upToDate());
  EXPECT_EQ(sequences(dp2), std::vector<U32>{10});

  dp2.delayIs(1);
  EXPECT_EQ(commitList("web", {{20, 80}}), waitingForHw);
  EXPECT_TRUE(dp1.upToDate() && dp2.pending());
  dp2.tick();
  for (const Dataplane* dp : {&dp1, &dp2}) {
    EXPECT_EQ(sequences(*dp), (std::vector<U32>{10, 20}));
    EXPECT_EQ(dp->status()->dpAclUpdateTime(), acl.hwConfig->dpAclUpdateRequestTime());
  }
  dp2.delayIs(0);
  dp1.capacityIs(2);
  EXPECT_EQ(commitList("web", {{30, 443}}), errHw);
  EXPECT_EQ(kept->errString("dp1"), "dp1 needs 3 entries but holds at most 2; it keeps its 2 entries programmed.");
  EXPECT_EQ(dp1.lastRun().errorKey, "capacity");
  EXPECT_EQ(sequences(dp1), (std::vector<U32>{10, 20}));
  EXPECT_EQ(sequences(dp2), (std::vector<U32>{10, 20, 30}));
  auto s = session("web");
  EXPECT_EQ(s->removeRuleBySequence(10, 10), succeeded);
  EXPECT_EQ(s->commit(), succeeded);
  EXPECT_EQ(sequences(dp1), (std::vector<U32>{20, 30}));
  EXPECT_TRUE(dp1.status()->error().empty());
  dp1.capacityIs(Dataplane::unlimited);
  dp2.waitForHwStatusIs(false);  // no longer waited for, yet still programming
  dp2.delayIs(3);
  EXPECT_EQ(commitList("web", {{40, 8080}}), succeeded);
  EXPECT_EQ(sequences(dp2), (std::vector<U32>{20, 30}));
  for (int i = 0; i < 3; ++i) dp2.tick();
  EXPECT_EQ(sequences(dp2), (std::vector<U32>{20, 30, 40}));
  EXPECT_EQ(session("", AclType::ip, detach_)->detach("Ethernet1", AclDirection::in), succeeded);
  EXPECT_TRUE(dp1.tables().empty());
  EXPECT_EQ(dp1.lastRun().removed, 3u);
}

// A late answer programs the configuration as it stands then, for the last request; a request
// made by an observer of the answer (a session that reverts on errHw) is answered after it.
TEST_F(DataplaneTest, AnAnswerProgramsTheLastRequestAndOneMadeWhileAnswering) {
  acl.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(eth1, "web");
  dp1.delayIs(2);
  installAcl("web", {{10, 22}});
  acl.hwConfig->dpAclUpdateRequestTimeIs(1);
  installAcl("web", {{10, 22}, {20, 80}});
  acl.hwConfig->dpAclUpdateRequestTimeIs(2);  // the first event after the request
  EXPECT_TRUE(dp1.pending() && sequences(dp1).empty());
  const std::uint64_t runs = dp1.lastRun().run;
  dp1.tick();  // the second: the answer
  EXPECT_EQ(std::tuple(dp1.lastRun().run, dp1.lastRun().requestTime, dp1.status()->dpAclUpdateTime()),
            std::tuple(runs + 1, 2.0, 2.0));
  EXPECT_EQ(sequences(dp1), (std::vector<U32>{10, 20}));
  dp1.tick();
  EXPECT_EQ(dp1.lastRun().run, runs + 1);

  struct Requester : StatusDp::Reactor {
    Ptr<HwConfig> hw;
    void dpAclUpdateTimeChanged() override {
      if (notifier()->dpAclUpdateTime() == 3) hw->dpAclUpdateRequestTimeIs(4);
    }
  } requester;
  requester.hw = acl.hwConfig;
  requester.notifierIs(dp1.status().get());
  dp1.delayIs(0);
  acl.hwConfig->dpAclUpdateRequestTimeIs(3);
  EXPECT_EQ(std::tuple(dp1.lastRun().requestTime, dp1.status()->dpAclUpdateTime()), std::tuple(4.0, 4.0));
  EXPECT_TRUE(dp1.upToDate());
}

// A table shares the version it programmed: a run reads what changed since, whichever way it
// changed (a record replaced under its identity, a place added with records untouched, nothing).
TEST_F(DataplaneTest, ARunCountsOnlyWhatChanged) {
  auto list = acl.config->configIs(AclType::ip)->aclIs("big", AclType::ip, false, false);
  auto v = list->subConfigIs(UniqueId());
  for (U32 seq = 1; seq <= 100; ++seq) {
    UniqueId id;
    v->ruleBySequenceIs(seq, id);
    v->ipRuleByIdIs(id, build::ipRule(static_cast<U16>(seq)));
  }
  list->currCfgIs(v);
  acl.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(eth1, "big");
  acl.hwConfig->dpAclUpdateRequestTimeIs(1);
  EXPECT_EQ(dp1.lastRun().added, 100u);
  v->ipRuleByIdIs(v->ruleBySequence(50), build::ipRule(1, RuleAction::deny));
  acl.hwConfig->dpAclUpdateRequestTimeIs(2);
  const Agent::RunReport& r = dp1.lastRun();
  EXPECT_EQ(std::tuple(r.added, r.removed, r.kept), std::tuple(1u, 1u, 99u));
  EXPECT_EQ(Agent::actionOf(dp1.table(AclType::ip, eth1, AclDirection::in)->at(50).value()), RuleAction::deny);
  // Only the places change, the records stay shared with what is held: a second place for a
  // rule is one entry more. Then nothing changes: everything is kept.
  v->ruleBySequenceIs(101, v->ruleBySequence(1));
  acl.hwConfig->dpAclUpdateRequestTimeIs(3);
  EXPECT_EQ(std::tuple(r.added, r.removed, r.kept), std::tuple(1u, 0u, 100u));
  acl.hwConfig->dpAclUpdateRequestTimeIs(4);
  EXPECT_EQ(std::tuple(r.added, r.removed, r.kept), std::tuple(0u, 0u, 101u));
  EXPECT_EQ(dp1.entryCount(), 101u);
}

}  // namespace
