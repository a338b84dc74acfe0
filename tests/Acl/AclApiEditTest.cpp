#include <gtest/gtest.h>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/SessionInvariants.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::ipRule;

class EditTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  void SetUp() override { fwk::TraceFacility::get("AclApi").levelsUpToIs(9); }
  void TearDown() override { fwk::TraceFacility::get("AclApi").levelsIs(0); }
  // The (level, message) of every line traced by the session since the last clear.
  std::vector<std::pair<int, std::string>> lines() const {
    std::vector<std::pair<int, std::string>> all;
    for (const auto& l : traces.lines()) all.emplace_back(l.level, l.message);
    return all;
  }
  std::vector<U32> placesOf(ApiSm& s) {
    std::vector<U32> all;
    for (const auto& entry : s.currentAcl()->ruleBySequence()) all.push_back(entry.first);
    return all;
  }
  fwk::TraceCapture traces;
};

// ---- adding rules ----------------------------------------------------------------------

TEST_F(EditTest, AutomaticNumberingStepsByTenAndSkipsDuplicates) {
  auto s = session("web");
  EXPECT_EQ(s->addIpRule(0, ipRule(80)), succeeded);
  EXPECT_EQ(s->addIpRule(0, ipRule(443)), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10, 20}));
  traces.clear();
  EXPECT_EQ(s->addIpRule(0, ipRule(80)), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10, 20})) << "a rule the list holds is not added again";
  EXPECT_TRUE(traces.contains("< Found a duplicate"));
  EXPECT_EQ(s->addIpRule(35, ipRule(80)), succeeded) << "an explicit place may hold a second copy";
  EXPECT_EQ(s->spIpRuleMap(ipRule(80)), 2u);
  EXPECT_EQ(s->getIpRule(35), ipRule(80));
  EXPECT_NE(s->currentAcl()->ruleBySequence(35), s->currentAcl()->ruleBySequence(10)) << "each rule its own id";
}

// The cache takes a new entry's place whenever it is above the cached value, 0 included, so
// after the top entry goes an entry written lower down becomes "the last" and the next
// automatic number aims just past it, onto a rule that still stands there.
TEST_F(EditTest, AnEntryWrittenWhileTheLastIsUnknownBecomesTheLast) {
  installAcl("web", {{10, 1}, {30, 3}, {40, 4}});
  auto s = session("web");
  ASSERT_EQ(s->removeRuleBySequence(40, 40), succeeded);
  EXPECT_EQ(s->spLastSequenceNumber(), 0u);
  traces.clear();
  EXPECT_EQ(s->addIpRule(20, ipRule(2)), succeeded);
  EXPECT_EQ(s->spLastSequenceNumber(), 20u);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{0, " seq 20"}, {1, "spLastSequenceNumber -> 20"}}));
  EXPECT_EQ(s->addIpRule(0, ipRule(5)), errRuleExists) << "30 holds another rule";
  EXPECT_EQ(s->getIpRule(30), ipRule(3));
  EXPECT_EQ(ruleCount(s->currentAcl()), 3u);
}

TEST_F(EditTest, AutomaticNumberingStopsAtTheTopOfTheRange) {
  auto s = session("web");
  EXPECT_EQ(s->addIpRule(4294967285u, ipRule(1)), succeeded);
  EXPECT_EQ(s->addIpRule(0, ipRule(2)), succeeded);
  EXPECT_EQ(s->getIpRule(4294967295u), ipRule(2));
  auto t = session("other");
  EXPECT_EQ(t->addIpRule(4294967286u, ipRule(1)), succeeded);
  traces.clear();
  EXPECT_EQ(t->addIpRule(0, ipRule(2)), errSequenceOutOfRange);
  EXPECT_EQ(t->apiState(), errSequenceOutOfRange);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{9, "< sequence out of range"}}));
  EXPECT_EQ(ruleCount(t->currentAcl()), 1u);
}

TEST_F(EditTest, OccupancyIsJudgedBeforeReadOnly) {
  installAcl("ro", {{10, 80}}, {{15, "note"}}, true);
  auto s = session("ro");
  EXPECT_EQ(s->addIpRule(10, ipRule(80)), succeeded) << "the same rule at its own place";
  EXPECT_EQ(s->addIpRule(10, ipRule(81)), errRuleExists);
  traces.clear();
  EXPECT_EQ(s->addIpRule(15, ipRule(81)), errRuleExists);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{9, "< Remark exists with sequence: 15"}}));
  traces.clear();
  EXPECT_EQ(s->addIpRule(20, ipRule(81)), errReadOnly);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{9, "<, readonly"}}));
  EXPECT_EQ(ruleCount(s->currentAcl()), 2u) << "refusals change nothing";
  EXPECT_EQ(traces.lines().empty() ? "" : traces.lines()[0].function, "addRuleCommon");
}

TEST_F(EditTest, OnlyTheSessionsFamilyIsWritten) {
  auto v6 = session("v6", AclType::ipv6);
  Ip6RuleConfig rule = build::ruleWith<Ip6RuleConfig>([&](Ip6Filter& f) { f.hopLimitIs(3); });
  EXPECT_EQ(v6->addIp6Rule(0, rule), succeeded);
  EXPECT_EQ(v6->addIpRule(0, ipRule(80)), succeeded) << "stores the IPv6 argument (a default rule) instead";
  EXPECT_EQ(v6->currentAcl()->ip6RuleById().size(), 2u);
  EXPECT_TRUE(v6->currentAcl()->ipRuleById().empty());
  auto odd = session("odd", static_cast<AclType>(9));
  EXPECT_EQ(odd->addMacRule(10, MacRuleConfig()), succeeded);
  EXPECT_EQ(odd->currentAcl()->ruleBySequence().size(), 1u) << "a place without a record";
  EXPECT_TRUE(odd->currentAcl()->macRuleById().empty());
}

// ---- remarks ---------------------------------------------------------------------------

TEST_F(EditTest, RemarksTakeFreePlacesAndRefuseOccupiedOnes) {
  auto s = session("web");
  RemarkConfig x(String("x"));
  EXPECT_EQ(s->addRemark(x, 0), succeeded);
  EXPECT_EQ(s->currentAcl()->remarkBySequence(10), x);
  traces.clear();
  EXPECT_EQ(s->addRemark(x, 0), succeeded);
  EXPECT_EQ(s->currentAcl()->remarkBySequence().size(), 1u);
  EXPECT_TRUE(traces.contains("Remark exists"));
  EXPECT_EQ(s->addRemark(RemarkConfig(String("y")), 0), succeeded);
  EXPECT_EQ(s->currentAcl()->remarkBySequence(20).text(), "y");
  EXPECT_EQ(s->addIpRule(15, ipRule(80)), succeeded);
  traces.clear();
  EXPECT_EQ(s->addRemark(x, 10), succeeded);
  EXPECT_EQ(s->addRemark(RemarkConfig(String("z")), 10), errRuleExists);
  EXPECT_EQ(s->addRemark(RemarkConfig(String("z")), 15), errRuleExists);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{0, "addRemark"},
                                                               {8, "Same remark exists with the sequence number: 10"},
                                                               {0, "addRemark"},
                                                               {8, "Remark exists with the sequence number: 10"},
                                                               {0, "addRemark"},
                                                               {8, "Rule exists with the sequence number: 15"}}));
}

TEST_F(EditTest, AnAutomaticRemarkPlaceWrapsAtTheTop) {
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(4294967290u, ipRule(1)), succeeded);
  EXPECT_EQ(s->addRemark(RemarkConfig(String("w")), 0), succeeded);
  EXPECT_EQ(s->currentAcl()->remarkBySequence(4).text(), "w");
}

TEST_F(EditTest, RemarksGoByPlaceOrByTheirFirstEqualText) {
  installAcl("web", {}, {{10, "x"}, {20, "y"}, {30, "x"}});
  auto s = session("web");
  s->initializeRuleMap();
  EXPECT_EQ(s->removeRemark(RemarkConfig(String("ignored")), 20), succeeded);
  EXPECT_FALSE(s->currentAcl()->remarkBySequence().contains(20)) << "by place, whatever the text";
  EXPECT_EQ(s->removeRemark(RemarkConfig(String("x")), 0), succeeded);
  EXPECT_FALSE(s->currentAcl()->remarkBySequence().contains(10));
  EXPECT_TRUE(s->currentAcl()->remarkBySequence().contains(30)) << "only the first equal one";
  EXPECT_EQ(s->spRemarkMap(RemarkConfig(String("x"))), 1u);
  EXPECT_EQ(s->removeRemark(RemarkConfig(String("x")), 50), succeeded);
  EXPECT_EQ(s->spRemarkMap(RemarkConfig()), 4294967295u) << "an empty place still counts the empty remark down";
}

// ---- removing rules --------------------------------------------------------------------

TEST_F(EditTest, RemovalByRangeTakesRulesAndRemarksAndSurvivesItsOwnWalk) {
  installAcl("web", {{10, 1}, {20, 2}, {30, 3}, {40, 4}}, {{25, "a"}, {35, "b"}});
  auto s = session("web");
  s->initializeRuleMap();
  EXPECT_EQ(s->removeRuleBySequence(30, 10), succeeded);
  EXPECT_EQ(ruleCount(s->currentAcl()), 6u) << "an inverted range removes nothing";
  EXPECT_EQ(s->removeRuleBySequence(20, 20), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10, 30, 40}));
  EXPECT_EQ(s->removeRuleBySequence(21, 35), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10, 40}));
  EXPECT_TRUE(s->currentAcl()->remarkBySequence().empty());
  EXPECT_EQ(s->currentAcl()->ipRuleById().size(), 2u) << "records go with their places";
  EXPECT_EQ(s->removeRuleBySequence(0, 4294967295u), succeeded);
  EXPECT_EQ(ruleCount(s->currentAcl()), 0u);
  EXPECT_EQ(s->spIpRuleMap(ipRule(1)), 0u);
  EXPECT_EQ(s->spIpRuleMap(ipRule(4)), 0u);
  EXPECT_EQ(s->removeRuleBySequence(5, 5), succeeded) << "an empty range is no error";
}

TEST_F(EditTest, RemovalByContentChecksItsOwnFamily) {
  // An IPv6 session removing an IPv4 rule looks at the IPv4 ACL of its name.
  acl.config->configIs(AclType::ip)->aclIs("shared", AclType::ip, false, true);
  auto v6 = session("shared", AclType::ipv6);
  ASSERT_EQ(v6->addIp6Rule(10, Ip6RuleConfig()), succeeded);
  EXPECT_EQ(v6->removeIpRuleByConfig(IpRuleConfig()), errReadOnly);
  EXPECT_EQ(v6->removeIp6RuleByConfig(Ip6RuleConfig()), succeeded);
  EXPECT_TRUE(v6->currentAcl()->ruleBySequence().empty());

  installAcl("ro", {{10, 80}}, {}, true);
  auto ro = session("ro");
  EXPECT_EQ(ro->removeRuleBySequence(0, 100), errReadOnly);
  EXPECT_EQ(ro->removeIpRuleByConfig(ipRule(80)), errReadOnly);
  EXPECT_EQ(ruleCount(ro->currentAcl()), 1u);
  EXPECT_EQ(session("x", AclType::ip, detach_)->removeRuleBySequence(0, 1), failed);
}

// ---- resequencing ----------------------------------------------------------------------

TEST_F(EditTest, ResequencingKeepsTheOrderOfRulesAndRemarks) {
  installAcl("web", {{5, 1}, {7, 2}}, {{6, "between"}});
  auto s = session("web");
  UniqueId first = s->currentAcl()->ruleBySequence(5);
  traces.clear();
  EXPECT_EQ(s->resequence(10, 10), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10, 30}));
  EXPECT_EQ(s->currentAcl()->ruleBySequence(10), first) << "identities stay";
  EXPECT_EQ(s->currentAcl()->remarkBySequence(20).text(), "between");
  EXPECT_EQ(s->spLastSequenceNumber(), 30u);
  EXPECT_TRUE(traces.contains("Rule 5 remark 6 - writing rule as 10"));
  EXPECT_TRUE(traces.contains("Rule 7 remark 6 - writing remark as 20"));
  EXPECT_TRUE(traces.contains("Rule 7 remark 4294967296 - writing rule as 30"));
  EXPECT_TRUE(traces.contains("Found rule 5 id " + std::to_string(first.val())));
}

TEST_F(EditTest, ResequencingChecksTheLastNumberIn64Bits) {
  installAcl("web", {{1, 1}, {2, 2}, {3, 3}});
  auto s = session("web");
  traces.clear();
  EXPECT_EQ(s->resequence(4294967290u, 3), errSequenceOutOfRange);
  EXPECT_EQ(lines().back(), (std::pair<int, std::string>{9, "Last sequence : 4294967296 is greater than 4294967295"}));
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{1, 2, 3}));
  EXPECT_EQ(s->resequence(4294967289u, 3), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{4294967289u, 4294967292u, 4294967295u}));
  EXPECT_EQ(s->resequence(0, 2147483648u), errSequenceOutOfRange) << "2 * 2^31 overflows 32 bits";
  EXPECT_EQ(s->resequence(0, 10), succeeded);
  EXPECT_EQ(placesOf(*s).front(), 0u);

  auto single = session("one");
  ASSERT_EQ(single->addIpRule(50, ipRule(1)), succeeded);
  EXPECT_EQ(single->resequence(4294967295u, 4294967295u), succeeded) << "one entry never meets the increment";
  auto empty = session("none");
  empty->spLastSequenceNumberIs(0);
  EXPECT_EQ(empty->resequence(10, 10), succeeded);
  EXPECT_TRUE(traces.contains("<, no rules exist"));
}

TEST_F(EditTest, AZeroIncrementLeavesOnlyTheLastEntryPlaced) {
  installAcl("web", {{10, 1}, {20, 2}, {30, 3}});
  auto s = session("web");
  EXPECT_EQ(s->resequence(10, 0), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10}));
  EXPECT_EQ(s->getIpRule(10), ipRule(3));
  EXPECT_EQ(s->currentAcl()->ipRuleById().size(), 3u) << "earlier records stay without a place";
}

// ---- the invariant checker -------------------------------------------------------------

TEST(EditRandomTest, TheCheckerSeesDrift) {
  build::SessionWorld world;
  auto s = world.session("web");
  ASSERT_EQ(s->addIpRule(0, ipRule(1)), succeeded);
  EXPECT_TRUE(invariantViolations(*s).empty());
  s->spIpRuleMapIs(ipRule(1), 5);
  s->currentAcl()->ruleBySequenceIs(20, UniqueId());
  s->spLastSequenceNumberIs(7);
  EXPECT_EQ(invariantViolations(*s).size(), 3u);
}

}  // namespace
