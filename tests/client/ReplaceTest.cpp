// Declarative replace: what the session is asked to do (nothing for an unchanged list, one
// entry for one changed entry, moves for a renumbering), that any desired list is reached
// exactly, the refusals that must not open a session, and bindings.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "aclkit/agent/Dataplane.h"
#include "aclkit/client/Replace.h"
#include "aclkit/platform/store/StateStore.h"

namespace {

using namespace Acl;
using Client::ListEntry;

std::vector<ListEntry> entries(std::initializer_list<const char*> lines, AclType type = AclType::ip) {
  std::vector<ListEntry> all;
  for (const char* line : lines) {
    Text::Entry e = Text::parse(line, type);
    all.push_back({e.sequence.value(), e.body});
  }
  return all;
}

struct ReplaceTest : ::testing::Test {
  fwk::StateStore store;
  Client::Library acl{store};
  Agent::Dataplane dp{acl.mounts(), "dp1"};

  std::map<U32, UniqueId> identities(const char* name) const {
    std::map<U32, UniqueId> ids;
    for (const auto& [sequence, id] : acl.list(AclType::ip, name)->currCfg()->ruleBySequence()) ids[sequence] = id;
    return ids;
  }
  std::vector<ListEntry> content(const char* name, AclType type = AclType::ip) const {
    return Client::entriesOf(*acl.list(type, name)->currCfg(), type);
  }
};

const std::vector<ListEntry> web = entries({"10 permit tcp any host 192.0.2.1 eq 443", "20 remark mail",
                                            "30 permit tcp any host 192.0.2.2 eq 25", "40 deny ip any any log"});

// An unchanged list, in any order, opens no session and reprograms nothing; one changed entry
// is one entry reprogrammed; a renumbering moves every entry, each keeping its identity.
TEST_F(ReplaceTest, UnchangedOpensNoCommitOneChangedEntryReprogramsOneAndRenumberingMoves) {
  ASSERT_EQ(Client::replaceList(acl, "web", AclType::ip, web).state, AclApi::succeeded);
  static_cast<void>(Client::replaceBindings(acl, {{"Ethernet1", AclDirection::in, AclType::ip, "web"}}));
  const std::uint64_t runs = dp.lastRun().run;

  Client::ReplaceResult same = Client::replaceList(acl, "web", AclType::ip, {web.rbegin(), web.rend()});
  EXPECT_EQ(std::tuple(same.state, same.session, same.report.kept),
            std::tuple(AclApi::succeeded, nullptr, std::vector<U32>{10, 20, 30, 40}));
  EXPECT_EQ(dp.lastRun().run, runs);

  std::vector<ListEntry> changed = web;
  changed[2] = entries({"30 permit tcp any host 192.0.2.2 eq 587"})[0];
  Client::ReplaceResult one = Client::replaceList(acl, "web", AclType::ip, changed, false, /*cleanup=*/false);
  EXPECT_EQ(one.state, AclApi::succeeded);
  EXPECT_EQ(acl.list(AclType::ip, "web")->subConfig().size(), 1U);  // programmed: the old version goes
  EXPECT_EQ(std::tuple(one.report.added, one.report.removed, one.report.moved.size()),
            std::tuple(std::vector<U32>{30}, std::vector<U32>{30}, 0U));
  EXPECT_EQ(content("web"), changed);
  EXPECT_EQ(std::tuple(dp.lastRun().added, dp.lastRun().removed, dp.lastRun().kept), std::tuple(1U, 1U, 2U));

  const auto before = identities("web");
  std::vector<ListEntry> renumbered = changed;
  for (ListEntry& e : renumbered) e.sequence = e.sequence * 10 + 5;
  Client::ReplaceResult r = Client::replaceList(acl, "web", AclType::ip, renumbered);
  EXPECT_EQ(r.report.moved, (std::vector<std::pair<U32, U32>>{{10, 105}, {20, 205}, {30, 305}, {40, 405}}));
  EXPECT_TRUE(r.report.added.empty() && r.report.removed.empty() && r.report.kept.empty());
  EXPECT_EQ(content("web"), renumbered);
  const auto moved = identities("web");
  for (const auto& [from, id] : before) EXPECT_EQ(moved.at(from * 10 + 5), id) << from;
}

// Random current and desired lists over a few contents, so that places collide, contents
// repeat and entries cross each other: the list must end up exactly as desired, and the
// report must account for every entry once.
TEST_F(ReplaceTest, AnyDesiredListIsReachedExactly) {
  const std::vector<ListEntry> pool =
      entries({"1 permit ip any any", "1 deny ip any any", "1 permit udp any any eq 53", "1 remark a", "1 remark b"});
  std::mt19937 random(20261123);
  auto draw = [&] {
    std::map<U32, ListEntry> list;
    for (int n = static_cast<int>(random() % 7); n > 0; --n) {
      const U32 sequence = 1 + random() % 9;
      ListEntry e = pool[random() % pool.size()];
      e.sequence = sequence;
      list.emplace(sequence, e);
    }
    std::vector<ListEntry> all;
    for (auto& [sequence, e] : list) all.push_back(e);
    return all;
  };
  ASSERT_EQ(Client::replaceList(acl, "r", AclType::ip, draw()).state, AclApi::succeeded);
  for (int round = 0; round < 300; ++round) {
    const std::vector<ListEntry> current = content("r");
    const std::vector<ListEntry> desired = draw();
    Client::ReplaceResult r = Client::replaceList(acl, "r", AclType::ip, desired);
    ASSERT_EQ(r.state, AclApi::succeeded) << "round " << round;
    ASSERT_EQ(content("r"), desired) << "round " << round;
    EXPECT_EQ(r.report.kept.size() + r.report.moved.size() + r.report.added.size(), desired.size());
    EXPECT_EQ(r.report.kept.size() + r.report.moved.size() + r.report.removed.size(), current.size());
    EXPECT_EQ(r.session == nullptr, !r.report.changes());
  }
}

TEST_F(ReplaceTest, BadInputAndRefusalsChangeNothing) {
  ASSERT_EQ(Client::replaceList(acl, "web", AclType::ip, web).state, AclApi::succeeded);
  ASSERT_EQ(Client::replaceList(acl, "std", AclType::ip, entries({"10 permit ip 198.51.100.0/24 any"}), true).state,
            AclApi::succeeded);
  const std::tuple<const char*, std::vector<ListEntry>, const char*> refused[] = {
      {"web", entries({"10 permit ip any any", "10 deny ip any any"}), "entry 10 is given twice"},
      {"web", {{0, RemarkConfig("x")}}, "entry 0: a desired entry needs a sequence number from 1 up"},
      {"web", entries({"10 permit ipv6 any any"}, AclType::ipv6), "entry 10: not an entry of the ip family"},
      {"std", entries({"10 permit tcp any any"}),
       "entry 10: a standard list cannot hold it: no ACL line reads back as this record: a standard list matches on "
       "the source address alone"},
  };
  for (const auto& [name, desired, expected] : refused) {
    try {
      static_cast<void>(Client::replaceList(acl, name, AclType::ip, desired));
      ADD_FAILURE() << "accepted: " << expected;
    } catch (const std::invalid_argument& e) {
      EXPECT_STREQ(e.what(), expected);
    }
  }
  EXPECT_EQ(content("web"), web);

  // A read-only list: the session refuses, and its edit is dropped.
  acl.mounts().config->configIs(AclType::mac)->aclIs("fixed", AclType::mac, false, true);
  EXPECT_EQ(Client::replaceList(acl, "fixed", AclType::mac, entries({"10 permit any any"}, AclType::mac)).state,
            AclApi::errReadOnly);
  EXPECT_EQ(acl.list(AclType::mac, "fixed")->currCfg(), nullptr);
}

TEST_F(ReplaceTest, BindingsBecomeExactlyTheDesiredSet) {
  using Kind = Client::BindingChange::Kind;
  ASSERT_EQ(Client::replaceList(acl, "web", AclType::ip, web).state, AclApi::succeeded);
  ASSERT_EQ(Client::replaceList(acl, "v6", AclType::ipv6, {}).state, AclApi::succeeded);
  const Client::Binding e1in{"Ethernet1", AclDirection::in, AclType::ip, "web"};
  const Client::Binding e1v6{"Ethernet1", AclDirection::in, AclType::ipv6, "v6"};
  const Client::Binding e2out{"Ethernet2", AclDirection::out, AclType::ip, "web"};
  static_cast<void>(Client::replaceBindings(acl, {e1in, e2out}));

  Client::Binding rebound = e1in;
  rebound.list = "other";
  const Client::BindingsResult r = Client::replaceBindings(acl, {rebound, e1v6});
  std::vector<std::pair<Kind, Client::Binding>> changes;
  for (const auto& c : r.changes) changes.emplace_back(c.kind, c.binding);
  EXPECT_EQ(changes, (std::vector<std::pair<Kind, Client::Binding>>{
                         {Kind::detached, e2out}, {Kind::attached, rebound}, {Kind::attached, e1v6}}));
  EXPECT_EQ(Client::bindingsOf(*acl.mounts().intfConfig), (std::vector<Client::Binding>{rebound, e1v6}));
  EXPECT_EQ(dp.table(AclType::ip, IntfId("Ethernet2"), AclDirection::out), nullptr);

  const Client::BindingsResult again = Client::replaceBindings(acl, {e1v6, rebound});
  ASSERT_EQ(again.changes.size(), 2U);
  EXPECT_EQ(again.changes[0].kind, Kind::kept);
  EXPECT_EQ(again.changes[0].session, nullptr);

  Client::Binding clash = rebound;
  clash.list = "web";
  EXPECT_THROW(static_cast<void>(Client::replaceBindings(acl, {rebound, clash})), std::invalid_argument);
  EXPECT_EQ(Client::bindingsOf(*acl.mounts().intfConfig), (std::vector<Client::Binding>{rebound, e1v6}));
}

}  // namespace
