// Loading a large list through aclsh as an operator's script would: the ClassBench set
// acl1_100k (44,473 filters, converted by tools/classbench-convert.py) typed into one list,
// committed, bound to an interface and programmed by two simulated dataplanes. Reports the
// time and the peak heap beside a baseline measured in the same run: reading the same lines
// into rule records and nothing more. And the one-rule edit an operator makes on that list
// afterwards (the first entry replaced by the same match with the other action), as an aclsh
// session: on the list alone, and on the list bound and programmed by the two dataplanes.
//
//   python3 tools/classbench-convert.py --to aclsh ../shared/classbench/acl1_100k > /tmp/acl1.acl
//   ACLKIT_CLASSBENCH_ACL=/tmp/acl1.acl build/release/benchmarks/aclsh/aclsh_bench
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "aclkit/aclsh/Shell.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/text/AclText.h"
#include "benchmarks/support/RatioMain.h"
#include "tests/support/AllocationCounter.h"

namespace {

std::vector<std::string> scriptLines() {
  static const std::vector<std::string> lines = [] {
    std::vector<std::string> all;
    const char* path = std::getenv("ACLKIT_CLASSBENCH_ACL");
    std::ifstream in(path ? path : "");
    for (std::string line; std::getline(in, line);) all.push_back(line);
    return all;
  }();
  return lines;
}

void BM_Baseline(benchmark::State& state) {
  const std::vector<std::string>& lines = scriptLines();
  if (lines.empty()) return state.SkipWithError("set ACLKIT_CLASSBENCH_ACL to a converted set");
  for (auto _ : state) {
    std::size_t rules = 0;
    for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
      rules += std::holds_alternative<Acl::IpRuleConfig>(Text::parse(lines[i], Acl::AclType::ip).body) ? 1 : 0;
    }
    benchmark::DoNotOptimize(rules);
  }
  state.counters["entries"] = static_cast<double>(lines.size() - 2);
}
BENCHMARK(BM_Baseline)->Unit(benchmark::kMillisecond);

// The dataplanes and the binding of the loaded list, typed before the list itself.
const std::vector<std::string> boundSetup = {"platform all on",
                                             "dataplane dp1",
                                             "dataplane dp2",
                                             "interface Ethernet1",
                                             "ip access-group classbench in",
                                             "exit"};

bool load(aclsh::Shell& shell, const std::vector<std::string>& setup, const std::vector<std::string>& lines) {
  bool ok = true;
  for (const std::string& line : setup) ok = ok && shell.run(line, {});
  for (std::size_t i = 0; ok && i < lines.size(); ++i) ok = shell.run(lines[i], {"acl1", i + 1});
  return ok;
}

void BM_LoadCommitAndProgram(benchmark::State& state) {
  const std::vector<std::string>& lines = scriptLines();
  if (lines.empty()) return state.SkipWithError("set ACLKIT_CLASSBENCH_ACL to a converted set");
  long long peak = 0;
  for (auto _ : state) {
    alloccount::resetPeak();
    const long long before = alloccount::liveBytes();
    {
      fwk::StateStore store;
      std::ostringstream out;
      std::ostringstream err;
      aclsh::Shell shell(store, out, err);
      bool ok = load(shell, boundSetup, lines) && out.str().find("programmed by every dataplane") != std::string::npos;
      if (!ok) state.SkipWithError(("the load failed: " + err.str() + out.str()).c_str());
      peak = alloccount::peakBytes() - before;
      state.PauseTiming();  // tearing the store down is not what is measured
    }
    state.ResumeTiming();
  }
  state.counters["peakHeapMB"] = static_cast<double>(peak) / 1e6;
}
BENCHMARK(BM_LoadCommitAndProgram)->Unit(benchmark::kMillisecond)->Iterations(3);

// The first entry of the set with `action` in place of its own, as a session that replaces it.
std::vector<std::string> firstEntryAs(const std::vector<std::string>& lines, std::string_view action) {
  std::string entry = lines.at(1);
  const std::size_t sequence = entry.find_first_not_of(' ');
  const std::size_t word = entry.find(' ', sequence) + 1;
  entry.replace(word, entry.find(' ', word) - word, action);
  return {lines.front(), "no " + entry.substr(sequence, word - 1 - sequence), entry, "exit"};
}

void oneEdit(benchmark::State& state, const std::vector<std::string>& setup) {
  const std::vector<std::string>& lines = scriptLines();
  if (lines.empty()) return state.SkipWithError("set ACLKIT_CLASSBENCH_ACL to a converted set");
  fwk::StateStore store;
  std::ostringstream out;
  std::ostringstream err;
  aclsh::Shell shell(store, out, err);
  if (!load(shell, setup, lines)) return state.SkipWithError(("the load failed: " + err.str()).c_str());
  // Each round flips the entry, so that every session changes the list.
  const std::vector<std::string> edits[] = {firstEntryAs(lines, "deny"), firstEntryAs(lines, "permit")};
  std::size_t round = 0;
  for (auto _ : state) {
    out.str({});
    for (const std::string& line : edits[round++ % 2]) {
      if (!shell.run(line, {"edit", round})) return state.SkipWithError(("the edit failed: " + err.str()).c_str());
    }
  }
  state.counters["entries"] = static_cast<double>(lines.size() - 2);
}

void BM_OneEditSession(benchmark::State& state) {
  oneEdit(state, {});
}
BENCHMARK(BM_OneEditSession)->Unit(benchmark::kMillisecond);

void BM_OneEditProgrammed(benchmark::State& state) {
  oneEdit(state, boundSetup);
}
BENCHMARK(BM_OneEditProgrammed)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
