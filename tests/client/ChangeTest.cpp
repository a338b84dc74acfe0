// The change pipeline: how a change ends (accepted, refused by the platform, failing, in
// conflict), with the running configuration compared whole before and after.
#include <gtest/gtest.h>

#include "aclkit/agent/Dataplane.h"
#include "aclkit/client/Change.h"
#include "aclkit/platform/store/StateStore.h"

namespace {

using namespace Acl;
using Client::Binding;
using Client::DesiredList;
using Client::ListEntry;
using State = Client::Outcome::State;

std::vector<ListEntry> entries(std::initializer_list<const char*> lines) {
  std::vector<ListEntry> all;
  for (const char* line : lines) {
    Text::Entry e = Text::parse(line, AclType::ip);
    all.push_back({e.sequence.value(), e.body});
  }
  return all;
}

const std::vector<ListEntry> anyAny = entries({"10 permit ip any any"});
const std::vector<ListEntry> mirrored = entries({"10 permit ip 198.51.100.0/24 any mirror tap1"});
const Binding webOnE1{"Ethernet1", AclDirection::in, AclType::ip, "web"};
const Binding aOnE2{"Ethernet2", AclDirection::in, AclType::ip, "a"};

// A platform that can do everything but mirror; `a` unbound, `web` bound, a read-only list.
struct ChangeTest : ::testing::Test {
  fwk::StateStore store;
  Client::Library acl{store};
  Agent::Dataplane dp{acl.mounts(), "dp1"};

  ChangeTest() {
    acl.platform().enableAll();
    acl.platform().supportIs("ipMirror", false);
    Client::Change setup;
    setup.lists = {{AclType::ip, "a", false, anyAny, {}, {}}, {AclType::ip, "web", false, anyAny, true, {}}};
    setup.bindings = {{webOnE1}};
    EXPECT_EQ(Client::apply(acl, setup).state, State::applied);
    const Ptr<AclConfig> fixed = acl.mounts().config->configIs(AclType::ip)->aclIs("fixed", AclType::ip, false, true);
    fixed->currCfgIs(fixed->subConfigIs(UniqueId()));
  }
  Client::Snapshot running() const { return Client::runningSnapshot(acl); }
};

TEST_F(ChangeTest, ARefusedOrFailedChangeLeavesTheRunningConfigurationAsItWas) {
  struct Row {
    const char* what;
    Client::Change change;
    State state;
    std::vector<Client::Refusal> refusals;
  };
  const Row rows[] = {
      // The list existed before and was unbound: the check sees the binding the change makes.
      {"a list and its binding",
       {{{AclType::ip, "a", false, mirrored, {}, {}}}, {}, std::vector<Binding>{webOnE1, aOnE2}},
       State::refused,
       {{"ip access-list a", "mirror not supported"}}},
      {"a bound list replaced",
       {{{AclType::ip, "web", false, mirrored, {}, {}}}, {}, {}},
       State::refused,
       {{"ip access-list web", "mirror not supported"}}},
      {"a new list, then a read-only one",
       {{{AclType::ip, "new", false, anyAny, {}, {}}, {AclType::ip, "fixed", false, anyAny, {}, {}}}, {}, {}},
       State::failed,
       {{"ip access-list fixed", "read-only"}}},
  };
  EXPECT_FALSE(acl.mounts().paramConfig->ipMirrorSupported());
  EXPECT_TRUE(acl.platform().supports(Client::Platform::names().back()));
  try {
    static_cast<void>(acl.platform().supports("mirror"));
    ADD_FAILURE() << "a capability that is not one";
  } catch (const fwk::NameError& e) {
    EXPECT_TRUE(std::string_view(e.what()).starts_with("the platform has no capability 'mirror' (it has acl, ip6Acl, "))
        << e.what();
  }
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const Client::Snapshot before = running();
    const std::uint64_t runs = dp.lastRun().run;
    const Client::Outcome outcome = Client::apply(acl, row.change);
    EXPECT_EQ(outcome.state, row.state);
    EXPECT_EQ(outcome.refusals, row.refusals);
    EXPECT_FALSE(outcome.accepted());
    EXPECT_EQ(running(), before);
    EXPECT_EQ(dp.lastRun().run, runs) << "nothing was programmed";
  }

  // Accepted: removals, replaced and created lists (flags included) and the bindings, as one
  // change.
  Client::Change change;
  change.removals = {{AclType::ip, "a"}};
  change.lists = {{AclType::ip, "web", false, entries({"10 deny ip any any", "20 remark r"}), false, true},
                  {AclType::ip, "b", false, anyAny, {}, {}}};
  change.bindings = {{webOnE1, {"Ethernet2", AclDirection::out, AclType::ip, "web"}}};
  const Client::Snapshot original = running();
  Client::Outcome outcome = Client::apply(acl, change);
  EXPECT_EQ(outcome.state, State::applied);
  EXPECT_EQ(outcome.lists.at(0).report.added, (std::vector<U32>{10, 20}));
  const Client::Snapshot after = running();
  EXPECT_EQ(Client::differences({}, after),
            (std::vector<std::string>{"ip access-list b created", "ip access-list fixed created",
                                      "ip access-list web created", "binding of Ethernet1 in (ip) added",
                                      "binding of Ethernet2 out (ip) added"}));
  EXPECT_EQ(after.lists.at(2).entries, change.lists[0].entries);
  EXPECT_EQ(std::tuple(after.lists.at(2).counters, after.lists.at(2).fragments), std::tuple(false, true));
  EXPECT_EQ(Client::apply(acl, change).state, State::unchanged);

  // Taken back whole, as a change of its own; after that its lists and bindings are no longer
  // what it left, so taking it back again would undo other work: a conflict.
  EXPECT_EQ(Client::revert(acl, outcome).state, State::applied);
  EXPECT_EQ(running(), original);
  const Client::Outcome again = Client::revert(acl, outcome);
  EXPECT_EQ(again.state, State::conflict);
  EXPECT_EQ(again.refusals, (std::vector<Client::Refusal>{{"ip access-list a", "changed since; not reverted"},
                                                          {"ip access-list web", "changed since; not reverted"},
                                                          {"ip access-list b", "changed since; not reverted"},
                                                          {"bindings", "changed since; not reverted"}}));
  EXPECT_EQ(running(), original);

  // A list the dataplane could not program: its own session reverts it, and the version the
  // commit kept for that goes with it.
  dp.forcedErrorIs("full");
  Client::Change created;
  created.lists = {{AclType::ip, "web", false, entries({"10 deny ip any any"}), {}, {}}};
  outcome = Client::apply(acl, created);
  ASSERT_EQ(outcome.state, State::hardwareError);
  dp.forcedErrorDel();
  EXPECT_EQ(Client::revert(acl, outcome).state, State::applied);
  EXPECT_EQ(running(), original);
  EXPECT_EQ(acl.list(AclType::ip, "web")->subConfig().size(), 1U);
}

// The platform changes between the check and the write (here: when the first list asks the
// dataplanes to program it): the change fails, and what it had written is taken back.
class CapacityDrop : public HwConfig::Reactor {
 public:
  CapacityDrop(HwConfig* hw, Status* status) : HwConfig::Reactor(hw), status_(status) {}
  void dpAclUpdateRequestTimeChanged() override { status_->ipPayloadCapacityIs(0); }

 private:
  Status* status_;
};

TEST_F(ChangeTest, AChangeThatFailsHalfWayIsTakenBack) {
  acl.mounts().status->ipPayloadCapacityIs(4);
  Client::Change change;
  change.lists = {
      {AclType::ip, "a", false, entries({"10 deny ip any any"}), {}, {}},
      {AclType::ip, "b", false, entries({"10 permit ip any any payload 0 0x1 0xff payload 4 0x1 0xff"}), {}, {}}};
  const Client::Snapshot before = running();
  CapacityDrop drop(acl.mounts().hwConfig.get(), acl.mounts().status.get());
  EXPECT_THROW(static_cast<void>(Client::apply(acl, change)), std::invalid_argument);
  EXPECT_EQ(running(), before);
}

TEST_F(ChangeTest, AnEditSessionOrAConfigurationSessionCommitsThroughTheSameChecks) {
  const Client::Snapshot before = running();
  Ptr<AclApi::ApiSm> edit = acl.session("web", AclType::ip, AclApi::commit_);
  ASSERT_EQ(edit->addIpRule(20, std::get<IpRuleConfig>(mirrored[0].body)), AclApi::succeeded);
  EXPECT_EQ(Client::commit(acl, edit).state, State::refused);
  EXPECT_EQ(running(), before);

  // A configuration session whose running configuration changed since it opened would undo
  // that change: refused, naming it, until it is asked to overwrite.
  Acl::AclConfigSession candidate(acl.mounts());
  const Client::Snapshot openedOn = running();
  Ptr<AclApi::ApiSm> staged = acl.session("web", AclType::ip, AclApi::commit_, false, candidate);
  ASSERT_EQ(staged->addIpRule(20, std::get<IpRuleConfig>(anyAny[0].body)), AclApi::succeeded);
  ASSERT_EQ(staged->commit(), AclApi::succeeded);
  Client::Change other;
  other.lists = {{AclType::ip, "a", false, entries({"10 deny ip any any"}), {}, {}}};
  ASSERT_EQ(Client::apply(acl, other).state, State::applied);
  const Client::Snapshot withOther = running();
  Client::Outcome outcome = Client::commit(acl, candidate, openedOn, false);
  EXPECT_EQ(outcome.state, State::conflict);
  EXPECT_EQ(
      outcome.refusals,
      (std::vector<Client::Refusal>{{"ip access-list a changed", "changed since the configuration session opened"}}));
  EXPECT_TRUE(candidate.isOpen());
  EXPECT_EQ(running(), withOther);

  // Refused by the platform: the session stays open; once fixed, it commits.
  Ptr<AclApi::ApiSm> binding = acl.session("fixed", AclType::ip, AclApi::attach_, false, candidate);
  ASSERT_EQ(binding->attach("Ethernet3", AclDirection::in), AclApi::succeeded);
  acl.mounts().paramConfig->aclSupportedIs(false);
  EXPECT_EQ(Client::commit(acl, candidate, openedOn, true).state, State::refused);
  EXPECT_TRUE(candidate.isOpen());
  acl.mounts().paramConfig->aclSupportedIs(true);
  outcome = Client::commit(acl, candidate, openedOn, true);
  EXPECT_EQ(outcome.state, State::applied);
  EXPECT_EQ(Client::differences(withOther, running()),
            (std::vector<std::string>{"ip access-list a changed", "ip access-list web changed",
                                      "binding of Ethernet3 in (ip) added"}));
}

}  // namespace
