// Costs of the ACL copy handlers as the list grows, as ratios to one walk over the
// version's sequence map (the floor for any comparison):
//   EqualRuleConfig   two equal versions compared (the check every copy starts with);
//                     counts allocations per comparison, which must be none
//   CopyUnchangedAcl  a configuration-session copy of an ACL that did not change
//   CopyChangedAcl    the same when one rule changed: a complete new version is built
//   ConfigSession     a configuration session opened and committed over L lists of R rules
//                     (1,000 x 100, 100 x 1,000, 10 x 10,000: the same rules in fewer lists),
//                     unchanged and with one rule changed; its growth over 1,000 x 100 shows
//                     whether it follows the lists or the rules
#include <benchmark/benchmark.h>

#include "aclkit/Acl/AclConfigSession.h"
#include "aclkit/Acl/AclCopy.h"
#include "aclkit/platform/store/StateStore.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"
#include "tests/support/AllocationCounter.h"

namespace {

using namespace Acl;

using bench::ruleNumber;

Ptr<AclConfig> aclWith(Input::AclTypeConfig& family, U32 rules, const String& name = "big") {
  Ptr<AclConfig> acl = family.aclIs(name, AclType::ip, false, false);
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

void configSession(benchmark::State& state, bool changeOneRule) {
  const auto lists = static_cast<U32>(state.range(0));
  const auto rules = static_cast<U32>(state.range(1));
  fwk::StateStore store;
  const AclMounts running = mountAcl(store);
  Ptr<Input::AclTypeConfig> family = running.config->configIs(AclType::ip);
  for (U32 l = 0; l < lists; ++l) aclWith(*family, rules, String("list" + std::to_string(l)));
  U32 round = 0;
  for (auto _ : state) {
    AclConfigSession session(running);
    if (changeOneRule) {
      Ptr<AclSubConfig> v = session.newVersion(AclType::ip, "list0");
      v->ipRuleByIdIs(v->ruleBySequence(10), ruleNumber(rules + ++round));
    }
    if (session.commit() != changeOneRule) state.SkipWithError("the commit did not report what changed");
  }
}

void BM_ConfigSessionUnchanged(benchmark::State& state) {
  configSession(state, false);
}
BENCHMARK(BM_ConfigSessionUnchanged)
    ->Args({1000, 100})
    ->Args({100, 1000})
    ->Args({10, 10000})
    ->Unit(benchmark::kMillisecond);

void BM_ConfigSessionOneChanged(benchmark::State& state) {
  configSession(state, true);
}
BENCHMARK(BM_ConfigSessionOneChanged)
    ->Args({1000, 100})
    ->Args({100, 1000})
    ->Args({10, 10000})
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
