// Speed of the JSON binding on a configuration-like document of about 1 MB, against RapidJSON's own
// parse of the same text in the same run. The ratios printed at the end are the figures that count;
// absolute times drift on shared machines.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "options/json.h"

namespace {

using quorl::OptionNode;

// A deterministic document of stream and device settings: nested objects, arrays of objects, numbers
// of every magnitude, strings with escapes and UTF-8.
std::string MakeDocument(std::size_t targetBytes) {
  std::string text = "{\"version\":3,\"profile\":\"studio\",\"streams\":[";
  unsigned seed = 12345;
  auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
  for (int i = 0; text.size() < targetBytes; ++i) {
    if (i > 0) text += ',';
    char item[640];
    std::snprintf(
        item, sizeof item,
        "{\"id\":%d,\"name\":\"stream \\\"%d\\\" \\u00e9t\\u00e9 \xe6\x97\xa5\",\"enabled\":%s,"
        "\"bitrate\":%u,\"gain\":%.4f,\"offset\":-%u,\"bytes\":%llu,"
        "\"codec\":{\"family\":\"av1\",\"profile\":%u,\"tier\":\"main\",\"tune\":\"film\\tgrain\"},"
        "\"layers\":[{\"width\":%u,\"height\":%u,\"fps\":29.97},{\"width\":%u,\"height\":%u,\"fps\":59.94}],"
        "\"tags\":[\"live\",\"hdr\",\"path\\\\to\\\\file\"],\"weights\":[0.25,0.5,%u]}",
        i, i, (next() & 1) ? "true" : "false", next() % 50000000u, (next() % 10000) / 100.0, next() % 1000u,
        5000000000ull + next(), next() % 4u, 640u + next() % 3200u, 360u + next() % 1800u,
        320u + next() % 1600u, 180u + next() % 900u, next() % 100u);
    text += item;
  }
  text += "],\"limits\":{\"max\":3000000000,\"min\":-3000000000,\"huge\":10000000000000000000}}";
  return text;
}

std::size_t CountNodes(const OptionNode& node) {
  std::size_t count = 1;
  for (const auto& child : node.GetChildren())
    count += CountNodes(*child);
  return count;
}

const std::string& Document() {
  static const std::string text = MakeDocument(1 << 20);
  return text;
}

void BM_RapidJsonParse(benchmark::State& state) {
  const std::string& text = Document();
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    benchmark::DoNotOptimize(document.IsObject());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// ReadJson from a ready DOM into a fresh tree; the tree dies outside the timing.
void BM_ReadJson(benchmark::State& state) {
  const std::string& text = Document();
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  for (auto _ : state) {
    auto root = std::make_shared<OptionNode>();
    benchmark::DoNotOptimize(quorl::ReadJson(root, document));
    state.PauseTiming();
    state.counters["nodes"] = static_cast<double>(CountNodes(*root));
    root.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// The same with the tree's destruction timed too, which is what a reader pays in all.
void BM_ReadJsonAndDestroy(benchmark::State& state) {
  const std::string& text = Document();
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  for (auto _ : state) {
    auto root = std::make_shared<OptionNode>();
    benchmark::DoNotOptimize(quorl::ReadJson(root, document));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// WriteJson of a ready tree into a fresh DOM, the DOM's destruction included.
void BM_WriteJson(benchmark::State& state) {
  const std::string& text = Document();
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  auto root = std::make_shared<OptionNode>();
  quorl::ReadJson(root, document);
  for (auto _ : state) {
    rapidjson::Document out;
    out.SetObject();
    benchmark::DoNotOptimize(quorl::WriteJson(root, out, out.GetAllocator()));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(BM_RapidJsonParse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadJson)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadJsonAndDestroy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteJson)->Unit(benchmark::kMillisecond);

// Remembers each benchmark's time per iteration for the closing ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        realTimes[run.run_name.function_name] = run.GetAdjustedRealTime();
        cpuTimes[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> realTimes;
  std::map<std::string, double> cpuTimes;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::printf("document: %zu bytes\n", Document().size());
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  // Both clocks: on a shared machine the wall clock also counts time spent waiting for a core.
  for (const auto* times : {&reporter.realTimes, &reporter.cpuTimes}) {
    const char* clock = times == &reporter.realTimes ? "real" : "cpu";
    const auto parse = times->find("BM_RapidJsonParse");
    if (parse == times->end() || parse->second <= 0) continue;
    for (const char* name : {"BM_ReadJson", "BM_ReadJsonAndDestroy", "BM_WriteJson"}) {
      const auto found = times->find(name);
      if (found != times->end()) {
        std::printf("%s / BM_RapidJsonParse (%s time) = %.2f\n", name, clock, found->second / parse->second);
      }
    }
  }
  benchmark::Shutdown();
  return 0;
}
