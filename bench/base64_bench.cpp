// Base64 over 1 MiB of random bytes, the library's codec against the plain table-driven codec of
// bench/reference/ (compiled and called the same way) in the same run. Work counts input bytes: raw
// bytes when encoding, text bytes when decoding. The counting mode gives instructions per byte.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "bench_metrics.h"
#include "core/base64.h"
#include "reference/table_base64.h"

namespace {

using quorl::bench::TableBase64Decode;
using quorl::bench::TableBase64Encode;

constexpr std::size_t kSize = 1 << 20;

// The input plus the readable byte the encoder reads behind a 1-byte tail.
const std::vector<uint8_t>& Input() {
  static const std::vector<uint8_t> bytes = [] {
    std::vector<uint8_t> b(kSize + 1);
    std::mt19937 random(42);
    for (uint8_t& byte : b)
      byte = static_cast<uint8_t>(random());
    return b;
  }();
  return bytes;
}

const std::string& Text() {
  static const std::string text = quorl::Base64Encode(Input().data(), kSize);
  return text;
}

// Both codecs must agree before either is timed.
bool CodecsAgree() {
  return Text() == TableBase64Encode(Input().data(), kSize) &&
         quorl::Base64Decode(Text()) == TableBase64Decode(Text().data(), Text().size());
}

void SetThroughput(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(bytes) * static_cast<int64_t>(state.iterations()));
  state.counters["bytes"] = static_cast<double>(bytes);
}

template <std::string (*kEncode)(const uint8_t*, std::size_t)>
void BM_Encode(benchmark::State& state) {
  if (!CodecsAgree()) state.SkipWithError("the codecs disagree");
  for (auto _ : state)
    benchmark::DoNotOptimize(kEncode(Input().data(), kSize));
  SetThroughput(state, kSize);
}

template <std::string (*kDecode)(const char*, std::size_t)>
void BM_Decode(benchmark::State& state) {
  if (!CodecsAgree()) state.SkipWithError("the codecs disagree");
  const std::string& text = Text();
  for (auto _ : state)
    benchmark::DoNotOptimize(kDecode(text.data(), text.size()));
  SetThroughput(state, text.size());
}

// Ours and the reference alternate, so that drift falls on both alike.
BENCHMARK(BM_Encode<quorl::Base64Encode>)->Name("base64/encode/ours");
BENCHMARK(BM_Encode<TableBase64Encode>)->Name("base64/encode/table");
BENCHMARK(BM_Decode<quorl::Base64Decode>)->Name("base64/decode/ours");
BENCHMARK(BM_Decode<TableBase64Decode>)->Name("base64/decode/table");

void CountAll() {
  if (!CodecsAgree()) {
    std::fprintf(stderr, "base64_bench: the codecs disagree\n");
    std::exit(1);
  }
  constexpr int kRounds = 4;
  const std::string& text = Text();
  auto encode = [&](std::string (*code)(const uint8_t*, std::size_t)) {
    return [code] {
      for (int i = 0; i < kRounds; ++i)
        benchmark::DoNotOptimize(code(Input().data(), kSize));
    };
  };
  auto decode = [&](std::string (*code)(const char*, std::size_t)) {
    return [code, &text] {
      for (int i = 0; i < kRounds; ++i)
        benchmark::DoNotOptimize(code(text.data(), text.size()));
    };
  };
  // Operations are bytes, so that the table divides instructions by bytes.
  quorl::bench::CountRegion("base64/encode/ours", kRounds * static_cast<long>(kSize),
                            encode(&quorl::Base64Encode));
  quorl::bench::CountRegion("base64/encode/table", kRounds * static_cast<long>(kSize),
                            encode(&TableBase64Encode));
  quorl::bench::CountRegion("base64/decode/ours", kRounds * static_cast<long>(text.size()),
                            decode(&quorl::Base64Decode));
  quorl::bench::CountRegion("base64/decode/table", kRounds * static_cast<long>(text.size()),
                            decode(&TableBase64Decode));
}

}  // namespace

int main(int argc, char** argv) {
  return quorl::bench::RunWithMetrics(argc, argv, &CountAll);
}
