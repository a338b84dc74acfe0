// Every operation that writes configuration, failed at every fault point it reaches: a
// mutation, a notification, a reactor handler or an allocation throws, once or from that
// point on. Afterwards every ACL's current version must be complete (what it was before, or
// what the operation meant to install, never a mix), the session must still be able to
// revert, and nothing may leak.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <map>

#include "aclkit/Acl/AclApiInvariants.h"
#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Fault.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::ipRule;
using Content = std::map<U32, U16>;  // sequence to the rule's port

Content contentOf(const AclSubConfig& v) {
  Content c;
  for (const auto& [seq, id] : v.ruleBySequence()) {
    const IpRuleConfig* rule = v.ipRuleById().find(id);
    c[seq] = rule ? rule->filter().dstPort().low() : 0;
  }
  return c;
}

// A running configuration with ACL "web" (10 -> 80, 20 -> 443) programmed, a dataplane that
// reports (so commits wait and stay revertible), and the sessions a scenario uses.
struct World : build::SessionWorld {
  World() {
    installAcl("web", {{10, 80}, {20, 443}});
    acl.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId(String("Ethernet1")), "web");
    dp = std::make_unique<build::FakeDataplane>(acl, "dp1");
  }
  Ptr<AclConfig> web() { return acl.config->config(AclType::ip)->acl("web"); }
  std::unique_ptr<build::FakeDataplane> dp;
  Ptr<ApiSm> s;
};

const Content before{{10, 80}, {20, 443}};
const Content after{{20, 443}, {30, 22}};

// Runs `act` on a fresh world failing at the nth point, for every n the act reaches, in
// both modes, and hands each outcome to `check`.
std::uint64_t atEveryFault(std::uint8_t sites, const std::function<void(World&)>& prepare,
                           const std::function<void(World&)>& act,
                           const std::function<void(World&, bool threw)>& check) {
  std::uint64_t points = 0;
  {
    // A warm-up run, so that entities made once per process are in the baseline.
    World world;
    prepare(world);
    act(world);
  }
  const std::int64_t baseline = fwk::Entity::liveCount();
  for (bool persistent : {false, true}) {
    for (std::uint64_t n = 1;; ++n) {
      bool threw = false;
      {
        World world;
        prepare(world);
        fwk::fault::arm(sites, n, persistent);
        try {
          act(world);
        } catch (const fwk::fault::InjectedFault&) {
          threw = true;
        }
        fwk::fault::disarm();
        SCOPED_TRACE(std::string(persistent ? "from point " : "at point ") + std::to_string(n));
        check(world, threw);
      }
      EXPECT_EQ(fwk::Entity::liveCount(), baseline) << "entities leaked after a fault at point " << n;
      points = std::max(points, n);
      if (!threw || ::testing::Test::HasFatalFailure() || n > 5000) break;  // past the last point
    }
  }
  // The count goes to the log: how many points an operation passes is worth watching.
  std::printf("%s: %llu fault points survived, failing once and failing from there on\n",
              ::testing::UnitTest::GetInstance()->current_test_info()->name(), static_cast<unsigned long long>(points));
  return points;
}

void editWeb(World& w) {
  w.s = w.session("web");
  w.s->removeRuleBySequence(10, 10);
  w.s->addIpRule(30, ipRule(22));
}

void currentIsWhole(World& w) {
  ASSERT_TRUE(w.web());
  ASSERT_TRUE(w.web()->currCfg());
  Content now = contentOf(*w.web()->currCfg());
  EXPECT_TRUE(now == before || now == after) << "a partial version is current";
}

constexpr std::uint8_t frameworkSites = fwk::fault::mutation | fwk::fault::notification | fwk::fault::reaction;

TEST(FaultInjectionTest, ACommitFailingAnywhereLeavesAWholeVersionAndCanBeReverted) {
  for (std::uint8_t sites : {frameworkSites, std::uint8_t{fwk::fault::allocation}}) {
    std::uint64_t points = atEveryFault(
        sites, editWeb, [](World& w) { w.s->commitExt(false); },
        [](World& w, bool) {
          currentIsWhole(w);
          EXPECT_TRUE(invariantViolations(*w.s).empty());
          w.s->revert();
          ASSERT_TRUE(w.web()->currCfg());
          EXPECT_EQ(contentOf(*w.web()->currCfg()), before) << "revert restores the programmed version";
          EXPECT_EQ(w.web()->subConfig().size(), 1u) << "and removes what the commit left";
        });
    EXPECT_GE(points, 8u) << "every step of a commit is a fault point";
  }
}

TEST(FaultInjectionTest, ARevertFailingAnywhereCanBeRepeated) {
  atEveryFault(
      frameworkSites,
      [](World& w) {
        editWeb(w);
        w.s->commitExt(false);
        w.dp->fail("no room");
      },
      [](World& w) { w.s->revert(); },
      [](World& w, bool) {
        currentIsWhole(w);
        w.s->revert();
        EXPECT_EQ(contentOf(*w.web()->currCfg()), before);
      });
}

TEST(FaultInjectionTest, RemoveAttachAndDetachLeaveOldOrNewState) {
  atEveryFault(
      frameworkSites, [](World& w) { w.s = w.session("web", AclType::ip, remove_); }, [](World& w) { w.s->remove(); },
      [](World& w, bool) {
        if (w.web()) currentIsWhole(w);
      });
  auto binding = [](World& w) {
    return w.acl.intfConfig->config(AclType::ip)->intf(AclDirection::in)->intf(IntfId(String("Ethernet1")));
  };
  atEveryFault(
      frameworkSites, [](World& w) { w.s = w.session("other", AclType::ip, attach_); },
      [](World& w) { w.s->attach("Ethernet1", AclDirection::in); },
      [&](World& w, bool) {
        String bound = binding(w);
        EXPECT_TRUE(bound == "web" || bound == "other");
        w.s->revert();
        EXPECT_EQ(binding(w), "web");
      });
  atEveryFault(
      frameworkSites, [](World& w) { w.s = w.session("web", AclType::ip, detach_); },
      [](World& w) { w.s->detach("Ethernet1", AclDirection::in); },
      [&](World& w, bool) {
        String bound = binding(w);
        EXPECT_TRUE(bound == "web" || bound == "");
        w.s->revert();
        EXPECT_EQ(binding(w), "web");
      });
}

TEST(FaultInjectionTest, AConfigurationSessionCommitLeavesWholeVersions) {
  atEveryFault(
      frameworkSites, [](World&) {},
      [](World& w) {
        AclConfigSession session(w.acl);
        Ptr<AclSubConfig> v = session.newVersion(AclType::ip, "web");
        v->ruleBySequenceDel(10);
        UniqueId id;
        v->ruleBySequenceIs(30, id);
        v->ipRuleByIdIs(id, ipRule(22));
        session.commit();
      },
      [](World& w, bool) { currentIsWhole(w); });
}

}  // namespace
