// The persistent map against std::map through random changes (reads, bounds, both directions
// of iteration, differences), with copies taken along the way that must outlive their source
// unchanged; and what sharing promises: a copy costs nothing, a change copies one path, and a
// comparison of a copy with its source reads only what differs.
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <vector>

#include "aclkit/platform/fwk/PersistentMap.h"

namespace {

using U32 = std::uint32_t;

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

using Map = fwk::PersistentMap<U32, Counted>;
using Model = std::map<U32, U32>;

Model contents(const Map& map) {
  Model out;
  for (auto it = map.begin(); it != map.end(); ++it) {
    EXPECT_TRUE(out.emplace(it.key(), it.value().v).second) << "key " << it.key() << " twice";
  }
  return out;
}

void expectSame(const Map& map, const Model& model) {
  ASSERT_EQ(map.size(), model.size());
  ASSERT_EQ(contents(map), model);
  // Backwards from the last entry, and every bound agrees with the standard map's.
  std::vector<U32> backwards;
  if (!map.empty()) {
    for (auto it = map.last();; --it) {
      backwards.push_back(it.key());
      if (it == map.begin()) break;
    }
  }
  std::vector<U32> expected;
  for (auto it = model.rbegin(); it != model.rend(); ++it) expected.push_back(it->first);
  ASSERT_EQ(backwards, expected);
  for (U32 probe : {0U, 1U, 499U, 500U, 999U, 1000U, 5000U}) {
    auto lower = map.lowerBound(probe);
    auto modelLower = model.lower_bound(probe);
    ASSERT_EQ(lower == map.end(), modelLower == model.end()) << probe;
    if (modelLower != model.end()) {
      ASSERT_EQ(lower.key(), modelLower->first);
    }
    auto upper = map.upperBound(probe);
    auto modelUpper = model.upper_bound(probe);
    ASSERT_EQ(upper == map.end(), modelUpper == model.end()) << probe;
    if (modelUpper != model.end()) {
      ASSERT_EQ(upper.key(), modelUpper->first);
    }
    const auto index = static_cast<std::size_t>(std::distance(model.begin(), modelLower));
    ASSERT_EQ(map.indexOf(probe), index) << probe;
    ASSERT_TRUE(map.nth(index) == lower) << probe;
  }
  std::size_t index = 0;
  for (const auto& [key, value] : model) ASSERT_EQ(map.nth(index++).key(), key);
}

// What forEachDifference must report, from the standard maps.
std::map<U32, std::pair<std::optional<U32>, std::optional<U32>>> naiveDifference(const Model& a, const Model& b) {
  std::map<U32, std::pair<std::optional<U32>, std::optional<U32>>> out;
  for (const auto& [k, v] : a) {
    auto it = b.find(k);
    if (it == b.end() || it->second != v) out[k].first = v;
  }
  for (const auto& [k, v] : b) {
    auto it = a.find(k);
    if (it == a.end() || it->second != v) out[k].second = v;
  }
  return out;
}

auto reportedDifference(const Map& a, const Map& b) {
  std::map<U32, std::pair<std::optional<U32>, std::optional<U32>>> out;
  std::optional<U32> previous;
  a.forEachDifference(b, [&](const U32& key, const Counted* mine, const Counted* theirs) {
    EXPECT_TRUE(!previous || *previous < key) << "differences out of order";
    previous = key;
    EXPECT_TRUE(mine || theirs);
    out[key] = {mine ? std::optional<U32>(mine->v) : std::nullopt,
                theirs ? std::optional<U32>(theirs->v) : std::nullopt};
  });
  return out;
}

TEST(PersistentMapTest, AgreesWithAStandardMapAndEveryCopyKeepsItsVersion) {
  std::mt19937 random(20261123);
  struct Snapshot {
    Map map;
    Model model;
  };
  std::vector<Snapshot> snapshots;
  {
    Map map;
    Model model;
    // Phases that grow, churn and shrink the map, over narrow and wide key ranges, so that
    // leaves split, merge and the root gains and loses levels.
    for (const auto& [steps, keys, eraseShare] :
         {std::tuple(3000, 1000U, 10), std::tuple(3000, 100000U, 10), std::tuple(4000, 1000U, 50),
          std::tuple(6000, 100000U, 95), std::tuple(2000, 50U, 50)}) {
      for (int step = 0; step < steps; ++step) {
        const U32 key = random() % keys;
        if (static_cast<int>(random() % 100) < eraseShare) {
          ASSERT_EQ(map.erase(key), model.erase(key) == 1) << key;
        } else {
          const U32 value = random() % 4;
          const bool changes = !model.contains(key) || model[key] != value;
          ASSERT_EQ(map.assign(key, value), changes) << key;
          model[key] = value;
        }
        const Counted* found = map.find(key);
        ASSERT_EQ(found != nullptr, model.contains(key));
        if (found) {
          ASSERT_EQ(found->v, model[key]);
        }
        if (step % 500 == 0) {
          snapshots.push_back({map, model});
          ASSERT_TRUE(snapshots.back().map.sharesAllWith(map)) << "a copy shares every node";
        }
      }
      expectSame(map, model);
      for (std::size_t s = 0; s < snapshots.size(); s += 7) {
        ASSERT_EQ(reportedDifference(map, snapshots[s].map), naiveDifference(model, snapshots[s].model));
      }
    }
  }  // the map every snapshot came from is gone
  for (const Snapshot& s : snapshots) expectSame(s.map, s.model);
  snapshots.clear();
  EXPECT_EQ(Counted::live, 0) << "releasing every version frees every value";
}

TEST(PersistentMapTest, ACopyCostsNothingAndAChangeCopiesOnePath) {
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
  EXPECT_EQ(big.find(50)->v, 5U);
  EXPECT_EQ(before.value().v, 5U) << "an iterator reads the version it was made from";

  Counted::compared = 0;
  EXPECT_EQ(reportedDifference(copy, big), (std::map<U32, std::pair<std::optional<U32>, std::optional<U32>>>{
                                               {50, {7U, 5U}}, {55, {1U, std::nullopt}}, {60, {std::nullopt, 6U}}}));
  EXPECT_LT(Counted::compared, 200) << "shared subtrees are skipped, not compared";

  // Emptied one entry at a time, the tree lets go of its levels.
  for (U32 i = 0; i < 100000; ++i) ASSERT_TRUE(big.erase(i * 10));
  EXPECT_TRUE(big.empty());
  EXPECT_EQ(big.begin(), big.end());
  EXPECT_EQ(copy.size(), 100000U);
}

}  // namespace
