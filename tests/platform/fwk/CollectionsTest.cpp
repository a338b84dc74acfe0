// The ordered and the hash map hold to one contract, run over both: agreement with a standard
// map through random changes, reads of absent keys, iteration that survives the changes made
// during it, removal by a reference to the stored key, and one notification per real change.
// The ordered map also keeps its keys ascending and finds bounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "aclkit/platform/fwk/Collections.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Ptr;
using sample::Maps;
using U32 = std::uint32_t;

struct Ordered {
  static const auto& map(const Maps& m) { return m.ordered(); }
  static void set(Maps& m, U32 k, U32 v) { m.orderedIs(k, v); }
  static void del(Maps& m, U32 k) { m.orderedDel(k); }
  static void delAll(Maps& m) { m.orderedDelAll(); }
  static constexpr bool sorted = true;
};
struct Hashed {
  static const auto& map(const Maps& m) { return m.hashed(); }
  static void set(Maps& m, U32 k, U32 v) { m.hashedIs(k, v); }
  static void del(Maps& m, U32 k) { m.hashedDel(k); }
  static void delAll(Maps& m) { m.hashedDelAll(); }
  static constexpr bool sorted = false;
};

// Records the keys whose entries changed, for either map.
struct Watch : Maps::Reactor {
  using Maps::Reactor::Reactor;
  std::vector<U32> seen;
  void orderedChanged(const U32& key) override { seen.push_back(key); }
  void hashedChanged(const U32& key) override { seen.push_back(key); }
};

template <class Kind>
class MapContractTest : public ::testing::Test {
 protected:
  MapContractTest() : maps_(new Maps()) { maps_->hasNotificationActiveIs(true); }
  const auto& map() const { return Kind::map(*maps_); }
  std::vector<U32> keys() const {
    std::vector<U32> all;
    for (const auto& [k, v] : map()) all.push_back(k);
    return all;
  }
  Ptr<Maps> maps_;
};
using Kinds = ::testing::Types<Ordered, Hashed>;
TYPED_TEST_SUITE(MapContractTest, Kinds);

TYPED_TEST(MapContractTest, AgreesWithAStandardMapThroughRandomChanges) {
  Maps& m = *this->maps_;
  std::map<U32, U32> reference;
  std::mt19937 rng(7);
  for (int step = 0; step < 20000; ++step) {
    const U32 key = rng() % 300;
    switch (rng() % 8) {
      case 0:
        TypeParam::del(m, key);
        reference.erase(key);
        break;
      case 1:
        if (rng() % 200 == 0) {
          TypeParam::delAll(m);
          reference.clear();
        }
        break;
      default:
        TypeParam::set(m, key, rng() % 3);
        reference[key] = TypeParam::map(m).valueOr(key);
    }
    if (step % 97 != 0 && step != 19999) continue;
    ASSERT_EQ(this->map().size(), reference.size()) << "step " << step;
    std::vector<U32> keys = this->keys();
    if (!TypeParam::sorted) std::sort(keys.begin(), keys.end());
    std::vector<U32> expected;
    for (const auto& [k, v] : reference) {
      expected.push_back(k);
      ASSERT_EQ(*this->map().find(k), v);
    }
    ASSERT_EQ(keys, expected) << (TypeParam::sorted ? "ascending, each key once" : "each key once");
    ASSERT_EQ(this->map().find(1000), nullptr);
    ASSERT_EQ(this->map().valueOr(1000), 0u) << "an absent key reads as the default";
  }
}

TYPED_TEST(MapContractTest, OneNotificationPerRealChangeAndRemovalByTheStoredKey) {
  Maps& m = *this->maps_;
  Watch watch(&m);
  TypeParam::set(m, 1, 5);
  TypeParam::set(m, 1, 5);  // the same value: nothing changed
  TypeParam::set(m, 2, 6);
  TypeParam::del(m, 3);                           // absent: nothing changed
  TypeParam::del(m, this->map().begin()->first);  // a reference into the entry being removed
  TypeParam::delAll(m);
  EXPECT_EQ(watch.seen.size(), 4u);
  EXPECT_EQ(watch.seen[0], 1u);
  EXPECT_EQ(watch.seen[1], 2u);
  EXPECT_TRUE(this->map().empty());
}

// Where they differ: the ordered map finds bounds, and its iteration survives changes made
// during it (editing walks over places and removes as it goes); a hash map's iteration is
// refused once the map changed, in debug builds.
TEST(OrderedMapTest, FindsBoundsAndIteratesThroughChanges) {
  Ptr<Maps> m(new Maps());
  for (U32 k : {30, 10, 20, 40, 50}) m->orderedIs(k, k);
  const auto& map = m->ordered();
  EXPECT_EQ(map.lowerBound(15)->first, 20u);
  EXPECT_EQ(map.lowerBound(20)->first, 20u);
  EXPECT_EQ(map.upperBound(20)->first, 30u);
  EXPECT_TRUE(map.lowerBound(51) == map.end());
  EXPECT_EQ(map.last()->first, 50u);
  std::vector<U32> visited;
  for (auto it = map.begin(); it != map.end(); ++it) {
    const U32 k = it->first;
    visited.push_back(k);
    if (k == 20) m->orderedDel(20);  // the current entry
    if (k == 30) m->orderedDel(40);  // the next one
    if (k == 30) m->orderedIs(45, 1);
  }
  EXPECT_EQ(visited, (std::vector<U32>{10, 20, 30, 45, 50}));
}

#ifndef NDEBUG
TEST(HashMapDeathTest, IterationAfterAChangeIsRefused) {
  Ptr<Maps> m(new Maps());
  for (U32 k : {1, 2, 3}) m->hashedIs(k, k);
  EXPECT_DEATH(
      {
        for (auto it = m->hashed().begin(); it != m->hashed().end(); ++it) m->hashedIs(it->first + 10, 0);
      },
      "HashMap changed during iteration");
}
#endif

}  // namespace
