// Base64 throughput over 1 MiB, against a plain table-driven codec (one lookup per character) measured in
// the same run. Throughput counts input bytes: raw bytes when encoding, text bytes when decoding.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/base64.h"
#include "ratio_reporter.h"

namespace {

constexpr std::size_t kSize = 1 << 20;
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

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

std::string ReferenceEncode(const uint8_t* data, std::size_t size) {
  std::string out((size + 2) / 3 * 4, '=');
  std::size_t o = 0, i = 0;
  for (; i + 3 <= size; i += 3, o += 4) {
    out[o] = kAlphabet[data[i] >> 2];
    out[o + 1] = kAlphabet[((data[i] & 3) << 4) | (data[i + 1] >> 4)];
    out[o + 2] = kAlphabet[((data[i + 1] & 15) << 2) | (data[i + 2] >> 6)];
    out[o + 3] = kAlphabet[data[i + 2] & 63];
  }
  if (size - i == 1) {
    out[o] = kAlphabet[data[i] >> 2];
    out[o + 1] = kAlphabet[(data[i] & 3) | (data[i + 1] >> 4)];
  } else if (size - i == 2) {
    out[o] = kAlphabet[data[i] >> 2];
    out[o + 1] = kAlphabet[((data[i] & 3) << 4) | (data[i + 1] >> 4)];
    out[o + 2] = kAlphabet[(data[i + 1] & 15) << 2];
  }
  return out;
}

std::string ReferenceDecode(const std::string& text) {
  static const std::vector<uint8_t> values = [] {
    std::vector<uint8_t> v(256, 0);
    for (int i = 0; i < 64; ++i)
      v[static_cast<uint8_t>(kAlphabet[i])] = static_cast<uint8_t>(i);
    return v;
  }();
  if (text.empty() || text.size() % 4 != 0) return {};
  const std::size_t tail = text[text.size() - 2] == '=' ? 2 : text[text.size() - 1] == '=' ? 1 : 0;
  std::string out(text.size() / 4 * 3 - tail, '\0');
  const auto* in = reinterpret_cast<const uint8_t*>(text.data());
  std::size_t o = 0;
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const uint32_t group =
        (values[in[i]] << 18) | (values[in[i + 1]] << 12) | (values[in[i + 2]] << 6) | values[in[i + 3]];
    out[o++] = static_cast<char>(group >> 16);
    if (o < out.size()) out[o++] = static_cast<char>(group >> 8);
    if (o < out.size()) out[o++] = static_cast<char>(group);
  }
  return out;
}

void SetThroughput(benchmark::State& state, std::size_t bytes) {
  state.counters["GB/s"] =
      benchmark::Counter(static_cast<double>(bytes) * static_cast<double>(state.iterations()) / 1e9,
                         benchmark::Counter::kIsRate);
}

void Encode(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(quorl::Base64Encode(Input().data(), kSize));
  SetThroughput(state, kSize);
}
void EncodeReference(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(ReferenceEncode(Input().data(), kSize));
  SetThroughput(state, kSize);
}

void Decode(benchmark::State& state) {
  const std::string text = quorl::Base64Encode(Input().data(), kSize);
  if (quorl::Base64Decode(text) != ReferenceDecode(text)) state.SkipWithError("decoders disagree");
  for (auto _ : state)
    benchmark::DoNotOptimize(quorl::Base64Decode(text));
  SetThroughput(state, text.size());
}
void DecodeReference(benchmark::State& state) {
  const std::string text = quorl::Base64Encode(Input().data(), kSize);
  for (auto _ : state)
    benchmark::DoNotOptimize(ReferenceDecode(text));
  SetThroughput(state, text.size());
}

BENCHMARK(Encode);
BENCHMARK(EncodeReference);
BENCHMARK(Decode);
BENCHMARK(DecodeReference);

}  // namespace

int main(int argc, char** argv) {
  return quorl::bench::RunBenchmarksWithRatios(argc, argv);
}
