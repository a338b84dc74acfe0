// What the edit session says, by scenario: each row sets up what it needs, acts, and names the
// lines the action must trace ("LEVEL message"), in that order among whatever else it traces.
// Results, scratchpads and versions are the property test's; a row asserts only what the
// model cannot see.
#include <gtest/gtest.h>

#include <functional>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/platform/trace/Clock.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::ipRule;

struct Scene : build::SessionWorld {
  // Only what is traced from here on counts.
  void begin() { traces.clear(); }
  void bind(const char* intf, const char* name, AclType type = AclType::ip) {
    acl.intfConfig->configIs(type)->intfIs(AclDirection::in)->intfIs(IntfId(String(intf)), name);
  }
  Ptr<AclConfig> web() { return acl.config->config(AclType::ip)->acl("web"); }
  fwk::TraceCapture traces;
};

struct Row {
  const char* what;
  std::function<void(Scene&)> act;
  std::vector<std::string> traced;
};

const Row rows[] = {
    // ---- a session and its scratchpad
    {"a session is made", [](Scene& w) { w.session("web"); }, {"0 createScratchpad", "0 handleInitialized<"}},
    {"cleanup without the list",
     [](Scene& w) {
       w.installAcl("web", {{10, 80}});
       auto s = w.session("web");
       w.acl.config->config(AclType::ip)->aclDel("web");
       w.begin();
       s->cleanupOldConfig();
       EXPECT_TRUE(s->currentAcl()) << "kept when the ACL is gone";
     },
     {"0 cleanupOldConfig", "0 <, aclConfig is NULL"}},
    {"flags",
     [](Scene& w) {
       auto s = w.session("web");
       w.begin();
       (void)s->enableCounters(), (void)s->disableCounters(), (void)s->enableFragments(), (void)s->disableFragments();
     },
     {"0 enableCounters", "0 disableCounters", "0 enableFragments", "0 disableFragments"}},
    // ---- adding
    {"a duplicate, then no room at the top",
     [](Scene& w) {
       auto s = w.session("web");
       (void)s->addIpRule(0, ipRule(80));
       (void)s->addIpRule(0, ipRule(80));
       (void)s->addIpRule(4294967286u, ipRule(1));
       EXPECT_EQ(s->addIpRule(0, ipRule(2)), errSequenceOutOfRange);
     },
     {"8 < Found a duplicate", "9 < sequence out of range"}},
    {"refusals, occupancy before read-only",
     [](Scene& w) {
       w.installAcl("ro", {{10, 80}}, {{15, "note"}}, true);
       auto s = w.session("ro");
       w.begin();
       EXPECT_EQ(s->addIpRule(15, ipRule(81)), errRuleExists);
       EXPECT_EQ(s->addIpRule(20, ipRule(81)), errReadOnly);
       EXPECT_EQ(w.traces.lines().back().function, "addRuleCommon");
       EXPECT_EQ(s->removeRuleBySequence(0, 100), errReadOnly);
     },
     {"9 < Remark exists with sequence: 15", "9 <, readonly", "9 <, readonly"}},
    {"an entry written while the last is unknown becomes the last",
     [](Scene& w) {
       w.installAcl("web", {{10, 1}, {30, 3}, {40, 4}});
       auto s = w.session("web");
       (void)s->removeRuleBySequence(40, 40);
       w.begin();
       (void)s->addIpRule(20, ipRule(2));
       EXPECT_EQ(s->addIpRule(0, ipRule(5)), errRuleExists) << "30 holds another rule";
     },
     {"0  seq 20", "1 spLastSequenceNumber -> 20"}},
    {"remarks",
     [](Scene& w) {
       auto s = w.session("web");
       RemarkConfig x(String("x"));
       (void)s->addRemark(x, 0);
       (void)s->addRemark(x, 0);
       (void)s->addIpRule(15, ipRule(80));
       (void)s->addRemark(x, 10);
       EXPECT_EQ(s->addRemark(RemarkConfig(String("z")), 10), errRuleExists);
       EXPECT_EQ(s->addRemark(RemarkConfig(String("z")), 15), errRuleExists);
       (void)s->removeRemark(x, 10);
     },
     {"9 Remark exists", "0 addRemark", "8 Same remark exists with the sequence number: 10", "0 addRemark",
      "8 Remark exists with the sequence number: 10", "0 addRemark", "8 Rule exists with the sequence number: 15",
      "0 removeRemark", "0  seq 10"}},
    {"an automatic remark past the top wraps onto a place in use and takes it",
     [](Scene& w) {
       auto s = w.session("web");
       (void)s->addRemark(RemarkConfig(String("low")), 4);
       (void)s->addRemark(RemarkConfig(String("top")), 4294967290u);
       w.begin();
       EXPECT_EQ(s->addRemark(RemarkConfig(String("wrapped")), 0), succeeded) << "judged at 0, not at 4";
       EXPECT_EQ(s->currentAcl()->remarkBySequence(4).text(), "wrapped");
     },
     {"0 addRemark", "0  seq 4"}},
    // ---- resequencing
    {"resequencing keeps the order of rules and remarks",
     [](Scene& w) {
       w.installAcl("web", {{5, 1}, {7, 2}}, {{6, "between"}});
       auto s = w.session("web");
       w.begin();
       (void)s->resequence(10, 10);
       EXPECT_EQ(w.traces.count("Found rule 5 id " + std::to_string(s->currentAcl()->ruleBySequence(10).val())), 1u);
       EXPECT_EQ(s->resequence(4294967286u, 5), errSequenceOutOfRange);
       EXPECT_EQ(s->resequence(4294967285u, 5), succeeded) << "the last number may be the top itself";
       (void)w.session("none")->resequence(10, 10);
     },
     {"6 Rule 5 remark 6 - writing rule as 10", "6 Rule 7 remark 6 - writing remark as 20",
      "6 Rule 7 remark 4294967296 - writing rule as 30", "9 Last sequence : 4294967296 is greater than 4294967295",
      "0 resequence", "0 <, no rules exist"}},
    // ---- commit, revert, remove
    {"commits: a new list, a new version, a patch in place",
     [](Scene& w) {
       auto fresh = w.session("new");
       (void)fresh->addIpRule(0, ipRule(80));
       (void)fresh->commit();
       w.installAcl("web", {{10, 80}, {20, 443}});
       auto s = w.session("web");
       (void)s->addIpRule(30, ipRule(22));
       (void)s->commit();
       auto renumbering = w.session("web");
       (void)renumbering->resequence(100, 100);
       (void)renumbering->commit();
       (void)w.session("none", AclType::ip, remove_)->commit();
     },
     {"2 New acl new", "2 create new subConfig for ACL new", "2 create new subConfig for ACL web",
      "2 update existing ACL web", "9 Scratchpad is empty!"}},
    {"conflicts with other sessions",
     [](Scene& w) {
       w.installAcl("web", {{10, 80}});
       auto first = w.session("web");
       auto second = w.session("web");
       auto late = w.session("web");
       auto a = w.session("fresh");
       auto b = w.session("fresh");
       for (auto* s : {&first, &second, &late, &a, &b}) (void)(*s)->addIpRule(0, ipRule(1));
       (void)first->commit();
       EXPECT_EQ(second->commit(), errSessionModify);
       (void)a->commit();
       EXPECT_EQ(b->commit(), errSessionCreate);
       (void)w.session("web", AclType::ip, remove_)->remove();
       EXPECT_EQ(late->commit(), errSessionDelete);
     },
     {"9 Acl web has been modified by another session", "9 Acl fresh has been created by another session",
      "9 Acl web has been deleted by another session"}},
    {"reverts of a new list, a failed version, a version gone and nothing",
     [](Scene& w) {
       build::FakeDataplane dp(w.acl, "dp1");
       auto creator = w.session("web");
       (void)creator->addIpRule(0, ipRule(80));
       (void)creator->commitExt(false);
       EXPECT_EQ(creator->revert(), succeeded);
       EXPECT_FALSE(w.web()) << "a commit that created the ACL is undone by deleting it";
       w.installAcl("web", {{10, 80}});
       auto s = w.session("web");
       (void)s->addIpRule(20, ipRule(443));
       (void)s->commitExt(false);
       dp.fail("tcam exhausted");
       dp.recover();
       EXPECT_EQ(s->revert(), waitingForHw);
       dp.apply();
       auto gone = w.session("web");
       (void)gone->addIpRule(20, ipRule(1));
       (void)gone->commitExt(false);
       w.web()->subConfigDel(gone->origAclSubConfig()->id());  // someone removes the old version meanwhile
       EXPECT_EQ(gone->revert(), succeeded);
       auto done = w.session("other");
       (void)done->addIpRule(10, ipRule(1));
       (void)done->commit();
       (void)done->revert();
       (void)w.session("x", AclType::ip, remove_)->revert();
     },
     {"8 Failed while committing", "8 origAclSubConfig does not exist. Deleting the acl", "8 Failed while committing",
      "8 Reverting to *", "2 Setting the currCfg to : /acl/input/config/ip/web/*",
      "2 Cannot revert as the original subConfig has been deleted", "8 Scratchpad empty. Nothing to revert",
      "8 apiType: remove"}},
    {"removal refusals and an undone detach",
     [](Scene& w) {
       w.installAcl("ro", {}, {}, true);
       w.acl.config->config(AclType::ip)->aclIs("std", AclType::ip, true, false);
       for (const char* name : {"none", "std", "ro"}) (void)w.session(name, AclType::ip, remove_)->remove();
       w.bind("Ethernet1", "old");
       auto detaching = w.session("old", AclType::ip, detach_);
       (void)detaching->detach("Ethernet1", AclDirection::in);
       (void)detaching->revert();
       EXPECT_EQ(detaching->attachedAcl("Ethernet1", AclDirection::in), "old");
     },
     {"9 <, errAclDoesNotExist", "9 <, errStandardAcl", "9 <, errReadOnly", "8 Failed while detach"}},
    // ---- the hardware
    {"the hardware wait's skips, its stamp and the first error by key",
     [](Scene& w) {
       fwk::ClockOverride clock([] { return 1000.0; });
       (void)w.session("web")->waitForHw();
       Ptr<AclConfig> web = w.installAcl("web", {{10, 80}});
       web->currCfg()->committedIs(false);
       Ptr<StatusDp> dp1 = w.acl.statusDpDir->entityIs<StatusDp>("dp1");
       Ptr<StatusDp> dp2 = w.acl.statusDpDir->entityIs<StatusDp>("dp2");
       auto s = w.session("web");
       (void)s->waitForHw();
       dp1->waitForHwStatusIs(true), dp2->waitForHwStatusIs(true);
       s->inConfigSessionIs(true);
       (void)s->waitForHw();
       s->inConfigSessionIs(false);
       EXPECT_EQ(s->waitForHw(), waitingForHw);
       EXPECT_EQ(w.acl.hwConfig->dpAclUpdateRequestTime(), 1000.0);
       dp1->errorIs("b", "second"), dp1->errorIs("a", "tcam full");
       dp1->dpAclUpdateTimeIs(1000);  // equal to the request counts as caught up
       dp2->dpAclUpdateTimeIs(1000);
       EXPECT_EQ(std::pair(s->apiState(), s->errString("dp1")), std::pair(errHw, String("tcam full")));
       EXPECT_FALSE(web->currCfg()->committed());
       dp1->errorDelAll();
       (void)s->waitForHw();
       dp1->dpAclUpdateTimeIs(1001), dp2->dpAclUpdateTimeIs(1001);
       EXPECT_TRUE(web->currCfg()->committed()) << "success marks the current version committed";
     },
     {"0 <, No statusDp", "0 <, waitForHwStatus is false", "0 <, inConfigSession", "2 commit time: 1000",
      "2 Not updated", "8 tcam full"}},
    {"attach and detach say what they found",
     [](Scene& w) {
       (void)w.session("web", AclType::ip, attach_)->attach("Ethernet1", AclDirection::in);
       (void)w.session("other", AclType::ip, attach_)->attach("Ethernet2", AclDirection::in);
       auto s = w.session("web", AclType::ip, detach_);
       (void)s->detach("Ethernet2", AclDirection::in);
       (void)s->detach("Ethernet9", AclDirection::in);
       EXPECT_EQ(s->origAclName(), "");
     },
     {"9 Acl: web does not exist", "8 web is not attached to Ethernet2", "8 No acl attached to Ethernet9"}},
};

TEST(AclApiTraceTest, EachScenarioTracesItsLinesInOrder) {
  const build::AllLevels levels;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Scene scene;
    double now = 100;
    const fwk::ClockOverride clock([&] { return now += 1; });
    row.act(scene);
    std::vector<std::string> lines;
    for (const auto& l : scene.traces.lines()) lines.push_back(std::to_string(l.level) + " " + l.message);
    auto at = lines.begin();
    for (const std::string& expected : row.traced) {
      // A line ending in "*" stands for any line that begins with the rest.
      at = std::find_if(at, lines.end(), [&](const std::string& line) {
        return expected.ends_with('*') ? line.starts_with(expected.substr(0, expected.size() - 1)) : line == expected;
      });
      if (at == lines.end()) {
        ADD_FAILURE() << "not traced in order: " << expected << "\ntraced:\n" << ::testing::PrintToString(lines);
        break;
      }
      ++at;
    }
  }
}

}  // namespace
