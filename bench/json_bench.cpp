// Speed of the JSON binding on a configuration-like document of about 1 MB, against RapidJSON's own DOM
// parse of the same text in the same run; absolute times drift on shared machines, the ratios count.
// The counting mode gives instructions per node of the tree, and its regions for ReadJson, WriteJson and
// WriteJson's lock takes alone are where bench/run.sh counts the takes of the value type lock and the
// instructions spent in the heap.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "bench_metrics.h"
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

const rapidjson::Document& ParsedDocument() {
  static const rapidjson::Document document = [] {
    rapidjson::Document d;
    d.Parse(Document().c_str(), Document().size());
    return d;
  }();
  return document;
}

std::shared_ptr<OptionNode> ReadTree() {
  auto root = std::make_shared<OptionNode>();
  quorl::ReadJson(root, ParsedDocument());
  return root;
}

// The tree that WriteJson writes, read once before any benchmark runs, as an application reads its
// configuration at start. Read later, after the other benchmarks have freed and reused the heap many
// times over, its nodes would lie scattered, and the write would measure that scattering (it came out
// half as fast again) rather than the binding; and the figure would change with the benchmarks chosen.
const std::shared_ptr<OptionNode>& WriteTree() {
  static const std::shared_ptr<OptionNode> tree = ReadTree();
  return tree;
}

void SetWork(benchmark::State& state, std::size_t nodes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Document().size()));
  state.counters["nodes"] = static_cast<double>(nodes);
}

void BM_RapidJsonParse(benchmark::State& state) {
  const std::string& text = Document();
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    benchmark::DoNotOptimize(document.IsObject());
  }
  SetWork(state, CountNodes(*WriteTree()));
}

// ReadJson from a ready DOM into a fresh tree; the tree dies outside the timing.
void BM_ReadJson(benchmark::State& state) {
  const rapidjson::Document& document = ParsedDocument();
  for (auto _ : state) {
    auto root = std::make_shared<OptionNode>();
    benchmark::DoNotOptimize(quorl::ReadJson(root, document));
    state.PauseTiming();
    root.reset();
    state.ResumeTiming();
  }
  SetWork(state, CountNodes(*WriteTree()));
}

// The same with the tree's destruction timed too, which is what a reader pays in all.
void BM_ReadJsonAndDestroy(benchmark::State& state) {
  const rapidjson::Document& document = ParsedDocument();
  for (auto _ : state) {
    auto root = std::make_shared<OptionNode>();
    benchmark::DoNotOptimize(quorl::ReadJson(root, document));
  }
  SetWork(state, CountNodes(*WriteTree()));
}

// WriteJson of a ready tree into a fresh DOM, the DOM's destruction included.
void BM_WriteJson(benchmark::State& state) {
  const std::shared_ptr<OptionNode>& root = WriteTree();
  for (auto _ : state) {
    rapidjson::Document out;
    out.SetObject();
    benchmark::DoNotOptimize(quorl::WriteJson(root, out, out.GetAllocator()));
  }
  SetWork(state, CountNodes(*root));
}

// True when `table` is one of the scalar rows; the tests stop at the first match, as the write's do.
bool IsScalarRow(const quorl::ValueTypeTable* table) {
  using namespace quorl;
  return table == EnsureRegistered<BoolType>() || table == EnsureRegistered<FloatType>() ||
         table == EnsureRegistered<DoubleType>() || table == EnsureRegistered<Int32Type>() ||
         table == EnsureRegistered<UInt32Type>() || table == EnsureRegistered<Int64Type>() ||
         table == EnsureRegistered<UInt64Type>();
}

// WriteJson's lock takes alone: the table tests of its two passes over the same tree, in its order and
// as many, with no DOM built (the table prints the takes per node of both, so that they can be compared).
// What the locking that every use of a type table requires costs in the shape in which the write meets
// it: back to back, rather than one pair at a time in a tight loop as the floor takes them.
void WriteTakes(const OptionNode& node) {
  for (const auto& child : node.GetChildren()) {
    if (child->GetValue().IsEmpty()) continue;
    benchmark::DoNotOptimize(IsScalarRow(child->GetValue().GetTable()));
    benchmark::DoNotOptimize(IsScalarRow(quorl::EnsureRegistered<quorl::HashedNameType>()));
  }
  for (const auto& child : node.GetChildren()) {
    benchmark::DoNotOptimize(IsScalarRow(quorl::EnsureRegistered<quorl::HashedNameType>()));
    if (child->IsObject() || child->IsArray()) WriteTakes(*child);
  }
}

void BM_WriteTakes(benchmark::State& state) {
  const std::shared_ptr<OptionNode>& root = WriteTree();
  for (auto _ : state)
    WriteTakes(*root);
  SetWork(state, CountNodes(*root));
}

BENCHMARK(BM_RapidJsonParse)->Name("json/parse")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadJson)->Name("json/read")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadJsonAndDestroy)->Name("json/read_destroy")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteJson)->Name("json/write")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteTakes)->Name("json/write_takes")->Unit(benchmark::kMillisecond);

// Operations are the tree's nodes, so that the table divides instructions and lock takes by nodes. Each
// region repeats what one iteration of its benchmark times, after one such iteration outside it, so that
// the allocator is in the same state as there.
void CountAll() {
  const std::string& text = Document();
  const rapidjson::Document& document = ParsedDocument();
  const std::shared_ptr<OptionNode>& tree = WriteTree();
  const long nodes = static_cast<long>(CountNodes(*tree));
  auto parse = [&] {
    rapidjson::Document parsed;
    parsed.Parse(text.c_str(), text.size());
    benchmark::DoNotOptimize(parsed.IsObject());
  };
  parse();
  quorl::bench::CountRegion("json/parse", nodes, parse);
  ReadTree().reset();
  std::shared_ptr<OptionNode> root = std::make_shared<OptionNode>();
  quorl::bench::CountRegion("json/read", nodes,
                            [&] { benchmark::DoNotOptimize(quorl::ReadJson(root, document)); });
  root.reset();
  auto write = [&] {
    rapidjson::Document out;
    out.SetObject();
    benchmark::DoNotOptimize(quorl::WriteJson(tree, out, out.GetAllocator()));
  };
  write();
  quorl::bench::CountRegion("json/write", nodes, write);
  quorl::bench::CountRegion("json/write_takes", nodes, [&] { WriteTakes(*tree); });
}

}  // namespace

int main(int argc, char** argv) {
  // Freed memory stays with the process: otherwise glibc hands the top of the heap back to the kernel
  // whenever a DOM or a tree dies, and the next repetition pays page faults for it or not, depending on
  // which benchmark ran before (the least parse time moved between 1.7 and 2.7 ms that way). The same
  // setting holds for ours and for RapidJSON's parse; no block here comes near the mmap threshold.
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  std::printf("document: %zu bytes\n", Document().size());
  WriteTree();  // before anything else uses the heap
  return quorl::bench::RunWithMetrics(argc, argv, &CountAll);
}
