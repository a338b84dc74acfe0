// Every public operation that writes, failed at every fault point it reaches: a mutation, a
// notification, a reactor handler or an allocation throws, once or from that point on.
// Afterwards the store and the session, compared whole, must be what they were before the
// call; the same call made again must end as it would have without the fault; nothing may
// leak.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Fault.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionInvariants.h"
#include "tests/support/SessionWorld.h"
#include "tests/support/StoreSnapshot.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::ipRule;

// A running configuration with ACL "web" (10 -> 80, 20 -> 443) bound to an interface, a
// dataplane that reports (so commits wait and stay revertible), an alias that rules use, and
// the session a scenario works with.
struct World : build::SessionWorld {
  World() {
    installAcl("web", {{10, 80}, {20, 443}});
    acl.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId(String("Ethernet1")), "web");
    acl.status->ipPayloadCapacityIs(2);
    acl.udfAlias->ipAliasIs("key");
    dp = std::make_unique<build::FakeDataplane>(acl, "dp1");
  }
  Ptr<AclConfig> web() { return acl.config->config(AclType::ip)->acl("web"); }
  std::string snapshot() { return build::storeSnapshot({store.root().get(), s.get()}); }

  fwk::ClockOverride clock{[] { return 1000.0; }};
  std::unique_ptr<build::FakeDataplane> dp;
  Ptr<ApiSm> s;
};

IpRuleConfig aliasRule() {
  IpRuleConfig rule = ipRule(53);
  IpFilter f = rule.filter();
  f.payloadIs(PayloadSpec(String("0,0x1,0xff,key,")));
  rule.filterIs(f);
  return rule;
}

void edit(World& w) {
  w.s = w.session("web");
  (void)w.s->removeRuleBySequence(10, 10);
  (void)w.s->addIpRule(30, ipRule(22));
  (void)w.s->addIpRule(40, aliasRule());
}
void committed(World& w) {
  edit(w);
  (void)w.s->commitExt(false);
}
void nothing(World&) {}

// The hardware's answer runs inside the dataplane's own change; the dataplane makes that
// change in a transaction of its own, so that a failure takes back the whole answer.
void answer(World& w, const char* error) {
  const fwk::Transaction transaction;
  if (error) {
    w.dp->fail(error);
  } else {
    w.dp->apply();
  }
}

struct Scenario {
  const char* name;
  std::function<void(World&)> prepare;
  std::function<void(World&)> act;
};

const Scenario scenarios[] = {
    {"SessionCreation", nothing, [](World& w) { w.s = w.session("web"); }},
    {"AddWithAnAutomaticNumber", edit, [](World& w) { (void)w.s->addIpRule(0, ipRule(8080)); }},
    {"RemarkWithAnAutomaticNumber", edit, [](World& w) { (void)w.s->addRemark(RemarkConfig(String("r")), 0); }},
    {"RemarkRemoval",
     [](World& w) {
       edit(w);
       (void)w.s->addRemark(RemarkConfig(String("r")), 25);
     },
     [](World& w) { (void)w.s->removeRemark(RemarkConfig(String("r")), 0); }},
    {"RemovalByPlace", edit, [](World& w) { (void)w.s->removeRuleBySequence(1, 35); }},
    {"RemovalByContent", edit, [](World& w) { (void)w.s->removeIpRuleByConfig(ipRule(443)); }},
    {"Resequence", edit, [](World& w) { (void)w.s->resequence(100, 5); }},
    {"Counters", edit, [](World& w) { (void)w.s->enableCounters(); }},
    {"Commit", edit, [](World& w) { (void)w.s->commit(); }},
    {"CommitKeptForRevert", edit, [](World& w) { (void)w.s->commitExt(false); }},
    {"CommitPatchingInPlace",
     [](World& w) {
       w.s = w.session("web");
       (void)w.s->resequence(5, 5);
     },
     [](World& w) { (void)w.s->commit(); }},
    {"CommitOfANewList",
     [](World& w) {
       w.s = w.session("fresh");
       (void)w.s->addIpRule(0, aliasRule());
     },
     [](World& w) { (void)w.s->commit(); }},
    {"HardwareCompletion", committed, [](World& w) { answer(w, nullptr); }},
    {"HardwareError", committed, [](World& w) { answer(w, "no room"); }},
    {"Revert",
     [](World& w) {
       committed(w);
       answer(w, "no room");
     },
     [](World& w) { (void)w.s->revert(); }},
    {"Cleanup",
     [](World& w) {
       committed(w);
       answer(w, nullptr);
     },
     [](World& w) { (void)w.s->cleanupOldConfig(); }},
    {"AliasUpdate", [](World& w) { committed(w), answer(w, nullptr), w.s = w.session("web"); },
     [](World& w) {
       PayloadValue value;
       value.offsetIs(4);
       (void)w.s->updateUdfAliasInAcls("key", value);
     }},
    {"Remove", [](World& w) { w.s = w.session("web", AclType::ip, remove_); }, [](World& w) { (void)w.s->remove(); }},
    {"Attach", [](World& w) { w.s = w.session("other", AclType::ip, attach_); },
     [](World& w) { (void)w.s->attach("Ethernet1", AclDirection::in); }},
    {"Detach", [](World& w) { w.s = w.session("web", AclType::ip, detach_); },
     [](World& w) { (void)w.s->detach("Ethernet1", AclDirection::in); }},
    {"AttachRevert",
     [](World& w) {
       w.s = w.session("other", AclType::ip, attach_);
       (void)w.s->attach("Ethernet1", AclDirection::in);
     },
     [](World& w) { (void)w.s->revert(); }},
    {"ConfigurationSessionCommit", nothing,
     [](World& w) {
       AclConfigSession session(w.acl);
       Ptr<AclSubConfig> v = session.newVersion(AclType::ip, "web");
       v->ruleBySequenceDel(10);
       UniqueId id;
       v->ruleBySequenceIs(30, id);
       v->ipRuleByIdIs(id, ipRule(22));
       session.commit();
     }},
};

// What the scenario's operation ends in without a fault: its session's state.
ApiState cleanResult(const Scenario& scenario) {
  World w;
  scenario.prepare(w);
  scenario.act(w);
  return w.s ? w.s->apiState() : ready;
}

// Fails the scenario's operation at every point among `sites`, once and from there on.
// Returns the number of points it passes.
std::uint64_t failEverywhere(const Scenario& scenario, std::uint8_t sites) {
  const ApiState clean = cleanResult(scenario);  // also makes what is made once per process
  const std::int64_t baseline = fwk::Entity::liveCount();
  std::uint64_t points = 0;
  for (bool persistent : {false, true}) {
    for (std::uint64_t n = 1;; ++n) {
      bool threw = false;
      {
        World w;
        scenario.prepare(w);
        const std::string before = w.snapshot();
        fwk::fault::arm(sites, n, persistent);
        try {
          scenario.act(w);
        } catch (const fwk::fault::InjectedFault&) {
          threw = true;
        }
        fwk::fault::disarm();
        if (threw) {
          SCOPED_TRACE(std::string(persistent ? "from point " : "at point ") + std::to_string(n));
          EXPECT_EQ(w.snapshot(), before) << "the failed operation left the store changed";
          if (w.s) {
            for (const std::string& broken : invariantViolations(*w.s)) ADD_FAILURE() << broken;
          }
          scenario.act(w);
          EXPECT_EQ(w.s ? w.s->apiState() : ready, clean) << "the same call made again";
        }
      }
      EXPECT_EQ(fwk::Entity::liveCount(), baseline) << "entities leaked after a fault at point " << n;
      points = std::max(points, n - 1);
      if (!threw || ::testing::Test::HasFailure() || n > 20000) break;
    }
  }
  return points;
}

constexpr std::uint8_t frameworkSites = fwk::fault::mutation | fwk::fault::notification | fwk::fault::reaction;

// Named in test output by what it does, not by its bytes.
void PrintTo(const Scenario& scenario, std::ostream* os) {
  *os << scenario.name;
}

class FaultInjectionTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(FaultInjectionTest, AFailureAnywhereLeavesTheStoreAsItWas) {
  const std::uint64_t framework = failEverywhere(GetParam(), frameworkSites);
  const std::uint64_t allocations = failEverywhere(GetParam(), fwk::fault::allocation);
  EXPECT_GT(framework + allocations, 0u) << "the operation reaches no fault point";
  // The counts go to the log: how many points an operation passes is worth watching.
  std::printf("%s: %llu framework and %llu allocation fault points\n", GetParam().name,
              static_cast<unsigned long long>(framework), static_cast<unsigned long long>(allocations));
}

INSTANTIATE_TEST_SUITE_P(EveryWritingOperation, FaultInjectionTest, ::testing::ValuesIn(scenarios),
                         [](const ::testing::TestParamInfo<Scenario>& scenario) { return scenario.param.name; });

}  // namespace
