// Speed of the configuration resolver: Validate and ApplyDefaults over a schema of 1,000 options in 50
// groups, a fifth of them conditional, against a configuration that sets half of them (a sixth of those
// with a value of the wrong type, as a JSON document gives them). Both operations change the
// configuration, so each timed call works on a fresh deep copy, and the copy alone is the reference of
// the same run; the ratios and net times printed at the end are the figures that count.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "core/strings.h"
#include "options/resolver.h"

namespace {

using quorl::OptionDescriptor;
using quorl::OptionGroup;
using quorl::OptionNode;
using quorl::OptionValue;

constexpr int kGroups = 50;
constexpr int kOptionsPerGroup = 20;
constexpr double kOptions = kGroups * kOptionsPerGroup;

// Option i of a group: a bool switch first, then int, double, text and bool in turn.
OptionValue ValueOf(int i, int offset) {
  if (i == 0) return OptionValue::Of<quorl::BoolType>(1);
  switch (i % 4) {
    case 0:
      return OptionValue::Of<quorl::Int32Type>(i + offset);
    case 1:
      return OptionValue::Of<quorl::DoubleType>(i * 0.5 + offset);
    case 2:
      return OptionValue::Of<quorl::StringType>(quorl::FormatString("value %d", i + offset));
    default:
      return OptionValue::Of<quorl::BoolType>(static_cast<uint8_t>((i + offset) % 2));
  }
}

std::string OptionName(int i) {
  return quorl::FormatString("option%02d", i);
}

struct Fixture {
  std::shared_ptr<OptionGroup> schema = std::make_shared<OptionGroup>();
  std::shared_ptr<OptionNode> configuration = std::make_shared<OptionNode>();  // as read, half set
  std::shared_ptr<OptionNode> validated = std::make_shared<OptionNode>();      // after Validate

  Fixture() {
    std::shared_ptr<OptionGroup> previous;
    for (int g = 0; g < kGroups; ++g) {
      auto group = schema->AddGroup(quorl::FormatString("group%02d", g));
      std::map<int, std::shared_ptr<OptionDescriptor>> declared;
      for (int i = 0; i < kOptionsPerGroup; ++i) {
        // Four conditions in twenty: on a switch, on a default, on a chain, across groups.
        quorl::ConditionRef condition;
        if (i == 5) condition = quorl::MakeEqual(declared[0], OptionValue::Of<quorl::BoolType>(1));
        if (i == 8) condition = quorl::MakeGreaterEqual(declared[1], OptionValue::Of<quorl::DoubleType>(0));
        if (i == 13) condition = quorl::MakeEqual(declared[8], ValueOf(8, 0));
        if (i == 16) {
          condition = quorl::MakeContains((previous ? previous : group)->FindOption(OptionName(2)),
                                          OptionValue::Of<quorl::StringType>("value"));
        }
        declared[i] = group->AddOption(
            std::make_shared<OptionDescriptor>(group, OptionName(i), i, ValueOf(i, 0), "", condition));
      }
      previous = group;
      auto node = configuration->GetOrCreateChild(group->GetName());
      for (int i = 0; i < kOptionsPerGroup; i += 2) {
        OptionValue value = ValueOf(i, 100);
        if (i % 6 == 0) value = OptionValue::Of<quorl::StringType>(value.ToText());  // the wrong type
        node->SetChild(OptionName(i), value);
      }
    }
    validated->CopyChildrenFrom(configuration);
    if (!schema->Validate(validated)) std::fprintf(stderr, "the benchmark's configuration is not valid\n");
  }
};

const Fixture& Data() {
  static const Fixture fixture;
  return fixture;
}

void PerOption(benchmark::State& state) {
  state.counters["per_option"] = benchmark::Counter(
      kOptions, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_CopyConfiguration(benchmark::State& state) {
  for (auto _ : state) {
    auto copy = std::make_shared<OptionNode>();
    copy->CopyChildrenFrom(Data().configuration);
    benchmark::DoNotOptimize(copy.get());
  }
  PerOption(state);
}

void BM_CopyAndValidate(benchmark::State& state) {
  for (auto _ : state) {
    auto copy = std::make_shared<OptionNode>();
    copy->CopyChildrenFrom(Data().configuration);
    benchmark::DoNotOptimize(Data().schema->Validate(copy));
  }
  PerOption(state);
}

void BM_CopyAndApplyDefaults(benchmark::State& state) {
  for (auto _ : state) {
    auto copy = std::make_shared<OptionNode>();
    copy->CopyChildrenFrom(Data().validated);
    Data().schema->ApplyDefaults(copy);
    benchmark::DoNotOptimize(copy.get());
  }
  PerOption(state);
}

// Validate again on a configuration that holds the declared types already: no coercion, no copy.
void BM_ValidateTyped(benchmark::State& state) {
  auto copy = std::make_shared<OptionNode>();
  copy->CopyChildrenFrom(Data().validated);
  for (auto _ : state)
    benchmark::DoNotOptimize(Data().schema->Validate(copy));
  PerOption(state);
}

// ApplyDefaults again on a complete configuration: only the groups' availability is asked.
void BM_ApplyDefaultsComplete(benchmark::State& state) {
  auto copy = std::make_shared<OptionNode>();
  copy->CopyChildrenFrom(Data().validated);
  Data().schema->ApplyDefaults(copy);
  for (auto _ : state) {
    Data().schema->ApplyDefaults(copy);
    benchmark::DoNotOptimize(copy.get());
  }
  PerOption(state);
}

BENCHMARK(BM_CopyConfiguration)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CopyAndValidate)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CopyAndApplyDefaults)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ValidateTyped)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ApplyDefaultsComplete)->Unit(benchmark::kMicrosecond);

// Remembers each benchmark's CPU time per iteration, in microseconds, for the closing figures.
class FigureReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0)
        times[run.run_name.function_name] = run.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::printf("schema: %d options in %d groups, a fifth conditional; configuration sets half\n",
              static_cast<int>(kOptions), kGroups);
  Data();
  FigureReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const auto copy = reporter.times.find("BM_CopyConfiguration");
  if (copy != reporter.times.end() && copy->second > 0) {
    for (const char* name : {"BM_CopyAndValidate", "BM_CopyAndApplyDefaults"}) {
      const auto found = reporter.times.find(name);
      if (found == reporter.times.end()) continue;
      const double net = found->second - copy->second;
      std::printf("%s / BM_CopyConfiguration = %.2f; net of the copy %.1f us per call, %.1f ns per option\n",
                  name, found->second / copy->second, net, net * 1000 / kOptions);
    }
    for (const char* name : {"BM_ValidateTyped", "BM_ApplyDefaultsComplete"}) {
      const auto found = reporter.times.find(name);
      if (found != reporter.times.end())
        std::printf("%s / BM_CopyConfiguration = %.2f\n", name, found->second / copy->second);
    }
  }
  benchmark::Shutdown();
  return 0;
}
