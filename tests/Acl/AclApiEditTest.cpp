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

TEST_F(EditTest, AutomaticNumberingStepsByTenSkipsDuplicatesAndStopsAtTheTop) {
  auto s = session("web");
  EXPECT_EQ(s->addIpRule(0, ipRule(80)), succeeded);
  EXPECT_EQ(s->addIpRule(0, ipRule(443)), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10, 20}));
  traces.clear();
  EXPECT_EQ(s->addIpRule(0, ipRule(80)), succeeded);
  EXPECT_EQ(placesOf(*s), (std::vector<U32>{10, 20})) << "a rule the list holds is not added again";
  EXPECT_TRUE(traces.contains("< Found a duplicate"));
  EXPECT_EQ(s->addIpRule(35, ipRule(80)), succeeded) << "an explicit place may hold a second copy";
  EXPECT_NE(s->currentAcl()->ruleBySequence(35), s->currentAcl()->ruleBySequence(10)) << "each rule its own id";

  auto t = session("other");
  EXPECT_EQ(t->addIpRule(4294967286u, ipRule(1)), succeeded);
  traces.clear();
  EXPECT_EQ(t->addIpRule(0, ipRule(2)), errSequenceOutOfRange);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{9, "< sequence out of range"}}));
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
  traces.clear();
  EXPECT_EQ(s->removeRuleBySequence(0, 100), errReadOnly);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{9, "<, readonly"}}));
}

// Another family's rule is stored as the session family's default rule (the property test
// follows that); a family the library does not know gets a place without a record.
TEST_F(EditTest, AnUnknownFamilyGetsAPlaceWithoutARecord) {
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
  traces.clear();
  EXPECT_EQ(s->addRemark(x, 0), succeeded);
  EXPECT_TRUE(traces.contains("Remark exists"));
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
  traces.clear();
  EXPECT_EQ(s->removeRemark(x, 10), succeeded);
  EXPECT_EQ(lines(), (std::vector<std::pair<int, std::string>>{{0, "removeRemark"}, {0, " seq 10"}}));
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

// Where each renumbering ends is the property test's; this pins the refusal's text.
TEST_F(EditTest, ResequencingChecksTheLastNumberIn64Bits) {
  installAcl("web", {{1, 1}, {2, 2}, {3, 3}});
  auto s = session("web");
  traces.clear();
  EXPECT_EQ(s->resequence(4294967290u, 3), errSequenceOutOfRange);
  EXPECT_EQ(lines().back(), (std::pair<int, std::string>{9, "Last sequence : 4294967296 is greater than 4294967295"}));
  EXPECT_EQ(s->resequence(4294967289u, 3), succeeded);
  EXPECT_EQ(placesOf(*s).back(), 4294967295u);

  auto single = session("one");
  ASSERT_EQ(single->addIpRule(50, ipRule(1)), succeeded);
  EXPECT_EQ(single->resequence(4294967295u, 4294967295u), succeeded) << "one entry never meets the increment";
  auto empty = session("none");
  empty->spLastSequenceNumberIs(0);
  EXPECT_EQ(empty->resequence(10, 10), succeeded);
  EXPECT_TRUE(traces.contains("<, no rules exist"));
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
