// Entities: observers that come, go, throw or outlive what they watch, transactions that put
// back what they recorded, children, adopted children and derived types. (Which changes
// notify: the map contract in CollectionsTest.)
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
  void bySeqChanged(const std::uint32_t& seq) override { seen.push_back("bySeq:" + std::to_string(seq)); }
  void leafChanged(const std::uint32_t& key) override { seen.push_back("leaf:" + std::to_string(key)); }
  void notifierDestroyed() override { seen.push_back("destroyed"); }
};

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
    EXPECT_EQ(std::tuple(node->label(), node->bySeq().size(), node->bySeq(1)),
              std::tuple(String(), 1U, String("kept")));
    ASSERT_EQ(r.seen.size(), 2U * 3001U);
    EXPECT_EQ(std::pair(r.seen[3001], r.seen.back()), std::pair(std::string("bySeq:2999"), std::string("label")))
        << "the newest change goes back first";
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
  EXPECT_EQ(std::pair(leaf->parent(), r.seen),
            std::pair(static_cast<fwk::Entity*>(nullptr), std::vector<std::string>{"leaf:4", "leaf:4"}))
      << "a deleted child lives on, detached";
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
  EXPECT_TRUE(fwk::dynCast<Node>(asEntity) && fwk::cast<sample::BigNode>(asEntity) && !fwk::dynCast<Leaf>(asEntity));
  try {
    (void)fwk::cast<Leaf>(asEntity);
    FAIL();
  } catch (const fwk::TypeConversionError& e) {
    EXPECT_STREQ(e.what(), "entity '/big' of type BigNode is not a Leaf");
  }
  EXPECT_EQ(fwk::cast<Leaf>(Ptr<fwk::Entity>()), nullptr) << "null converts to null";

  // One adopted child: its parent link and name follow the slot, a transaction that fails
  // puts them back, and an entity with another parent is refused.
  Ptr<sample::Maps> holder(new sample::Maps("holder"));
  Ptr<Leaf> adopted(new Leaf(5));
  holder->adopt(adopted);
  auto failing = [&] {
    const fwk::Transaction transaction;
    holder->adopt(holder->leafIs(1));  // its own child may take the slot too
    EXPECT_EQ(std::pair(adopted->parent(), holder->owned()),
              std::pair(static_cast<fwk::Entity*>(nullptr), holder->leaf(1)));
    throw std::runtime_error("undo");
  };
  EXPECT_THROW(failing(), std::runtime_error);
  EXPECT_EQ(std::tuple(holder->owned(), adopted->parent(), adopted->fullName()),
            std::tuple(adopted, static_cast<fwk::Entity*>(holder.get()), String("/holder/owned")));
  try {
    Ptr<sample::Maps>(new sample::Maps("other"))->adopt(adopted);
    FAIL();
  } catch (const fwk::Error& e) {
    EXPECT_STREQ(e.what(), "entity '/holder/owned' already has a parent");
  }
  holder->adopt(nullptr);
  EXPECT_EQ(adopted->parent(), nullptr) << "let go";
}

}  // namespace
