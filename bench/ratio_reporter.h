// A console reporter that, after the usual table, prints each benchmark's speed as a multiple of its
// "<name>Reference" partner measured in the same run, by CPU time (on a shared machine the wall clock
// also counts other processes). RunBenchmarksWithRatios is a main() for such programs.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace quorl::bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      auto& [total, count] = cpuTimes_[run.run_name.str()];
      total += run.GetAdjustedCPUTime();
      ++count;
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [name, time] : cpuTimes_) {
      const auto reference = cpuTimes_.find(name + "Reference");
      if (reference == cpuTimes_.end()) continue;
      std::printf("%s: %.2fx the reference\n", name.c_str(),
                  (reference->second.first / reference->second.second) / (time.first / time.second));
    }
  }

 private:
  std::map<std::string, std::pair<double, int>> cpuTimes_;  // total and count
};

inline int RunBenchmarksWithRatios(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace quorl::bench
