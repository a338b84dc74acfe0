// What the API does with input the command line never sends: every range-checked field just
// past its limit, and null arguments. Each refusal must name the problem exactly and leave
// everything as it was. (Extreme sequence numbers and sessions used after they finished are
// the property test's: it compares every such result and scratchpad with the model.)
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Value.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "aclkit/platform/trace/Trace.h"
#include "tests/support/FakeDataplane.h"
#include "tests/support/SessionWorld.h"
#include "tests/support/StoreSnapshot.h"

namespace {

using namespace AclApi;
using namespace Acl;
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

}  // namespace
