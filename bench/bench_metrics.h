// What the benchmarks of bench/run.sh hand to its table (bench/bench_table.cpp), and how they count
// instructions.
//
// A benchmark program that uses RunWithMetrics runs in one of two modes:
// - timing (the default): Google Benchmark as usual, and with --metrics=FILE it also writes one line per
//   benchmark, "<name>.ns <value>", the least CPU time per iteration over its repetitions (the least
//   disturbed by other work on a shared machine), and "<name>.<counter> <value>", the largest value of
//   each of its counters.
// - counting (--count): no timing; the program's own counting function runs each workload a fixed number
//   of times inside CountRegion, which brackets it with callgrind's client requests. Under
//   `valgrind --tool=callgrind` each region becomes a dump whose description names the region and its
//   operation count. Run it with --instr-atstart=no: only the regions are instrumented. Run natively,
//   the requests cost a few instructions and do nothing.
//
// Single-threaded: everything here runs on the main thread of the benchmark program.
#pragma once

#include <benchmark/benchmark.h>
#ifndef QUORL_BENCH_WITHOUT_CALLGRIND
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(label) static_cast<void>(label)
#endif

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace quorl::bench {

class MetricsReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred || run.iterations == 0) continue;
      const std::string name = run.run_name.str();
      const double ns = run.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
      const auto found = values_.find(name + ".ns");
      if (found == values_.end() || ns < found->second) values_[name + ".ns"] = ns;
      for (const auto& [counter, value] : run.counters) {
        double& kept = values_.emplace(name + "." + counter, value.value).first->second;
        kept = std::max(kept, value.value);
      }
    }
  }

  // Writes the collected lines to `path`; false when the file cannot be written.
  bool Write(const std::string& path) const {
    FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return false;
    for (const auto& [key, value] : values_)
      std::fprintf(file, "%s %.6g\n", key.c_str(), value);
    return std::fclose(file) == 0;
  }

 private:
  std::map<std::string, double> values_;
};

// Runs `body` `operations` times' worth of work (the body loops itself) as one counted region named
// `key`. The caller warms up first, so that first-use costs stay outside.
inline void CountRegion(const char* key, long operations, const std::function<void()>& body) {
  char label[256];
  std::snprintf(label, sizeof label, "%s ops=%ld", key, operations);
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  body();
  CALLGRIND_DUMP_STATS_AT(label);
  CALLGRIND_STOP_INSTRUMENTATION;
}

// main() of a benchmark program: strips --metrics=FILE and --count from the arguments, then either
// calls `count` or runs the registered benchmarks.
inline int RunWithMetrics(int argc, char** argv, const std::function<void()>& count) {
  std::string metricsPath;
  bool counting = false;
  std::vector<char*> rest;
  for (int i = 0; i < argc; ++i) {
    if (i > 0 && std::strncmp(argv[i], "--metrics=", 10) == 0) {
      metricsPath = argv[i] + 10;
    } else if (i > 0 && std::strcmp(argv[i], "--count") == 0) {
      counting = true;
    } else {
      rest.push_back(argv[i]);
    }
  }
  if (counting) {
    count();
    return 0;
  }
  int restCount = static_cast<int>(rest.size());
  benchmark::Initialize(&restCount, rest.data());
  if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) return 1;
  MetricsReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  if (!metricsPath.empty() && !reporter.Write(metricsPath)) {
    std::fprintf(stderr, "cannot write %s\n", metricsPath.c_str());
    return 1;
  }
  return 0;
}

}  // namespace quorl::bench
