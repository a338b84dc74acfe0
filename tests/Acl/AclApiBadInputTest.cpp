// What the API does with input the command line never sends: every range-checked field just
// past its limit, and null arguments. Each refusal must name the problem exactly and leave
// everything as it was. (Extreme sequence numbers and sessions used after they finished are
// the property test's: it compares every such result and scratchpad with the model.)
#include <gtest/gtest.h>

#include <string>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Value.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
// ---- range-checked fields ----------------------------------------------------------------

struct RangeRow {
  fwk::Value record;  // a default record of the type
  const char* field;
  const char* limit;
  const char* over;
  const char* message;
};

TEST(BadInputTest, EveryRangedFieldRefusesAValuePastItsLimitAndKeepsItsOwn) {
  const RangeRow rows[] = {
      {fwk::Value(MplsLabelFilter()), "label", "1048575", "1048576",
       "MplsLabelFilter::label < 0 or > 0xFFFFF not allowed"},
      {fwk::Value(MplsLabelFilter()), "labelMask", "1048575", "1048576",
       "MplsLabelFilter::labelMask < 0 or > 0xFFFFF not allowed"},
      {fwk::Value(MplsLabelFilter()), "tc", "7", "8", "MplsLabelFilter::tc < 0 or > 7 not allowed"},
      {fwk::Value(MplsLabelFilter()), "tcMask", "7", "8", "MplsLabelFilter::tcMask < 0 or > 7 not allowed"},
      {fwk::Value(IpFilter()), "dscp", "63", "64", "IpFilterBase::dscp < 0 or > 63 not allowed"},
      {fwk::Value(IpFilter()), "dscpMask", "63", "64", "IpFilterBase::dscpMask < 0 or > 63 not allowed"},
      {fwk::Value(IpFilter()), "ecn", "3", "4", "IpFilterBase::ecn < 0 or > 3 not allowed"},
      {fwk::Value(IpFilter()), "outerVlan", "4095", "4096", "IpFilterBase::outerVlan < 0 or > 4095 not allowed"},
      {fwk::Value(IpFilter()), "outerVlanMask", "4095", "4096",
       "IpFilterBase::outerVlanMask < 0 or > 4095 not allowed"},
      {fwk::Value(IpFilter()), "innerVlan", "4095", "4096", "IpFilterBase::innerVlan < 0 or > 4095 not allowed"},
      {fwk::Value(IpFilter()), "innerVlanMask", "4095", "4096",
       "IpFilterBase::innerVlanMask < 0 or > 4095 not allowed"},
      {fwk::Value(IpFilter()), "tni", "16777215", "16777216", "IpFilterBase::tni < 0 or > 16777215 not allowed"},
      {fwk::Value(Ip6Filter()), "vni", "16777215", "16777216", "IpFilterBase::vni < 0 or > 16777215 not allowed"},
      {fwk::Value(IpFilter()), "vlan", "4095", "4096", "IpFilter::vlan < 0 or > 4095 not allowed"},
      {fwk::Value(IpFilter()), "vlanMask", "4095", "4096", "IpFilter::vlanMask < 0 or > 4095 not allowed"},
      {fwk::Value(Ip6Filter()), "srcPrefixLen", "128", "129", "Ip6Filter::srcPrefixLen < 0 or > 128 not allowed"},
      {fwk::Value(Ip6Filter()), "dstPrefixLen", "128", "129", "Ip6Filter::dstPrefixLen < 0 or > 128 not allowed"},
      {fwk::Value(MacFilter()), "outerVlan", "4095", "4096", "MacFilter::outerVlan < 0 or > 4095 not allowed"},
      {fwk::Value(MacFilter()), "outerVlanMask", "4095", "4096", "MacFilter::outerVlanMask < 0 or > 4095 not allowed"},
      {fwk::Value(MacFilter()), "innerVlan", "4095", "4096", "MacFilter::innerVlan < 0 or > 4095 not allowed"},
      {fwk::Value(MacFilter()), "innerVlanMask", "4095", "4096", "MacFilter::innerVlanMask < 0 or > 4095 not allowed"},
      {fwk::Value(MacFilter()), "mplsLabel", "1048575", "1048576", "MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed"},
      {fwk::Value(MacFilter()), "mplsInnerLabel", "1048575", "1048576",
       "MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed"},
  };
  for (const RangeRow& row : rows) {
    SCOPED_TRACE(row.record.type()->name.str() + "." + row.field);
    const fwk::FieldInfo* field = nullptr;
    for (const fwk::FieldInfo& f : row.record.type()->fields()) {
      if (f.name == row.field) field = &f;
    }
    ASSERT_NE(field, nullptr);
    fwk::Value record = row.record;
    const fwk::Value limit = field->type->parse(row.limit);
    field->set(record.data(), limit);
    try {
      field->set(record.data(), field->type->parse(row.over));
      ADD_FAILURE() << "accepted " << row.over;
    } catch (const fwk::RangeError& e) {
      EXPECT_STREQ(e.what(), row.message);
    }
    EXPECT_EQ(field->type->strepOf(field->get(record.data()).data()), row.limit) << "the refused value replaced it";
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

TEST(NullArgumentTest, NullArgumentsAreRefusedAndStoreNothing) {
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
  auto open = [&](const Ptr<Input::Config>& config, const Ptr<HwConfig>& hw) {
    return apiSmFactory("new", AclType::mac, false, commit_, config, acl.paramConfig, acl.intfConfig, hw, acl.status,
                        acl.statusDpDir, acl.udfAlias);
  };
  for (bool missingConfig : {true, false}) {
    try {
      open(missingConfig ? nullptr : acl.config, missingConfig ? acl.hwConfig : nullptr);
      ADD_FAILURE() << "opened a session without its configuration";
    } catch (const fwk::NullArgumentError& e) {
      EXPECT_STREQ(e.what(), missingConfig ? "configIs: null config" : "hwConfigIs: null hwConfig");
    }
  }
  EXPECT_FALSE(acl.config->config(AclType::mac)) << "the family's table was not left behind";
  EXPECT_EQ(fwk::Entity::liveCount(), entities);
  EXPECT_THROW(s->aclCopyHelperIs(nullptr), fwk::NullArgumentError);
  EXPECT_THROW(s->entityCopyIs(nullptr), fwk::NullArgumentError);
}

}  // namespace
