// Entities: notifications of real changes only, observers that come, go, throw or outlive
// what they watch, transactions that put back what they recorded, children and derived types.
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
using sample::Leaf;
using sample::Node;

Ptr<Node> activeNode(const char* name = "n") {
  Ptr<Node> node(new Node(name));
  node->hasNotificationActiveIs(true);
  return node;
}

// Records every change it sees as "attribute[:key]"; onFlag runs at a change of flag.
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
  void bySeqChanged(const std::uint32_t& seq) override {
    // A removal is heard with the entry already gone.
    seen.push_back("bySeq:" + std::to_string(seq) + (notifier()->bySeq().contains(seq) ? "" : " gone"));
  }
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
  node->bySeqIs(30, "c");
  node->bySeqIs(20, "d");
  node->bySeqDel(10);
  node->bySeqDelAll();
  EXPECT_EQ(r.seen, (std::vector<std::string>{"flag", "bySeq:10", "bySeq:10", "bySeq:30", "bySeq:20", "bySeq:10 gone",
                                              "bySeq:20 gone", "bySeq:30 gone"}));
}

TEST(EntityTest, ObserversMayComeGoThrowOrOutliveWhatTheyWatch) {
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
  EXPECT_EQ(late->seen.size(), 0u) << "an observer added during a change sees the next one";
  EXPECT_EQ(node->notifieeList().size(), 2u);
  first->onFlag = [&] { first->notifierIs(nullptr); };  // one that removes itself
  node->flagIs(false);
  node->flagIs(true);
  EXPECT_EQ(std::pair(first->seen.size(), late->seen.size()), std::pair(std::size_t{2}, std::size_t{2}));

  // One that throws does not keep the change from the others: the first exception goes on.
  Recorder thrower(node.get());
  Recorder secondThrower(node.get());
  Recorder after(node.get());
  thrower.onFlag = [] { throw std::runtime_error("first"); };
  secondThrower.onFlag = [] { throw std::logic_error("second"); };
  EXPECT_THROW(node->flagIs(false), std::runtime_error);
  EXPECT_EQ(after.seen, std::vector<std::string>{"flag"});
  EXPECT_FALSE(node->flag());
  thrower.onFlag = secondThrower.onFlag = nullptr;

  // The entity goes first, released by its own observer in the middle of a notification:
  // observers after that one still hear the change, then the destruction.
  late->onFlag = [&] { node = nullptr; };
  Node* raw = node.get();
  raw->flagIs(true);
  EXPECT_EQ(std::vector<std::string>(thrower.seen.end() - 2, thrower.seen.end()),
            (std::vector<std::string>{"flag", "destroyed"}));
  EXPECT_EQ(late->notifier(), nullptr);
  {
    Ptr<Node> other = activeNode();
    Recorder shortLived(other.get());
    EXPECT_EQ(other->notifieeList().size(), 1u);
  }  // a destroyed reactor stops watching: the entity outlived it without harm
}

// The undo log builds its steps in chunks it keeps for the next transaction: one that records
// far more than a chunk holds must put back every change, newest first, an inner scope that
// fails must take back only its own, and the log must serve again afterwards.
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
    EXPECT_EQ(r.seen[3001], "bySeq:2999 gone");  // the newest change goes back first
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
  }
  EXPECT_EQ(node->label(), String("outer"));
}

TEST(EntityTest, ChildrenAndDerivedTypes) {
  Ptr<Node> node = activeNode("root");
  Recorder r(node.get());
  Ptr<Leaf> leaf = node->leafIs(4);
  EXPECT_EQ(node->leafIs(4), leaf) << "Is on an existing key returns the existing child";
  EXPECT_EQ(std::tuple(leaf->parent(), leaf->key(), leaf->fullName(), leaf->hasNotificationActive()),
            std::tuple(static_cast<fwk::Entity*>(node.get()), 4u, String("/root/4"), true));
  node->leafDel(4);
  EXPECT_EQ(leaf->parent(), nullptr) << "a deleted child lives on, detached";
  EXPECT_EQ(r.seen, (std::vector<std::string>{"leaf:4", "leaf:4"}));
  Ptr<Leaf> kept = node->leafIs(1);
  node = nullptr;
  EXPECT_EQ(std::pair(kept->parent(), kept->fullName()), std::pair(static_cast<fwk::Entity*>(nullptr), String("/1")));

  Ptr<sample::BigNode> big(new sample::BigNode("big"));
  big->hasNotificationActiveIs(true);
  struct BigRecorder : sample::BigNode::Reactor {
    using sample::BigNode::Reactor::Reactor;
    int heard = 0;
    void flagChanged() override { heard += 1; }
    void extraChanged() override { heard += 10; }
  } heard(big.get());
  big->flagIs(true);
  big->extraIs(5);
  EXPECT_EQ(heard.heard, 11) << "a derived type's reactor hears its base's attributes too";
  Ptr<fwk::Entity> asEntity = big;
  EXPECT_TRUE(fwk::dynCast<Node>(asEntity) && fwk::cast<sample::BigNode>(asEntity));
  EXPECT_FALSE(fwk::dynCast<Leaf>(asEntity));
  try {
    (void)fwk::cast<Leaf>(asEntity);
    FAIL();
  } catch (const fwk::TypeConversionError& e) {
    EXPECT_STREQ(e.what(), "entity '/big' of type BigNode is not a Leaf");
  }
  EXPECT_EQ(fwk::cast<Leaf>(Ptr<fwk::Entity>()), nullptr) << "null converts to null";
  EXPECT_EQ(std::pair(asEntity->fwkType().name(), asEntity->fwkType().base()),
            std::pair(String("BigNode"), &Node::staticType()));
}

}  // namespace
