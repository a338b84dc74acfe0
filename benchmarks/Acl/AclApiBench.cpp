// Cost of editing through a session as the list grows:
//   Baseline        the same N records put into plain standard containers (a sequence map and a
//                   hash map by identity), the floor for any bulk load
//   AddAndCommit    N rules added with sequence 0 (duplicate check, numbering, bookkeeping), then
//                   committed as a new list; as a ratio to the baseline at the same N, with the
//                   peak heap of the whole load, the heap each committed rule keeps and the
//                   allocations made per rule
//   OneEdit         a whole session on a committed N-rule list: create, remove one rule (or add
//                   it back), commit, clean up; read as its growth from N = 1,000, which is the
//                   one figure that must stay flat
//   HundredEdits    the same with 100 rules replaced in one session
//   ReplaceLast     a session that replaces the last rule by another at the same place: as
//                   many rules before as after, so the commit must tell the versions apart
//   AppendNumbered  a session that adds one rule with sequence 0 (or takes it away again):
//                   the first numbered add of a session counts every rule's content for the
//                   duplicate check, so this one grows with N
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/store/StateStore.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"
#include "tests/support/AllocationCounter.h"

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

struct IdHash {
  std::size_t operator()(const UniqueId& id) const noexcept { return id.hash(); }
};

void BM_Baseline(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  std::vector<IpRuleConfig> rules;
  for (U32 i = 1; i <= n; ++i) rules.push_back(ruleNumber(i));
  for (auto _ : state) {
    std::map<U32, UniqueId> bySequence;
    std::unordered_map<UniqueId, IpRuleConfig, IdHash> byId;
    for (U32 i = 1; i <= n; ++i) {
      UniqueId id;
      bySequence.emplace(i * 10, id);
      byId.emplace(id, rules[i - 1]);
    }
    benchmark::DoNotOptimize(byId.size());
    state.PauseTiming();  // freeing is not part of any load below either
    bySequence.clear();
    byId.clear();
    state.ResumeTiming();
  }
  perAdd(state);
}
BENCHMARK(BM_Baseline)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);

struct Store {
  Ptr<AclApi::ApiSm> session() const {
    return AclApi::apiSmFactory("big", AclType::ip, false, AclApi::commit_, acl.config, acl.paramConfig, acl.intfConfig,
                                acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
  }
  fwk::StateStore store;
  AclMounts acl = mountAcl(store);
};

void BM_AddAndCommit(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  std::vector<IpRuleConfig> rules;
  for (U32 i = 1; i <= n; ++i) rules.push_back(ruleNumber(i));
  long long peak = 0;
  long long kept = 0;
  long long allocations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto world = std::make_unique<Store>();
    const long long before = alloccount::liveBytes();
    const long long allocationsBefore = alloccount::allocations();
    alloccount::resetPeak();
    state.ResumeTiming();
    auto s = world->session();
    for (const IpRuleConfig& rule : rules) {
      if (s->addIpRule(0, rule) != AclApi::succeeded) state.SkipWithError("an add failed");
    }
    if (s->commit() != AclApi::succeeded) state.SkipWithError("commit failed");
    state.PauseTiming();
    allocations = alloccount::allocations() - allocationsBefore;
    s = nullptr;
    peak = alloccount::peakBytes() - before;
    kept = alloccount::liveBytes() - before;
    world.reset();
    state.ResumeTiming();
  }
  perAdd(state);
  state.counters["peakHeapMB"] = static_cast<double>(peak) / 1e6;
  state.counters["bytesPerRule"] = static_cast<double>(kept) / n;
  state.counters["allocsPerRule"] = static_cast<double>(allocations) / n;
}
BENCHMARK(BM_AddAndCommit)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);

struct CommittedAcl : Store {
  explicit CommittedAcl(U32 n) {
    auto s = session();
    for (U32 i = 1; i <= n; ++i) fill(*s, i);
    if (s->commit() != AclApi::succeeded) throw std::runtime_error("the list did not commit");
  }
};

// Replaces `count` rules from the top of the list in one session; even rounds remove them,
// odd rounds put them back, so that every session changes the list and it never drifts.
void editSessions(benchmark::State& state, U32 count) {
  const auto n = static_cast<U32>(state.range(0));
  CommittedAcl world(n);
  bool putBack = false;
  for (auto _ : state) {
    auto s = world.session();
    for (U32 i = 1; i <= count; ++i) {
      const AclApi::ApiState result =
          putBack ? s->addIpRule(i * 10, ruleNumber(i)) : s->removeRuleBySequence(i * 10, i * 10);
      if (result != AclApi::succeeded) state.SkipWithError("edit failed");
    }
    if (s->commit() != AclApi::succeeded) state.SkipWithError("commit failed");
    putBack = !putBack;
  }
}

void BM_OneEdit(benchmark::State& state) {
  editSessions(state, 1);
}
BENCHMARK(BM_OneEdit)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);

void BM_HundredEdits(benchmark::State& state) {
  editSessions(state, 100);
}
BENCHMARK(BM_HundredEdits)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);

void BM_ReplaceLast(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  CommittedAcl world(n);
  U32 round = 0;
  for (auto _ : state) {
    auto s = world.session();
    if (s->removeRuleBySequence(n * 10, n * 10) != AclApi::succeeded ||
        s->addIpRule(n * 10, ruleNumber(++round % 2 ? n + 1 : n)) != AclApi::succeeded ||
        s->commit() != AclApi::succeeded) {
      state.SkipWithError("replace failed");
    }
  }
}
BENCHMARK(BM_ReplaceLast)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);

void BM_AppendNumbered(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  CommittedAcl world(n);
  bool takeBack = false;
  for (auto _ : state) {
    auto s = world.session();
    const AclApi::ApiState result =
        takeBack ? s->removeRuleBySequence((n + 1) * 10, (n + 1) * 10) : s->addIpRule(0, ruleNumber(n + 1));
    if (result != AclApi::succeeded || s->commit() != AclApi::succeeded) state.SkipWithError("append failed");
    takeBack = !takeBack;
  }
}
BENCHMARK(BM_AppendNumbered)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
