// Replacing a large committed list by one that differs in one entry, beside what that must
// cost at least, measured in the same run:
//   Baseline         one comparison of the two lists, entry by entry (the desired list and the
//                    current one as entries)
//   ReadCurrent      reading the committed version as entries (Client::entriesOf; the replace
//                    compares in place instead)
//   OpenSession      opening a commit session on the list (its scratchpad is a copy of it)
//   OneEditSession   the one edit done by hand: a commit session opened on the list, the
//                    entry removed and written anew, committed
//   ReplaceOneEntry  replaceList: read, compare, and the same one edit in one session
//   ReplaceUnchanged replaceList with the list as it is: no session opens
// Each iteration swaps the entry in the middle of the list between two rules, so that every
// replace and every edit changes the list.
#include <benchmark/benchmark.h>

#include "aclkit/client/Replace.h"
#include "aclkit/platform/store/StateStore.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"

namespace {

using Acl::AclType;
using Acl::U32;
using fwk::Ptr;

constexpr U32 otherRule = 0xFFFFFF;

// N entries at 10, 20, ...; the middle one is rule `middle`.
std::vector<Client::ListEntry> listOf(U32 n, U32 middle) {
  std::vector<Client::ListEntry> entries;
  entries.reserve(n);
  for (U32 i = 0; i < n; ++i) entries.push_back({(i + 1) * 10, bench::ruleNumber(i == n / 2 ? middle : i)});
  return entries;
}

struct World {
  explicit World(U32 n) : entries{listOf(n, n / 2), listOf(n, otherRule)} {
    if (Client::replaceList(acl, "big", AclType::ip, entries[0]).state != AclApi::succeeded) std::abort();
  }
  fwk::StateStore store;
  Client::Library acl{store};
  std::vector<Client::ListEntry> entries[2];
};

void BM_Baseline(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  const std::vector<Client::ListEntry> a = listOf(n, n / 2);
  const std::vector<Client::ListEntry> b = listOf(n, otherRule);
  for (auto _ : state) {
    std::size_t differing = 0;
    for (std::size_t i = 0; i < a.size(); ++i) differing += a[i] == b[i] ? 0 : 1;
    benchmark::DoNotOptimize(differing);
  }
}
BENCHMARK(BM_Baseline)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_ReadCurrent(benchmark::State& state) {
  World world(static_cast<U32>(state.range(0)));
  const Ptr<Acl::AclConfig> list = world.acl.list(AclType::ip, "big");
  for (auto _ : state) benchmark::DoNotOptimize(Client::entriesOf(*list->currCfg(), AclType::ip));
}
BENCHMARK(BM_ReadCurrent)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_OpenSession(benchmark::State& state) {
  World world(static_cast<U32>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(world.acl.session("big", AclType::ip, AclApi::commit_));
}
BENCHMARK(BM_OpenSession)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_OneEditSession(benchmark::State& state) {
  const auto n = static_cast<U32>(state.range(0));
  World world(n);
  const U32 sequence = (n / 2 + 1) * 10;
  bool swapped = false;
  for (auto _ : state) {
    swapped = !swapped;
    const Ptr<AclApi::ApiSm> s = world.acl.session("big", AclType::ip, AclApi::commit_);
    bool ok = s->removeRuleBySequence(sequence, sequence) == AclApi::succeeded;
    ok = ok && s->addIpRule(sequence, bench::ruleNumber(swapped ? otherRule : n / 2)) == AclApi::succeeded;
    ok = ok && s->commit() == AclApi::succeeded;
    if (!ok) state.SkipWithError("the edit failed");
  }
}
BENCHMARK(BM_OneEditSession)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_ReplaceOneEntry(benchmark::State& state) {
  World world(static_cast<U32>(state.range(0)));
  std::size_t next = 1;
  for (auto _ : state) {
    const Client::ReplaceResult r = Client::replaceList(world.acl, "big", AclType::ip, world.entries[next]);
    if (r.state != AclApi::succeeded || r.report.added.size() != 1 || r.report.removed.size() != 1) {
      state.SkipWithError("the replace did not change exactly one entry");
    }
    next = 1 - next;
  }
}
BENCHMARK(BM_ReplaceOneEntry)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_ReplaceUnchanged(benchmark::State& state) {
  World world(static_cast<U32>(state.range(0)));
  for (auto _ : state) {
    if (Client::replaceList(world.acl, "big", AclType::ip, world.entries[0]).session) {
      state.SkipWithError("an unchanged list opened a session");
    }
  }
}
BENCHMARK(BM_ReplaceUnchanged)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
