// What the API does with input the command line never sends: every range-checked field just
// past its limit, the extreme sequence numbers wherever a sequence is taken, null arguments,
// and sessions used after they finished. Each refusal must name the problem exactly and
// leave everything as it was.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/platform/fwk/Value.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "tests/support/SessionWorld.h"

namespace {

using namespace AclApi;
using namespace Acl;
using build::ipRule;

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
  EXPECT_EQ(s->apiState(), ready);
  EXPECT_EQ(fwk::parseValue<ApiState>("17"), errAclApi) << "a number that names a state is taken";
}

// ---- sequence numbers at their extremes --------------------------------------------------

class EdgeTest : public ::testing::Test, protected build::SessionWorld {
 protected:
  void SetUp() override { installAcl("web", {{10, 80}, {20, 443}}, {{15, "note"}}); }
  // Places of the scratchpad ("r" rule, "m" remark) and of the running version.
  static std::string placesOf(const Ptr<AclSubConfig>& v) {
    std::ostringstream os;
    if (!v) return "none";
    for (const auto& [seq, id] : v->ruleBySequence()) os << seq << "r ";
    for (const auto& [seq, remark] : v->remarkBySequence()) os << seq << "m ";
    os << v->ipRuleById().size() << " records";
    return os.str();
  }
  std::string running() { return placesOf(acl.config->config(AclType::ip)->acl("web")->currCfg()); }
};

struct EdgeRow {
  const char* what;
  std::function<ApiState(ApiSm&)> op;
  ApiState result;
  const char* after;  // the scratchpad's places afterwards
};

TEST_F(EdgeTest, ExtremeSequencesGiveExactResultsAndRefusalsChangeNothing) {
  constexpr U32 kTop = 4294967295u;
  const RemarkConfig note(String("note"));
  const EdgeRow rows[] = {
      {"add at 0 numbers after the last", [](ApiSm& s) { return s.addIpRule(0, ipRule(1)); }, succeeded,
       "10r 20r 30r 15m 3 records"},
      {"add at the top", [&](ApiSm& s) { return s.addIpRule(kTop, ipRule(1)); }, succeeded,
       "10r 20r 4294967295r 15m 3 records"},
      {"remark at the top", [&](ApiSm& s) { return s.addRemark(note, kTop); }, succeeded,
       "10r 20r 15m 4294967295m 2 records"},
      {"a remark goes by its place, whatever text is named",
       [&](ApiSm& s) { return s.removeRemark(RemarkConfig(String("x")), 15); }, succeeded, "10r 20r 2 records"},
      {"remove everything", [&](ApiSm& s) { return s.removeRuleBySequence(0, kTop); }, succeeded, "0 records"},
      {"remove an inverted range", [&](ApiSm& s) { return s.removeRuleBySequence(kTop, 0); }, succeeded,
       "10r 20r 15m 2 records"},
      {"renumber past the top", [&](ApiSm& s) { return s.resequence(kTop - 1, 1); }, errSequenceOutOfRange,
       "10r 20r 15m 2 records"},
      {"renumber up to the top", [&](ApiSm& s) { return s.resequence(kTop - 2, 1); }, succeeded,
       "4294967293r 4294967295r 4294967294m 2 records"},
      {"an increment that overflows 32 bits", [&](ApiSm& s) { return s.resequence(0, 2147483648u); },
       errSequenceOutOfRange, "10r 20r 15m 2 records"},
  };
  const std::string before = running();
  for (const EdgeRow& row : rows) {
    SCOPED_TRACE(row.what);
    Ptr<ApiSm> s = session("web");
    EXPECT_EQ(row.op(*s), row.result);
    EXPECT_EQ(placesOf(s->currentAcl()), row.after);
    EXPECT_EQ(running(), before) << "editing a scratchpad never reaches the running version";
  }
  Ptr<ApiSm> full = session("web");
  ASSERT_EQ(full->addIpRule(kTop, ipRule(1)), succeeded);
  EXPECT_EQ(full->addIpRule(0, ipRule(2)), errSequenceOutOfRange) << "no place after the top";
  EXPECT_EQ(full->getIpRule(0), IpRuleConfig()) << "a free place reads as the default rule";
  EXPECT_EQ(full->getIpRule(kTop), ipRule(1));
}

// ---- sessions used after they finished ---------------------------------------------------

TEST_F(EdgeTest, ASessionUsedAfterItsCommitOrRemoveRefusesEditsAndChangesNothing) {
  Ptr<ApiSm> committed = session("web");
  ASSERT_EQ(committed->addIpRule(30, ipRule(1)), succeeded);
  ASSERT_EQ(committed->commit(), succeeded);
  Ptr<ApiSm> removed = session("other", AclType::ip, remove_);
  installAcl("other", {{10, 1}});
  ASSERT_EQ(removed->remove(), succeeded);
  const std::string before = running();
  for (Ptr<ApiSm> s : {committed, removed}) {
    SCOPED_TRACE(std::string(s->aclName().view()));
    EXPECT_EQ(s->addIpRule(40, ipRule(2)), failed);
    EXPECT_EQ(s->addRemark(RemarkConfig(String("x")), 40), failed);
    EXPECT_EQ(s->removeRuleBySequence(0, 100), failed);
    EXPECT_EQ(s->resequence(10, 10), failed);
    EXPECT_EQ(s->enableCounters(), failed);
    EXPECT_EQ(s->apiState(), failed);
    EXPECT_EQ(s->revert(), failed) << "nothing to undo: the state stays";
    EXPECT_EQ(running(), before);
  }
  EXPECT_EQ(committed->commit(), succeeded) << "an empty scratchpad commits nothing";
  EXPECT_EQ(removed->remove(), errAclDoesNotExist);
  EXPECT_EQ(running(), before);
}

// ---- null arguments ----------------------------------------------------------------------

TEST_F(EdgeTest, NullArgumentsAreRefusedAndStoreNothing) {
  Ptr<ApiSm> s = session("web");
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
  const std::string before = running();
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

  // What may be missing is handled: no interfaces to bind, no dataplanes, no aliases.
  auto bare = [&](ApiType type) {
    return apiSmFactory("web", AclType::ip, false, type, acl.config, nullptr, nullptr, acl.hwConfig, nullptr, nullptr,
                        nullptr);
  };
  EXPECT_EQ(bare(attach_)->attach("Ethernet1", AclDirection::in), errNotConfigured);
  EXPECT_EQ(bare(detach_)->detach("Ethernet1", AclDirection::in), errNotConfigured);
  EXPECT_EQ(bare(attach_)->revert(), errNotConfigured);
  Ptr<ApiSm> edit = bare(commit_);
  ASSERT_EQ(edit->addIpRule(30, ipRule(22)), succeeded);
  EXPECT_EQ(edit->commit(), succeeded) << "nothing to wait for";
  EXPECT_NE(running(), before);
}

}  // namespace
