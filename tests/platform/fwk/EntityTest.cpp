// Entities: observers that come, go or throw while they are notified, transactions that put
// back what they recorded, derived types and adopted children.
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
};

// The walk over observers must hold when they change under it: one destroys another and adds
// a third, two throw. (An entity released by its own observer mid-change, and reactors that
// outlive their entity, are the edit session's daily business and tested there.)
TEST(EntityTest, ObserversMayComeGoOrThrowWhileTheyAreNotified) {
  Ptr<Node> node = activeNode();
  auto first = std::make_unique<Recorder>(node.get());
  auto second = std::make_unique<Recorder>(node.get());
  std::unique_ptr<Recorder> late;
  first->onFlag = [&] {
    second.reset();
    late = std::make_unique<Recorder>(node.get());
  };
  node->flagIs(true);
  node->flagIs(true);  // the same value: nothing changed, nobody is told
  EXPECT_EQ(late->seen.size(), 0u) << "an observer added during a change sees the next one";
  EXPECT_EQ(node->notifieeList().size(), 2u);

  // One that throws does not keep the change from the others: the first exception goes on.
  first->onFlag = [] { throw std::runtime_error("first"); };
  late->onFlag = [] { throw std::logic_error("second"); };
  Recorder after(node.get());
  EXPECT_THROW(node->flagIs(false), std::runtime_error);
  EXPECT_EQ(std::pair(first->seen, after.seen),
            std::pair(std::vector<std::string>{"flag", "flag"}, std::vector<std::string>{"flag"}));
  EXPECT_FALSE(node->flag());
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
      node->bySeqIs(1, "kept");  // the same value: not a change, nothing heard or recorded
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

// Plain children are every upper layer's tree; what they do not use is a derived type, whose
// reactor hears its base's attributes too, and conversion between types.
TEST(EntityTest, DerivedTypesAndAnAdoptedChild) {
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
  EXPECT_THROW(static_cast<void>(fwk::cast<Leaf>(asEntity)), fwk::TypeConversionError);
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
