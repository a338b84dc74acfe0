// Cost of editing through a session as the ACL grows, as ratios to writing the same rules
// straight into a version (the model's own cost):
//   AddRulesAutoNumbered  N rules added with sequence 0 (duplicate check, numbering,
//                         bookkeeping); per add it should stay flat as N grows
//   CommitScratchpad      committing a scratchpad of N rules as a new ACL
//   ChangeOneRule         a whole session on a committed N-rule ACL: create (the scratchpad
//                         copy), replace one rule, commit (a new version), clean up
#include <benchmark/benchmark.h>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/store/StateStore.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"

namespace {

using namespace Acl;
using bench::ruleNumber;

// Puts rule i at place 10 * i; a benchmark measures nothing of a list that did not fill.
void fill(AclApi::ApiSm& session, U32 i) {
  if (session.addIpRule(i * 10, ruleNumber(i)) != AclApi::succeeded) throw std::runtime_error("an add failed");
}

void perAdd(benchmark::State& state) {
  state.counters["nsPerAdd"] =
      benchmark::Counter(static_cast<double>(state.range(0)) / 1e9,
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
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

struct CommittedAcl {
  explicit CommittedAcl(U32 n) {
    auto s = session();
    for (U32 i = 1; i <= n; ++i) fill(*s, i);
    if (s->commit() != AclApi::succeeded) throw std::runtime_error("the list did not commit");
  }
  Ptr<AclApi::ApiSm> session() {
    return AclApi::apiSmFactory("big", AclType::ip, false, AclApi::commit_, acl.config, acl.paramConfig, acl.intfConfig,
                                acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
  }
  fwk::StateStore store;
  AclMounts acl = mountAcl(store);
};

void BM_CommitScratchpad(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    CommittedAcl world(0);
    world.acl.config->config(AclType::ip)->aclDel("big");
    auto s = world.session();
    for (U32 i = 1; i <= n; ++i) fill(*s, i);
    state.ResumeTiming();
    if (s->commit() != AclApi::succeeded) state.SkipWithError("commit failed");
    state.PauseTiming();
    s = nullptr;
    state.ResumeTiming();
  }
  perAdd(state);
  state.SetComplexityN(n);
}
BENCHMARK(BM_CommitScratchpad)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

void BM_ChangeOneRule(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  CommittedAcl world(n);
  U32 round = 0;
  for (auto _ : state) {
    auto s = world.session();
    if (s->removeRuleBySequence(50, 50) != AclApi::succeeded ||
        s->addIpRule(50, ruleNumber(n + ++round)) != AclApi::succeeded) {
      state.SkipWithError("edit failed");
    }
    if (s->commit() != AclApi::succeeded) state.SkipWithError("commit failed");
  }
  perAdd(state);
  state.SetComplexityN(n);
}
BENCHMARK(BM_ChangeOneRule)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
