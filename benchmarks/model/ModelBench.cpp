// Cost and memory of the ACL model: filling a sub-configuration with IPv4 rules, with the
// heap bytes each rule takes (all maps included) counted by a replaced allocator, and the
// sizes of the rule records.
#include <benchmark/benchmark.h>

#include "aclkit/model/AclConfig.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"
#include "tests/support/AllocationCounter.h"

namespace {

using namespace Acl;

using bench::ruleNumber;

void BM_Baseline(benchmark::State& state) {
  for (auto _ : state) {
    IpRuleConfig rule = ruleNumber(1);
    benchmark::DoNotOptimize(rule);
  }
}
BENCHMARK(BM_Baseline);

// One committed IPv4 rule is a ruleBySequence entry plus an ipRuleById entry. bytesPerRule
// is what the version holds once filled (all maps included).
void BM_FillSubConfig(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  long long bytes = 0;
  for (auto _ : state) {
    Ptr<AclSubConfig> sub(new AclSubConfig(UniqueId()));
    sub->hasNotificationActiveIs(true);
    long long before = alloccount::liveBytes();
    for (U32 i = 1; i <= n; ++i) {
      UniqueId id;
      sub->ruleBySequenceIs(i * 10, id);
      sub->ipRuleByIdIs(id, ruleNumber(i));
    }
    bytes = alloccount::liveBytes() - before;
    sub->committedIs(true);
  }
  state.counters["bytesPerRule"] = static_cast<double>(bytes) / n;
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_FillSubConfig)->RangeMultiplier(10)->Range(1000, 100000)->Complexity(benchmark::oN);

void BM_RecordSizes(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(sizeof(IpRuleConfig));
  state.counters["IpRuleConfig"] = sizeof(IpRuleConfig);
  state.counters["Ip6RuleConfig"] = sizeof(Ip6RuleConfig);
  state.counters["MacRuleConfig"] = sizeof(MacRuleConfig);
  state.counters["RemarkConfig"] = sizeof(RemarkConfig);
  state.counters["UniqueId"] = sizeof(UniqueId);
}
BENCHMARK(BM_RecordSizes);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
