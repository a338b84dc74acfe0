#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "aclkit/platform/fwk/Collections.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Ptr;
using sample::Match;
using sample::Node;

Ptr<Node> nodeWith(std::initializer_list<std::uint32_t> seqs) {
  Ptr<Node> node(new Node("n"));
  node->hasNotificationActiveIs(true);
  for (auto s : seqs) node->bySeqIs(s, fwk::String(std::to_string(s)));
  return node;
}

std::vector<std::uint32_t> keys(const Node& node) {
  std::vector<std::uint32_t> all;
  for (const auto& [k, v] : node.bySeq()) all.push_back(k);
  return all;
}

TEST(CollectionsTest, OrderedMapIteratesAscendingAndFindsBounds) {
  Ptr<Node> node = nodeWith({30, 10, 20});
  EXPECT_EQ(keys(*node), (std::vector<std::uint32_t>{10, 20, 30}));
  EXPECT_EQ(node->bySeq().lowerBound(15)->first, 20u);
  EXPECT_EQ(node->bySeq().lowerBound(20)->first, 20u);
  EXPECT_EQ(node->bySeq().upperBound(20)->first, 30u);
  EXPECT_TRUE(node->bySeq().lowerBound(31) == node->bySeq().end());
  EXPECT_EQ(node->bySeq().last()->first, 30u);
  EXPECT_EQ(node->bySeq(20), "20");
  EXPECT_EQ(node->bySeq(25), "") << "an absent key reads as the default";
  EXPECT_EQ(node->bySeq().find(25), nullptr);
}

TEST(CollectionsTest, IterationSurvivesRemovalOfTheCurrentAndOtherEntries) {
  Ptr<Node> node = nodeWith({10, 20, 30, 40, 50});
  std::vector<std::uint32_t> visited;
  for (auto it = node->bySeq().begin(); it != node->bySeq().end(); ++it) {
    std::uint32_t k = it->first;
    visited.push_back(k);
    if (k == 20) node->bySeqDel(20);  // the current entry
    if (k == 30) node->bySeqDel(40);  // the next entry
    if (k == 30) node->bySeqIs(45, "new");
  }
  EXPECT_EQ(visited, (std::vector<std::uint32_t>{10, 20, 30, 45, 50}));
  EXPECT_EQ(keys(*node), (std::vector<std::uint32_t>{10, 30, 45, 50}));
}

TEST(CollectionsTest, RemovingByTheStoredKeyItselfIsSafe) {
  Ptr<Node> node = nodeWith({1, 2});
  struct Watch : Node::Reactor {
    using Node::Reactor::Reactor;
    std::vector<std::uint32_t> seen;
    void bySeqChanged(const std::uint32_t& seq) override { seen.push_back(seq); }
  } watch(node.get());
  node->bySeqDel(node->bySeq().begin()->first);  // a reference into the entry being removed
  node->leafIs(5);
  node->leafDel(node->leaf().begin()->first);
  EXPECT_EQ(watch.seen, std::vector<std::uint32_t>{1});
  EXPECT_TRUE(node->leaf().empty());
}

TEST(CollectionsTest, HashMapAgreesWithAReferenceMapThroughRandomChanges) {
  Ptr<Node> node = nodeWith({});
  std::map<std::pair<int, std::uint32_t>, std::uint32_t> reference;
  std::mt19937 rng(7);
  auto key = [](int protocol, std::uint32_t tni) {
    Match m;
    m.protocolIs(static_cast<std::uint8_t>(protocol));
    m.tniIs(tni);
    return m;
  };
  for (int step = 0; step < 20000; ++step) {
    int protocol = static_cast<int>(rng() % 4);
    std::uint32_t tni = rng() % 300;
    switch (rng() % 5) {
      case 0:
      case 1:
      case 2: {
        std::uint32_t value = rng() % 3;
        node->byMatchIs(key(protocol, tni), value);
        reference[{protocol, tni}] = value;
        break;
      }
      case 3:
        node->byMatchDel(key(protocol, tni));
        reference.erase({protocol, tni});
        break;
      case 4:
        if (rng() % 500 == 0) {
          node->byMatchDelAll();
          reference.clear();
        }
        break;
    }
    if (step % 97 == 0 || step == 19999) {
      ASSERT_EQ(node->byMatch().size(), reference.size()) << "step " << step;
      std::size_t seen = 0;
      for (const auto& [m, value] : node->byMatch()) {
        auto it = reference.find({m.protocol(), m.tni()});
        ASSERT_NE(it, reference.end());
        ASSERT_EQ(it->second, value);
        ++seen;
      }
      ASSERT_EQ(seen, reference.size());
      for (const auto& [k, value] : reference) ASSERT_EQ(node->byMatch(key(k.first, k.second)), value);
      ASSERT_FALSE(node->byMatch().contains(key(9, 0)));
    }
  }
}

}  // namespace
