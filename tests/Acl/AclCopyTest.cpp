// The copy handlers and the configuration sessions they serve: how versions compare and are
// patched (by property), how a family's lists and the bindings are copied (the traces, the lists
// and bindings a copy must leave alone, the order in which a changed list is replaced), what
// reaches running and what an open edit session then finds.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <memory>
#include <set>

#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/Acl/AclCopy.h"
#include "aclkit/model/Family.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace Acl;
using namespace AclApi;
using build::ipRule;
using build::looseVersion;

// Reproducible by default: a fixed seed and case count unless RC_PARAMS says otherwise.
const bool defaultParams = [] { return setenv("RC_PARAMS", ACLKIT_ACL_PROPERTY_PARAMS, /*overwrite=*/0) == 0; }();

class AclCopyTest : public ::testing::Test {
 protected:
  Ptr<AclConfigCopyHandler> handler = aclConfigCopyHandlerFactory();
  build::AllLevels levels{"AclCopy"};
  fwk::TraceCapture traces;
};

// A few places from 1 to 9, ascending.
std::set<U32> places() {
  const auto some = *rc::gen::resize(9, rc::gen::container<std::vector<U32>>(rc::gen::inRange<U32>(1, 10)));
  return {some.begin(), some.end()};
}

// One of three rule contents, the first being the default a missing record reads as.
template <class Rule>
Rule content(int which) {
  Rule rule;
  rule.logIs(which == 1);
  rule.actionIs(which == 2 ? RuleAction::deny : RuleAction::permit);
  return rule;
}

// A version of a few rules of family F and remarks at low places, with its flags.
template <class F>
Ptr<AclSubConfig> anyVersion() {
  auto v = looseVersion({});
  for (U32 place : places()) {
    const UniqueId id;
    v->ruleBySequenceIs(place, id);
    if (*rc::gen::inRange(0, 8) != 0) F::recordIs(*v, id, content<typename F::Rule>(*rc::gen::inRange(0, 3)));
  }
  for (U32 place : places()) {
    v->remarkBySequenceIs(place, RemarkConfig(*rc::gen::element("web", "mail")));
  }
  v->countersEnabledIs(*rc::gen::inRange(0, 6) == 0);
  v->fragmentsEnabledIs(*rc::gen::inRange(0, 6) == 0);
  v->opaqueIs(*rc::gen::inRange(0, 8) == 0);
  return v;
}

// A copy of `source` made as a session makes its scratchpad, sharing its storage, then edited
// at a few places: a record replaced under its identity, a rule moved, two swapped, one added,
// one taken away, a remark changed.
template <class F>
Ptr<AclSubConfig> editedCopy(const Ptr<AclSubConfig>& source) {
  auto v = looseVersion({});
  static_cast<void>(Cli::Session::entityCopyFactory()->doCopyEntityAttrs(v, source, "", nullptr));
  for (int edits = *rc::gen::inRange(0, 3); edits > 0; --edits) {
    const U32 place = *rc::gen::inRange<U32>(1, 10);
    const UniqueId* at = v->ruleBySequence().find(place);
    switch (*rc::gen::inRange(0, 6)) {
      case 0:
        if (at) F::recordIs(*v, *at, content<typename F::Rule>(2));
        break;
      case 1:
        if (at && !v->ruleBySequence().contains(place + 1)) {
          const UniqueId id = *at;
          v->ruleBySequenceDel(place);
          v->ruleBySequenceIs(place + 1, id);
        }
        break;
      case 2:
        if (at && v->ruleBySequence().contains(place + 1)) {
          const UniqueId id = *at;
          v->ruleBySequenceIs(place, v->ruleBySequence(place + 1));
          v->ruleBySequenceIs(place + 1, id);
        }
        break;
      case 3:
        if (!at) {
          const UniqueId id;
          v->ruleBySequenceIs(place, id);
          F::recordIs(*v, id, content<typename F::Rule>(1));
        }
        break;
      case 4:
        if (at) F::recordDel(*v, *at), v->ruleBySequenceDel(place);
        break;
      default:
        v->remarkBySequenceIs(place, RemarkConfig("ssh"));
    }
  }
  return v;
}

// Family F's rules in place order, a place without its record read as the default rule.
template <class F>
std::vector<typename F::Rule> rulesOf(const AclSubConfig& v) {
  std::vector<typename F::Rule> all;
  for (const auto& [place, id] : v.ruleBySequence()) all.push_back(F::records(v).valueOr(id));
  return all;
}

// Versions compared are mostly one edited from the other, sharing storage: the handler's
// comparisons agree with a plain reading of the two under every family (a family whose
// records a version lacks reads as default rules), and a patch makes the places and remarks
// the source's while every rule keeps its identity.
RC_GTEST_PROP(AclCopyPropertyTest, ComparisonsAgreeWithAPlainReadingAndAPatchKeepsIdentities, ()) {
  Ptr<AclConfigCopyHandler> handler = aclConfigCopyHandlerFactory();
  Ptr<AclSubConfig> a;
  Ptr<AclSubConfig> b;
  withFamily(*rc::gen::element(AclType::ip, AclType::ipv6, AclType::mac), [&](auto family) {
    using F = decltype(family);
    a = anyVersion<F>();
    b = *rc::gen::arbitrary<bool>() ? anyVersion<F>() : editedCopy<F>(a);
  });
  const bool sameFlags = a->countersEnabled() == b->countersEnabled() && a->fragmentsEnabled() == b->fragmentsEnabled();
  bool sameRules = false;
  forEachFamily([&](auto family) {
    using F = decltype(family);
    const bool same =
        a->opaque() || b->opaque() ? a->opaque() && b->opaque() : sameFlags && rulesOf<F>(*a) == rulesOf<F>(*b);
    RC_ASSERT(handler->equalRuleConfig(F::aclType, a, b) == same);
    sameRules = sameRules || same;
  });
  auto places = [](const AclSubConfig& v) {
    std::vector<U32> all;
    for (const auto& [place, id] : v.ruleBySequence()) all.push_back(place);
    return all;
  };
  RC_ASSERT(handler->equalSequence(a, b) == (places(*a) == places(*b)));
  auto remarks = [](const AclSubConfig& v) {
    return std::map<U32, RemarkConfig>(v.remarkBySequence().begin(), v.remarkBySequence().end());
  };
  RC_ASSERT(handler->equalRemark(a, b) == (remarks(*a) == remarks(*b)));
  if (!sameRules || (a->opaque() && b->opaque())) return;
  std::vector<UniqueId> identities;
  for (const auto& [place, id] : b->ruleBySequence()) identities.push_back(id);
  const bool differed = places(*a) != places(*b) || remarks(*a) != remarks(*b);
  RC_ASSERT(handler->copyNonEssential(b, a) == differed);
  RC_ASSERT(places(*b) == places(*a) && remarks(*b) == remarks(*a));
  std::vector<UniqueId> kept;
  for (const auto& [place, id] : b->ruleBySequence()) kept.push_back(id);
  RC_ASSERT(kept == identities);
  RC_ASSERT(!handler->copyNonEssential(b, a));
}

TEST_F(AclCopyTest, CountMismatchesAndPatchesAreTracedAndNullVersionsAreProgrammingErrors) {
  auto two = looseVersion({{10, 80}, {20, 443}}, {{5, "old"}, {15, "gone"}});
  auto three = looseVersion({{5, 80}, {15, 443}, {25, 22}}, {{1, "new"}});
  EXPECT_FALSE(handler->equalRuleConfig(AclType::ip, two, three));
  EXPECT_FALSE(handler->equalSequence(two, three));
  EXPECT_TRUE(handler->equalRuleConfig(static_cast<AclType>(7), two, looseVersion({{1, 1}, {2, 2}})))
      << "a type that names no family: counts only";
  auto dest = looseVersion({{10, 80}, {20, 443}, {30, 22}}, {{5, "old"}, {15, "gone"}});
  EXPECT_TRUE(handler->copyNonEssential(dest, three));
  EXPECT_EQ(traces.messages(),
            (std::vector<std::string>{"rule count mismatch - 2:3", "sequence count mismatch - 2:3", "copy sequence",
                                      "remarek count mismatch - 2:1", "copy remark"}));
  EXPECT_DEATH((void)handler->equalSequence(nullptr, two), "Assertion failed: a \\(");
  EXPECT_DEATH((void)handler->equalRemark(two, nullptr), "Assertion failed: b \\(");
}

// ---- handleEntity over a family's ACLs ----------------------------------------------

class AclTreeCopyTest : public AclCopyTest {
 protected:
  void SetUp() override {
    handler->initialize();
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
  Ptr<Input::AclTypeConfig> src = srcRoot->configIs(AclType::ip);
  Ptr<Input::AclTypeConfig> dest = destRoot->configIs(AclType::ip);
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
};

TEST_F(AclTreeCopyTest, ListsAreMadeRecreatedOrDeletedUnlessDynamicOrSecureMonitor) {
  Ptr<AclConfig> s = src->aclIs("std", AclType::ip, true, true);
  s->currCfgIs(build::version(*s, {{10, 80}}));
  acl(*dest, "plain", {{10, 1}});
  acl(*dest, "dyn", {{10, 1}})->dynamicIs(true);
  acl(*dest, "mon", {{10, 1}})->secureMonitorIs(true);
  acl(*src, "a", {{10, 80}}, true);
  Ptr<AclConfig> oldA = acl(*dest, "a", {{10, 80}});
  acl(*src, "m", {{10, 80}}, true)->secureMonitorIs(true);
  Ptr<AclConfig> oldM = acl(*dest, "m", {{10, 99}});
  EXPECT_TRUE(run());
  EXPECT_FALSE(dest->acl("plain"));
  EXPECT_TRUE(dest->acl("dyn") && dest->acl("mon"));
  Ptr<AclConfig> d = dest->acl("std");
  ASSERT_TRUE(d && d->currCfg());
  EXPECT_TRUE(d->standard() && d->readonly() && d->currCfg()->committed());
  EXPECT_EQ(d->currCfg()->id(), s->currCfg()->id());
  EXPECT_NE(dest->acl("a"), oldA) << "other construction arguments: made again";
  EXPECT_TRUE(dest->acl("a")->readonly());
  EXPECT_EQ(dest->acl("m"), oldM) << "a secure-monitor mismatch leaves the destination alone";
  EXPECT_EQ(oldM->currCfg()->ipRuleById().begin()->second, ipRule(99));
  for (const std::string& text : std::initializer_list<std::string>{
           "Deleting plain", "dyn is dynamic, skipping", "mon is dynamic, skipping",
           "No dest acl exists for src std, creating one.", "Now copying std",
           "AclConfigCopyHandler::handleEntity: src /src/ip/std, dest /dest/ip/std",
           "Destination config is " + d->currCfg()->fullName().str(),
           "src acl a has different ctor args -- deleting dest", "secure-monitor dest acl m skipped"}) {
    EXPECT_TRUE(traces.contains(text)) << text;
  }
  EXPECT_FALSE(run()) << "what is left is kept, and that is no change";
}

TEST_F(AclTreeCopyTest, ChangedRulesMakeANewCompleteVersionCurrentBeforeTheOldGoes) {
  Ptr<AclConfig> s = acl(*src, "a", {{10, 80}, {20, 443}, {30, 8080}});
  Ptr<AclConfig> d = acl(*dest, "a", {{10, 80}});
  Ptr<AclSubConfig> old = d->currCfg();
  // Every time currCfg moves, the version it points at must already be complete and
  // committed; a version may only be deleted once it is not current.
  struct Observer : AclConfig::Reactor {
    using AclConfig::Reactor::Reactor;
    std::vector<std::string> events;
    void currCfgChanged() override {
      const auto& current = notifier()->currCfg();
      EXPECT_TRUE(current->committed());
      EXPECT_EQ(current->ruleBySequence().size() + current->ipRuleById().size(), 6u);
      events.push_back("switch");
    }
    void subConfigChanged(const UniqueId& id) override {
      const bool present = notifier()->subConfig().contains(id);
      EXPECT_TRUE(present || notifier()->currCfg()->id() != id);
      events.push_back(present ? "create" : "delete");
    }
  } observer(d.get());
  EXPECT_TRUE(run());
  EXPECT_EQ(observer.events, (std::vector<std::string>{"create", "switch", "delete"}));
  EXPECT_EQ(d->currCfg()->id(), s->currCfg()->id());
  EXPECT_EQ(old->parent(), nullptr);
  EXPECT_TRUE(traces.contains("Copying destination subConfig " + std::to_string(s->currCfg()->id().val())));
  EXPECT_TRUE(traces.contains("Deleting destination subConfig " + std::to_string(old->id().val())));

  // A version with the source's identity is overwritten, not deleted.
  observer.notifierIs(nullptr);
  s->currCfgIs(build::version(*s, {{10, 80}}));
  d->currCfgIs(build::version(*d, {{10, 81}, {20, 82}}, {}, s->currCfg()->id()));
  Ptr<AclSubConfig> same = d->currCfg();
  EXPECT_TRUE(run());
  EXPECT_EQ(d->currCfg(), same);
  EXPECT_EQ(same->ruleBySequence().size(), 1u);
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

TEST_F(AclCopyTest, BindingsToDynamicAclsSurviveAndOthersFollowTheSource) {
  Ptr<Input::Config> destInput(new Input::Config("dest"));
  Ptr<Input::AclTypeConfig> ips = destInput->configIs(AclType::ip);
  ips->aclIs("dyn", AclType::ip, false, false)->dynamicIs(true);
  ips->aclIs("plain", AclType::ip, false, false);
  Ptr<IntfTypeConfig> dest(new IntfTypeConfig(AclType::ip));
  Ptr<IntfTypeConfig> src(new IntfTypeConfig(AclType::ip));
  Ptr<AclIntf> destIn = dest->intfIs(AclDirection::in);
  for (const auto& [intf, list] : {std::pair("Ethernet1", "dyn"), {"Ethernet2", "plain"}, {"Ethernet3", "vanished"}}) {
    destIn->intfIs(IntfId(String(intf)), list);
  }
  src->intfIs(AclDirection::in)->intfIs(IntfId(String("Ethernet2")), "other");
  src->intfIs(AclDirection::out)->intfIs(IntfId(String("Ethernet5")), "plain");
  Ptr<AclIntfConfigCopyHandler> intfHandler = aclIntfConfigCopyHandlerFactory(destInput);
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
  EXPECT_TRUE(intfHandler->handleEntity(copy, dest, src, ""));
  EXPECT_EQ(destIn->intf().size(), 2u);
  EXPECT_EQ(destIn->intf(IntfId(String("Ethernet1"))), "dyn");
  EXPECT_EQ(destIn->intf(IntfId(String("Ethernet2"))), "other");
  EXPECT_EQ(dest->intf(AclDirection::out)->intf(IntfId(String("Ethernet5"))), "plain");
  EXPECT_TRUE(traces.contains("Ethernet1 attached acl dyn is dynamic, skipping"));
  EXPECT_TRUE(traces.contains("handleEntity for type ip"));
  EXPECT_FALSE(intfHandler->handleEntity(copy, dest, src, ""));
}

// ---- directories, factories, registration ---------------------------------------------

TEST(AclCopyHandlerDirTest, DirectoriesHoldOneHandlerEachAndTypesAreRegistered) {
  Ptr<AclConfigCopyHandlerDir> dir = aclConfigCopyHandlerDirFactory("acl");
  Ptr<AclConfigCopyHandler> first = dir->copyHandlerIs();
  EXPECT_TRUE(dir->copyHandlerIs() == first && first->parent() == dir.get());
  dir->copyHandlerDel();
  EXPECT_EQ(first->parent(), nullptr);
  Ptr<AclIntfConfigCopyHandlerDir> intfDir = aclIntfConfigCopyHandlerDirFactory("intf");
  Ptr<Input::Config> one(new Input::Config());
  Ptr<AclIntfConfigCopyHandler> h1 = intfDir->copyHandlerIs(one);
  EXPECT_EQ(intfDir->copyHandlerIs(one), h1);
  Ptr<AclIntfConfigCopyHandler> h2 = intfDir->copyHandlerIs(Ptr<Input::Config>(new Input::Config()));
  EXPECT_TRUE(h2 != h1 && h1->parent() == nullptr) << "another configuration replaces the handler";
  intfDir = nullptr;
  EXPECT_EQ(h2->parent(), nullptr) << "a handler outliving its directory is let go";

  // Made by name, as the copy framework makes them; initialize() names the filtered attributes.
  auto made = fwk::cast<AclConfigCopyHandler>(fwk::findType("AclConfigCopyHandler")->create({}));
  std::set<std::string> filtered;
  for (const auto& [name, on] : made->filteredAttribute()->attributeName()) {
    if (on) filtered.insert(name.str());
  }
  EXPECT_EQ(filtered, (std::set<std::string>{"counterUpdateRequestTime", "currCfg", "secureMonitor", "subConfig"}));
  EXPECT_TRUE(made->isA(Cli::Session::EntityCopyGlobalSessionHandler::staticType()));
  auto intf = fwk::cast<AclIntfConfigCopyHandler>(fwk::findType("AclIntfConfigCopyHandler")->create({one}));
  EXPECT_EQ(intf->config(), one);
  intfDir = aclIntfConfigCopyHandlerDirFactory("intf");
  h1 = intfDir->copyHandlerIs(one);
  intfDir->copyHandlerDel();
  EXPECT_TRUE(h1->parent() == nullptr && !intfDir->copyHandler());
  made->filteredAttributeDel();
  EXPECT_FALSE(made->filteredAttribute());
  EXPECT_EQ(made->filteredAttributeIs(), made->filteredAttributeIs()) << "made once, then kept";
}

// ---- configuration sessions -----------------------------------------------------------

// Watches every entity below a root, so a test can tell whether anything at all changed.
class TreeWatch {
 public:
  explicit TreeWatch(const fwk::Entity& root) { watch(root); }
  [[nodiscard]] int changes() const {
    int n = 0;
    for (const auto& w : watchers_) n += w->count;
    return n;
  }

 private:
  void watch(const fwk::Entity& e) {
    watchers_.push_back(std::make_unique<build::AnyChange>(&e));
    for (const fwk::AttrInfo* attr : e.fwkType().attrs()) {
      for (fwk::Entity* child : attr->children(e)) watch(*child);
    }
  }
  std::vector<std::unique_ptr<build::AnyChange>> watchers_;
};

class AclConfigSessionTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  AclConfigSessionTest() {
    installAcl("web", {{10, 80}, {20, 443}}, {{5, "web servers"}});
    acl.intfConfig->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId(String("Ethernet1")), "web");
  }
  Ptr<AclConfig> runningWeb() { return acl.config->config(AclType::ip)->acl("web"); }
};

TEST_F(AclConfigSessionTest, ARoundTripWithoutEditsChangesAndNotifiesNothingAndAnAbortLeavesRunningAlone) {
  TreeWatch configWatch(*acl.config);
  TreeWatch intfWatch(*acl.intfConfig);
  AclConfigSession session(acl);
  EXPECT_EQ(session.config()->config(AclType::ip)->acl("web")->currCfg()->id(), runningWeb()->currCfg()->id());
  EXPECT_EQ(session.intfConfig()->config(AclType::ip)->intf(AclDirection::in)->intf().size(), 1u);
  EXPECT_FALSE(session.commit());
  EXPECT_FALSE(session.isOpen());
  EXPECT_THROW(session.commit(), fwk::Error);
  {
    AclConfigSession dropped(acl);
    dropped.newVersion(AclType::ip, "web")->ruleBySequenceDelAll();
    dropped.config()->configIs(AclType::mac)->aclIs("m", AclType::mac, false, false);
  }  // dropped without commit
  AclConfigSession other(acl);
  other.abort();
  EXPECT_THROW(other.newVersion(AclType::ip, "web"), fwk::Error);
  EXPECT_EQ(configWatch.changes() + intfWatch.changes(), 0);
}

// A changed list reaches running as a new version, which an edit session opened before finds
// as another session's change; a renumbered one is patched in place, which it does not.
TEST_F(AclConfigSessionTest, EditSessionsFindWhatACommitChanged) {
  auto before = session("web");
  ASSERT_EQ(before->addIpRule(30, build::ipRule(22)), succeeded);
  AclConfigSession renumbering(acl);
  Ptr<AclSubConfig> v = renumbering.config()->config(AclType::ip)->acl("web")->currCfg();
  v->ruleBySequenceIs(11, v->ruleBySequence(10));
  v->ruleBySequenceDel(10);
  EXPECT_TRUE(renumbering.commit());
  EXPECT_EQ(runningWeb()->currCfg()->ruleBySequence().begin()->first, 11u);
  auto after = session("web");
  EXPECT_EQ(before->commit(), succeeded) << "the same version, patched";
  AclConfigSession dropping(acl);
  dropping.newVersion(AclType::ip, "web")->ruleBySequenceDel(20);
  EXPECT_TRUE(dropping.commit());
  ASSERT_EQ(after->addIpRule(40, build::ipRule(23)), succeeded);
  EXPECT_EQ(after->commit(), errSessionModify);
  AclConfigSession deleting(acl);
  deleting.config()->config(AclType::ip)->aclDel("web");
  auto late = session("web");
  EXPECT_TRUE(deleting.commit());
  EXPECT_EQ(late->commit(), errSessionDelete);
}

}  // namespace
