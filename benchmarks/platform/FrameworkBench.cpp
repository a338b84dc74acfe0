// Costs of the framework's basic operations, as ratios to an empty loop iteration:
// a disabled trace, a scalar set that changes nothing, a set that notifies a reactor,
// ordered-map writes and a full walk, and a generic deep copy of equal maps.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "aclkit/platform/fwk/Attributes.h"
#include "aclkit/platform/fwk/Define.h"
#include "aclkit/platform/session/EntityCopy.h"
#include "aclkit/platform/trace/Trace.h"
#include "benchmarks/support/RatioMain.h"

namespace {

using fwk::Ptr;
using U32 = std::uint32_t;

// clang-format off
#define BENCH_ITEM_ATTRS(A) A(scalar, value, U32, 0) A(orderedMap, bySeq, U32, U32)
// clang-format on

class Item : public fwk::Entity {
  FWK_ENTITY(Item, fwk::Entity, BENCH_ITEM_ATTRS)

 public:
  explicit Item(fwk::String name = fwk::String()) : Entity(std::move(name)) {}
};
FWK_ENTITY_DEFINE(Item, BENCH_ITEM_ATTRS)

struct Listener : Item::Reactor {
  using Item::Reactor::Reactor;
  U32 seen = 0;
  void valueChanged() override { ++seen; }
  void bySeqChanged(const U32&) override { ++seen; }
};

Ptr<Item> makeItem() {
  Ptr<Item> item(new Item("i"));
  item->hasNotificationActiveIs(true);
  return item;
}

void BM_Baseline(benchmark::State& state) {
  U32 x = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(x += 1);
  }
}
BENCHMARK(BM_Baseline);

void BM_DisabledTrace(benchmark::State& state) {
  fwk::TraceFacility& facility = fwk::TraceFacility::get("Bench");
  facility.levelsIs(0);
  U32 x = 0;
  for (auto _ : state) {
    FWK_TRACE(facility, 5, "value " << x << " of " << 42 << " items");
    benchmark::DoNotOptimize(x += 1);
  }
}
BENCHMARK(BM_DisabledTrace);

void BM_ScalarSetUnchanged(benchmark::State& state) {
  Ptr<Item> item = makeItem();
  Listener listener(item.get());
  item->valueIs(7);
  for (auto _ : state) {
    item->valueIs(7);
    benchmark::ClobberMemory();
  }
  if (listener.seen != 1) state.SkipWithError("an unchanged set notified");
}
BENCHMARK(BM_ScalarSetUnchanged);

void BM_ScalarSetNotifying(benchmark::State& state) {
  Ptr<Item> item = makeItem();
  Listener listener(item.get());
  U32 x = 0;
  for (auto _ : state) item->valueIs(++x);
  benchmark::DoNotOptimize(listener.seen);
}
BENCHMARK(BM_ScalarSetNotifying);

void BM_OrderedMapFillAndWalk(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    Ptr<Item> item = makeItem();
    for (U32 i = 1; i <= n; ++i) item->bySeqIs(i * 10, i);
    U32 sum = 0;
    for (const auto& [seq, v] : item->bySeq()) sum += v;
    benchmark::DoNotOptimize(sum);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_OrderedMapFillAndWalk)->RangeMultiplier(10)->Range(1000, 100000)->Complexity();

void BM_CopyOfEqualMaps(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  Ptr<Item> a = makeItem();
  Ptr<Item> b = makeItem();
  for (U32 i = 1; i <= n; ++i) {
    a->bySeqIs(i, i);
    b->bySeqIs(i, i);
  }
  Ptr<Cli::Session::EntityCopy> copy = Cli::Session::entityCopyFactory();
  for (auto _ : state) {
    bool changed = copy->doCopyEntityAttrs(b, a, "", nullptr);
    benchmark::DoNotOptimize(changed);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_CopyOfEqualMaps)->RangeMultiplier(10)->Range(1000, 100000)->Complexity(benchmark::oN);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
