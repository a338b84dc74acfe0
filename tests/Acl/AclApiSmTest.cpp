// The session object: its factory by name, its defaults and collections, and what the model
// does not hold (lookups, identities, references, alias lists); input the command line never
// sends (fields past their limits, null arguments); and observers that let go of, commit or
// revert the session while it notifies them. What its operations do to lists is the property
// test's, and what they trace the trace table's.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Reflection.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "aclkit/platform/fwk/Value.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "aclkit/platform/trace/Clock.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"
#include "tests/support/StoreSnapshot.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::FakeDataplane;
using build::ipRule;

class ApiSmTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  build::AllLevels levels;
  fwk::TraceCapture traces;
};

TEST_F(ApiSmTest, TheFactoryIsRegisteredAndOperationsRunByName) {
  // Type names are part of the interface too: one read before its initializer ran is empty.
  for (const auto& a : ApiSm::staticType().ownAttrs()) EXPECT_FALSE(a->valueTypeName().empty()) << a->name();
  EXPECT_EQ(ApiSm::staticType().attr("paramConfig").valueTypeName(), "Ptr<const ParamConfig>");
  // The factory is registered, and operations and attributes run by name.
  installAcl("web", {{10, 80}});
  Ptr<fwk::Entity> made = fwk::findType("ApiSm")->create(
      {String("web"), AclType::ip, false, commit_, acl.config, Ptr<const ParamConfig>(acl.paramConfig), acl.intfConfig,
       acl.hwConfig, Ptr<const Status>(acl.status), Ptr<const fwk::Dir>(acl.statusDpDir), acl.udfAlias});
  auto& s = fwk::cast<ApiSm>(*made);
  EXPECT_EQ(fwk::invoke(s, "addIpRule", {U32{20}, build::ipRule(443)}).as<ApiState>(), succeeded);
  EXPECT_EQ(fwk::invoke(s, "getIpRule", {U32{20}}).as<IpRuleConfig>(), build::ipRule(443));
  EXPECT_EQ(fwk::getAttribute(s, "apiState").strep(), "succeeded");
}

TEST_F(ApiSmTest, AFreshSessionHasItsDefaultsAndItsCollectionsOneEntryPerKey) {
  acl.statusDpDir->entityIs<StatusDp>("dp1");
  acl.statusDpDir->entityIs<fwk::Dir>("notADataplane");
  auto s = session("web", AclType::mac);
  EXPECT_EQ(std::tuple(s->apiState(), s->guardsEnabled(), s->inConfigSession(), s->initialized(), s->maxSequence(),
                       s->defaultSeqInc(), s->direction(), s->exists()),
            std::tuple(ready, true, false, true, 4294967295u, 10u, AclDirection::in, false));
  EXPECT_TRUE(s->aclCopyHelper() && s->entityCopy() && s->currentAcl());
  EXPECT_EQ(s->statusDp().size(), 1u) << "only StatusDp entities are dataplanes";
  EXPECT_TRUE(acl.config->config(AclType::mac)) << "the family's configuration is made";
  EXPECT_TRUE(traces.contains("handleInitialized<"));
  for (ApiType t : {remove_, attach_, detach_}) EXPECT_FALSE(session("web", AclType::ip, t)->currentAcl());

  Ptr<StatusDp> dp(new StatusDp("dpX"));
  s->statusDpIs(dp);
  Ptr<StatusDpEntry> entry = s->statusDpEntry("dpX");
  s->statusDpIs(dp);
  EXPECT_EQ(s->statusDpEntry("dpX"), entry) << "a reactor for the same record is kept";
  Ptr<StatusDpEntry> replacement(new StatusDpEntry(dp, s.get()));
  s->statusDpEntryIs("dpX", replacement);
  EXPECT_EQ(s->statusDpEntry("dpX"), replacement);
  EXPECT_EQ(dp->notifieeList().size(), 1u) << "the replaced entry stopped watching";
  s->statusDpDel("dpX");
  EXPECT_FALSE(s->statusDpEntry().contains("dpX"));
  EXPECT_TRUE(dp->notifieeList().empty()) << "an entry the session dropped stops watching, even if held";
  s = nullptr;
  dp->dpAclUpdateTimeIs(5);  // reaches nobody
  EXPECT_DEATH(session("web")->statusDpIs("other", dp), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

TEST_F(ApiSmTest, LookupsMasksAndWhatACommitKeeps) {
  Ptr<AclConfig> web = installAcl("web", {{10, 80}, {20, 443}}, {{15, "r"}});
  auto s = session("web");
  EXPECT_FALSE(s->currentAcl()->committed()) << "the scratchpad does not copy the committed flag";
  EXPECT_EQ(s->getIpRule(10), build::ipRule(80));
  EXPECT_EQ(s->getIpRule(15), IpRuleConfig()) << "a remark is not a rule";
  EXPECT_EQ(s->getMacRule(10), MacRuleConfig()) << "lookups ignore the session's family";
  EXPECT_EQ(session("web", AclType::ip, remove_)->getIpRule(10), IpRuleConfig());
  for (U32 mask : {0xFFFFFF00u, 0x80000000u, 0u, 0xFFFFFFFFu}) EXPECT_TRUE(maskIsContiguous(mask)) << mask;
  for (U32 mask : {0x000000FFu, 0xFF00FF00u}) EXPECT_FALSE(maskIsContiguous(mask)) << mask;

  // A commit holds no copy of its scratchpad; a renumbering patches the programmed version in
  // place, every rule keeping its identity.
  ASSERT_EQ(s->addIpRule(30, build::ipRule(22)), succeeded);
  Ptr<AclSubConfig> scratchpad = s->currentAcl();
  ASSERT_EQ(s->commit(), succeeded);
  EXPECT_EQ(scratchpad->fwkReferences(), 1u);
  const Ptr<AclSubConfig> current = web->currCfg();
  const UniqueId first = current->ruleBySequence(10);
  auto renumbering = session("web");
  ASSERT_EQ(renumbering->resequence(100, 100), succeeded);
  EXPECT_EQ(renumbering->commit(), succeeded);
  EXPECT_EQ(web->currCfg(), current);
  EXPECT_EQ(current->ruleBySequence(100), first);
}

template <class Rule>
Rule payloadRule(const char* elements) {
  return build::ruleWith<Rule>([&](auto& f) { f.payloadIs(PayloadSpec(String(elements))); });
}

// IP and MAC lists keep their alias users apart; each family's rewrite goes through its own maps.
template <class Rule, AclType type>
void aliasListsFollowCommitsAndRemovals(build::SessionWorld& world) {
  auto& acl = world.acl;
  constexpr bool ip = type == AclType::ip;
  Ptr<UdfAliasPayload> key = ip ? acl.udfAlias->ipAliasIs("key") : acl.udfAlias->macAliasIs("key");
  // A rewrite keeps capacity + 1 elements: rule 30 has 2.
  ip ? acl.status->ipPayloadCapacityIs(1) : acl.status->macPayloadCapacityIs(1);
  auto s = world.session("web", type);
  auto add = [&](U32 sequence, const Rule& rule) {
    if constexpr (ip)
      return s->addIpRule(sequence, rule);
    else
      return s->addMacRule(sequence, rule);
  };
  ASSERT_EQ(add(10, payloadRule<Rule>("0,0x1,0xff,key,")), succeeded);
  ASSERT_EQ(add(20, Rule()), succeeded);
  ASSERT_EQ(add(30, payloadRule<Rule>("4,0x7,0xff,key,p 8,0x1,0x1,,")), succeeded);
  EXPECT_EQ(s->commitExt(false), succeeded);
  auto users = [&] {
    std::vector<U32> all;
    if (auto list = key->aceListForAcl("web")) {
      for (const auto& entry : list->seq()) all.push_back(entry.first);
    }
    return all;
  };
  EXPECT_EQ(users(), (std::vector<U32>{10, 30}));
  PayloadValue value;
  value.offsetIs(2);
  value.patternIs(0xAB);
  value.maskIs(0xF0);
  auto editor = world.session("web", type);
  editor->updateUdfAliasInAcls("key", value);
  EXPECT_EQ(editor->apiState(), succeeded);
  Ptr<AclSubConfig> current = acl.config->config(type)->acl("web")->currCfg();
  auto payloadAt = [&](U32 seq) {
    const UniqueId id = current->ruleBySequence(seq);
    return ip ? current->ipRuleById(id).filter().payload() : current->macRuleById(id).filter().payload();
  };
  EXPECT_EQ(payloadAt(10).offsetPattern(), "2,0xab,0xf0,key,");
  EXPECT_EQ(payloadAt(30).offsetPattern(), "2,0x7,0xf0,key,p 8,0x1,0x1,,") << "its own pattern stays";
  EXPECT_EQ(current->ruleBySequence().size(), 3u);
  EXPECT_EQ(users(), (std::vector<U32>{10, 30}));
  EXPECT_EQ(world.session("web", type, remove_)->remove(), succeeded);
  EXPECT_FALSE(key->aceListForAcl("web")) << "the alias no longer points at the removed list";
}

TEST_F(ApiSmTest, AliasListsFollowCommitsAndRemovalsAndAliasChangesRewriteRules) {
  aliasListsFollowCommitsAndRemovals<IpRuleConfig, AclType::ip>(*this);
  aliasListsFollowCommitsAndRemovals<MacRuleConfig, AclType::mac>(*this);
  PayloadValue value;
  value.offsetIs(2);
  value.patternIs(0xAB);
  value.maskIs(0xF0);
  PayloadSpec spec(String("1,0x1,0x1,other, 2,0x2,0x2,key,m"));
  EXPECT_EQ(updatePayloadSpec("none", value, spec, 4).offsetPattern(), "1,0x1,0x1,other, 2,0x2,0x2,key,m");
  EXPECT_EQ(updatePayloadSpec("key", value, spec, 4).offsetPattern(), "1,0x1,0x1,other, 2,0xab,0x2,key,m");
  EXPECT_EQ(updatePayloadSpec("key", value, spec, 1).count(), 1) << "never more elements than asked for";
}

// Every writable map of values in a working store (lists of each family, a session mid-edit,
// a binding, a dataplane's status), driven by reflection alone: entries put under keys parsed from
// numbers read back as written, and taking them away leaves the store as it was.
TEST_F(ApiSmTest, EveryMapOfAWorkingStoreTakesAndGivesBackEntriesByReflectionAlone) {
  installAcl("web", {{10, 80}, {20, 443}}, {{15, "r"}});
  acl.statusDpDir->entityIs<StatusDp>("dp1")->errorIs("web", "full");
  for (AclType type : {AclType::ipv6, AclType::mac}) {
    auto s = session("other", type);
    ASSERT_EQ(s->addRemark(RemarkConfig("r"), 5), succeeded);
    ASSERT_EQ(s->commit(), succeeded);
  }
  ASSERT_EQ(session("web", AclType::ip, attach_)->attach("Ethernet1", AclDirection::in), succeeded);
  auto s = session("web");
  ASSERT_EQ(s->addIpRule(30, build::ipRule(22)), succeeded);
  s->errStringIs("k", "v");
  const std::string before = build::storeSnapshot({store.root().get(), s.get()});
  std::size_t maps = 0;
  for (const fwk::Entity* reached : build::reachableEntities({store.root().get(), s.get()})) {
    auto& entity = const_cast<fwk::Entity&>(*reached);
    for (const fwk::AttrInfo* attr : entity.fwkType().attrs()) {
      // Maps of pointers are keyed by what they point at: no key of ours fits them.
      if (!attr->isCollection() || !attr->writable() || attr->valueTypeName().view().starts_with("Ptr<")) continue;
      std::vector<fwk::Value> keys;
      try {
        for (int i = 1001; i <= 1100; ++i) keys.push_back(attr->keyType()->parse(std::to_string(i)));
      } catch (const fwk::TypeConversionError&) {
        continue;
      }
      ++maps;
      const std::string where = entity.fullName().str() + " " + attr->name().str();
      const std::size_t size = attr->size(entity);
      const fwk::Value value = attr->get(entity, keys[0]);
      for (const fwk::Value& key : keys) attr->set(entity, key, value);
      EXPECT_EQ(attr->size(entity), size + keys.size()) << where;
      EXPECT_EQ(attr->get(entity, keys.back()).strep(), value.strep()) << where;
      for (const fwk::Value& key : keys) attr->del(entity, key);
    }
  }
  EXPECT_GE(maps, 8u);
  EXPECT_EQ(s->getLastSequenceNumber(), 30u) << "the session's cache of it was let go and is found again";
  EXPECT_EQ(build::storeSnapshot({store.root().get(), s.get()}), before);
}

TEST(ApiSmDeathTest, OperationsBelongToTheirSessionTypes) {
  build::SessionWorld world;
  auto s = world.session("web");
  EXPECT_DEATH(static_cast<void>(s->attach("Ethernet1", AclDirection::in)),
               "Assertion failed: apiType\\(\\) == attach_ \\(");
  EXPECT_DEATH(static_cast<void>(s->detach("Ethernet1", AclDirection::in)),
               "Assertion failed: apiType\\(\\) == detach_ \\(");
  EXPECT_DEATH(static_cast<void>(s->remove()), "Assertion failed: apiType\\(\\) == remove_ \\(");
  EXPECT_DEATH(world.session("web", AclType::ip, attach_)->createScratchpad(),
               "Assertion failed: apiType\\(\\) == commit_ \\(");
  // An interpreter's host has them throw the same text instead, with the session untouched.
  const AclApi::ApiState before = s->apiState();
  fwk::assertionsThrowIs(true);
  try {
    static_cast<void>(s->attach("Ethernet1", AclDirection::in));
    ADD_FAILURE() << "attach went through in a commit session";
  } catch (const fwk::AssertionError& e) {
    EXPECT_STREQ(e.what(), "apiType() == attach_");
  }
  fwk::assertionsThrowIs(false);
  EXPECT_EQ(s->apiState(), before);
}

// ---- input the command line never sends: each refusal names the problem exactly and leaves
// everything as it was (extreme sequence numbers are the property test's)

// ---- range-checked fields ----------------------------------------------------------------

// Fields of one record type that share a limit, and the type the refusal names (the one that
// declares them); the message writes the limit as the declaration does, in hex where given.
struct RangeGroup {
  const fwk::Value& record;  // a default record of the type
  const char* declaredIn;
  std::uint32_t limit;
  std::vector<const char*> fields;
  const char* hex = nullptr;
};

TEST(BadInputTest, EveryRangedFieldRefusesAValuePastItsLimitAndKeepsItsOwn) {
  const fwk::Value mpls{MplsLabelFilter()}, ip{IpFilter()}, ip6{Ip6Filter()}, mac{MacFilter()};
  const RangeGroup groups[] = {
      {mpls, "MplsLabelFilter", 1048575, {"label", "labelMask"}, "0xFFFFF"},
      {mpls, "MplsLabelFilter", 7, {"tc", "tcMask"}},
      {ip, "IpFilterBase", 63, {"dscp", "dscpMask"}},
      {ip, "IpFilterBase", 3, {"ecn"}},
      {ip, "IpFilterBase", 4095, {"outerVlan", "outerVlanMask", "innerVlan", "innerVlanMask"}},
      {ip, "IpFilterBase", 16777215, {"tni"}},
      {ip6, "IpFilterBase", 16777215, {"vni"}},
      {ip, "IpFilter", 4095, {"vlan", "vlanMask"}},
      {ip6, "Ip6Filter", 128, {"srcPrefixLen", "dstPrefixLen"}},
      {mac, "MacFilter", 4095, {"outerVlan", "outerVlanMask", "innerVlan", "innerVlanMask"}},
      {mac, "MacFilter", 1048575, {"mplsLabel", "mplsInnerLabel"}, "0xFFFFF"},
  };
  for (const RangeGroup& group : groups) {
    for (const char* name : group.fields) {
      SCOPED_TRACE(group.record.type()->name.str() + "." + name);
      const fwk::FieldInfo* field = nullptr;
      for (const fwk::FieldInfo& f : group.record.type()->fields()) {
        if (f.name == name) field = &f;
      }
      ASSERT_NE(field, nullptr);
      fwk::Value record = group.record;
      const std::string limit = std::to_string(group.limit);
      field->set(record.data(), field->type->parse(limit));
      try {
        field->set(record.data(), field->type->parse(std::to_string(group.limit + 1)));
        ADD_FAILURE() << "accepted " << group.limit + 1;
      } catch (const fwk::RangeError& e) {
        EXPECT_EQ(e.what(), std::string(group.declaredIn) + "::" + name + " < 0 or > " +
                                (group.hex ? group.hex : limit) + " not allowed");
      }
      EXPECT_EQ(field->type->strepOf(field->get(record.data()).data()), limit) << "the refused value replaced it";
    }
  }

  // Checks that are not a field's range: a label map key, a range's order, an enumeration.
  MplsFilter labels;
  EXPECT_THROW(labels.labelIs(0x100000, MplsLabelFilter()), fwk::RangeError);
  EXPECT_TRUE(labels.empty());
  try {
    RangeMatch(ValueOp::range, 90, 80);
    ADD_FAILURE() << "accepted range 90 80";
  } catch (const fwk::RangeError& e) {
    EXPECT_STREQ(e.what(), "RangeMatch::low > RangeMatch::high not allowed");
  }
  EXPECT_EQ(RangeMatch(ValueOp::range, 80, 80).high(), 80);
  build::SessionWorld world;
  Ptr<ApiSm> s = world.session("web");
  EXPECT_THROW(s->apiStateIs(static_cast<ApiState>(42)), fwk::EnumError);
  EXPECT_THROW(fwk::parseValue<ApiState>("18"), fwk::EnumError) << "a number read for a state must name one";
  EXPECT_THROW(fwk::enumFromName<ApiType>("commit_"), fwk::EnumError) << "a trailing underscore is no part of a name";
  EXPECT_EQ(s->apiState(), ready);
  // The numbers and names are the interface's: a number that names a state is taken.
  EXPECT_EQ(fwk::parseValue<ApiState>("17"), errAclApi);
  EXPECT_EQ(fwk::enumFromValue<ApiState>(9), errSequenceOutOfRange);
  EXPECT_EQ(fwk::enumFromValue<ApiState>(12), errHw);
  EXPECT_EQ(fwk::enumFromValue<ApiType>(3), detach_);
  EXPECT_EQ(stringValue(commit_), "commit");
}

// ---- null arguments ----------------------------------------------------------------------

TEST(NullArgumentTest, RecordsAndFactoriesRefuseNullsTheSessionsSettersStoreThem) {
  build::SessionWorld world;
  const AclMounts& acl = world.acl;
  Ptr<ApiSm> s = world.session("web");
  const std::size_t dataplanes = s->statusDp().size();
  EXPECT_THROW(s->statusDpIs(Ptr<const StatusDp>()), fwk::NullArgumentError);
  EXPECT_THROW(s->statusDpIs("dp", Ptr<const StatusDp>()), fwk::NullArgumentError);
  EXPECT_THROW(s->statusDpEntryIs(Ptr<const StatusDp>()), fwk::NullArgumentError);
  EXPECT_THROW(s->statusDpEntryIs("dp", Ptr<StatusDpEntry>()), fwk::NullArgumentError);
  EXPECT_EQ(s->statusDp().size(), dataplanes);
  EXPECT_EQ(s->statusDpEntry().size(), dataplanes);

  Ptr<Cli::Session::EntityCopy> copy(new Cli::Session::EntityCopy());
  EXPECT_THROW(copy->copyTree(acl.config, nullptr), fwk::NullArgumentError);
  EXPECT_THROW(copy->doCopyEntityAttrs(nullptr, acl.config, "", nullptr), fwk::NullArgumentError);
  Cli::Session::CopyHandlerRegistry registry;
  EXPECT_THROW(registry.handlerIs(Input::AclTypeConfig::staticType(), nullptr), fwk::NullArgumentError);
  EXPECT_EQ(registry.handler(Input::AclTypeConfig::staticType()), nullptr);
  EXPECT_THROW(AclConfigSession{AclMounts{}}, fwk::NullArgumentError);

  // The factory refuses what every operation needs, naming it, and writes nothing.
  const std::int64_t entities = fwk::Entity::liveCount();
  for (bool missingConfig : {true, false}) {
    try {
      apiSmFactory("new", AclType::mac, false, commit_, missingConfig ? nullptr : acl.config, acl.paramConfig,
                   acl.intfConfig, missingConfig ? acl.hwConfig : nullptr, acl.status, acl.statusDpDir, acl.udfAlias);
      ADD_FAILURE() << "opened a session without its configuration";
    } catch (const fwk::NullArgumentError& e) {
      EXPECT_STREQ(e.what(), missingConfig ? "apiSmFactory: null config" : "apiSmFactory: null hwConfig");
    }
  }
  EXPECT_FALSE(acl.config->config(AclType::mac)) << "the family's table was not left behind";
  EXPECT_EQ(fwk::Entity::liveCount(), entities);

  // A session's setters store null as anything else. Without its configuration a commit or a
  // removal finds no list; what an operation cannot go on without is refused where it is
  // needed, and the operation leaves everything as it was.
  world.installAcl("web", {{10, 80}});
  build::FakeDataplane dp(acl, "dp1");
  fwk::TraceCapture traces;
  fwk::TraceFacility::get("AclApi").levelsUpToIs(0);
  s = world.session("web");
  ASSERT_EQ(s->addIpRule(20, build::ipRule(443)), succeeded);
  s->configIs(nullptr);
  EXPECT_EQ(s->config(), nullptr);
  EXPECT_EQ(s->commit(), errNotConfigured);
  EXPECT_TRUE(traces.contains("<, aclConfig is NULL"));
  Ptr<ApiSm> removing = world.session("web", AclType::ip, remove_);
  removing->configIs(nullptr);
  EXPECT_EQ(removing->remove(), errNotConfigured);
  fwk::TraceFacility::get("AclApi").levelsUpToIs(9);
  for (ApiType type : {attach_, detach_}) {
    Ptr<ApiSm> binding = world.session("web", AclType::ip, type);
    binding->intfConfigIs(nullptr);
    EXPECT_EQ(type == attach_ ? binding->attach("Ethernet1", AclDirection::in)
                              : binding->detach("Ethernet1", AclDirection::in),
              errNotConfigured);
    EXPECT_TRUE(traces.contains("<, no interface configuration"));
  }
  EXPECT_THROW(static_cast<void>(ruleCount(nullptr)), fwk::NullArgumentError);
  fwk::TraceFacility::get("AclApi").levelsIs(0);
  s->configIs(acl.config);
  auto refused = [&](const std::function<void()>& operation, const char* expected) {
    const std::string before = build::storeSnapshot({world.store.root().get(), s.get()});
    try {
      operation();
      ADD_FAILURE() << "went on without: " << expected;
    } catch (const fwk::NullArgumentError& e) {
      EXPECT_STREQ(e.what(), expected);
    }
    EXPECT_EQ(build::storeSnapshot({world.store.root().get(), s.get()}), before);
  };
  s->hwConfigIs(nullptr);
  EXPECT_EQ(s->hwConfig(), nullptr);
  refused([&] { static_cast<void>(s->commit()); }, "waitForHw: null hwConfig");
  s->hwConfigIs(acl.hwConfig);
  s->aclCopyHelperIs(nullptr);
  refused([&] { static_cast<void>(s->commit()); }, "shouldUpdateAcl: null aclCopyHelper");
  s->entityCopyIs(nullptr);
  refused([&] { s->createScratchpad(); }, "createScratchpad: null entityCopy");
}

// ---- observers: the callers' own code, which may let go of the session, commit or revert it
// while it notifies them. Each case here once read freed memory or lost a result; an observer
// that throws is the fault-injection test's.

// Calls `react` with the session's new state, as a request handler watching its session does,
// and notes whether the session went while one of its operations was still running.
class StateWatch : public ApiSm::Reactor {
 public:
  StateWatch(ApiSm* session, std::function<void(ApiState)> react) : ApiSm::Reactor(session), react_(std::move(react)) {}
  void apiStateChanged() override { react_(notifier()->apiState()); }
  void notifierDestroyed() override { destroyedMidCall = fwk::Transaction::active(); }
  bool destroyedMidCall = false;

 private:
  std::function<void(ApiState)> react_;
};

// Calls `react` once, at the next change of a scratchpad's places.
class EditWatch : public AclSubConfig::Reactor {
 public:
  EditWatch(AclSubConfig* scratchpad, std::function<void()> react)
      : AclSubConfig::Reactor(scratchpad), react_(std::move(react)) {}
  void ruleBySequenceChanged(const U32&) override {
    if (auto react = std::exchange(react_, nullptr)) react();
  }

 private:
  std::function<void()> react_;
};

class ReentrancyTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  ReentrancyTest() { installAcl("web", {{10, 80}, {20, 443}}); }
  Ptr<AclConfig> web() { return acl.config->config(AclType::ip)->acl("web"); }

  double now = 1000;
  fwk::ClockOverride clock{[this] { return now += 1; }};
};

TEST_F(ReentrancyTest, AHandlerMayLetGoOfItsSessionMidEditOrWhenTheResultArrives) {
  const std::int64_t before = fwk::Entity::liveCount();
  // The last reference goes in the middle of an edit, before the session changed anything of
  // its own (15 lies below the last place): the session lives until the edit is done.
  Ptr<ApiSm> held = session("web");
  ApiSm* raw = held.get();
  StateWatch gone(raw, [](ApiState) {});
  EditWatch letGo(raw->currentAcl().get(), [&] { held = nullptr; });
  EXPECT_EQ(raw->addIpRule(15, ipRule(22)), succeeded);
  EXPECT_EQ(gone.notifier(), nullptr) << "let go of once the edit returned";
  EXPECT_FALSE(gone.destroyedMidCall) << "freed while its edit was still running";

  // At the result a dataplane's report brings: both dataplanes report errors, so the error
  // loop goes on after the session was dropped.
  FakeDataplane dp1(acl, "dp1");
  FakeDataplane dp2(acl, "dp2");
  for (bool failing : {false, true}) {
    SCOPED_TRACE(failing ? "errHw" : "succeeded");
    held = session("web");
    ASSERT_EQ(held->addIpRule(0, ipRule(failing ? 23 : 22)), succeeded);
    std::vector<ApiState> heard;
    StateWatch watch(held.get(), [&](ApiState state) {
      heard.push_back(state);
      if (state == succeeded || state == errHw) held = nullptr;
    });
    ASSERT_EQ(held->commit(), waitingForHw);
    if (failing) {
      dp1.fail("no room");
      dp2.fail("parity");
    } else {
      dp1.apply();
      dp2.apply();
    }
    EXPECT_EQ(held, nullptr);
    EXPECT_EQ(heard.back(), failing ? errHw : succeeded);
    EXPECT_TRUE(dp1.status()->notifieeList().empty()) << "the dropped session stopped watching";
    dp1.recover();
    dp2.recover();
  }
  EXPECT_EQ(fwk::Entity::liveCount(), before + 2) << "nothing of the sessions is left, only the dataplanes";
}

TEST_F(ReentrancyTest, AnObserverCommittingDuringAnEditLeavesNoDanglingScratchpad) {
  for (int edit = 0; edit < 2; ++edit) {
    SCOPED_TRACE(edit == 0 ? "removal" : "addition");
    Ptr<ApiSm> s = session("web");
    EditWatch watch(s->currentAcl().get(), [&] { EXPECT_EQ(s->commit(), succeeded); });
    const ApiState state = edit == 0 ? s->removeRuleBySequence(10, 10) : s->addIpRule(30, ipRule(22));
    EXPECT_EQ(state, succeeded);
    EXPECT_EQ(s->currentAcl(), nullptr) << "the commit let go of the scratchpad";
    EXPECT_TRUE(web()->currCfg());
  }
}

TEST_F(ReentrancyTest, ARevertStartedOnAnErrorKeepsItsOwnOutcome) {
  FakeDataplane dp1(acl, "dp1");
  FakeDataplane dp2(acl, "dp2");
  Ptr<ApiSm> s = session("web");
  ApiState reverted = ready;
  StateWatch watch(s.get(), [&](ApiState state) {
    if (state == errHw && reverted == ready) reverted = s->revert();
  });
  ASSERT_EQ(s->addIpRule(30, ipRule(22)), succeeded);
  ASSERT_EQ(s->commitExt(false), waitingForHw);
  dp1.fail("no room");
  dp2.fail("parity");
  EXPECT_EQ(reverted, waitingForHw);
  EXPECT_EQ(s->apiState(), waitingForHw) << "the second dataplane's error does not overwrite the revert";
  EXPECT_EQ(s->errString().size(), 2u) << "both errors are still reported";
  EXPECT_EQ(web()->currCfg()->ruleBySequence().size(), 2u) << "the old version is current again";
  dp1.recover();
  dp2.recover();
  dp1.apply();
  dp2.apply();
  EXPECT_EQ(s->apiState(), succeeded) << "the revert's own wait completes";
}

}  // namespace
