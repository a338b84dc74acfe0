#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Transaction.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Ptr;
using fwk::String;
using sample::BigNode;
using sample::Leaf;
using sample::Node;

Ptr<Node> activeNode(const char* name = "n") {
  Ptr<Node> node(new Node(name));
  node->hasNotificationActiveIs(true);
  return node;
}

// Records every change it sees as "attribute[:key]".
class Recorder : public Node::Reactor {
 public:
  explicit Recorder(const Node* node) : Node::Reactor(node) {}
  std::vector<std::string> seen;
  std::function<void()> onFlag;
  void flagChanged() override {
    seen.push_back("flag");
    if (onFlag) onFlag();
  }
  void labelChanged() override { seen.push_back("label"); }
  void bySeqChanged(const std::uint32_t& seq) override { seen.push_back("bySeq:" + std::to_string(seq)); }
  void leafChanged(const std::uint32_t& key) override { seen.push_back("leaf:" + std::to_string(key)); }
  void notifierDestroyed() override { seen.push_back("destroyed"); }
};

TEST(EntityTest, NotifiesOnlyRealChangesOnceActive) {
  Ptr<Node> node(new Node("quiet"));
  Recorder r(node.get());
  node->labelIs(String("x"));
  EXPECT_EQ(node->label(), String("x")) << "the state changes even when nobody is told";
  node->labelIs(String());
  node->hasNotificationActiveIs(true);
  node->flagIs(false);      // the value it already holds
  node->labelIs(String());  // likewise
  node->bySeqDel(5);        // nothing to remove
  EXPECT_TRUE(r.seen.empty());
  node->flagIs(true);
  node->bySeqIs(10, "a");
  node->bySeqIs(10, "a");  // same value under the same key
  node->bySeqIs(10, "b");
  node->bySeqDel(10);
  EXPECT_EQ(r.seen, (std::vector<std::string>{"flag", "bySeq:10", "bySeq:10", "bySeq:10"}));
}

TEST(EntityTest, DelAllNotifiesEachKeyWithTheEntryAlreadyGone) {
  Ptr<Node> node = activeNode();
  for (std::uint32_t s : {30u, 10u, 20u}) node->bySeqIs(s, "x");
  struct SizeWatcher : Node::Reactor {
    using Node::Reactor::Reactor;
    std::vector<std::pair<std::uint32_t, std::size_t>> seen;
    void bySeqChanged(const std::uint32_t& seq) override {
      EXPECT_FALSE(notifier()->bySeq().contains(seq));
      seen.emplace_back(seq, notifier()->bySeq().size());
    }
  } watcher(node.get());
  node->bySeqDelAll();
  EXPECT_EQ(watcher.seen, (std::vector<std::pair<std::uint32_t, std::size_t>>{{10, 2}, {20, 1}, {30, 0}}));
}

TEST(EntityTest, ObserversMayComeAndGoDuringANotification) {
  Ptr<Node> node = activeNode();
  auto first = std::make_unique<Recorder>(node.get());
  auto second = std::make_unique<Recorder>(node.get());
  std::unique_ptr<Recorder> late;
  // The first observer destroys the second and adds a third while being notified.
  first->onFlag = [&] {
    second.reset();
    late = std::make_unique<Recorder>(node.get());
  };
  node->flagIs(true);
  EXPECT_EQ(first->seen.size(), 1u);
  EXPECT_EQ(late->seen.size(), 0u) << "an observer added during a change sees the next one";
  EXPECT_EQ(node->notifieeList().size(), 2u);
  // An observer that removes itself.
  first->onFlag = [&] { first->notifierIs(nullptr); };
  node->flagIs(false);
  EXPECT_EQ(node->notifieeList().size(), 1u);
  EXPECT_EQ(late->seen.size(), 1u);
  node->flagIs(true);
  EXPECT_EQ(first->seen.size(), 2u) << "a detached observer hears nothing more";
}

TEST(EntityTest, ReactorAndEntityMayDieInEitherOrder) {
  Ptr<Node> node = activeNode();
  {
    Recorder shortLived(node.get());
    EXPECT_EQ(node->notifieeList().size(), 1u);
  }
  EXPECT_TRUE(node->notifieeList().empty()) << "a destroyed reactor stops watching";

  // The entity goes first, released by its own observer in the middle of a notification:
  // observers after that one still hear the change, then the destruction.
  Recorder r(node.get());
  Recorder other(node.get());
  r.onFlag = [&] { node = nullptr; };
  Node* raw = node.get();
  raw->flagIs(true);
  EXPECT_EQ(other.seen, (std::vector<std::string>{"flag", "destroyed"}));
  EXPECT_EQ(r.notifier(), nullptr);
}

TEST(EntityTest, AThrowingObserverDoesNotKeepTheChangeFromTheOthers) {
  Ptr<Node> node = activeNode();
  Recorder first(node.get());
  Recorder second(node.get());
  Recorder third(node.get());
  first.onFlag = [] { throw std::runtime_error("first"); };
  second.onFlag = [] { throw std::logic_error("second"); };
  EXPECT_THROW(node->flagIs(true), std::runtime_error) << "the first exception goes on";
  EXPECT_EQ(third.seen, std::vector<std::string>{"flag"});
  EXPECT_TRUE(node->flag());
}

// The undo log builds its steps in chunks it keeps for the next transaction: one that
// records far more than a chunk holds must put back every change, newest first, an inner
// scope that fails must take back only its own, and the log must serve again afterwards.
TEST(EntityTest, AFailedTransactionPutsBackEveryChangeItRecorded) {
  Ptr<Node> node = activeNode();
  node->bySeqIs(1, "kept");
  Recorder r(node.get());
  auto writeMany = [&node] {
    for (std::uint32_t i = 0; i < 3000; ++i) node->bySeqIs(i, String(std::to_string(i)));
  };
  for (int round = 0; round < 2; ++round) {
    r.seen.clear();
    auto failing = [&] {
      const fwk::Transaction transaction;
      node->labelIs(String("changed"));
      writeMany();
      throw std::runtime_error("late failure");
    };
    EXPECT_THROW(failing(), std::runtime_error);
    EXPECT_EQ(node->label(), String());
    ASSERT_EQ(node->bySeq().size(), 1U);
    EXPECT_EQ(node->bySeq().valueOr(1), String("kept"));
    ASSERT_EQ(r.seen.size(), 2U * 3001U);
    EXPECT_EQ(r.seen[3001], "bySeq:2999");  // the newest change goes back first
    EXPECT_EQ(r.seen.back(), "label");
  }
  {
    const fwk::Transaction outer;
    node->labelIs(String("outer"));
    try {
      const fwk::Transaction inner;
      writeMany();
      throw std::runtime_error("inner failure");
    } catch (const std::runtime_error&) {  // the outer scope goes on
    }
    EXPECT_EQ(node->bySeq().size(), 1U);
    EXPECT_EQ(node->label(), String("outer"));
  }
  EXPECT_EQ(node->label(), String("outer"));
}

TEST(EntityTest, ChildrenHaveParentLinksAndPathsWhileTheParentLives) {
  Ptr<Node> node = activeNode("root");
  Recorder r(node.get());
  Ptr<Leaf> leaf = node->leafIs(4);
  EXPECT_EQ(node->leafIs(4), leaf) << "Is on an existing key returns the existing child";
  EXPECT_EQ(leaf->parent(), node.get());
  EXPECT_EQ(leaf->key(), 4u);
  EXPECT_EQ(leaf->fullName(), "/root/4");
  EXPECT_TRUE(leaf->hasNotificationActive());
  EXPECT_EQ(r.seen, std::vector<std::string>{"leaf:4"});
  node->leafDel(4);
  EXPECT_EQ(leaf->parent(), nullptr) << "a deleted child lives on, detached";
  EXPECT_EQ(node->leaf(4), nullptr);
  EXPECT_EQ(r.seen.size(), 2u);
  Ptr<Leaf> kept = node->leafIs(1);
  node = nullptr;
  EXPECT_EQ(kept->parent(), nullptr);
  EXPECT_EQ(kept->fullName(), "/1");
}

TEST(EntityTest, DerivedTypesHearBaseAttributesAndConvertOnlyToWhatTheyAre) {
  Ptr<BigNode> big(new BigNode("big"));
  big->hasNotificationActiveIs(true);
  struct BigRecorder : BigNode::Reactor {
    using BigNode::Reactor::Reactor;
    int flags = 0;
    int extras = 0;
    void flagChanged() override { ++flags; }
    void extraChanged() override { ++extras; }
  } r(big.get());
  big->flagIs(true);
  big->extraIs(5);
  EXPECT_EQ(r.flags, 1);
  EXPECT_EQ(r.extras, 1);

  Ptr<fwk::Entity> asEntity = big;
  EXPECT_TRUE(fwk::dynCast<Node>(asEntity));
  EXPECT_TRUE(fwk::cast<BigNode>(asEntity));
  EXPECT_FALSE(fwk::dynCast<Leaf>(asEntity));
  try {
    (void)fwk::cast<Leaf>(asEntity);
    FAIL();
  } catch (const fwk::TypeConversionError& e) {
    EXPECT_STREQ(e.what(), "entity '/big' of type BigNode is not a Leaf");
  }
  EXPECT_EQ(fwk::cast<Leaf>(Ptr<fwk::Entity>()), nullptr) << "null converts to null";
  EXPECT_EQ(asEntity->fwkType().name(), "BigNode");
  EXPECT_EQ(asEntity->fwkType().base(), &Node::staticType());
}

}  // namespace
