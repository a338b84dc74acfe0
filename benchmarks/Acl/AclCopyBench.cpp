// Costs of the ACL copy handlers as the list grows, as ratios to one walk over the
// version's sequence map (the floor for any comparison):
//   EqualRuleConfig   two equal versions compared (the check every copy starts with);
//                     counts allocations per comparison, which must be none
//   CopyUnchangedAcl  a configuration-session copy of an ACL that did not change
//   CopyChangedAcl    the same when one rule changed: a complete new version is built
#include <benchmark/benchmark.h>

#include "aclkit/Acl/AclCopy.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"
#include "tests/support/AllocationCounter.h"

namespace {

using namespace Acl;

using bench::ruleNumber;

Ptr<AclConfig> aclWith(Input::AclTypeConfig& family, U32 rules) {
  Ptr<AclConfig> acl = family.aclIs("big", AclType::ip, false, false);
  Ptr<AclSubConfig> sub = acl->subConfigIs(UniqueId());
  for (U32 i = 1; i <= rules; ++i) {
    UniqueId id;
    sub->ruleBySequenceIs(i * 10, id);
    sub->ipRuleByIdIs(id, ruleNumber(i));
  }
  acl->currCfgIs(sub);
  return acl;
}

struct Trees {
  explicit Trees(U32 rules) {
    src = srcRoot->configIs(AclType::ip);
    dest = destRoot->configIs(AclType::ip);
    aclWith(*src, rules);
    handler->initialize();
    handler->handleEntity(copy, dest, src, "");
  }
  Ptr<Input::Config> srcRoot{new Input::Config("src")};
  Ptr<Input::Config> destRoot{new Input::Config("dest")};
  Ptr<Input::AclTypeConfig> src;
  Ptr<Input::AclTypeConfig> dest;
  Ptr<AclConfigCopyHandler> handler = aclConfigCopyHandlerFactory();
  Ptr<EntityCopy> copy = Cli::Session::entityCopyFactory();
};

void BM_Baseline(benchmark::State& state) {
  Trees t(static_cast<U32>(state.range(0)));
  Ptr<const AclSubConfig> sub = t.src->acl("big")->currCfg();
  for (auto _ : state) {
    U32 sum = 0;
    for (const auto& entry : sub->ruleBySequence()) sum += entry.first;
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(BM_Baseline)->RangeMultiplier(10)->Range(1000, 100000);

void BM_EqualRuleConfig(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  Trees t(n);
  Ptr<const AclSubConfig> a = t.src->acl("big")->currCfg();
  Ptr<const AclSubConfig> b = t.dest->acl("big")->currCfg();
  long long allocations = 0;
  for (auto _ : state) {
    long long before = alloccount::allocations();
    bool equal = t.handler->equalRuleConfig(AclType::ip, a, b);
    allocations += alloccount::allocations() - before;
    if (!equal) state.SkipWithError("versions differ");
    benchmark::DoNotOptimize(equal);
  }
  state.counters["allocsPerCompare"] = static_cast<double>(allocations) / static_cast<double>(state.iterations());
  // Seconds per (rule * 1e-9) over all iterations: nanoseconds per rule compared.
  state.counters["nsPerRule"] = benchmark::Counter(
      static_cast<double>(n) / 1e9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetComplexityN(n);
}
BENCHMARK(BM_EqualRuleConfig)->RangeMultiplier(10)->Range(1000, 100000)->Complexity(benchmark::oN);

void BM_CopyUnchangedAcl(benchmark::State& state) {
  Trees t(static_cast<U32>(state.range(0)));
  for (auto _ : state) {
    bool changed = t.handler->handleEntity(t.copy, t.dest, t.src, "");
    if (changed) state.SkipWithError("an unchanged copy reported a change");
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_CopyUnchangedAcl)->RangeMultiplier(10)->Range(1000, 100000)->Complexity(benchmark::oN);

void BM_CopyChangedAcl(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  Trees t(n);
  Ptr<AclConfig> src = t.src->acl("big");
  U32 round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    // One rule differs, in a new source version.
    Ptr<AclSubConfig> old = src->currCfg();
    Ptr<AclSubConfig> next = src->subConfigIs(UniqueId());
    t.copy->doCopyEntityAttrs(next, old, "", nullptr);
    next->ipRuleByIdIs(next->ruleBySequence(10), ruleNumber(n + ++round));
    src->currCfgIs(next);
    src->subConfigDel(old->id());
    state.ResumeTiming();
    t.handler->handleEntity(t.copy, t.dest, t.src, "");
  }
  state.SetComplexityN(n);
}
BENCHMARK(BM_CopyChangedAcl)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
