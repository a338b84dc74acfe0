// The kernel dataplane in a network namespace of the test's own: what it programs, as real
// frames through a veth pair see it; a run the kernel cannot take; counters; a dataplane that
// takes over from an earlier one.
#include <gtest/gtest.h>

#include "aclkit/client/Change.h"
#include "aclkit/kernel/Kernel.h"
#include "aclkit/platform/store/StateStore.h"
#include "tests/kernel/Wire.h"

namespace {

using namespace Acl;
using Client::Binding;
using Client::ListEntry;
using State = Client::Outcome::State;

std::vector<ListEntry> entries(AclType type, std::initializer_list<const char*> lines) {
  std::vector<ListEntry> all;
  for (const char* line : lines) {
    Text::Entry e = Text::parse(line, type);
    all.push_back({e.sequence.value(), e.body});
  }
  return all;
}

const Agent::TableKey webOnV1{AclType::ip, IntfId(String("v1")), AclDirection::in};

Agent::Packet tcpTo(const char* dst, U16 port) {
  Agent::Packet p = Agent::Packet::ip(Ip4Addr::fwkParse("198.51.100.7"), Ip4Addr::fwkParse(dst), 6);
  p.dstPort = port;
  p.ipLength = wire::ipLengthOf(p);
  return p;
}

struct KernelTest : ::testing::Test {
  void SetUp() override {
    if (std::string why = wire::enterNamespaceWithPair(); !why.empty()) GTEST_SKIP() << why;
    kernel = std::make_unique<Kernel::Dataplane>(acl.mounts(), "kernel");
    sender = std::make_unique<wire::Sender>("v0");
  }

  // The list web, bound to v1 in, and to `also` in when it is given.
  Client::Outcome put(std::vector<ListEntry> list, const char* also = nullptr) {
    Client::Change change;
    change.lists.push_back({AclType::ip, "web", false, std::move(list), true, {}});
    change.bindings = std::vector<Binding>{{"v1", AclDirection::in, AclType::ip, "web"}};
    if (also) change.bindings->push_back({also, AclDirection::in, AclType::ip, "web"});
    return Client::apply(acl, change);
  }
  // The entry each packet hit, by the kernel's counters: 0 for none.
  std::vector<U32> hitsOf(const std::vector<Agent::Packet>& packets) {
    std::vector<U32> hit;
    for (const Agent::Packet& p : packets) {
      const auto before = kernel->hits(webOnV1);
      EXPECT_TRUE(sender->send(wire::frame(p)));
      U32 found = 0;
      for (const auto& [sequence, counted] : kernel->hits(webOnV1)) {
        const auto was = before.find(sequence);
        if (counted.packets != (was == before.end() ? 0 : was->second.packets)) found = sequence;
      }
      hit.push_back(found);
    }
    return hit;
  }

  fwk::StateStore store;
  Client::Library acl{store};
  std::unique_ptr<Kernel::Dataplane> kernel;
  std::unique_ptr<wire::Sender> sender;
};

// The first entry that matches decides, whatever piece it is in; a change sends only itself,
// and an entry put between two others lands between them.
TEST_F(KernelTest, FramesHitTheFirstMatchingEntryAndAnEditSendsOnlyItself) {
  std::vector<ListEntry> list = entries(
      AclType::ip, {"10 permit tcp any host 192.0.2.1 eq 443", "20 deny tcp any 192.0.2.0/24", "30 permit ip any any"});
  ASSERT_EQ(put(list).state, State::applied);
  const std::vector<Agent::Packet> packets = {tcpTo("192.0.2.1", 443), tcpTo("192.0.2.1", 80),
                                              tcpTo("203.0.113.9", 80)};
  EXPECT_EQ(hitsOf(packets), (std::vector<U32>{10, 20, 30}));
  EXPECT_EQ(kernel->hits(webOnV1).at(10), (Kernel::Hits{1, 46})) << "bytes from the IP header on";

  list.insert(list.begin() + 1, entries(AclType::ip, {"15 permit tcp any any eq 80"}).front());
  ASSERT_EQ(put(list).state, State::applied);
  EXPECT_EQ(kernel->agent().lastRun().added, 1U);
  EXPECT_EQ(kernel->agent().lastRun().removed, 0U);
  EXPECT_EQ(hitsOf(packets), (std::vector<U32>{10, 15, 15}));
  EXPECT_EQ(kernel->hits(webOnV1).at(10).packets, 2U) << "an edit keeps the counters of entries it keeps";
}

// A list long enough for several pieces, changed in the middle and past a piece's limit:
// every entry still answers in its place.
TEST_F(KernelTest, ALongListKeepsItsOrderAcrossPieces) {
  std::vector<ListEntry> list;
  for (U32 i = 1; i <= 2500; ++i) {
    const std::string line = std::to_string(10000 + i * 10) + " deny tcp any host 192.0.2.1 eq " + std::to_string(i);
    list.push_back(entries(AclType::ip, {line.c_str()}).front());
  }
  ASSERT_EQ(put(list).state, State::applied);
  // 1,500 entries in front of entry 10: the first piece grows past its limit and splits.
  std::vector<ListEntry> grown;
  for (U32 i = 1; i <= 1500; ++i) {
    const std::string line = std::to_string(i) + " permit tcp any host 192.0.2.1 eq " + std::to_string(2500 - i);
    grown.push_back(entries(AclType::ip, {line.c_str()}).front());
  }
  grown.insert(grown.end(), list.begin(), list.end());
  ASSERT_EQ(put(grown).state, State::applied);
  EXPECT_EQ(kernel->agent().lastRun().added, 1500U);
  EXPECT_EQ(
      hitsOf({tcpTo("192.0.2.1", 2499), tcpTo("192.0.2.1", 1000), tcpTo("192.0.2.1", 2500), tcpTo("192.0.2.2", 7)}),
      (std::vector<U32>{1, 1500, 35000, 0}));
}

// A device that is not there, and a list the kernel cannot hold: the run fails, the session ends
// in errHw with the reason, and what was programmed still filters. A capability nf_tables lacks
// is refused before anything reaches it.
TEST_F(KernelTest, ARunTheKernelCannotTakeFailsAndKeepsWhatItHeld) {
  ASSERT_EQ(put(entries(AclType::ip, {"10 deny ip any any"})).state, State::applied);
  const Client::Outcome missing = put(entries(AclType::ip, {"10 deny ip any any"}), "v9");
  ASSERT_EQ(missing.state, State::hardwareError);
  ASSERT_EQ(missing.dataplaneErrors.size(), 1U);
  EXPECT_EQ(missing.dataplaneErrors[0].second,
            "kernel could not program its lists: interface v9 has no device in this network namespace");
  EXPECT_EQ(kernel->agent().status()->error("kernel"), missing.dataplaneErrors[0].second);
  EXPECT_EQ(hitsOf({tcpTo("192.0.2.1", 80)}), std::vector<U32>{10});

  EXPECT_FALSE(acl.platform().supports("logging"));
  EXPECT_EQ(put(entries(AclType::ip, {"10 deny ip any any log"})).state, State::refused);
  EXPECT_EQ(hitsOf({tcpTo("192.0.2.1", 80)}), std::vector<U32>{10});
}

// A dataplane of the same name takes over the tables an earlier one left, in its first
// transaction; removeTables takes them out.
TEST_F(KernelTest, ANewDataplaneTakesOverTheTablesOfTheOneBefore) {
  ASSERT_EQ(put(entries(AclType::ip, {"10 deny ip any any"})).state, State::applied);
  kernel.reset();
  kernel = std::make_unique<Kernel::Dataplane>(acl.mounts(), "kernel");
  EXPECT_TRUE(kernel->agent().upToDate());
  EXPECT_EQ(hitsOf({tcpTo("192.0.2.1", 80)}), std::vector<U32>{10});
  kernel.reset();
  EXPECT_EQ(Kernel::removeTables("kernel"), 2U);
  EXPECT_EQ(Kernel::removeTables("kernel"), 0U);
}

}  // namespace
