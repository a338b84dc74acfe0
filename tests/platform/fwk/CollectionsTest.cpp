// The collections. The persistent map and hash map against plain models through random
// changes long enough to split, merge, deepen and collapse their trees, with copies taken
// along the way that must outlive their source unchanged; what sharing promises; and the
// entity collections' contract, held over both kinds of map.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <unordered_map>
#include <vector>

#include "aclkit/platform/fwk/Collections.h"
#include "aclkit/platform/fwk/PersistentHashMap.h"
#include "aclkit/platform/fwk/PersistentMap.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Ptr;
using sample::Maps;
using U32 = std::uint32_t;

// Reproducible by default: a fixed seed and case count unless RC_PARAMS says otherwise.
const bool defaultParams = [] {
  return setenv("RC_PARAMS", ACLKIT_COLLECTION_PROPERTY_PARAMS, /*overwrite=*/0) == 0;
}();

// A value that counts its live instances and its comparisons.
struct Counted {
  static inline long live = 0;
  static inline long compared = 0;
  U32 v = 0;
  Counted(U32 value = 0) : v(value) { ++live; }  // NOLINT(google-explicit-constructor)
  Counted(const Counted& other) : v(other.v) { ++live; }
  Counted& operator=(const Counted&) = default;
  ~Counted() { --live; }
  friend bool operator==(const Counted& a, const Counted& b) {
    ++compared;
    return a.v == b.v;
  }
};

// A random walk over a map: how long, over how many keys, how often it erases. Shrinks to
// short walks over few keys.
struct Walk {
  std::mt19937 random;
  int steps;
  U32 keys;
  U32 eraseShare;
  static Walk any() {
    return {std::mt19937(*rc::gen::arbitrary<U32>()), *rc::gen::inRange(0, 5000),
            *rc::gen::element<U32>(4, 50, 1000, 100000), *rc::gen::inRange<U32>(0, 100)};
  }
  // Calls change(key, erase, value) each step and snapshot() now and then.
  template <class Change, class Snapshot>
  void run(Change change, Snapshot snapshot) {
    for (int step = 0; step < steps; ++step) {
      const U32 key = random() % keys;
      change(key, random() % 100 < eraseShare, static_cast<U32>(random() % 4));
      if (step % 97 == 0) snapshot();
    }
  }
};

using Model = std::map<U32, U32>;
using Differences = std::map<U32, std::pair<std::optional<U32>, std::optional<U32>>>;
using Map = fwk::PersistentMap<U32, Counted>;

void expectSame(const Map& map, const Model& model) {
  RC_ASSERT(map.size() == model.size());
  std::vector<std::pair<U32, U32>> forwards;
  for (auto it = map.begin(); it != map.end(); ++it) forwards.emplace_back(it.key(), it.value().v);
  RC_ASSERT((forwards == std::vector<std::pair<U32, U32>>(model.begin(), model.end())));
  std::vector<U32> backwards;
  for (auto it = map.last(); !map.empty(); --it) {
    backwards.push_back(it.key());
    if (it == map.begin()) break;
  }
  RC_ASSERT(std::equal(backwards.begin(), backwards.end(), model.rbegin(), model.rend(),
                       [](U32 key, const auto& entry) { return key == entry.first; }));
  for (U32 probe : {0U, 1U, 2U, 49U, 500U, 999U, 50000U, 100000U}) {
    const auto lower = model.lower_bound(probe);
    const auto upper = model.upper_bound(probe);
    RC_ASSERT((map.lowerBound(probe) == map.end()) == (lower == model.end()));
    RC_ASSERT((map.upperBound(probe) == map.end()) == (upper == model.end()));
    if (lower != model.end()) RC_ASSERT(map.lowerBound(probe).key() == lower->first);
    if (upper != model.end()) RC_ASSERT(map.upperBound(probe).key() == upper->first);
    const auto index = static_cast<std::size_t>(std::distance(model.begin(), lower));
    RC_ASSERT(map.indexOf(probe) == index);
    RC_ASSERT(map.nth(index) == map.lowerBound(probe));
  }
}

Differences differences(const Model& a, const Model& b) {
  Differences out;
  for (const auto& [k, v] : a) {
    if (auto it = b.find(k); it == b.end() || it->second != v) out[k].first = v;
  }
  for (const auto& [k, v] : b) {
    if (auto it = a.find(k); it == a.end() || it->second != v) out[k].second = v;
  }
  return out;
}

Differences reported(const Map& a, const Map& b) {
  Differences out;
  std::optional<U32> previous;
  a.forEachDifference(b, [&](const U32& key, const Counted* mine, const Counted* theirs) {
    RC_ASSERT(!previous || *previous < key);  // in order, each key once
    previous = key;
    out[key] = {mine ? std::optional(mine->v) : std::nullopt, theirs ? std::optional(theirs->v) : std::nullopt};
  });
  return out;
}

RC_GTEST_PROP(PersistentMapTest, AgreesWithAStandardMapAndEveryCopyKeepsItsVersion, ()) {
  Walk walk = Walk::any();
  std::vector<std::pair<Map, Model>> snapshots;
  {
    Map map;
    Model model;
    walk.run(
        [&](U32 key, bool erase, U32 value) {
          if (erase) {
            RC_ASSERT(map.erase(key) == (model.erase(key) == 1));
          } else {
            RC_ASSERT(map.assign(key, value) == (!model.contains(key) || model[key] != value));
            model[key] = value;
          }
          const Counted* found = map.find(key);
          RC_ASSERT((found ? std::optional(found->v) : std::nullopt) ==
                    (model.contains(key) ? std::optional(model[key]) : std::nullopt));
        },
        [&] {
          snapshots.emplace_back(map, model);
          RC_ASSERT(snapshots.back().first.sharesAllWith(map));
        });
    expectSame(map, model);
    for (const auto& [copy, was] : snapshots) RC_ASSERT(reported(map, copy) == differences(model, was));
  }  // the map every snapshot came from is gone
  for (const auto& [copy, was] : snapshots) expectSame(copy, was);
  snapshots.clear();
  RC_ASSERT(Counted::live == 0L);
}

// Keys whose hashes collide in four groups (the index's collision lists), and keys whose
// hashes are all distinct (the trie's levels, which deepen and collapse with the map).
template <U32 Groups>
struct KeyIn {
  U32 v = 0;
  [[nodiscard]] std::size_t hash() const noexcept { return Groups ? v % Groups : v; }
  friend bool operator==(const KeyIn&, const KeyIn&) = default;
};

// The framework HashMap's order: entries in insertion order, a removal moving the last entry
// into the hole.
struct InsertionOrder {
  std::vector<std::pair<U32, U32>> entries;
  std::unordered_map<U32, std::size_t> at;
  bool assign(U32 key, U32 value) {
    if (auto it = at.find(key); it != at.end()) {
      return std::exchange(entries[it->second].second, value) != value;
    }
    at[key] = entries.size();
    entries.emplace_back(key, value);
    return true;
  }
  bool erase(U32 key) {
    auto it = at.find(key);
    if (it == at.end()) return false;
    const std::size_t hole = it->second;
    at.erase(it);
    if (hole != entries.size() - 1) at[(entries[hole] = entries.back()).first] = hole;
    entries.pop_back();
    return true;
  }
};

template <class K>
void hashMapAgreesWithInsertionOrder() {
  using HashMap = fwk::PersistentHashMap<K, U32>;
  auto contents = [](const HashMap& map) {
    std::vector<std::pair<U32, U32>> all;
    for (const auto& [key, value] : map) all.emplace_back(key.v, value);
    return all;
  };
  Walk walk = Walk::any();
  walk.keys = std::min<U32>(walk.keys, 3000);
  std::vector<std::pair<HashMap, InsertionOrder>> snapshots;
  {
    HashMap map;
    InsertionOrder model;
    walk.run(
        [&](U32 key, bool erase, U32 value) {
          const bool changed = erase ? map.erase(K{key}) : map.assign(K{key}, value);
          RC_ASSERT(changed == (erase ? model.erase(key) : model.assign(key, value)));
          const U32* found = map.find(K{key});
          RC_ASSERT((found != nullptr) == model.at.contains(key));
          if (found) RC_ASSERT(*found == model.entries[model.at[key]].second);
        },
        [&] { snapshots.emplace_back(map, model); });
    RC_ASSERT(contents(map) == model.entries);
  }  // the map every snapshot came from is gone
  for (std::size_t i = 0; i < snapshots.size(); ++i) {
    const auto& [map, model] = snapshots[i];
    RC_ASSERT(contents(map) == model.entries);
    if (i == 0) continue;
    // Every key whose entry differs between two versions is among the unshared keys.
    std::set<U32> visited;
    map.forEachUnsharedKey(snapshots[i - 1].first, [&](const K& key) { visited.insert(key.v); });
    for (const auto& [key, value] : model.entries) {
      const U32* before = snapshots[i - 1].first.find(K{key});
      if (!before || *before != value) RC_ASSERT(visited.contains(key));
    }
  }
}

RC_GTEST_PROP(PersistentHashMapTest, CollidingKeysAgreeWithTheHashMapsOrder, ()) {
  hashMapAgreesWithInsertionOrder<KeyIn<4>>();
}
RC_GTEST_PROP(PersistentHashMapTest, DistinctKeysAgreeWithTheHashMapsOrder, ()) {
  hashMapAgreesWithInsertionOrder<KeyIn<0>>();
}

TEST(PersistentCollectionsTest, ACopyCostsNothingAChangeCopiesOnePathAndAComparisonReadsOnlyWhatDiffers) {
  Map big;
  for (U32 i = 0; i < 100000; ++i) ASSERT_TRUE(big.assign(i * 10, i));
  const long held = Counted::live;
  Map copy = big;
  EXPECT_EQ(Counted::live, held) << "the copy holds the same nodes";
  EXPECT_FALSE(copy.assign(50, 5)) << "the same value changes nothing";
  EXPECT_TRUE(copy.sharesAllWith(big));
  auto before = big.lowerBound(50);
  ASSERT_TRUE(copy.assign(50, 7));
  ASSERT_TRUE(copy.erase(60));
  ASSERT_TRUE(copy.assign(55, 1));
  EXPECT_LE(Counted::live - held, 3 * 33) << "each change copies at most one leaf of values";
  EXPECT_EQ(before.value().v, 5U) << "an iterator reads the version it was made from";
  Counted::compared = 0;
  EXPECT_EQ(reported(copy, big), (Differences{{50, {7U, 5U}}, {55, {1U, std::nullopt}}, {60, {std::nullopt, 6U}}}));
  EXPECT_LT(Counted::compared, 200) << "shared subtrees are skipped, not compared";
  for (U32 i = 0; i < 100000; ++i) ASSERT_TRUE(big.erase(i * 10));
  EXPECT_TRUE(big.empty() && big.begin() == big.end()) << "emptied one entry at a time, it lets go of its levels";

  fwk::PersistentHashMap<U32, std::vector<U32>> hashed;
  for (U32 i = 0; i < 100000; ++i) ASSERT_TRUE(hashed.assign(i, {i}));
  auto edited = hashed;
  EXPECT_FALSE(edited.assign(7, {7}));
  ASSERT_TRUE(edited.erase(7));
  EXPECT_EQ(hashed.find(7)->front(), 7U);
  EXPECT_EQ(std::next(edited.begin(), 7)->first, 99999U) << "the last entry took the removed one's place";
  std::set<U32> unshared;
  edited.forEachUnsharedKey(hashed, [&](U32 key) { unshared.insert(key); });
  EXPECT_TRUE(unshared.contains(7) && unshared.contains(99999));
  EXPECT_LE(unshared.size(), 64U) << "only the two leaves the change wrote are read";
}

// ---- the entity collections, both kinds ----------------------------------------------

struct Ordered {
  static const auto& map(const Maps& m) { return m.ordered(); }
  static void set(Maps& m, U32 k, U32 v) { m.orderedIs(k, v); }
  static void del(Maps& m, U32 k) { m.orderedDel(k); }
  static void delAll(Maps& m) { m.orderedDelAll(); }
};
struct Hashed {
  static const auto& map(const Maps& m) { return m.hashed(); }
  static void set(Maps& m, U32 k, U32 v) { m.hashedIs(k, v); }
  static void del(Maps& m, U32 k) { m.hashedDel(k); }
  static void delAll(Maps& m) { m.hashedDelAll(); }
};

// Records the keys whose entries changed, for either map.
struct Watch : Maps::Reactor {
  using Maps::Reactor::Reactor;
  std::vector<U32> seen;
  void orderedChanged(const U32& key) override { seen.push_back(key); }
  void hashedChanged(const U32& key) override { seen.push_back(key); }
};

template <class Kind>
class MapContractTest : public ::testing::Test {};
using Kinds = ::testing::Types<Ordered, Hashed>;
TYPED_TEST_SUITE(MapContractTest, Kinds);

TYPED_TEST(MapContractTest, OneNotificationPerRealChangeReadsOfAbsentKeysAndRemovalByTheStoredKey) {
  Ptr<Maps> maps(new Maps());
  maps->hasNotificationActiveIs(true);
  Maps& m = *maps;
  Watch watch(&m);
  TypeParam::set(m, 1, 5);
  TypeParam::set(m, 1, 5);  // the same value: nothing changed
  TypeParam::set(m, 2, 6);
  TypeParam::del(m, 3);                                  // absent: nothing changed
  TypeParam::del(m, TypeParam::map(m).begin()->first);  // a reference into the entry being removed
  EXPECT_EQ(TypeParam::map(m).find(1000), nullptr);
  EXPECT_EQ(TypeParam::map(m).valueOr(1000), 0u) << "an absent key reads as the default";
  TypeParam::delAll(m);
  EXPECT_EQ(watch.seen, (std::vector<U32>{1, 2, 1, 2}));
  EXPECT_TRUE(TypeParam::map(m).empty());
}

// Where they differ: the ordered map's iteration survives changes made during it (editing
// walks over places and removes as it goes); a hash map's is refused once it changed.
TEST(OrderedMapTest, IterationSurvivesChangesMadeDuringIt) {
  Ptr<Maps> m(new Maps());
  for (U32 k : {30, 10, 20, 40, 50}) m->orderedIs(k, k);
  std::vector<U32> visited;
  for (auto it = m->ordered().begin(); it != m->ordered().end(); ++it) {
    const U32 k = it->first;
    visited.push_back(k);
    if (k == 20) m->orderedDel(20);  // the current entry
    if (k == 30) m->orderedDel(40);  // the next one
    if (k == 30) m->orderedIs(45, 1);
  }
  EXPECT_EQ(visited, (std::vector<U32>{10, 20, 30, 45, 50}));
#ifndef NDEBUG
  for (U32 k : {1, 2, 3}) m->hashedIs(k, k);
  EXPECT_DEATH(
      {
        for (auto it = m->hashed().begin(); it != m->hashed().end(); ++it) m->hashedIs(it->first + 10, 0);
      },
      "HashMap changed during iteration");
#endif
}

}  // namespace
