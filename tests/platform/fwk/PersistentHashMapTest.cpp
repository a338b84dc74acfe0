// The persistent hash map against a plain model of the framework HashMap's order (entries in
// insertion order, a removal moving the last entry into the hole) through random changes,
// with well-spread keys and with keys whose hashes collide completely; copies taken along the
// way must outlive their source unchanged; and a copy with one change shares the rest.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/PersistentHashMap.h"

namespace {

using U32 = std::uint32_t;

// Four hashes among all keys: every lookup goes to the trie's collision lists.
struct Colliding {
  U32 v = 0;
  [[nodiscard]] std::size_t hash() const noexcept { return v % 4; }
  friend bool operator==(const Colliding&, const Colliding&) = default;
};

template <class K>
struct Model {
  std::vector<std::pair<U32, U32>> entries;  // key number, value
  std::unordered_map<U32, std::size_t> position;
  void assign(U32 key, U32 value) {
    if (auto it = position.find(key); it != position.end()) {
      entries[it->second].second = value;
      return;
    }
    position[key] = entries.size();
    entries.emplace_back(key, value);
  }
  bool erase(U32 key) {
    auto it = position.find(key);
    if (it == position.end()) return false;
    const std::size_t hole = it->second;
    position.erase(it);
    if (hole != entries.size() - 1) {
      entries[hole] = entries.back();
      position[entries[hole].first] = hole;
    }
    entries.pop_back();
    return true;
  }
};

template <class K>
K keyOf(U32 n) {
  if constexpr (std::is_same_v<K, U32>) {
    return n;
  } else {
    return K{n};
  }
}
template <class K>
U32 numberOf(const K& key) {
  if constexpr (std::is_same_v<K, U32>) {
    return key;
  } else {
    return key.v;
  }
}

template <class K>
void expectSame(const fwk::PersistentHashMap<K, U32>& map, const Model<K>& model) {
  ASSERT_EQ(map.size(), model.entries.size());
  std::vector<std::pair<U32, U32>> seen;
  for (const auto& [key, value] : map) seen.emplace_back(numberOf(key), value);
  ASSERT_EQ(seen, model.entries) << "the same entries in the same order";
}

template <class K>
void againstTheModel(U32 keys, int steps) {
  std::mt19937 random(20261123);
  std::vector<std::pair<fwk::PersistentHashMap<K, U32>, Model<K>>> snapshots;
  {
    fwk::PersistentHashMap<K, U32> map;
    Model<K> model;
    for (int step = 0; step < steps; ++step) {
      const U32 key = random() % keys;
      if (random() % 3 == 0) {
        ASSERT_EQ(map.erase(keyOf<K>(key)), model.erase(key)) << key;
      } else {
        const U32 value = random() % 4;
        const bool changes = !model.position.contains(key) || model.entries[model.position[key]].second != value;
        ASSERT_EQ(map.assign(keyOf<K>(key), value), changes) << key;
        model.assign(key, value);
      }
      const U32* found = map.find(keyOf<K>(key));
      ASSERT_EQ(found != nullptr, model.position.contains(key));
      if (found) {
        ASSERT_EQ(*found, model.entries[model.position[key]].second);
      }
      if (step % 1000 == 0) snapshots.emplace_back(map, model);
    }
    expectSame(map, model);
  }  // the map every snapshot came from is gone
  for (const auto& [map, model] : snapshots) expectSame(map, model);
  // Between two versions, every key whose entry differs is among the unshared keys.
  for (std::size_t i = 1; i < snapshots.size(); ++i) {
    const auto& older = snapshots[i - 1].first;
    const auto& newer = snapshots[i].first;
    std::set<U32> visited;
    newer.forEachUnsharedKey(older, [&](const K& key) { visited.insert(numberOf(key)); });
    for (U32 key = 0; key < keys; ++key) {
      const U32* before = older.find(keyOf<K>(key));
      const U32* after = newer.find(keyOf<K>(key));
      if ((before == nullptr) != (after == nullptr) || (before && *before != *after)) {
        ASSERT_TRUE(visited.contains(key)) << key;
      }
    }
  }
}

TEST(PersistentHashMapTest, AgreesWithTheHashMapsOrderAndEveryCopyKeepsItsVersion) {
  againstTheModel<U32>(3000, 20000);
  againstTheModel<Colliding>(40, 3000);
}

TEST(PersistentHashMapTest, ACopyWithOneChangeSharesTheRest) {
  fwk::PersistentHashMap<U32, std::vector<U32>> big;
  for (U32 i = 0; i < 100000; ++i) ASSERT_TRUE(big.assign(i, {i}));
  auto copy = big;
  EXPECT_TRUE(copy.sharesAllWith(big));
  EXPECT_FALSE(copy.assign(7, {7})) << "the same value changes nothing";
  EXPECT_TRUE(copy.sharesAllWith(big));
  ASSERT_TRUE(copy.erase(7));
  EXPECT_FALSE(copy.sharesAllWith(big));
  EXPECT_EQ(big.find(7)->front(), 7U);
  EXPECT_EQ(copy.find(99999)->front(), 99999U);
  EXPECT_EQ(copy.size(), 99999U);
  // The last entry took the removed one's place: index 7 now holds key 99999.
  auto it = copy.begin();
  for (int i = 0; i < 7; ++i) ++it;
  EXPECT_EQ(it->first, 99999U);
  std::set<U32> unshared;
  copy.forEachUnsharedKey(big, [&](U32 key) { unshared.insert(key); });
  EXPECT_TRUE(unshared.contains(7) && unshared.contains(99999));
  EXPECT_LE(unshared.size(), 64U) << "only the two leaves the change wrote are read";
}

}  // namespace
