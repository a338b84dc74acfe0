// The collections. Each persistent map, over keys and values of several types, against a plain
// model through random changes long enough to split, merge, deepen and collapse its nodes,
// with copies and iterators taken along the way that must outlive their source unchanged;
// what sharing costs; and the entity collections' iterators under change.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "aclkit/platform/fwk/Collections.h"
#include "tests/support/SampleTypes.h"

namespace {

using fwk::Ptr;
using fwk::String;
using sample::Match;
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
  friend bool operator==(const Counted& a, const Counted& b) { return ++compared, a.v == b.v; }
};

// Keys whose hashes collide in four groups (the index's collision lists), and keys whose
// hashes are all distinct (the trie's levels, which deepen and collapse with the map).
template <U32 Groups>
struct KeyIn {
  explicit KeyIn(U32 value = 0) : v(value) {}
  U32 v;
  [[nodiscard]] std::size_t hash() const noexcept {
    if constexpr (Groups == 0)
      return v;
    else
      return v % Groups;
  }
  friend auto operator<=>(const KeyIn&, const KeyIn&) = default;
};

// A key or a value of each type the maps are held over, made from a number.
template <class T>
T make(U32 n) {
  if constexpr (std::is_same_v<T, String>) {
    return String(std::to_string(n));
  } else if constexpr (std::is_same_v<T, Match>) {
    Match m;
    m.tniIs(n);
    return m;
  } else {
    return T(std::is_same_v<T, bool> ? n % 2 : n);
  }
}

// The framework HashMap's order: entries in insertion order, a removal moving the last entry
// into the hole. The ordered map holds the same entries sorted.
template <class K, class V>
struct Model {
  std::vector<std::pair<K, V>> entries;
  std::map<K, std::size_t> at;
  bool assign(const K& key, const V& value) {
    auto [it, added] = at.emplace(key, entries.size());
    if (added) return entries.emplace_back(key, value), true;
    V& stored = entries[it->second].second;
    return !(stored == value) && (stored = value, true);
  }
  bool erase(const K& key) {
    auto it = at.find(key);
    if (it == at.end()) return false;
    const std::size_t hole = it->second;
    at.erase(it);
    if (hole != entries.size() - 1) at[(entries[hole] = entries.back()).first] = hole;
    entries.pop_back();
    return true;
  }
  [[nodiscard]] const V* find(const K& key) const {
    auto it = at.find(key);
    return it == at.end() ? nullptr : &entries[it->second].second;
  }
  [[nodiscard]] std::vector<std::pair<K, V>> sorted() const {
    std::vector<std::pair<K, V>> all;
    for (const auto& [key, i] : at) all.push_back(entries[i]);
    return all;
  }
  // The keys whose entries differ from `other`'s, in order.
  [[nodiscard]] std::vector<K> changed(const Model& other) const {
    std::set<K> keys;
    for (const auto* model : {this, &other}) {
      for (const auto& [key, value] : model->entries) keys.insert(key);
    }
    std::erase_if(keys, [&](const K& key) {
      const V *mine = find(key), *theirs = other.find(key);
      return mine && theirs ? *mine == *theirs : mine == theirs;
    });
    return {keys.begin(), keys.end()};
  }
};

// The ordered map: sorted; positions, bounds and the walk back from end() agree with the
// sorted entries; a comparison reports exactly the entries that differ.
template <class K, class V>
struct Ordered {
  using Map = fwk::PersistentMap<K, V>;
  static std::vector<std::pair<K, V>> order(const Model<K, V>& model) { return model.sorted(); }
  static void check(const Map& map, const Model<K, V>& model) {
    const std::vector<std::pair<K, V>> sorted = model.sorted();
    std::vector<std::pair<K, V>> backwards;
    for (auto it = map.end(); it != map.begin();) backwards.emplace_back(*--it);
    RC_ASSERT(std::equal(backwards.rbegin(), backwards.rend(), sorted.begin(), sorted.end()));
    const auto less = [](const K& a, const K& b) { return a < b; };  // records order by < alone
    for (U32 n : {0U, 1U, 2U, 49U, 500U, 999U, 2999U, 3000U}) {
      const K probe = make<K>(n);
      const auto lower =
          std::size_t(std::ranges::lower_bound(sorted, probe, less, &std::pair<K, V>::first) - sorted.begin());
      const auto upper =
          std::size_t(std::ranges::upper_bound(sorted, probe, less, &std::pair<K, V>::first) - sorted.begin());
      RC_ASSERT(map.indexOf(probe) == lower);
      RC_ASSERT(map.lowerBound(probe) == map.nth(lower));
      RC_ASSERT(map.upperBound(probe) == map.nth(upper));
      if (upper < sorted.size()) RC_ASSERT(map.nth(upper).key() == sorted[upper].first);
    }
  }
  static void compare(const Map& a, const Model<K, V>& was, const Map& b, const Model<K, V>& is) {
    std::vector<K> reported;
    a.forEachDifference(b, [&](const K& key, const V* mine, const V* theirs) {
      reported.push_back(key);
      RC_ASSERT((mine == a.find(key) && theirs == b.find(key)));
    });
    RC_ASSERT(reported == was.changed(is));  // in order, each once
  }
};

// The hash map: insertion order; a comparison visits at least every key that differs.
template <class K, class V>
struct Hashed {
  using Map = fwk::PersistentHashMap<K, V>;
  static std::vector<std::pair<K, V>> order(const Model<K, V>& model) { return model.entries; }
  static void check(const Map& /*map*/, const Model<K, V>& /*model*/) {}
  static void compare(const Map& a, const Model<K, V>& was, const Map& b, const Model<K, V>& is) {
    std::set<K> visited;
    a.forEachUnsharedKey(b, [&](const K& key) { visited.insert(key); });
    for (const K& key : was.changed(is)) RC_ASSERT(visited.contains(key));
  }
};

// A random walk over one map: how long, over how many keys, how often it erases, with a copy
// of the map and an iterator on it taken now and then.
template <class Kind>
void agreesWithItsModel() {
  using Map = typename Kind::Map;
  using K = typename Map::key_type;
  using V = typename Map::mapped_type;
  auto read = [](auto it, std::size_t count) {
    std::vector<std::pair<K, V>> all;
    for (; all.size() < count; ++it) all.emplace_back((*it).first, (*it).second);
    return all;
  };
  std::mt19937 random(*rc::gen::arbitrary<U32>());
  const int steps = *rc::gen::inRange(0, 5000);
  const U32 keys = *rc::gen::element<U32>(4, 50, 1000, 3000);
  const U32 eraseShare = *rc::gen::inRange<U32>(0, 100);
  struct Snapshot {
    Map copy;
    typename Map::const_iterator first;
    Model<K, V> model;
  };
  std::vector<Snapshot> snapshots;
  {
    Map map;
    Model<K, V> model;
    for (int step = 0; step < steps; ++step) {
      const K key = make<K>(random() % keys);
      const V value = make<V>(random() % 4);
      const bool erase = random() % 100 < eraseShare;
      RC_ASSERT((erase ? map.erase(key) : map.assign(key, value)) ==
                (erase ? model.erase(key) : model.assign(key, value)));
      const V* found = map.find(key);
      RC_ASSERT((found ? model.find(key) && *found == *model.find(key) : !model.find(key)));
      if (step % 97 == 0) snapshots.push_back({map, map.begin(), model});
    }
    RC_ASSERT(read(map.begin(), map.size()) == Kind::order(model));
    Kind::check(map, model);
    for (const Snapshot& s : snapshots) Kind::compare(map, model, s.copy, s.model);
  }  // the map every snapshot came from is gone; the iterators read the versions they were made on
  for (const Snapshot& s : snapshots) {
    RC_ASSERT(read(s.copy.begin(), s.copy.size()) == Kind::order(s.model));
    RC_ASSERT(read(s.first, s.model.entries.size()) == Kind::order(s.model));
    Kind::check(s.copy, s.model);
  }
  snapshots.clear();
  RC_ASSERT(Counted::live == 0L);
}

template <class Kind>
class PersistentMapsTest : public ::testing::Test {};
using MapKinds = ::testing::Types<Ordered<U32, Counted>, Ordered<String, bool>, Ordered<Match, String>,
                                  Hashed<KeyIn<4>, U32>, Hashed<KeyIn<0>, Counted>, Hashed<Match, bool>>;
TYPED_TEST_SUITE(PersistentMapsTest, MapKinds);

TYPED_TEST(PersistentMapsTest, AgreeWithTheirModelAndEveryCopyAndIteratorKeepsItsVersion) {
  rc::detail::checkGTest(&agreesWithItsModel<TypeParam>);
}

TEST(PersistentMapsTest, ACopyCostsNothingAChangeCopiesOnePathAndAComparisonReadsOnlyWhatDiffers) {
  fwk::PersistentMap<U32, Counted> big;
  for (U32 i = 0; i < 100000; ++i) ASSERT_TRUE(big.assign(i * 10, i));
  const long held = Counted::live;
  auto copy = big;
  EXPECT_TRUE(Counted::live == held && copy.sharesAllWith(big)) << "the copy holds the same nodes";
  ASSERT_TRUE(copy.assign(50, 7) && copy.erase(60) && copy.assign(55, 1));
  EXPECT_LE(Counted::live - held, 3 * 33) << "each change copies at most one leaf of values";
  Counted::compared = 0;
  std::vector<U32> reported;
  copy.forEachDifference(big, [&](U32 key, const Counted*, const Counted*) { reported.push_back(key); });
  EXPECT_EQ(reported, (std::vector<U32>{50, 55, 60}));
  EXPECT_LT(Counted::compared, 200) << "shared subtrees are skipped, not compared";
  fwk::PersistentHashMap<U32, std::vector<U32>> hashed;
  for (U32 i = 0; i < 100000; ++i) ASSERT_TRUE(hashed.assign(i, {i}));
  auto edited = hashed;
  ASSERT_TRUE(edited.erase(7));
  std::set<U32> unshared;
  edited.forEachUnsharedKey(hashed, [&](U32 key) { unshared.insert(key); });
  EXPECT_TRUE(unshared.contains(7) && unshared.contains(99999));
  EXPECT_LE(unshared.size(), 64U) << "only the two leaves the change wrote are read";
}

// The entity collections (which changes notify is for EntityTest and the edit session): the
// ordered map's iterators survive changes made while they stand (editing walks over places and
// removes as it goes); a hash map's are refused once it changed.
TEST(OrderedMapTest, IteratorsSurviveChangesMadeWhileTheyStand) {
  Ptr<sample::Maps> m(new sample::Maps());
  for (U32 k : {30, 10, 20, 40, 50}) m->orderedIs(k, k);
  const auto end = m->ordered().end();
  std::vector<U32> visited;
  for (auto it = m->ordered().begin(); it != end; ++it) {
    const U32 k = it->first;
    visited.push_back(k);
    if (k == 20) m->orderedDel(20);  // the current entry
    if (k == 30) m->orderedDel(40);  // the next one
    if (k == 30) m->orderedIs(45, 1);
    if (k == 50) m->orderedIs(60, 1);  // past the end it stood before
  }
  EXPECT_EQ(visited, (std::vector<U32>{10, 20, 30, 45, 50, 60}));
  auto at = m->ordered().lowerBound(45);
  m->orderedDel(45);
  EXPECT_EQ((*at).first, 50U) << "the entry it stood on went: it reads the next";
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
