// Cost of editing through a session as the ACL grows, as ratios to writing the same rules
// straight into a version (the model's own cost):
//   AddRulesAutoNumbered  N rules added with sequence 0 (duplicate check, numbering,
//                         bookkeeping); per add it should stay flat as N grows
#include <benchmark/benchmark.h>

#include "Acl/AclApiSm.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"
#include "model/Mounts.h"
#include "platform/store/StateStore.h"

namespace {

using namespace Acl;
using bench::ruleNumber;

void perAdd(benchmark::State& state) {
  state.counters["nsPerAdd"] = benchmark::Counter(static_cast<double>(state.range(0)) / 1e9,
                                                  benchmark::Counter::kIsIterationInvariantRate |
                                                      benchmark::Counter::kInvert);
}

void BM_Baseline(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  std::vector<IpRuleConfig> rules;
  for (U32 i = 1; i <= n; ++i) rules.push_back(ruleNumber(i));
  for (auto _ : state) {
    Ptr<AclSubConfig> sub(new AclSubConfig(UniqueId()));
    sub->hasNotificationActiveIs(true);
    for (U32 i = 1; i <= n; ++i) {
      UniqueId id;
      sub->ruleBySequenceIs(i * 10, id);
      sub->ipRuleByIdIs(id, rules[i - 1]);
    }
  }
  perAdd(state);
}
BENCHMARK(BM_Baseline)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);

void BM_AddRulesAutoNumbered(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  std::vector<IpRuleConfig> rules;
  for (U32 i = 1; i <= n; ++i) rules.push_back(ruleNumber(i));
  fwk::StateStore store;
  AclMounts acl = mountAcl(store);
  for (auto _ : state) {
    auto session = AclApi::apiSmFactory("big", AclType::ip, false, AclApi::commit_, acl.config, acl.paramConfig,
                                        acl.intfConfig, acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
    for (const IpRuleConfig& rule : rules) {
      if (session->addIpRule(0, rule) != AclApi::succeeded) state.SkipWithError("an add failed");
    }
    state.PauseTiming();
    session = nullptr;  // teardown is not what is measured
    state.ResumeTiming();
  }
  perAdd(state);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_AddRulesAutoNumbered)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace

int main(int argc, char** argv) { return bench::runWithRatios(argc, argv, "BM_Baseline"); }
