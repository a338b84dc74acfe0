// The persistent maps against the standard ordered map, as ratios to the standard map's copy
// and one change (what an edit of a copied list costs with plain containers):
//   CopyAndChange            a copy of an N-entry map and one entry changed in it
//   DifferenceAfterOneChange that copy compared with its source (the one difference found)
//   Fill                     N entries assigned in ascending order, for its cost per entry
//   HashCopyAndChange        the same copy and change of a PersistentHashMap
//   HashFill                 N entries assigned to a PersistentHashMap
// The copies and the difference should stay flat as N grows: their growth over N = 1,000 is
// the figure.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>

#include "aclkit/platform/fwk/PersistentHashMap.h"
#include "aclkit/platform/fwk/PersistentMap.h"
#include "benchmarks/support/RatioMain.h"

namespace {

using U32 = std::uint32_t;

void BM_Baseline(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  std::map<U32, U32> source;
  for (U32 i = 0; i < n; ++i) source.emplace(i * 10, i);
  U32 round = 0;
  for (auto _ : state) {
    std::map<U32, U32> copy = source;
    copy[50] = ++round;
    benchmark::DoNotOptimize(copy.size());
  }
}
BENCHMARK(BM_Baseline)->RangeMultiplier(10)->Range(1000, 100000);

using Ordered = fwk::PersistentMap<U32, U32>;
using Hashed = fwk::PersistentHashMap<U32, U32>;

template <class Map>
Map filled(benchmark::State& state) {
  Map map;
  for (U32 i = 0; i < static_cast<U32>(state.range(0)); ++i) map.assign(i * 10, i);
  return map;
}

template <class Map>
void BM_CopyAndChange(benchmark::State& state) {
  const auto source = filled<Map>(state);
  U32 round = 0;
  for (auto _ : state) {
    auto copy = source;
    copy.assign(50, ++round);
    benchmark::DoNotOptimize(copy.size());
  }
}
BENCHMARK(BM_CopyAndChange<Ordered>)->Name("BM_CopyAndChange")->RangeMultiplier(10)->Range(1000, 100000);
BENCHMARK(BM_CopyAndChange<Hashed>)->Name("BM_HashCopyAndChange")->RangeMultiplier(10)->Range(1000, 100000);

void BM_DifferenceAfterOneChange(benchmark::State& state) {
  const auto source = filled<Ordered>(state);
  auto copy = source;
  copy.assign(50, 0xFFFFFFFFU);
  for (auto _ : state) {
    int differences = 0;
    copy.forEachDifference(source, [&](const U32&, const U32*, const U32*) { ++differences; });
    if (differences != 1) state.SkipWithError("expected one difference");
  }
}
BENCHMARK(BM_DifferenceAfterOneChange)->RangeMultiplier(10)->Range(1000, 100000);

template <class Map>
void BM_Fill(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(filled<Map>(state).size());
}
BENCHMARK(BM_Fill<Ordered>)->Name("BM_Fill")->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Fill<Hashed>)
    ->Name("BM_HashFill")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
