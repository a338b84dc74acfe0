// The cost of a call through the Python module, as ratios to the same calls made from C++ in
// the same run. Each iteration adds 100,000 distinct rules to a new session with sequence 0
// (the next free place); the rules are made beforehand, and the session's teardown is not
// measured:
//   Baseline        C++: session->addIpRule(0, rule)
//   PythonMethod    a Python loop calling s.addIpRule(0, rule), the method of that name
//   PythonByName    a Python loop calling s.call("addIpRule", 0, rule), the generic path
// The interpreter is Debian's, embedded; the module is the one built next to this program.
#include <benchmark/benchmark.h>
#include <pybind11/embed.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "aclkit/Acl/AclApiSm.h"
#include "aclkit/model/Mounts.h"
#include "aclkit/platform/store/StateStore.h"
#include "aclkit/text/AclText.h"
#include "benchmarks/support/AclRules.h"
#include "benchmarks/support/RatioMain.h"

namespace {

namespace py = pybind11;
using namespace Acl;

constexpr U32 ruleCount = 100000;

const char* const pythonLoops = R"(
def by_method(lib, rules):
    s = lib.session("big", aclkit.AclType.ip)
    for rule in rules:
        if s.addIpRule(0, rule) != aclkit.ApiState.succeeded:
            raise RuntimeError("an add failed")
    return s

def by_name(lib, rules):
    s = lib.session("big", aclkit.AclType.ip)
    for rule in rules:
        if s.call("addIpRule", 0, rule) != aclkit.ApiState.succeeded:
            raise RuntimeError("an add failed")
    return s
)";

void perAdd(benchmark::State& state) {
  state.counters["nsPerAdd"] =
      benchmark::Counter(static_cast<double>(ruleCount) / 1e9,
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Baseline(benchmark::State& state) {
  std::vector<IpRuleConfig> rules;
  for (U32 i = 1; i <= ruleCount; ++i) rules.push_back(bench::ruleNumber(i));
  fwk::StateStore store;
  const AclMounts acl = mountAcl(store);
  for (auto _ : state) {
    auto session = AclApi::apiSmFactory("big", AclType::ip, false, AclApi::commit_, acl.config, acl.paramConfig,
                                        acl.intfConfig, acl.hwConfig, acl.status, acl.statusDpDir, acl.udfAlias);
    for (const IpRuleConfig& rule : rules) {
      if (session->addIpRule(0, rule) != AclApi::succeeded) state.SkipWithError("an add failed");
    }
    state.PauseTiming();
    session = nullptr;
    state.ResumeTiming();
  }
  perAdd(state);
}
BENCHMARK(BM_Baseline)->Unit(benchmark::kMillisecond);

void pythonLoop(benchmark::State& state, const char* loop) {
  const py::module_ aclkit = py::module_::import("aclkit");
  py::dict scope;
  scope["aclkit"] = aclkit;
  py::exec(pythonLoops, scope);
  py::list rules;
  for (U32 i = 1; i <= ruleCount; ++i) rules.append(aclkit.attr("IpRule")(Text::format(bench::ruleNumber(i))));
  const py::object lib = aclkit.attr("Library")(aclkit.attr("Store")());
  const py::object run = scope[loop];
  for (auto _ : state) {
    py::object session = run(lib, rules);
    state.PauseTiming();
    session = py::none();
    state.ResumeTiming();
  }
  perAdd(state);
}

void BM_PythonMethod(benchmark::State& state) {
  pythonLoop(state, "by_method");
}
BENCHMARK(BM_PythonMethod)->Unit(benchmark::kMillisecond);

void BM_PythonByName(benchmark::State& state) {
  pythonLoop(state, "by_name");
}
BENCHMARK(BM_PythonByName)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  const py::scoped_interpreter interpreter;
  py::module_::import("sys").attr("path").attr("insert")(0, ACLKIT_PYTHON_MODULE_DIR);
  return bench::runWithRatios(argc, argv, "BM_Baseline");
}
