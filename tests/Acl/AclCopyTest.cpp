#include <gtest/gtest.h>

#include "aclkit/Acl/AclCopy.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/AclBuilders.h"

namespace {

using namespace Acl;
using build::ipRule;
using build::looseVersion;

class AclCopyTest : public ::testing::Test {
 protected:
  void SetUp() override { fwk::TraceFacility::get("AclCopy").levelsUpToIs(9); }
  void TearDown() override { fwk::TraceFacility::get("AclCopy").levelsIs(0); }

  Ptr<AclConfigCopyHandler> handler = aclConfigCopyHandlerFactory();
  fwk::TraceCapture traces;
};

std::vector<U32> sequences(const AclSubConfig& sub) {
  std::vector<U32> all;
  for (const auto& entry : sub.ruleBySequence()) all.push_back(entry.first);
  return all;
}

TEST_F(AclCopyTest, EqualRuleConfigComparesContentsInOrderNotNumbersOrIdentities) {
  auto a = looseVersion({{10, 80}, {20, 443}, {30, 22}});
  auto renumbered = looseVersion({{5, 80}, {15, 443}, {25, 22}});
  EXPECT_TRUE(handler->equalRuleConfig(AclType::ip, a, renumbered));
  EXPECT_FALSE(handler->equalSequence(a, renumbered));
  EXPECT_TRUE(traces.lines().empty()) << "differences other than counts are silent";

  auto reordered = looseVersion({{10, 443}, {20, 80}, {30, 22}});
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, a, reordered));

  auto five = looseVersion({{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}});
  auto six = looseVersion({{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}});
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, five, six));
  ASSERT_EQ(traces.lines().size(), 1u);
  EXPECT_EQ(traces.lines()[0].message, "rule count mismatch - 5:6");
  EXPECT_EQ(traces.lines()[0].level, 9);
  EXPECT_EQ(traces.lines()[0].facility, "AclCopy");

  EXPECT_TRUE(handler->equalRuleConfig(static_cast<AclType>(7), a, reordered)) << "unknown family: counts only";
  EXPECT_TRUE(handler->equalRuleConfig(AclType::ipv6, a, reordered)) << "no IPv6 rules on either side";

  // A copy holds its source's storage until one side changes; each change stands apart.
  auto copy = looseVersion({});
  auto withRemark = looseVersion({}, {{15, "web"}});
  EXPECT_TRUE(Cli::Session::entityCopyFactory()->doCopyEntityAttrs(copy, a, "", nullptr));
  EXPECT_TRUE(handler->equalRuleConfig(AclType::ip, a, copy));
  EXPECT_TRUE(handler->equalSequence(a, copy));
  copy->ipRuleByIdIs(copy->ruleBySequence(20), ipRule(444));
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, a, copy)) << "same places, a record changed under its identity";
  EXPECT_EQ(a->ipRuleById(a->ruleBySequence(20)), ipRule(443)) << "the source keeps its own record";
  EXPECT_TRUE(handler->equalSequence(a, copy));

  // Copies edited at a few places, with every record shared or one added: what lies between
  // the places that differ decides as much as the places themselves.
  auto ppqp = looseVersion({{1, 80}, {2, 80}, {3, 22}, {4, 80}});
  auto editedCopy = [&](auto edit) {
    auto edited = looseVersion({});
    EXPECT_TRUE(Cli::Session::entityCopyFactory()->doCopyEntityAttrs(edited, ppqp, "", nullptr));
    edit(*edited, edited->ruleBySequence(1), edited->ruleBySequence(2));
    return handler->equalRuleConfig(AclType::ip, ppqp, edited);
  };
  EXPECT_FALSE(editedCopy([](AclSubConfig& v, UniqueId first, UniqueId) {
    v.ruleBySequenceDel(1);
    v.ruleBySequenceIs(5, first);  // 80 22 80 80: the ends agree, the middle does not
  }));
  EXPECT_TRUE(editedCopy([](AclSubConfig& v, UniqueId first, UniqueId second) {
    v.ruleBySequenceIs(1, second);
    v.ruleBySequenceIs(2, first);
  })) << "two equal rules swapped";
  EXPECT_FALSE(editedCopy([](AclSubConfig& v, UniqueId, UniqueId) {
    const UniqueId fresh;
    v.ruleBySequenceIs(4, fresh);
    v.ipRuleByIdIs(fresh, ipRule(23));
  })) << "the last rule replaced";
  EXPECT_FALSE(editedCopy([](AclSubConfig& v, UniqueId first, UniqueId) {
    v.ruleBySequenceDel(1);
    v.ipRuleByIdDel(first);
    const UniqueId fresh;
    v.ruleBySequenceIs(5, fresh);
    v.ipRuleByIdIs(fresh, ipRule(23));
  })) << "the first rule taken away and another appended";
  EXPECT_TRUE(Cli::Session::entityCopyFactory()->doCopyEntityAttrs(copy, withRemark, "", nullptr));
  EXPECT_TRUE(handler->equalRemark(copy, withRemark));
  copy->remarkBySequenceIs(15, RemarkConfig(String("mail")));
  EXPECT_FALSE(handler->equalRemark(copy, withRemark));
  EXPECT_EQ(withRemark->remarkBySequence(15), RemarkConfig(String("web")));
}

TEST_F(AclCopyTest, FlagsDecideBeforeRulesAndAMissingRuleReadsAsTheDefault) {
  auto a = looseVersion({{10, 80}});
  auto b = looseVersion({{10, 81}});
  a->opaqueIs(true);
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, a, b));
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, b, a));
  b->opaqueIs(true);
  EXPECT_TRUE(handler->equalRuleConfig(AclType::ip, a, b)) << "two opaque versions are equal";
  EXPECT_FALSE(handler->copyNonEssential(a, b));

  auto c = looseVersion({{10, 80}});
  auto d = looseVersion({{10, 80}});
  d->countersEnabledIs(true);
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, c, d));
  d->countersEnabledIs(false);
  d->fragmentsEnabledIs(true);
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, c, d));
  EXPECT_TRUE(traces.lines().empty());

  // Then the rules, where a missing record reads as the family's default rule.
  d->fragmentsEnabledIs(false);
  c->ipRuleByIdIs(c->ruleBySequence(10), IpRuleConfig());
  d->ipRuleByIdDel(d->ruleBySequence(10));
  EXPECT_TRUE(handler->equalRuleConfig(AclType::ip, c, d));
}

TEST_F(AclCopyTest, RemarksCompareByPlaceAndExactText) {
  auto a = looseVersion({}, {{10, "web"}, {20, "db"}});
  auto b = looseVersion({}, {{10, "web"}, {20, "db"}, {30, "x"}});
  EXPECT_FALSE(handler->equalRemark(a, b));
  EXPECT_EQ(traces.messages(), std::vector<std::string>{"remarek count mismatch - 2:3"});
  EXPECT_FALSE(handler->equalRemark(a, looseVersion({}, {{10, "Web"}, {20, "db"}})));
  EXPECT_FALSE(handler->equalRemark(a, looseVersion({}, {{10, "web"}, {21, "db"}})));
  EXPECT_TRUE(handler->equalRemark(a, looseVersion({}, {{10, "web"}, {20, "db"}})));
  auto empty1 = looseVersion({});
  auto empty2 = looseVersion({});
  EXPECT_TRUE(handler->equalRuleConfig(AclType::ip, empty1, empty2));
  EXPECT_TRUE(handler->equalSequence(empty1, empty2));
  EXPECT_TRUE(handler->equalRemark(empty1, empty2));
  auto four = looseVersion({{1, 1}, {2, 2}, {3, 3}, {4, 4}});
  EXPECT_FALSE(handler->equalSequence(four, empty1));
  EXPECT_EQ(traces.messages().back(), "sequence count mismatch - 4:0");
}

TEST_F(AclCopyTest, CopyNonEssentialRenumbersKeepingIdentitiesAndReplacesRemarks) {
  auto dest = looseVersion({{10, 80}, {20, 443}, {30, 22}}, {{5, "old"}, {15, "gone"}});
  auto src = looseVersion({{5, 80}, {15, 443}, {25, 22}}, {{1, "new"}});
  std::vector<UniqueId> ids;
  for (const auto& entry : dest->ruleBySequence()) ids.push_back(entry.second);
  auto rulesBefore = dest->ipRuleById().size();

  EXPECT_TRUE(handler->copyNonEssential(dest, src));
  EXPECT_EQ(sequences(*dest), (std::vector<U32>{5, 15, 25}));
  EXPECT_EQ(dest->ruleBySequence(5), ids[0]);
  EXPECT_EQ(dest->ruleBySequence(15), ids[1]);
  EXPECT_EQ(dest->ruleBySequence(25), ids[2]);
  EXPECT_EQ(dest->ipRuleById().size(), rulesBefore);
  EXPECT_EQ(dest->ipRuleById(ids[1]), ipRule(443));
  EXPECT_EQ(dest->remarkBySequence().size(), 1u);
  EXPECT_EQ(dest->remarkBySequence(1).text(), "new");
  EXPECT_EQ(traces.count("copy sequence"), 1u);
  EXPECT_EQ(traces.count("copy remark"), 1u);

  traces.clear();
  build::AnyChange watch(dest.get());
  EXPECT_FALSE(handler->copyNonEssential(dest, src)) << "nothing left to patch";
  EXPECT_EQ(watch.count, 0);
  EXPECT_TRUE(traces.lines().empty());

  auto noRemarks = looseVersion({{5, 80}, {15, 443}, {25, 22}});
  EXPECT_TRUE(handler->copyNonEssential(dest, noRemarks));
  EXPECT_TRUE(dest->remarkBySequence().empty());
  EXPECT_EQ(traces.count("copy sequence"), 0u) << "only the remarks differed";
}

TEST(AclCopyDeathTest, NullVersionsAreProgrammingErrors) {
  Ptr<AclConfigCopyHandler> handler = aclConfigCopyHandlerFactory();
  auto some = looseVersion({});
  EXPECT_DEATH((void)handler->equalSequence(nullptr, some), "Assertion failed: a \\(");
  EXPECT_DEATH((void)handler->equalRemark(some, nullptr), "Assertion failed: b \\(");
}

// ---- handleEntity over a family's ACLs ----------------------------------------------

class AclTreeCopyTest : public AclCopyTest {
 protected:
  void SetUp() override {
    AclCopyTest::SetUp();
    handler->initialize();
    src = srcRoot->configIs(AclType::ip);
    dest = destRoot->configIs(AclType::ip);
    src->hasNotificationActiveIs(true);
    dest->hasNotificationActiveIs(true);
  }
  Ptr<AclConfig> acl(Input::AclTypeConfig& where, const char* name, std::initializer_list<std::pair<U32, U16>> rules,
                     bool readonly = false) {
    Ptr<AclConfig> a = where.aclIs(name, AclType::ip, false, readonly);
    a->currCfgIs(build::version(*a, rules));
    return a;
  }
  bool run() { return handler->handleEntity(copy, dest, src, "/config.config/ip"); }

  Ptr<Input::Config> srcRoot{new Input::Config("src")};
  Ptr<Input::Config> destRoot{new Input::Config("dest")};
  Ptr<Input::AclTypeConfig> src;
  Ptr<Input::AclTypeConfig> dest;
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
};

TEST_F(AclTreeCopyTest, MissingAclsAreMadeAsTheSourcesAndDestinationOnlyAclsGoUnlessDynamicOrSecureMonitor) {
  Ptr<AclConfig> s = src->aclIs("std", AclType::ip, true, true);
  s->currCfgIs(build::version(*s, {{10, 80}}));
  acl(*dest, "plain", {{10, 1}});
  acl(*dest, "dyn", {{10, 1}})->dynamicIs(true);
  acl(*dest, "mon", {{10, 1}})->secureMonitorIs(true);
  EXPECT_TRUE(run());
  EXPECT_FALSE(dest->acl("plain"));
  EXPECT_TRUE(dest->acl("dyn"));
  EXPECT_TRUE(dest->acl("mon"));
  EXPECT_TRUE(traces.contains("Deleting plain"));
  EXPECT_TRUE(traces.contains("dyn is dynamic, skipping"));
  EXPECT_TRUE(traces.contains("mon is dynamic, skipping"));
  Ptr<AclConfig> d = dest->acl("std");
  ASSERT_TRUE(d);
  EXPECT_TRUE(d->standard());
  EXPECT_TRUE(d->readonly());
  ASSERT_TRUE(d->currCfg());
  EXPECT_EQ(d->currCfg()->id(), s->currCfg()->id());
  EXPECT_TRUE(d->currCfg()->committed());
  EXPECT_EQ(d->currCfg()->ipRuleById().size(), 1u);
  EXPECT_TRUE(traces.contains("No dest acl exists for src std, creating one."));
  EXPECT_TRUE(traces.contains("Now copying std"));
  EXPECT_TRUE(traces.contains("AclConfigCopyHandler::handleEntity: src /src/ip/std, dest /dest/ip/std"));
  EXPECT_TRUE(traces.contains("Destination config is " + d->currCfg()->fullName().str()));
  EXPECT_FALSE(run()) << "what is left is kept, and that is no change";
}

TEST_F(AclTreeCopyTest, DifferentConstructionArgumentsRecreateUnlessSecureMonitorDiffers) {
  acl(*src, "a", {{10, 80}}, true);
  Ptr<AclConfig> oldA = acl(*dest, "a", {{10, 80}}, false);
  acl(*src, "m", {{10, 80}}, true)->secureMonitorIs(true);
  Ptr<AclConfig> oldM = acl(*dest, "m", {{10, 99}}, false);
  EXPECT_TRUE(run());
  EXPECT_NE(dest->acl("a"), oldA);
  EXPECT_TRUE(dest->acl("a")->readonly());
  EXPECT_TRUE(traces.contains("src acl a has different ctor args -- deleting dest"));
  EXPECT_EQ(dest->acl("m"), oldM) << "a secure-monitor mismatch leaves the destination alone";
  EXPECT_EQ(oldM->currCfg()->ipRuleById().begin()->second, ipRule(99));
  EXPECT_TRUE(traces.contains("secure-monitor dest acl m skipped"));
}

TEST_F(AclTreeCopyTest, ChangedRulesMakeANewCompleteVersionCurrentBeforeTheOldGoes) {
  Ptr<AclConfig> s = acl(*src, "a", {{10, 80}, {20, 443}, {30, 8080}});
  Ptr<AclConfig> d = acl(*dest, "a", {{10, 80}});
  Ptr<AclSubConfig> old = d->currCfg();
  const UniqueId oldId = old->id();

  // Watches the destination ACL: every time currCfg moves, the version it points at must
  // already be complete and committed; a version may only be deleted once it is not current.
  struct Observer : AclConfig::Reactor {
    using AclConfig::Reactor::Reactor;
    std::vector<std::string> events;
    void currCfgChanged() override {
      const auto& current = notifier()->currCfg();
      ASSERT_TRUE(current);
      EXPECT_TRUE(current->committed());
      EXPECT_EQ(current->ruleBySequence().size(), 3u);
      EXPECT_EQ(current->ipRuleById().size(), 3u);
      events.push_back("switch");
    }
    void subConfigChanged(const UniqueId& id) override {
      bool present = notifier()->subConfig().contains(id);
      if (!present) {
        EXPECT_NE(notifier()->currCfg()->id(), id);
        events.push_back("delete");
      } else {
        events.push_back("create");
      }
    }
  } observer(d.get());

  EXPECT_TRUE(run());
  EXPECT_EQ(observer.events, (std::vector<std::string>{"create", "switch", "delete"}));
  EXPECT_EQ(d->currCfg()->id(), s->currCfg()->id());
  EXPECT_FALSE(d->subConfig().contains(oldId));
  EXPECT_EQ(old->parent(), nullptr);
  EXPECT_TRUE(traces.contains("Copying destination subConfig " + std::to_string(s->currCfg()->id().val())));
  EXPECT_TRUE(traces.contains("Deleting destination subConfig " + std::to_string(oldId.val())));
}

TEST_F(AclTreeCopyTest, AVersionWithTheSourcesIdentityIsOverwrittenNotDeleted) {
  Ptr<AclConfig> s = acl(*src, "a", {{10, 80}, {20, 81}});
  Ptr<AclConfig> d = dest->aclIs("a", AclType::ip, false, false);
  d->currCfgIs(build::version(*d, {{10, 80}}, {}, s->currCfg()->id()));
  Ptr<AclSubConfig> same = d->currCfg();
  EXPECT_TRUE(run());
  EXPECT_EQ(d->currCfg(), same);
  EXPECT_EQ(same->ruleBySequence().size(), 2u);
  EXPECT_EQ(d->subConfig().size(), 1u);
  EXPECT_FALSE(traces.contains("Deleting destination subConfig " + std::to_string(same->id().val())));
}

TEST_F(AclTreeCopyTest, ACopyOfEqualFamiliesChangesAndNotifiesNothing) {
  acl(*src, "a", {{10, 80}, {20, 443}});
  EXPECT_TRUE(run());
  build::AnyChange onFamily(dest.get());
  build::AnyChange onAcl(dest->acl("a").get());
  build::AnyChange onVersion(dest->acl("a")->currCfg().get());
  EXPECT_FALSE(run());
  EXPECT_EQ(onFamily.count + onAcl.count + onVersion.count, 0);
  src->acl("a")->dynamicIs(true);
  EXPECT_TRUE(run()) << "an ordinary attribute of the ACL is copied generically";
  EXPECT_TRUE(dest->acl("a")->dynamic());
}

// ---- bindings --------------------------------------------------------------------------

TEST_F(AclCopyTest, BindingsToDynamicAclsSurviveAndOthersFollowTheSource) {
  Ptr<Input::Config> destInput(new Input::Config("dest"));
  Ptr<Input::AclTypeConfig> ips = destInput->configIs(AclType::ip);
  ips->aclIs("dyn", AclType::ip, false, false)->dynamicIs(true);
  ips->aclIs("plain", AclType::ip, false, false);
  Ptr<IntfTypeConfig> dest(new IntfTypeConfig(AclType::ip));
  Ptr<IntfTypeConfig> src(new IntfTypeConfig(AclType::ip));
  Ptr<AclIntf> destIn = dest->intfIs(AclDirection::in);
  destIn->intfIs(IntfId(String("Ethernet1")), "dyn");
  destIn->intfIs(IntfId(String("Ethernet2")), "plain");
  destIn->intfIs(IntfId(String("Ethernet3")), "vanished");
  destIn->intfIs(IntfId(String("Ethernet4")), "plain");
  Ptr<AclIntf> srcIn = src->intfIs(AclDirection::in);
  srcIn->intfIs(IntfId(String("Ethernet4")), "other");
  src->intfIs(AclDirection::out)->intfIs(IntfId(String("Ethernet5")), "plain");

  Ptr<AclIntfConfigCopyHandler> intfHandler = aclIntfConfigCopyHandlerFactory(destInput);
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(intfHandler->handleEntity(copy, dest, src, ""));
  EXPECT_EQ(destIn->intf().size(), 2u);
  EXPECT_EQ(destIn->intf(IntfId(String("Ethernet1"))), "dyn");
  EXPECT_EQ(destIn->intf(IntfId(String("Ethernet4"))), "other");
  EXPECT_EQ(dest->intf(AclDirection::out)->intf(IntfId(String("Ethernet5"))), "plain");
  EXPECT_TRUE(traces.contains("Ethernet1 attached acl dyn is dynamic, skipping"));
  EXPECT_TRUE(traces.contains("handleEntity for type ip"));
  EXPECT_FALSE(intfHandler->handleEntity(copy, dest, src, ""));
}

// ---- directories, factories, registration ---------------------------------------------

TEST(AclCopyHandlerDirTest, DirectoriesHoldOneHandlerEach) {
  Ptr<AclConfigCopyHandlerDir> dir = aclConfigCopyHandlerDirFactory("acl");
  build::AnyChange watch(dir.get());
  Ptr<AclConfigCopyHandler> first = dir->copyHandlerIs();
  EXPECT_EQ(dir->copyHandlerIs(), first);
  EXPECT_EQ(watch.count, 1);
  EXPECT_EQ(first->parent(), dir.get());
  dir->copyHandlerDel();
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_FALSE(dir->copyHandler());

  Ptr<AclIntfConfigCopyHandlerDir> intfDir = aclIntfConfigCopyHandlerDirFactory("intf");
  Ptr<Input::Config> one(new Input::Config());
  Ptr<Input::Config> two(new Input::Config());
  Ptr<AclIntfConfigCopyHandler> h1 = intfDir->copyHandlerIs(one);
  EXPECT_EQ(intfDir->copyHandlerIs(one), h1);
  Ptr<AclIntfConfigCopyHandler> h2 = intfDir->copyHandlerIs(two);
  EXPECT_NE(h2, h1);
  EXPECT_EQ(h1->parent(), nullptr);
  EXPECT_EQ(h2->config(), two);
  intfDir = nullptr;
  EXPECT_EQ(h2->parent(), nullptr) << "a handler outliving its directory is let go";
}

TEST(AclCopyHandlerDirTest, TypesAreRegisteredAndCreatedInitialized) {
  const fwk::TypeInfo* type = fwk::findType("AclConfigCopyHandler");
  ASSERT_TRUE(type);
  auto made = fwk::cast<AclConfigCopyHandler>(type->create({}));
  ASSERT_TRUE(made->filteredAttribute()) << "the framework ran initialize()";
  std::vector<std::string> filtered;
  for (const auto& entry : made->filteredAttribute()->attributeName()) {
    if (entry.second) filtered.push_back(entry.first.str());
  }
  std::sort(filtered.begin(), filtered.end());
  EXPECT_EQ(filtered, (std::vector<std::string>{"counterUpdateRequestTime", "currCfg", "secureMonitor", "subConfig"}));
  EXPECT_TRUE(made->isA(Cli::Session::EntityCopyGlobalSessionHandler::staticType()));

  Ptr<Input::Config> config(new Input::Config());
  auto intf = fwk::cast<AclIntfConfigCopyHandler>(fwk::findType("AclIntfConfigCopyHandler")->create({config}));
  EXPECT_EQ(intf->config(), config);
  auto dir = fwk::findType("AclIntfConfigCopyHandlerDir")->create({String("d")});
  EXPECT_EQ(dir->name(), "d");
  EXPECT_TRUE(fwk::findType("AclConfigCopyHandlerDir"));
}

}  // namespace
