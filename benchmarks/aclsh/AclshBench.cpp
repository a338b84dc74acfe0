// Loading a large list through aclsh as an operator's script would: the ClassBench set
// acl1_100k (44,473 filters, converted by tools/classbench-convert.py) typed into one list,
// committed, bound to an interface and programmed by two simulated dataplanes. Reports the
// time and the peak heap beside a baseline measured in the same run: reading the same lines
// into rule records and nothing more.
//
//   python3 tools/classbench-convert.py --to aclsh ../shared/classbench/acl1_100k > /tmp/acl1.acl
//   ACLKIT_CLASSBENCH_ACL=/tmp/acl1.acl build/release/benchmarks/aclsh/aclsh_bench
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
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
      bool ok = shell.run("platform all on", {}) && shell.run("dataplane dp1", {}) && shell.run("dataplane dp2", {}) &&
                shell.run("interface Ethernet1", {}) && shell.run("ip access-group classbench in", {}) &&
                shell.run("exit", {});
      for (std::size_t i = 0; ok && i < lines.size(); ++i) ok = shell.run(lines[i], {"acl1", i + 1});
      ok = ok && out.str().find("programmed by every dataplane") != std::string::npos;
      if (!ok) state.SkipWithError(("the load failed: " + err.str() + out.str()).c_str());
      peak = alloccount::peakBytes() - before;
      state.PauseTiming();  // tearing the store down is not what is measured
    }
    state.ResumeTiming();
  }
  state.counters["peakHeapMB"] = static_cast<double>(peak) / 1e6;
}
BENCHMARK(BM_LoadCommitAndProgram)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
