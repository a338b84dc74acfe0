// A benchmark main that reports every result also as a ratio to a baseline measured in the
// same run, so that numbers compare across machines:
//
//   int main(int argc, char** argv) { return bench::runWithRatios(argc, argv, "BM_Baseline"); }
//
// A benchmark "Family/arg" is compared with "<baseline>/arg" when that exists, else with
// the baseline's first run. A family run at several sizes is also reported as its growth:
// each size's time over the family's first size, which is how an operation that should not
// depend on the list's length shows that it does not.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  explicit RatioReporter(std::string baseline) : baseline_(std::move(baseline)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      // Normalised to seconds: benchmarks may report in different units.
      results_.emplace_back(run.benchmark_name(),
                            run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit));
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\nRatios to %s (cpu time, same run):\n", baseline_.c_str());
    for (const auto& [name, time] : results_) {
      double base = baselineFor(name);
      if (base > 0) std::printf("  %-60s %12.2f x\n", name.c_str(), time / base);
    }
    std::printf("\nGrowth over each family's first size (cpu time, same run):\n");
    for (const auto& [name, time] : results_) {
      const auto slash = name.find('/');
      if (slash == std::string::npos) continue;
      const std::string family = name.substr(0, slash + 1);
      for (const auto& [first, firstTime] : results_) {
        if (first.rfind(family, 0) != 0) continue;
        if (first != name && firstTime > 0) std::printf("  %-60s %12.2f x\n", name.c_str(), time / firstTime);
        break;
      }
    }
  }

 private:
  double baselineFor(const std::string& name) const {
    auto slash = name.find('/');
    std::string wanted = baseline_ + (slash == std::string::npos ? "" : name.substr(slash));
    double first = 0;
    for (const auto& [n, t] : results_) {
      if (n == wanted) return t;
      if (first == 0 && n.rfind(baseline_, 0) == 0) first = t;
    }
    return first;
  }

  std::string baseline_;
  std::vector<std::pair<std::string, double>> results_;
};

inline int runWithRatios(int argc, char** argv, const char* baseline) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter(baseline);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace bench
